#include "src/om/common/address.h"

#include <cstring>

namespace qdt {

char *PutIpv4(char *at, uint32_t address) {
  at = PutUnsigned(at, address >> 24);
  for (int shift = 16; shift >= 0; shift -= 8) {
    *at++ = '.';
    at = PutUnsigned(at, address >> shift & 0xFF);
  }
  return at;
}

char *PutIpv6(char *at, const uint8_t *bytes) {
  inet_ntop(AF_INET6, bytes, at, INET6_ADDRSTRLEN);
  return at + std::strlen(at);
}

char *PutIpv6(char *at, const uint32_t *words) {
  uint8_t bytes[16];
  for (int i = 0; i < 4; ++i) {
    const uint32_t network = htonl(words[i]);
    std::memcpy(bytes + 4 * i, &network, sizeof(network));
  }
  return PutIpv6(at, bytes);
}

char *PutMac(char *at, const uint8_t *mac) {
  for (int i = 0; i < 6; ++i) {
    if (i != 0) *at++ = ':';
    *at++ = "0123456789abcdef"[mac[i] >> 4];
    *at++ = "0123456789abcdef"[mac[i] & 0xF];
  }
  return at;
}

}  // namespace qdt
