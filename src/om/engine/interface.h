#ifndef SRC_OM_ENGINE_INTERFACE_H_
#define SRC_OM_ENGINE_INTERFACE_H_

#include "src/om/engine/layout.h"

// The engine's forwarding interfaces, and the small maps that lead from other numberings (control interfaces,
// flow or pct interfaces, users) to the forwarding-interface index.
namespace qdt {

// Entry of the three maps. The index that is mapped is the key as well.
struct InterfaceMapEntry {
  uint32_t source;
  uint32_t fwdIfIndex;
  uint32_t reserved8[2];
};
QDT_RECORD_SIZE(InterfaceMapEntry, 16);
QDT_FIELD_AT(InterfaceMapEntry, source, 0, 4);
QDT_FIELD_AT(InterfaceMapEntry, fwdIfIndex, 4, 4);

// A port to which mirrored packets are sent, found by observe id.
struct ObservePort {
  uint32_t ctrlIfIndex;
  uint32_t fwdIfIndex;
};
QDT_RECORD_SIZE(ObservePort, 8);
QDT_FIELD_AT(ObservePort, ctrlIfIndex, 0, 4);
QDT_FIELD_AT(ObservePort, fwdIfIndex, 4, 4);

// A service that packets entering an interface pass through.
struct IngressService {
  uint8_t type;
  uint8_t parameter;
  uint16_t aclGroupType;
  uint32_t aclGroupId;
  uint64_t boundAclGroup;  // address of the ACL group entry that the engine bound to the service
};
QDT_RECORD_SIZE(IngressService, 16);
QDT_FIELD_AT(IngressService, type, 0, 1);
QDT_FIELD_AT(IngressService, parameter, 1, 1);
QDT_FIELD_AT(IngressService, aclGroupType, 2, 2);
QDT_FIELD_AT(IngressService, aclGroupId, 4, 4);
QDT_FIELD_AT(IngressService, boundAclGroup, 8, 8);

// One block of traffic counters. The engine keeps four of them apart for an interface, whose sums count.
struct InterfaceCounters {
  int64_t inBytes;
  int64_t inPackets;
  int64_t inUnicast;
  int64_t inMulticast;
  int64_t inBroadcast;
  int64_t reserved40[4];
  int64_t outBytes;
  int64_t outPackets;
  int64_t outUnicast;
  int64_t outMulticast;
  int64_t outBroadcast;
  int64_t reserved112[5];
};
QDT_RECORD_SIZE(InterfaceCounters, 152);
QDT_FIELD_AT(InterfaceCounters, inBytes, 0, 8);
QDT_FIELD_AT(InterfaceCounters, inPackets, 8, 8);
QDT_FIELD_AT(InterfaceCounters, inUnicast, 16, 8);
QDT_FIELD_AT(InterfaceCounters, inMulticast, 24, 8);
QDT_FIELD_AT(InterfaceCounters, inBroadcast, 32, 8);
QDT_FIELD_AT(InterfaceCounters, outBytes, 72, 8);
QDT_FIELD_AT(InterfaceCounters, outPackets, 80, 8);
QDT_FIELD_AT(InterfaceCounters, outUnicast, 88, 8);
QDT_FIELD_AT(InterfaceCounters, outMulticast, 96, 8);
QDT_FIELD_AT(InterfaceCounters, outBroadcast, 104, 8);

// Which ingress ACL functions are on, for each kind of ACL group. Also the global record's ingress word.
struct IngressAclEnable {
  uint32_t l2Filter : 1, l2Car : 1, l2Remark : 1, l2Redirect : 1, l2MatchStat : 1, l2Mirror : 1,
      l2Iptables : 1, : 1;
  uint32_t l4Filter : 1, l4Car : 1, l4Remark : 1, l4Redirect : 1, l4MatchStat : 1, l4Mirror : 1,
      l4Iptables : 1, : 1;
  uint32_t l2l4Filter : 1, l2l4Car : 1, l2l4Remark : 1, l2l4Redirect : 1, l2l4MatchStat : 1,
      l2l4Mirror : 1, : 2;
  uint32_t ipv6Filter : 1, ipv6Car : 1, ipv6Remark : 1, ipv6Redirect : 1, ipv6MatchStat : 1,
      ipv6Mirror : 1, : 2;
};
QDT_RECORD_SIZE(IngressAclEnable, 4);

constexpr int kMaxL1IngressServices = 24;
constexpr int kMaxL3IngressServices = 4;

// Entry of the forwarding-interface table. Flags are 1 for yes.
struct ForwardingInterface {
  uint32_t ifIndex;
  uint32_t ifType : 16, enable : 1, down : 1, virtualIf : 1, l2l3 : 1, : 1, isWan : 1, : 10;
  uint32_t pctIndex;
  uint32_t ctrlIfIndex;
  uint32_t flags;
  uint8_t tagType, drvPortType, drvSubType, reserved23;
  uint16_t tb, tp;
  uint32_t port;

