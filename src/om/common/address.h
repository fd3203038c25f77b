#ifndef SRC_OM_COMMON_ADDRESS_H_
#define SRC_OM_COMMON_ADDRESS_H_

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

#include "src/om/common/digits.h"

namespace qdt {

// Addresses as text, and texts as addresses. The engine keeps most addresses as 32-bit words in host order;
// what is in network order says so.

// Write an address' text at `at`, which has room for it (INET_ADDRSTRLEN and INET6_ADDRSTRLEN bytes, 17 for a
// MAC address), and return its end: dotted text of a host-order address; text of 16 bytes in network order
// and of four host-order words; all digits of a MAC address, in lower case, with colons.
char *PutIpv4(char *at, uint32_t address);
char *PutIpv6(char *at, const uint8_t *bytes);
char *PutIpv6(char *at, const uint32_t *words);
char *PutMac(char *at, const uint8_t *mac);

// The same as texts of their own, for what takes C strings.
struct Ipv4Text {
  char text[INET_ADDRSTRLEN];
  const char *c_str() const { return text; }
};
inline Ipv4Text ToText(uint32_t address) {
  Ipv4Text result;
  *PutIpv4(result.text, address) = '\0';
  return result;
}

struct Ipv6Text {
  char text[INET6_ADDRSTRLEN];
  const char *c_str() const { return text; }
};
inline Ipv6Text ToText(const uint8_t (&address)[16]) {
  Ipv6Text result;
  *PutIpv6(result.text, address) = '\0';
  return result;
}
inline Ipv6Text ToText(const uint32_t (&words)[4]) {
  Ipv6Text result;
  *PutIpv6(result.text, words) = '\0';
  return result;
}

struct MacText {
  char text[18];
  const char *c_str() const { return text; }
};
inline MacText ToText(const uint8_t (&mac)[6]) {
  MacText result;
  *PutMac(result.text, mac) = '\0';
  return result;
}

// The 16 bytes of an IPv6 text in network order; zero for a text that is none.
struct Ipv6Bytes {
  uint8_t bytes[16];
};
inline Ipv6Bytes ParseIpv6(const char *text) {
  Ipv6Bytes address{};
  if (inet_pton(AF_INET6, text, address.bytes) != 1) address = {};
  return address;
}

// Splits network-order bytes into four host-order words.
inline void ToHostWords(const Ipv6Bytes &address, uint32_t (&words)[4]) {
  std::memcpy(words, address.bytes, sizeof(words));
  for (uint32_t &word : words) word = ntohl(word);
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_ADDRESS_H_
