#include "src/om/engine/acl.h"
#include "src/om/engine/arp_simulator.h"
#include "src/om/engine/capwap.h"
#include "src/om/engine/car.h"
#include "src/om/engine/global.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/packet_trace.h"
#include "src/om/engine/reassembly.h"
#include "src/om/engine/route.h"
#include "src/om/engine/sac.h"
#include "src/om/engine/security.h"
#include "src/om/engine/session.h"
#include "src/om/engine/switching.h"
#include "src/om/engine/user.h"

// The bits of all records, in one place: the compiler takes its time over each, and this source asks it once.
namespace qdt {

// Access-control lists.
QDT_BITS_AT(AclAction, 0, deny, 0, 0);
QDT_BITS_AT(AclAction, 0, remark8021p, 1, 1);
QDT_BITS_AT(AclAction, 0, remarkDscp, 2, 2);
QDT_BITS_AT(AclAction, 0, car, 3, 3);
QDT_BITS_AT(AclAction, 0, stat, 4, 4);
QDT_BITS_AT(AclAction, 0, redirectNextHop, 5, 5);
QDT_BITS_AT(AclAction, 0, redirectCp, 6, 6);
QDT_BITS_AT(AclAction, 0, mirror, 7, 7);
QDT_BITS_AT(AclAction, 0, newDscp, 8, 13);
QDT_BITS_AT(AclAction, 0, observeIndex, 14, 15);
QDT_BITS_AT(AclAction, 0, new8021p, 16, 18);
QDT_BITS_AT(AclAction, 0, redirectNextHopV6, 19, 19);
QDT_BITS_AT(AclAction, 0, matchStat, 20, 20);
QDT_BITS_AT(AclAction, 0, loadBalanceRedirect, 21, 21);
QDT_BITS_AT(AclAction, 0, iptablesAccept, 23, 23);
QDT_BITS_AT(AclAction, 0, reserved28, 28, 31);
QDT_BITS_AT(AclL4Tail, 6, ttlExpired, 0, 0);
QDT_BITS_AT(AclL4Tail, 6, domain, 1, 1);
QDT_BITS_AT(AclL4Tail, 6, fragment, 2, 3);
QDT_BITS_AT(AclL4Tail, 6, isIpv4, 4, 4);
QDT_BITS_AT(AclL4Tail, 6, isIpv6, 5, 5);
QDT_BITS_AT(AclL2Match, 16, dot1p, 0, 2);

// ARP simulator.
QDT_BITS_AT(ArpSimulatorEntry, 36, testing, 0, 0);

// CAPWAP tunnels.
QDT_BITS_AT(CapwapTunnelEntry, 0, valid, 0, 0);
QDT_BITS_AT(CapwapTunnelEntry, 0, state, 1, 1);
QDT_BITS_AT(CapwapTunnelEntry, 0, acToAc, 2, 4);
QDT_BITS_AT(CapwapTunnelEntry, 0, serverOrClient, 5, 5);
QDT_BITS_AT(CapwapTunnelEntry, 0, encrypted, 6, 6);
QDT_BITS_AT(CapwapTunnelEntry, 24, preamble, 0, 7);
QDT_BITS_AT(CapwapTunnelEntry, 24, headerLength, 8, 12);
QDT_BITS_AT(CapwapTunnelEntry, 24, radioId, 13, 17);
QDT_BITS_AT(CapwapTunnelEntry, 24, wirelessBinding, 18, 22);
QDT_BITS_AT(CapwapTunnelEntry, 24, tFlag, 23, 23);
QDT_BITS_AT(CapwapTunnelEntry, 24, fFlag, 24, 24);
QDT_BITS_AT(CapwapTunnelEntry, 24, lFlag, 25, 25);
QDT_BITS_AT(CapwapTunnelEntry, 24, wFlag, 26, 26);
QDT_BITS_AT(CapwapTunnelEntry, 24, mFlag, 27, 27);
QDT_BITS_AT(CapwapTunnelEntry, 24, kFlag, 28, 28);

// Rate limiters.
QDT_BITS_AT(CarEntry, 0, packetMode, 0, 0);
QDT_BITS_AT(CarEntry, 0, cirOffset, 1, 2);
QDT_BITS_AT(CarEntry, 0, pirOffset, 3, 4);
QDT_BITS_AT(CarEntry, 96, permitGreen, 0, 0);
QDT_BITS_AT(CarEntry, 100, permitYellow, 0, 0);
QDT_BITS_AT(CarEntry, 104, permitRed, 0, 0);

// The global record.
QDT_BITS_AT(GlobalEntry, 8, ethProtocolsIp, 0, 15);
QDT_BITS_AT(GlobalEntry, 8, portal, 16, 16);
QDT_BITS_AT(GlobalEntry, 8, arpGatewayDuplicate, 17, 17);
QDT_BITS_AT(GlobalEntry, 8, hostMode, 18, 18);
QDT_BITS_AT(GlobalEntry, 8, igmpSnooping, 19, 19);
QDT_BITS_AT(GlobalEntry, 8, dnsSnooping, 20, 20);
QDT_BITS_AT(GlobalEntry, 8, ndSnooping, 21, 21);
QDT_BITS_AT(GlobalEntry, 100, httpsPortalPort, 0, 15);
QDT_BITS_AT(GlobalEntry, 100, localManagement, 16, 16);
QDT_BITS_AT(GlobalEntry, 100, httpsPortal, 17, 17);
QDT_BITS_AT(GlobalEntry, 100, domainFreeRule, 18, 18);
QDT_BITS_AT(GlobalEntry, 100, portalDnsDisable, 19, 19);
QDT_BITS_AT(GlobalEntry, 100, controlPlaneCar, 20, 20);
QDT_BITS_AT(GlobalEntry, 100, denyDnsFromWan, 21, 21);
QDT_BITS_AT(GlobalEntry, 100, stationIpv6, 22, 22);
QDT_BITS_AT(GlobalEntry, 100, mcBcCar, 24, 31);
QDT_BITS_AT(GlobalEntry, 14636, trunkL2HashType, 0, 0);
QDT_BITS_AT(GlobalEntry, 14636, trunkL3HashType, 1, 1);

// Interfaces.
QDT_BITS_AT(IngressAclEnable, 0, l2Filter, 0, 0);
QDT_BITS_AT(IngressAclEnable, 0, l2Car, 1, 1);
QDT_BITS_AT(IngressAclEnable, 0, l2Remark, 2, 2);
QDT_BITS_AT(IngressAclEnable, 0, l2Redirect, 3, 3);
QDT_BITS_AT(IngressAclEnable, 0, l2MatchStat, 4, 4);
QDT_BITS_AT(IngressAclEnable, 0, l2Mirror, 5, 5);
QDT_BITS_AT(IngressAclEnable, 0, l2Iptables, 6, 6);
QDT_BITS_AT(IngressAclEnable, 0, l4Filter, 8, 8);
QDT_BITS_AT(IngressAclEnable, 0, l4Car, 9, 9);
QDT_BITS_AT(IngressAclEnable, 0, l4Remark, 10, 10);
QDT_BITS_AT(IngressAclEnable, 0, l4Redirect, 11, 11);
QDT_BITS_AT(IngressAclEnable, 0, l4MatchStat, 12, 12);
QDT_BITS_AT(IngressAclEnable, 0, l4Mirror, 13, 13);
QDT_BITS_AT(IngressAclEnable, 0, l4Iptables, 14, 14);
QDT_BITS_AT(IngressAclEnable, 0, l2l4Filter, 16, 16);
QDT_BITS_AT(IngressAclEnable, 0, l2l4Car, 17, 17);
QDT_BITS_AT(IngressAclEnable, 0, l2l4Remark, 18, 18);
QDT_BITS_AT(IngressAclEnable, 0, l2l4Redirect, 19, 19);
QDT_BITS_AT(IngressAclEnable, 0, l2l4MatchStat, 20, 20);
QDT_BITS_AT(IngressAclEnable, 0, l2l4Mirror, 21, 21);
QDT_BITS_AT(IngressAclEnable, 0, ipv6Filter, 24, 24);
QDT_BITS_AT(IngressAclEnable, 0, ipv6Car, 25, 25);
QDT_BITS_AT(IngressAclEnable, 0, ipv6Remark, 26, 26);
QDT_BITS_AT(IngressAclEnable, 0, ipv6Redirect, 27, 27);
QDT_BITS_AT(IngressAclEnable, 0, ipv6MatchStat, 28, 28);
QDT_BITS_AT(IngressAclEnable, 0, ipv6Mirror, 29, 29);
QDT_BITS_AT(ForwardingInterface, 4, ifType, 0, 15);
QDT_BITS_AT(ForwardingInterface, 4, enable, 16, 16);
QDT_BITS_AT(ForwardingInterface, 4, down, 17, 17);
QDT_BITS_AT(ForwardingInterface, 4, virtualIf, 18, 18);
QDT_BITS_AT(ForwardingInterface, 4, l2l3, 19, 19);
QDT_BITS_AT(ForwardingInterface, 4, isWan, 21, 21);
QDT_BITS_AT(ForwardingInterface, 48, macLearn, 0, 0);
QDT_BITS_AT(ForwardingInterface, 48, macLimit, 1, 1);
QDT_BITS_AT(ForwardingInterface, 48, macLimitAlarm, 2, 2);
QDT_BITS_AT(ForwardingInterface, 48, eapolKeyToCp, 3, 3);
QDT_BITS_AT(ForwardingInterface, 48, igmpSnooping, 4, 4);
QDT_BITS_AT(ForwardingInterface, 48, pvidVlanAccept, 5, 5);
QDT_BITS_AT(ForwardingInterface, 48, mc2uc, 6, 6);
QDT_BITS_AT(ForwardingInterface, 48, protocolToTunnel, 8, 15);
QDT_BITS_AT(ForwardingInterface, 48, macLimitAction, 16, 23);
QDT_BITS_AT(ForwardingInterface, 48, macLearnAction, 24, 31);
QDT_BITS_AT(ForwardingInterface, 60, vapType, 0, 2);
QDT_BITS_AT(ForwardingInterface, 60, downLink, 3, 3);
QDT_BITS_AT(ForwardingInterface, 60, vapIndex, 8, 15);
QDT_BITS_AT(ForwardingInterface, 60, linkId, 16, 23);
QDT_BITS_AT(ForwardingInterface, 60, fwdMode, 24, 26);
QDT_BITS_AT(ForwardingInterface, 60, isTrunkMember, 27, 27);
QDT_BITS_AT(ForwardingInterface, 60, portIsolate, 28, 28);
QDT_BITS_AT(ForwardingInterface, 60, stp, 29, 29);
QDT_BITS_AT(ForwardingInterface, 60, stpBlock, 30, 30);
QDT_BITS_AT(ForwardingInterface, 60, stpForward, 31, 31);
QDT_BITS_AT(ForwardingInterface, 64, bc2ucArp, 0, 0);
QDT_BITS_AT(ForwardingInterface, 64, bc2ucDhcp, 1, 1);
QDT_BITS_AT(ForwardingInterface, 64, bc2ucNd, 2, 2);
QDT_BITS_AT(ForwardingInterface, 64, bc2ucMdns, 4, 4);
QDT_BITS_AT(ForwardingInterface, 64, bc2ucMissDrop, 5, 5);
QDT_BITS_AT(ForwardingInterface, 64, mcBcDeny, 6, 6);
QDT_BITS_AT(ForwardingInterface, 64, mdnsDeny, 7, 7);
QDT_BITS_AT(ForwardingInterface, 64, arpProxy, 8, 8);
QDT_BITS_AT(ForwardingInterface, 64, ndProxy, 9, 9);
QDT_BITS_AT(ForwardingInterface, 64, capture, 10, 10);
QDT_BITS_AT(ForwardingInterface, 64, iotPort, 11, 11);
QDT_BITS_AT(ForwardingInterface, 64, erps, 12, 12);
QDT_BITS_AT(ForwardingInterface, 64, naviAcVap, 13, 13);
QDT_BITS_AT(ForwardingInterface, 120, ipLearn, 1, 1);
QDT_BITS_AT(ForwardingInterface, 120, dhcpStrict, 2, 2);
QDT_BITS_AT(ForwardingInterface, 120, addBlackList, 3, 3);
QDT_BITS_AT(ForwardingInterface, 120, nat, 4, 4);
QDT_BITS_AT(ForwardingInterface, 120, aspf, 5, 5);
QDT_BITS_AT(ForwardingInterface, 120, tcpMssEnable, 6, 6);
QDT_BITS_AT(ForwardingInterface, 120, tcpMss, 16, 31);
QDT_BITS_AT(ForwardingInterface, 124, dhcpTrust, 0, 0);
QDT_BITS_AT(ForwardingInterface, 124, dhcpServer, 1, 1);
QDT_BITS_AT(ForwardingInterface, 124, dhcpClient, 2, 2);
QDT_BITS_AT(ForwardingInterface, 124, vpn, 16, 31);
QDT_BITS_AT(ForwardingInterface, 132, dhcpv6Server, 0, 0);
QDT_BITS_AT(ForwardingInterface, 132, dhcpv6Client, 1, 1);
QDT_BITS_AT(ForwardingInterface, 132, ndTrust, 2, 2);
QDT_BITS_AT(ForwardingInterface, 132, ndSnooping, 3, 3);
QDT_BITS_AT(ForwardingInterface, 132, ipv6Learn, 4, 4);
QDT_BITS_AT(ForwardingInterface, 132, dhcpv6Strict, 5, 5);
QDT_BITS_AT(ForwardingInterface, 132, dhcpv6Slaac, 6, 6);
QDT_BITS_AT(ForwardingInterface, 132, v6AddBlackList, 7, 7);
QDT_BITS_AT(ForwardingInterface, 784, macAuth, 0, 0);
QDT_BITS_AT(ForwardingInterface, 784, dot1xAuth, 1, 1);
QDT_BITS_AT(ForwardingInterface, 784, dot1xPortAuth, 2, 2);
QDT_BITS_AT(ForwardingInterface, 784, portalAuth, 3, 3);
QDT_BITS_AT(ForwardingInterface, 784, portalAuthV6, 4, 4);
QDT_BITS_AT(ForwardingInterface, 784, egressUserIdentify, 5, 5);
QDT_BITS_AT(ForwardingInterface, 784, wifiUserGlobalId, 16, 31);
QDT_BITS_AT(ForwardingInterface, 800, webProxyPortalParse, 0, 0);
QDT_BITS_AT(ForwardingInterface, 800, userIsolate, 1, 1);
QDT_BITS_AT(ForwardingInterface, 800, userIsolateMode, 2, 3);
QDT_BITS_AT(ForwardingInterface, 800, ingUpToDscp, 5, 5);
QDT_BITS_AT(ForwardingInterface, 800, ingUpTo8021p, 6, 6);
QDT_BITS_AT(ForwardingInterface, 800, ingDscpTo8021p, 7, 7);
QDT_BITS_AT(ForwardingInterface, 800, ingUpToTunnelDscp, 9, 9);
QDT_BITS_AT(ForwardingInterface, 800, ingUpToTunnel8021p, 10, 10);
QDT_BITS_AT(ForwardingInterface, 800, ingDscpToTunnel8021p, 11, 11);
QDT_BITS_AT(ForwardingInterface, 800, ingDscpToTunnelDscp, 12, 12);
QDT_BITS_AT(ForwardingInterface, 800, egr8021pToUp, 19, 19);
QDT_BITS_AT(ForwardingInterface, 800, egrDscpToUp, 20, 20);
QDT_BITS_AT(ForwardingInterface, 800, apPortal, 23, 23);
QDT_BITS_AT(ForwardingInterface, 800, interfaceCarType, 24, 26);
QDT_BITS_AT(ForwardingInterface, 800, pqm, 28, 28);
QDT_BITS_AT(ForwardingInterface, 800, diversion, 29, 29);
QDT_BITS_AT(ForwardingInterface, 800, sac, 30, 30);
QDT_BITS_AT(ForwardingInterface, 800, sacRemarkDefault, 31, 31);
QDT_BITS_AT(ForwardingInterface, 804, multiMedia, 0, 0);
QDT_BITS_AT(ForwardingInterface, 804, tcpWindowTuning, 1, 1);
QDT_BITS_AT(ForwardingInterface, 804, arpSimulatorTest, 2, 2);
QDT_BITS_AT(ForwardingInterface, 804, sacStat, 3, 3);
QDT_BITS_AT(ForwardingInterface, 804, ingInterfaceCar, 4, 4);
QDT_BITS_AT(ForwardingInterface, 804, egrInterfaceCar, 5, 5);

// Neighbours and routes.
QDT_BITS_AT(Neighbour, 0, valid, 0, 0);
QDT_BITS_AT(Neighbour, 0, fake, 1, 1);
QDT_BITS_AT(RouteEntry, 0, opCode, 0, 2);
QDT_BITS_AT(RouteEntry, 0, multipleNextHops, 3, 3);
QDT_BITS_AT(RouteEntry, 0, isDefault, 4, 4);
QDT_BITS_AT(RouteEntry, 0, direct, 5, 5);
QDT_BITS_AT(NextHopGroupEntry, 0, backupFrr, 0, 0);

// Packet trace.
QDT_BITS_AT(PacketTraceConditions, 12, notFlag, 0, 0);
QDT_BITS_AT(PacketTraceConditions, 12, inner, 1, 1);
QDT_BITS_AT(PacketTraceConditions, 12, fromControlPlane, 2, 2);
QDT_BITS_AT(PacketTraceConditions, 12, eapKey, 3, 3);
QDT_BITS_AT(PacketTraceConditions, 12, capwapKeepalive, 4, 4);
QDT_BITS_AT(PacketTraceConditions, 12, pppoeKeepalive, 5, 5);
QDT_BITS_AT(PacketTraceConditions, 12, capwapFragment, 6, 6);
QDT_BITS_AT(TraceSwitches, 84, packets, 0, 0);
QDT_BITS_AT(TraceSwitches, 84, stations, 2, 2);
QDT_BITS_AT(TraceSwitches, 84, chipTransmit, 8, 8);

// Reassembly.
QDT_BITS_AT(Ipv4ReassemblyEntry, 100, ttl, 0, 15);
QDT_BITS_AT(Ipv4ReassemblyEntry, 100, firstArrived, 18, 18);
QDT_BITS_AT(Ipv4ReassemblyEntry, 100, lastArrived, 19, 19);
QDT_BITS_AT(Ipv4ReassemblyEntry, 100, reassemble, 20, 20);
QDT_BITS_AT(Ipv6ReassemblyEntry, 124, ttl, 0, 15);
QDT_BITS_AT(Ipv6ReassemblyEntry, 124, firstArrived, 17, 17);
QDT_BITS_AT(Ipv6ReassemblyEntry, 124, lastArrived, 18, 18);
QDT_BITS_AT(Ipv6ReassemblyEntry, 124, reassemble, 20, 20);

// Application control.
QDT_BITS_AT(SacInterfaceStatistics, 4, realTime, 0, 0);
QDT_BITS_AT(SacUserStatistics, 4, realTime, 0, 0);

// Host security.
QDT_BITS_AT(HsecGlobalCfg, 0, alarm, 0, 0);
QDT_BITS_AT(HsecGlobalCfg, 0, penalty, 1, 1);
QDT_BITS_AT(HsecGlobalCfg, 20, tcpSynAttack, 0, 0);
QDT_BITS_AT(HsecGlobalCfg, 20, udpAttack, 1, 1);
QDT_BITS_AT(HsecGlobalCfg, 20, icmpAttack, 2, 2);
QDT_BITS_AT(HsecGlobalCfg, 20, abnormalAttack, 3, 3);
QDT_BITS_AT(HsecGlobalCfg, 20, fragmentAttack, 4, 4);
QDT_BITS_AT(HsecGlobalCfg, 36, hostCpcarArp, 0, 0);
QDT_BITS_AT(HsecGlobalCfg, 36, hostCpcarDhcp, 1, 1);
QDT_BITS_AT(HsecGlobalCfg, 36, hostCpcar8021x, 2, 2);
QDT_BITS_AT(HsecGlobalCfg, 300, totalCpcar, 0, 0);

// Sessions.
QDT_BITS_AT(SessionRecord, 8, isIpv6, 0, 0);
QDT_BITS_AT(SessionRecord, 8, valid, 5, 5);
QDT_BITS_AT(SessionRecord, 16, sourceTranslated, 0, 0);
QDT_BITS_AT(SessionRecord, 16, destinationTranslated, 1, 1);
QDT_BITS_AT(SessionRecord, 16, sourcePortTranslated, 2, 2);
QDT_BITS_AT(SessionRecord, 16, destinationPortTranslated, 3, 3);
QDT_BITS_AT(SessionRecord, 16, natPolicyId, 7, 7);
QDT_BITS_AT(SessionRecord, 16, natAgingTime, 8, 8);
QDT_BITS_AT(TcpFlow, 24, up, 3, 6);
QDT_BITS_AT(TcpFlow, 24, action, 7, 8);

// Layer-2 switching.
QDT_BITS_AT(VlanEntry, 6, macLearn, 0, 0);
QDT_BITS_AT(VlanEntry, 6, broadcastLimit, 1, 1);
QDT_BITS_AT(VlanEntry, 6, unknownUnicastAction, 2, 3);
QDT_BITS_AT(VlanEntry, 6, macLimit, 4, 4);
QDT_BITS_AT(VlanEntry, 6, macLimitFull, 5, 5);
QDT_BITS_AT(VlanEntry, 6, macLimitAction, 6, 7);
QDT_BITS_AT(VlanEntry, 6, macLimitAlarm, 8, 8);
QDT_BITS_AT(VlanEntry, 6, roamedUsers, 9, 9);
QDT_BITS_AT(VlanEntry, 6, arpReply, 10, 10);
QDT_BITS_AT(VlanEntry, 6, igmpSnooping, 11, 11);
QDT_BITS_AT(VlanEntry, 6, dhcp, 12, 12);
QDT_BITS_AT(MacEntry, 12, isStatic, 0, 0);
QDT_BITS_AT(MacEntry, 12, drop, 1, 1);
QDT_BITS_AT(MacEntry, 12, local, 2, 2);
QDT_BITS_AT(MacEntry, 12, security, 3, 3);
QDT_BITS_AT(MacEntry, 12, roam, 4, 4);
QDT_BITS_AT(MacEntry, 12, isDefault, 5, 5);
QDT_BITS_AT(MacEntry, 12, aging, 8, 15);
QDT_BITS_AT(PortIsolateEntry, 8, enabled, 0, 0);

// Wireless users.
QDT_BITS_AT(UserAuthentication, 0, authenticated, 0, 0);
QDT_BITS_AT(UserAuthentication, 0, preAuthenticated, 1, 1);
QDT_BITS_AT(UserAuthentication, 0, denyAll, 2, 2);
QDT_BITS_AT(UserAuthentication, 0, httpSendToL4, 3, 3);
QDT_BITS_AT(UserAuthentication, 0, portalEscape, 4, 4);
QDT_BITS_AT(UserAuthentication, 0, ipv4PreAuthAcl, 5, 5);
QDT_BITS_AT(UserAuthentication, 0, ipv6PreAuthAcl, 6, 6);
QDT_BITS_AT(UserAuthentication, 0, checkUserIp, 7, 7);
QDT_BITS_AT(UserAuthentication, 0, denyArp, 8, 8);
QDT_BITS_AT(UserAuthentication, 0, parseEapLog, 9, 9);
QDT_BITS_AT(UserAuthentication, 0, eapLogReported, 10, 10);
QDT_BITS_AT(UserIngressServices, 0, car, 0, 0);
QDT_BITS_AT(UserIngressServices, 0, stat, 1, 1);
QDT_BITS_AT(UserIngressServices, 0, portalPush, 2, 2);
QDT_BITS_AT(UserIngressServices, 0, ipv4AuthAcl, 3, 3);
QDT_BITS_AT(UserIngressServices, 0, ipv6AuthAcl, 4, 4);
QDT_BITS_AT(UserIngressServices, 0, ipv4RedirectAcl, 5, 5);
QDT_BITS_AT(UserIngressServices, 0, ipv6RedirectAcl, 6, 6);
QDT_BITS_AT(UserIngressServices, 0, remarkDscp, 7, 7);
QDT_BITS_AT(UserIngressServices, 0, remark8021p, 8, 8);
QDT_BITS_AT(UserIngressServices, 0, remarkLp, 9, 9);
QDT_BITS_AT(UserIngressServices, 0, stationFloodBlacklist, 10, 17);
QDT_BITS_AT(UserIngressServices, 0, multicastFlood, 18, 25);
QDT_BITS_AT(UserIngressServices, 0, sac, 26, 26);
QDT_BITS_AT(UserEgressServices, 0, car, 0, 0);
QDT_BITS_AT(UserEgressServices, 0, stat, 1, 1);
QDT_BITS_AT(UserEgressServices, 0, ipv4AuthAcl, 2, 2);
QDT_BITS_AT(UserEgressServices, 0, ipv6AuthAcl, 3, 3);
QDT_BITS_AT(UserEgressServices, 0, innerIsolate, 4, 4);
QDT_BITS_AT(UserEgressServices, 0, interIsolate, 5, 5);
QDT_BITS_AT(UserEgressServices, 0, remarkDscp, 6, 6);
QDT_BITS_AT(UserEgressServices, 0, remark8021p, 7, 7);
QDT_BITS_AT(UserEgressServices, 0, remarkLp, 8, 8);
QDT_BITS_AT(UserEgressServices, 0, sac, 9, 9);
QDT_BITS_AT(UsfUserRecord, 32, authVlanEnable, 0, 0);
QDT_BITS_AT(UsfUserRecord, 32, denyPush, 1, 1);
QDT_BITS_AT(UsfUserRecord, 32, userGroup, 2, 2);
QDT_BITS_AT(UsfUserRecord, 32, vip, 3, 3);
QDT_BITS_AT(UsfUserRecord, 32, roamed, 4, 4);
QDT_BITS_AT(UsfUserRecord, 32, needSendUp, 5, 5);
QDT_BITS_AT(UsfUserRecord, 32, shrinkUpQueue, 6, 6);
QDT_BITS_AT(UsfUserRecord, 32, tid6Downgrade, 7, 7);
QDT_BITS_AT(UsfUserRecord, 32, wifiUserGlobalId, 8, 23);
QDT_BITS_AT(UsfUserRecord, 32, pqm, 24, 24);
QDT_BITS_AT(UsfUserRecord, 32, sacRemarkDefault, 25, 25);
QDT_BITS_AT(UsfUserRecord, 32, sacStat, 26, 26);
QDT_BITS_AT(UsfRoamEntry, 8, role, 0, 2);
QDT_BITS_AT(UsfRoamEntry, 8, interIsolate, 3, 3);
QDT_BITS_AT(UsfRoamEntry, 8, innerIsolate, 4, 4);
QDT_BITS_AT(UsfRoamEntry, 8, userIsolate, 5, 5);
QDT_BITS_AT(UsfRoamEntry, 8, tunnelPeerRole, 6, 8);
QDT_BITS_AT(UsfRoamStation, 32, userIsolate, 0, 7);
QDT_BITS_AT(UsfRoamStation, 32, hasIpv4, 8, 8);

}  // namespace qdt
