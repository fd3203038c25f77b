#include "host/tbm/route_key.h"

#include <algorithm>
#include <cstring>

namespace qdt::host {

void KeepPrefix(uint8_t *address, uint32_t size, uint32_t length) {
  for (uint32_t i = 0; i < size; ++i) {
    const uint32_t kept = length > i * 8 ? std::min(length - i * 8, 8u) : 0;
    address[i] &= static_cast<uint8_t>(0xff00 >> kept);
  }
}

bool IsGoodKey(Lookup lookup, const void *key) {
  const uint32_t size = PrefixAddressSize(lookup);
  if (size == 0) return true;
  const RouteParts route(key);
  if (route.length > size * 8) return false;
  uint8_t prefix[16];
  std::memcpy(prefix, route.address, size);
  KeepPrefix(prefix, size, route.length);
  return std::memcmp(prefix, route.address, size) == 0;
}

}  // namespace qdt::host
