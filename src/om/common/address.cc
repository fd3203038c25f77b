#include "src/om/common/address.h"

#include "src/om/common/digits.h"

namespace qdt {

Ipv4Text ToText(uint32_t address) {
  Ipv4Text result{};
  char *at = PutUnsigned(result.text, address >> 24);
  for (int shift = 16; shift >= 0; shift -= 8) {
    *at++ = '.';
    at = PutUnsigned(at, address >> shift & 0xFF);
  }
  result.length = static_cast<uint32_t>(at - result.text);
  return result;
}

Ipv6Text ToText(const uint8_t (&address)[16]) {
  Ipv6Text result{};
  inet_ntop(AF_INET6, address, result.text, sizeof(result.text));
  return result;
}

Ipv6Text ToText(const uint32_t (&words)[4]) {
  uint8_t address[16];
  for (int i = 0; i < 4; ++i) {
    const uint32_t network = htonl(words[i]);
    std::memcpy(address + 4 * i, &network, sizeof(network));
  }
  return ToText(address);
}

MacText ToText(const uint8_t (&mac)[6]) {
  MacText result;
  char *at = result.text;
  for (const uint8_t byte : mac) {
    *at++ = "0123456789abcdef"[byte >> 4];
    *at++ = "0123456789abcdef"[byte & 0xF];
    *at++ = ':';
  }
  at[-1] = '\0';
  return result;
}

}  // namespace qdt
