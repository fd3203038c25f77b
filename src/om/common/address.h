#ifndef SRC_OM_COMMON_ADDRESS_H_
#define SRC_OM_COMMON_ADDRESS_H_

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string_view>

namespace qdt {

// Addresses as text, and texts as addresses. The engine keeps most addresses as 32-bit words in host order;
// what is in network order says so. The texts are null-terminated; view() spares those who print them the
// search for the end where it is known.

struct Ipv4Text {
  char text[INET_ADDRSTRLEN];
  uint32_t length;
  const char *c_str() const { return text; }
  std::string_view view() const { return {text, length}; }
};

struct Ipv6Text {
  char text[INET6_ADDRSTRLEN];
  const char *c_str() const { return text; }
  std::string_view view() const { return text; }
};

struct MacText {
  char text[sizeof("00:00:00:00:00:00")];
  const char *c_str() const { return text; }
  std::string_view view() const { return {text, sizeof(text) - 1}; }
};

// Dotted text of a host-order address.
Ipv4Text ToText(uint32_t address);

// Text of 16 bytes in network order, and of four host-order words.
Ipv6Text ToText(const uint8_t (&address)[16]);
Ipv6Text ToText(const uint32_t (&words)[4]);

// Text of a MAC address: all digits, in lower case, with colons.
MacText ToText(const uint8_t (&mac)[6]);

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
