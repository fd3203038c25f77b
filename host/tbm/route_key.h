#ifndef HOST_TBM_ROUTE_KEY_H_
#define HOST_TBM_ROUTE_KEY_H_

#include <cstdint>
#include <cstring>

#include "host/arena/table_spec.h"

namespace qdt::host {

// What a route table's key is made of; `key` must outlive it.
struct RouteParts {
  explicit RouteParts(const void *key) : address(static_cast<const uint8_t *>(key) + kPrefixAddressOffset) {
    std::memcpy(&length, key, sizeof(length));
    std::memcpy(&vpn, static_cast<const uint8_t *>(key) + sizeof(length), sizeof(vpn));
  }

  uint16_t length;
  uint16_t vpn;
  const uint8_t *address;  // in network order
};

// Clears the bits of the `size` bytes at `address` behind the first `length`.
void KeepPrefix(uint8_t *address, uint32_t size, uint32_t length);

// Whether a table can hold the key: a route whose destination has bits behind its prefix length would never
// match. True for all keys of other tables.
bool IsGoodKey(Lookup lookup, const void *key);

}  // namespace qdt::host

#endif  // HOST_TBM_ROUTE_KEY_H_
