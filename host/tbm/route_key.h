#ifndef HOST_TBM_ROUTE_KEY_H_
#define HOST_TBM_ROUTE_KEY_H_

#include <cstdint>

#include "host/tbm/table_spec.h"

namespace qdt::host {

// Keys of route tables are {u16 prefix length, u16 VPN, destination in network order}.
constexpr uint32_t kPrefixAddressOffset = 4;

// Bytes of the destination; 0 for tables without longest-prefix match.
constexpr uint32_t PrefixAddressSize(Lookup lookup) {
  return lookup == Lookup::kPrefix4 ? 4 : lookup == Lookup::kPrefix6 ? 16 : 0;
}

// Clears the bits of the `size` bytes at `address` behind the first `length`.
void KeepPrefix(uint8_t *address, uint32_t size, uint32_t length);

// Whether a table can hold the key: a route whose destination has bits behind its prefix length would never
// match. True for all keys of other tables.
bool IsGoodKey(Lookup lookup, const void *key);

}  // namespace qdt::host

#endif  // HOST_TBM_ROUTE_KEY_H_