  uint32_t linkType;
  MacAddress smac;
  uint16_t pvid;
  uint32_t bridgeId;
  uint32_t macLearn : 1, macLimit : 1, macLimitAlarm : 1, eapolKeyToCp : 1, igmpSnooping : 1,
      pvidVlanAccept : 1, mc2uc : 1, : 1, protocolToTunnel : 8, macLimitAction : 8, macLearnAction : 8;
  uint16_t macLimitNum, vlanId;
  uint32_t curMacNum;
  uint32_t vapType : 3, downLink : 1, : 4, vapIndex : 8, linkId : 8, fwdMode : 3, isTrunkMember : 1,
      portIsolate : 1, stp : 1, stpBlock : 1, stpForward : 1;
  uint32_t bc2ucArp : 1, bc2ucDhcp : 1, bc2ucNd : 1, : 1, bc2ucMdns : 1, bc2ucMissDrop : 1, mcBcDeny : 1,
      mdnsDeny : 1, arpProxy : 1, ndProxy : 1, capture : 1, iotPort : 1, erps : 1, naviAcVap : 1, : 18;
  uint32_t reserved68;
  uint16_t tunnelIndex, trunkId, broadPeerId, broadSessionInfo;
  uint8_t broadPfeVapIndex, reserved81[3];
  MacAddress apWiredMac;
  uint8_t apWiredPortType, apWiredPortId;
  uint8_t pppoe, pppoeCode, pppoeVersion, pppoeType;
  uint16_t pppoeSessionId;
  MacAddress pppoeDmac;
  uint32_t pppVlanIf, pppDialerIf;
  uint8_t tunnelType, reserved113[3];
  uint32_t tunnelId;

  uint32_t : 1, ipLearn : 1, dhcpStrict : 1, addBlackList : 1, nat : 1, aspf : 1, tcpMssEnable : 1, : 9,
      tcpMss : 16;
  uint32_t dhcpTrust : 1, dhcpServer : 1, dhcpClient : 1, : 13, vpn : 16;
  uint16_t mtu, reserved130;
  uint32_t dhcpv6Server : 1, dhcpv6Client : 1, ndTrust : 1, ndSnooping : 1, ipv6Learn : 1, dhcpv6Strict : 1,
      dhcpv6Slaac : 1, v6AddBlackList : 1, : 24;
  uint16_t vpnV6, mtuV6;
  uint32_t reserved140;
  uint64_t linkIngressMap, fwdIngressMap, linkEgressMap, fwdEgressMap;
  InterfaceCounters counters[4];

