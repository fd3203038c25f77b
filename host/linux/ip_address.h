#ifndef HOST_LINUX_IP_ADDRESS_H_
#define HOST_LINUX_IP_ADDRESS_H_

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "host/linux/message.h"
#include "host/linux/mirror_table.h"

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

// The address as the number that the layouts' fields take.
inline WideValue NumberOf(const IpBytes &address, Family family) {
  return FromNetwork(address.data(), BytesOf(family));
}

// False for a family that is neither.
inline bool FamilyOf(uint8_t afFamily, Family *family) {
  *family = afFamily == AF_INET6 ? kIpv6 : kIpv4;
  return afFamily == AF_INET || afFamily == AF_INET6;
}

}  // namespace qdt::host

#endif  // HOST_LINUX_IP_ADDRESS_H_
