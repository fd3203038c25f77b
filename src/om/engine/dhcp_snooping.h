#ifndef SRC_OM_ENGINE_DHCP_SNOOPING_H_
#define SRC_OM_ENGINE_DHCP_SNOOPING_H_

#include "src/om/engine/layout.h"

// Bindings of stations to the addresses that they were seen to obtain.
namespace qdt {

enum BindingProtocol : uint8_t { kBoundByDhcp = 0, kBoundByDhcpv6 = 1 };  // any other: neighbour discovery

constexpr uint32_t kStaticBinding = 0;  // any other type: dynamic

struct DhcpSnoopingBinding {
  MacAddress mac;
  uint16_t vlanId;
  uint32_t ipv4Address;     // host order
  uint8_t ipv6Address[16];  // network order
  int32_t fwdIfIndex;
  uint8_t protocol;  // BindingProtocol
  uint8_t isPrefix;
  uint8_t prefixLength;
  uint8_t reserved35;
  uint32_t type;
  uint32_t requestTime;  // of the client's request
};
QDT_RECORD_SIZE(DhcpSnoopingBinding, 44);
QDT_FIELD_AT(DhcpSnoopingBinding, mac, 0, 6);
QDT_FIELD_AT(DhcpSnoopingBinding, vlanId, 6, 2);
QDT_FIELD_AT(DhcpSnoopingBinding, ipv4Address, 8, 4);
QDT_FIELD_AT(DhcpSnoopingBinding, ipv6Address, 12, 16);
QDT_FIELD_AT(DhcpSnoopingBinding, fwdIfIndex, 28, 4);
QDT_FIELD_AT(DhcpSnoopingBinding, protocol, 32, 1);
QDT_FIELD_AT(DhcpSnoopingBinding, isPrefix, 33, 1);
QDT_FIELD_AT(DhcpSnoopingBinding, prefixLength, 34, 1);
QDT_FIELD_AT(DhcpSnoopingBinding, type, 36, 4);
QDT_FIELD_AT(DhcpSnoopingBinding, requestTime, 40, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_DHCP_SNOOPING_H_
