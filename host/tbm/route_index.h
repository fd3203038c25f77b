#ifndef HOST_TBM_ROUTE_INDEX_H_
#define HOST_TBM_ROUTE_INDEX_H_

#include <cstdint>

#include "host/arena/route_layout.h"

namespace qdt::host::tbm {

// The entry behind a route: serials tell whether the slot still holds it.
struct Route {
  uint32_t slot;
  uint32_t length;  // of the prefix
  uint64_t serial;
};

// Finds longest prefixes in the index of a route table, while its writer (RouteIndexWriter, in any process)
// changes it. Takes no lock, and trusts nothing that it finds: damaged memory gives a wrong answer or kLost.
class RouteIndex {
 public:
  enum class Found {
    kRoute,
    kNone,
    kLost,  // the index is damaged, or changes so fast that no answer can be found
  };

  // `area` has `size` bytes and their head has storage (route_layout.h). addressSize: 4 or 16.
  RouteIndex(const char *area, uint64_t size, uint32_t addressSize)
      : area_(area), size_(size), addressSize_(addressSize) {}

  // The longest route of the VPN that matches the destination (in network order): what the index answered at
  // one moment during the call.
  Found Match(uint16_t vpn, const uint8_t *address, Route *route) const;

 private:
  template <typename Bits>
  Found Attempt(uint16_t vpn, Bits address, Route *route) const;
  template <typename Bits>
  Found MatchBits(uint16_t vpn, Bits address, Route *route) const;

  const RouteHead &head() const { return *reinterpret_cast<const RouteHead *>(area_); }

  const char *area_;
  uint64_t size_;
  uint32_t addressSize_;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_ROUTE_INDEX_H_