  uint32_t macAuth : 1, dot1xAuth : 1, dot1xPortAuth : 1, portalAuth : 1, portalAuthV6 : 1,
      egressUserIdentify : 1, : 10, wifiUserGlobalId : 16;
  uint32_t freeRuleGroup, freeRuleGroupV6, staticFreeRuleGroup;
  uint32_t webProxyPortalParse : 1, userIsolate : 1, userIsolateMode : 2, : 1, ingUpToDscp : 1,
      ingUpTo8021p : 1, ingDscpTo8021p : 1, : 1, ingUpToTunnelDscp : 1, ingUpToTunnel8021p : 1,
      ingDscpToTunnel8021p : 1, ingDscpToTunnelDscp : 1, : 6, egr8021pToUp : 1, egrDscpToUp : 1, : 2,
      apPortal : 1, interfaceCarType : 3, : 1, pqm : 1, diversion : 1, sac : 1, sacRemarkDefault : 1;
  uint32_t multiMedia : 1, tcpWindowTuning : 1, arpSimulatorTest : 1, sacStat : 1, ingInterfaceCar : 1,
      egrInterfaceCar : 1, : 26;
  uint32_t reserved808[2];
  uint32_t carIdBroadcast, carIdMulticast, carIdUnknownUnicast, ingVapCarId, egrVapCarId;
  uint32_t ingInterfaceCarId, egrInterfaceCarId;
  uint32_t sacId;
  uint32_t fatherFwdIfIndex;

