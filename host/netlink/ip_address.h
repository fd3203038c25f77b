#ifndef HOST_NETLINK_IP_ADDRESS_H_
#define HOST_NETLINK_IP_ADDRESS_H_

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "host/netlink/message.h"

namespace qdt::host {

// The two families, as indexes of what exists for each.
enum Family : uint8_t { kIpv4 = 0, kIpv6 = 1 };
constexpr Family kFamilies[] = {kIpv4, kIpv6};

constexpr uint8_t BytesOf(Family family) { return family == kIpv4 ? 4 : 16; }

// An address of either family in network order; of IPv4 the first four bytes.
using IpBytes = std::array<uint8_t, 16>;

// The address in the attribute, zeros where there is none of the family's size.
inline IpBytes IpOf(const nlattr *attribute, Family family) {
  IpBytes address{};
  const Bytes bytes = Payload(attribute);
  if (bytes.size() == BytesOf(family)) std::ranges::copy(bytes, address.begin());
  return address;
}

// A number of `size` bytes in network order.
inline unsigned __int128 FromNetwork(const void *bytes, size_t size) {
  unsigned __int128 value = 0;
  for (size_t i = 0; i < size; ++i) value = value << 8 | static_cast<const uint8_t *>(bytes)[i];
  return value;
}

// The address as a number.
inline unsigned __int128 NumberOf(const IpBytes &address, Family family) {
  return FromNetwork(address.data(), BytesOf(family));
}

// False for a family that is neither.
inline bool FamilyOf(uint8_t afFamily, Family *family) {
  *family = afFamily == AF_INET6 ? kIpv6 : kIpv4;
  return afFamily == AF_INET || afFamily == AF_INET6;
}

// One way that packets go: over a link, to a gateway or to whomever they are for; or the way that a next-hop
// object of the kernel's stands for, which may change.
struct Leg {
  uint32_t object = 0;  // then the rest is nothing to know it by
  uint32_t link = 0;
  bool hasGateway = false;
  Family gatewayFamily = kIpv4;
  uint16_t weight = 1;
  IpBytes gateway{};

  auto operator<=>(const Leg &) const = default;
};

}  // namespace qdt::host

#endif  // HOST_NETLINK_IP_ADDRESS_H_
