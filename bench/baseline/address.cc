#include "src/om/common/address.h"

#include <cstdio>

// The C library's texts of addresses, for the library that the views are measured against.
namespace qdt {

Ipv4Text ToText(uint32_t address) {
  const in_addr network = {htonl(address)};
  Ipv4Text result{};
  inet_ntop(AF_INET, &network, result.text, sizeof(result.text));
  result.length = static_cast<uint32_t>(strlen(result.text));
  return result;
}

Ipv6Text ToText(const uint8_t (&address)[16]) {
  Ipv6Text result{};
  inet_ntop(AF_INET6, address, result.text, sizeof(result.text));
  return result;
}

Ipv6Text ToText(const uint32_t (&words)[4]) {
  uint32_t network[4];
  for (int i = 0; i < 4; ++i) network[i] = htonl(words[i]);
  Ipv6Text result{};
  inet_ntop(AF_INET6, network, result.text, sizeof(result.text));
  return result;
}

MacText ToText(const uint8_t (&mac)[6]) {
  MacText result;
  snprintf(result.text, sizeof(result.text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
           mac[4], mac[5]);
  return result;
}

}  // namespace qdt