  IngressAclEnable ingressAcl;
  uint32_t egressAcl;  // bits 0 to 19, in the order in which the view shows them
  uint32_t ingressAclGroup[16];
  uint32_t egressAclGroup[14];
  uint32_t ingL2IptablesGroup, ingL4IptablesGroup;
  uint8_t ingressAclType[8], egressAclType[8];
  uint32_t reserved1004;
  int32_t l1ServiceCount;
  uint32_t reserved1012;
  IngressService l1Service[kMaxL1IngressServices];
  int32_t l3ServiceCount;
  uint32_t reserved1404;
  IngressService l3Service[kMaxL3IngressServices];
  uint8_t reserved1472[72];
};
QDT_RECORD_SIZE(ForwardingInterface, 1544);
QDT_FIELD_AT(ForwardingInterface, ifIndex, 0, 4);
QDT_FIELD_AT(ForwardingInterface, pctIndex, 8, 4);
QDT_FIELD_AT(ForwardingInterface, ctrlIfIndex, 12, 4);
QDT_FIELD_AT(ForwardingInterface, flags, 16, 4);
QDT_FIELD_AT(ForwardingInterface, tagType, 20, 1);
QDT_FIELD_AT(ForwardingInterface, drvPortType, 21, 1);
QDT_FIELD_AT(ForwardingInterface, drvSubType, 22, 1);
QDT_FIELD_AT(ForwardingInterface, tb, 24, 2);
QDT_FIELD_AT(ForwardingInterface, tp, 26, 2);
QDT_FIELD_AT(ForwardingInterface, port, 28, 4);
QDT_FIELD_AT(ForwardingInterface, linkType, 32, 4);
QDT_FIELD_AT(ForwardingInterface, smac, 36, 6);
QDT_FIELD_AT(ForwardingInterface, pvid, 42, 2);
QDT_FIELD_AT(ForwardingInterface, bridgeId, 44, 4);
QDT_FIELD_AT(ForwardingInterface, macLimitNum, 52, 2);
QDT_FIELD_AT(ForwardingInterface, vlanId, 54, 2);
QDT_FIELD_AT(ForwardingInterface, curMacNum, 56, 4);
QDT_FIELD_AT(ForwardingInterface, tunnelIndex, 72, 2);
QDT_FIELD_AT(ForwardingInterface, trunkId, 74, 2);
QDT_FIELD_AT(ForwardingInterface, broadPeerId, 76, 2);
QDT_FIELD_AT(ForwardingInterface, broadSessionInfo, 78, 2);
QDT_FIELD_AT(ForwardingInterface, broadPfeVapIndex, 80, 1);
QDT_FIELD_AT(ForwardingInterface, apWiredMac, 84, 6);
QDT_FIELD_AT(ForwardingInterface, apWiredPortType, 90, 1);
QDT_FIELD_AT(ForwardingInterface, apWiredPortId, 91, 1);
QDT_FIELD_AT(ForwardingInterface, pppoe, 92, 1);
QDT_FIELD_AT(ForwardingInterface, pppoeCode, 93, 1);
QDT_FIELD_AT(ForwardingInterface, pppoeVersion, 94, 1);
QDT_FIELD_AT(ForwardingInterface, pppoeType, 95, 1);
QDT_FIELD_AT(ForwardingInterface, pppoeSessionId, 96, 2);
QDT_FIELD_AT(ForwardingInterface, pppoeDmac, 98, 6);
QDT_FIELD_AT(ForwardingInterface, pppVlanIf, 104, 4);
QDT_FIELD_AT(ForwardingInterface, pppDialerIf, 108, 4);
QDT_FIELD_AT(ForwardingInterface, tunnelType, 112, 1);
QDT_FIELD_AT(ForwardingInterface, tunnelId, 116, 4);
QDT_FIELD_AT(ForwardingInterface, mtu, 128, 2);
QDT_FIELD_AT(ForwardingInterface, vpnV6, 136, 2);
QDT_FIELD_AT(ForwardingInterface, mtuV6, 138, 2);
QDT_FIELD_AT(ForwardingInterface, linkIngressMap, 144, 8);
QDT_FIELD_AT(ForwardingInterface, fwdIngressMap, 152, 8);
QDT_FIELD_AT(ForwardingInterface, linkEgressMap, 160, 8);
QDT_FIELD_AT(ForwardingInterface, fwdEgressMap, 168, 8);
QDT_FIELD_AT(ForwardingInterface, counters, 176, 608);
QDT_FIELD_AT(ForwardingInterface, freeRuleGroup, 788, 4);
QDT_FIELD_AT(ForwardingInterface, freeRuleGroupV6, 792, 4);
QDT_FIELD_AT(ForwardingInterface, staticFreeRuleGroup, 796, 4);
QDT_FIELD_AT(ForwardingInterface, carIdBroadcast, 816, 4);
QDT_FIELD_AT(ForwardingInterface, carIdMulticast, 820, 4);
QDT_FIELD_AT(ForwardingInterface, carIdUnknownUnicast, 824, 4);
QDT_FIELD_AT(ForwardingInterface, ingVapCarId, 828, 4);
QDT_FIELD_AT(ForwardingInterface, egrVapCarId, 832, 4);
QDT_FIELD_AT(ForwardingInterface, ingInterfaceCarId, 836, 4);
QDT_FIELD_AT(ForwardingInterface, egrInterfaceCarId, 840, 4);
QDT_FIELD_AT(ForwardingInterface, sacId, 844, 4);
QDT_FIELD_AT(ForwardingInterface, fatherFwdIfIndex, 848, 4);
QDT_FIELD_AT(ForwardingInterface, ingressAcl, 852, 4);
QDT_FIELD_AT(ForwardingInterface, egressAcl, 856, 4);
QDT_FIELD_AT(ForwardingInterface, ingressAclGroup, 860, 64);
QDT_FIELD_AT(ForwardingInterface, egressAclGroup, 924, 56);
QDT_FIELD_AT(ForwardingInterface, ingL2IptablesGroup, 980, 4);
QDT_FIELD_AT(ForwardingInterface, ingL4IptablesGroup, 984, 4);
QDT_FIELD_AT(ForwardingInterface, ingressAclType, 988, 8);
QDT_FIELD_AT(ForwardingInterface, egressAclType, 996, 8);
QDT_FIELD_AT(ForwardingInterface, l1ServiceCount, 1008, 4);
QDT_FIELD_AT(ForwardingInterface, l1Service, 1016, 384);
QDT_FIELD_AT(ForwardingInterface, l3ServiceCount, 1400, 4);
QDT_FIELD_AT(ForwardingInterface, l3Service, 1408, 64);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_INTERFACE_H_
