#ifndef SRC_OM_ENGINE_GLOBAL_H_
#define SRC_OM_ENGINE_GLOBAL_H_

#include "src/om/engine/interface.h"
#include "src/om/engine/layout.h"

namespace qdt {

// The one entry of the global table: the engine's configuration as a whole. IPv4 addresses in host order,
// IPv6 addresses as bytes in network order.
struct GlobalEntry {
  MacAddress systemMac;
  uint16_t ethProtocolsAll;
  uint32_t ethProtocolsIp : 16, portal : 1, arpGatewayDuplicate : 1, hostMode : 1, igmpSnooping : 1,
      dnsSnooping : 1, ndSnooping : 1, : 10;
  uint16_t portalPort;
  uint16_t linuxPort, sshPort, telnetPort;
  uint16_t reserved20;
  uint8_t blackHoleMacs, reserved23;
  uint8_t portalServerV6[16];
  uint32_t portalAddress;
  uint32_t capwapFwdIfIndex;
  uint32_t runCores;
  uint32_t reserved52;
  uint32_t fibLoadBalanceMode, fibHashType;
  uint32_t daaAclGroup, daaAclGroupV6, portalFreeRuleGroup, portalFreeRuleGroupV6;
  uint32_t managementAddress;
  uint8_t managementAddressV6[16];
  uint32_t httpsPortalPort : 16, localManagement : 1, httpsPortal : 1, domainFreeRule : 1,
      portalDnsDisable : 1, controlPlaneCar : 1, denyDnsFromWan : 1, stationIpv6 : 1, : 1, mcBcCar : 8;
  uint16_t mcBcCarId[8];  // other broadcast, other multicast, ARP, IGMP, ND, DHCP, DHCPv6, mDNS
  IngressAclEnable ingressAcl;
  uint32_t egressAcl;  // four bits (L2, L4, L2L4, IPv6) a function, at 0 filter, 8 CAR, 12 remark, 16 mirror,
                       // 20 match
  uint32_t ingressAclGroup[12];
  uint32_t egressAclGroup[10];
  uint32_t reserved216[2];
  uint64_t fwdIngressMap, fwdEgressMap;
  uint8_t reserved240[14388];
  uint32_t trunkL2HashField, trunkL3HashField;
  uint32_t trunkL2HashType : 1, trunkL3HashType : 1, : 30;
  int64_t sacVersion;
  uint64_t sacSessions;
  uint8_t cpuPort, cpuPortTp;
  MacAddress acMac;
  uint8_t reserved14664[8];
};
QDT_RECORD_SIZE(GlobalEntry, 14672);
QDT_FIELD_AT(GlobalEntry, systemMac, 0, 6);
QDT_FIELD_AT(GlobalEntry, ethProtocolsAll, 6, 2);
QDT_FIELD_AT(GlobalEntry, portalPort, 12, 2);
QDT_FIELD_AT(GlobalEntry, linuxPort, 14, 2);
QDT_FIELD_AT(GlobalEntry, sshPort, 16, 2);
QDT_FIELD_AT(GlobalEntry, telnetPort, 18, 2);
QDT_FIELD_AT(GlobalEntry, blackHoleMacs, 22, 1);
QDT_FIELD_AT(GlobalEntry, portalServerV6, 24, 16);
QDT_FIELD_AT(GlobalEntry, portalAddress, 40, 4);
QDT_FIELD_AT(GlobalEntry, capwapFwdIfIndex, 44, 4);
QDT_FIELD_AT(GlobalEntry, runCores, 48, 4);
QDT_FIELD_AT(GlobalEntry, fibLoadBalanceMode, 56, 4);
QDT_FIELD_AT(GlobalEntry, fibHashType, 60, 4);
QDT_FIELD_AT(GlobalEntry, daaAclGroup, 64, 4);
QDT_FIELD_AT(GlobalEntry, daaAclGroupV6, 68, 4);
QDT_FIELD_AT(GlobalEntry, portalFreeRuleGroup, 72, 4);
QDT_FIELD_AT(GlobalEntry, portalFreeRuleGroupV6, 76, 4);
QDT_FIELD_AT(GlobalEntry, managementAddress, 80, 4);
QDT_FIELD_AT(GlobalEntry, managementAddressV6, 84, 16);
QDT_FIELD_AT(GlobalEntry, mcBcCarId, 104, 16);
QDT_FIELD_AT(GlobalEntry, ingressAcl, 120, 4);
QDT_FIELD_AT(GlobalEntry, egressAcl, 124, 4);
QDT_FIELD_AT(GlobalEntry, ingressAclGroup, 128, 48);
QDT_FIELD_AT(GlobalEntry, egressAclGroup, 176, 40);
QDT_FIELD_AT(GlobalEntry, fwdIngressMap, 224, 8);
QDT_FIELD_AT(GlobalEntry, fwdEgressMap, 232, 8);
QDT_FIELD_AT(GlobalEntry, trunkL2HashField, 14628, 4);
QDT_FIELD_AT(GlobalEntry, trunkL3HashField, 14632, 4);
QDT_FIELD_AT(GlobalEntry, sacVersion, 14640, 8);
QDT_FIELD_AT(GlobalEntry, sacSessions, 14648, 8);
QDT_FIELD_AT(GlobalEntry, cpuPort, 14656, 1);
QDT_FIELD_AT(GlobalEntry, cpuPortTp, 14657, 1);
QDT_FIELD_AT(GlobalEntry, acMac, 14658, 6);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_GLOBAL_H_
