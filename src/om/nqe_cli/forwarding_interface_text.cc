#include "src/om/nqe_cli/forwarding_interface_text.h"
#include "qdt/tables.h"
#include "src/om/common/section.h"
#include "src/om/engine/interface.h"

// The titled sections of the forwarding-interface view, in the order in which they are shown.
namespace qdt {
namespace {

// One counter over the four blocks of an interface, wrapping as the engine's counters wrap.
int64_t Sum(const ForwardingInterface &e, int64_t InterfaceCounters::*counter) {
  uint64_t sum = 0;
  for (const InterfaceCounters &block : e.counters) sum += static_cast<uint64_t>(block.*counter);
  return static_cast<int64_t>(sum);
}

void PrintCommon(Text &text, const ForwardingInterface &e) {
  text.Print<"CommonInfo:\n">();
  Section<18> s(text);
  s.Line<"IfIndex">(e.ifIndex);
  s.Line<"IfType">(e.ifType);
  s.Line<"Enable">(e.enable);
  s.Line<"Down">(e.down);
  s.Line<"VirtIf">(e.virtualIf);
  s.Line<"L2l3">(e.l2l3);
  s.Line<"PctIndex">(e.pctIndex);
  s.Line<"CtrlIfIdx">(e.ctrlIfIndex);
  s.Line<"Flag", "%08x">(e.flags);
  s.Line<"FatherFwdIfIndex">(e.fatherFwdIfIndex);
  s.Line<"IsWan">(e.isWan);
}

void PrintPhysical(Text &text, const ForwardingInterface &e) {
  text.Print<"PhyInfo:\n">();
  Section<13> s(text);
  s.Line<"TagType">(e.tagType);
  s.Line<"DrvPortType">(e.drvPortType);
  s.Line<"DrvSubType">(e.drvSubType);
  s.Line<"Tb">(e.tb);
  s.Line<"Tp">(e.tp);
  s.Line<"Port">(e.port);
}

void PrintLink(Text &text, const ForwardingInterface &e) {
  text.Print<"LinkInfo:\n">();
  Section<18> s(text);
  s.Line<"LinkType">(e.linkType);
  s.MacLine<"Smac">(e.smac);
  s.Line<"Pvid">(e.pvid);
  s.Line<"Brid">(e.bridgeId);
  s.Line<"MacLearnEn">(e.macLearn);
  s.Line<"MacLimitEn">(e.macLimit);
  s.Line<"MacLimitAlarmEn">(e.macLimitAlarm);
  s.Line<"IsEapolKeyToCp">(e.eapolKeyToCp);
  s.Line<"IgmpSnpEnable">(e.igmpSnooping);
  s.Line<"ProtocolToTunnel">(e.protocolToTunnel);
  s.Line<"MacLimitAction">(e.macLimitAction);
  s.Line<"MacLearnEnAction">(e.macLearnAction);
  s.Line<"MacLimitNum">(e.macLimitNum);
  s.Line<"VlanId">(e.vlanId);
  s.Line<"CurMacNum">(e.curMacNum);
  s.Line<"VapType">(e.vapType);
  s.Line<"DownLink">(e.downLink);
  s.Line<"VapIndex">(e.vapIndex);
  s.Line<"LinkId">(e.linkId);
  s.Line<"FwdMode">(e.fwdMode);
  s.Line<"IsTrunkMember">(e.isTrunkMember);
  s.Line<"PortIsolate">(e.portIsolate);
  s.Line<"TunnIndex">(e.tunnelIndex);
  s.Line<"TrunkId">(e.trunkId);
  s.Line<"BroadPeerId">(e.broadPeerId);
  s.Line<"BroadSessionInfo">(e.broadSessionInfo);
  s.Line<"BroadPfeVapIdx">(e.broadPfeVapIndex);
  s.Line<"isNaviAcVap">(e.naviAcVap);
  s.Line<"PppoeEn">(e.pppoe);
  s.Line<"PppoeCode">(e.pppoeCode);
  s.Line<"PppoeVer">(e.pppoeVersion);
  s.Line<"PppoeType">(e.pppoeType);
  s.Line<"PppoeSessionId">(e.pppoeSessionId);
  s.MacLine<"PppoeDmac">(e.pppoeDmac);
  s.Line<"PppVlanIf">(e.pppVlanIf);
  s.Line<"PppDialerIf">(e.pppDialerIf);
  s.Line<"PvidVlanAccept">(e.pvidVlanAccept);
  s.Line<"Mc2ucEnable">(e.mc2uc);
  s.Line<"WifiUserGlobalId">(e.wifiUserGlobalId);
  s.Line<"isIotPort">(e.iotPort);
}

// Continues the link section.
void PrintLinkFeatures(Text &text, const ForwardingInterface &e) {
  Section<18> s(text);
  s.Line<"StpEn">(e.stp);
  s.Line<"StpBlock">(e.stpBlock);
  s.Line<"StpFwdEn">(e.stpForward);
  s.Line<"ErpsEn">(e.erps);
  s.Line<"Bc2UcArpEn">(e.bc2ucArp);
  s.Line<"Bc2UcDhcpEn">(e.bc2ucDhcp);
  s.Line<"Bc2UcNdEn">(e.bc2ucNd);
  s.Line<"Bc2UcMdnsEn">(e.bc2ucMdns);
  s.Line<"Bc2UcMissDrop">(e.bc2ucMissDrop);
  s.Line<"McBcDeny">(e.mcBcDeny);
  s.Line<"MdnsDeny">(e.mdnsDeny);
  s.Line<"ArpProxyEn">(e.arpProxy);
  s.Line<"NdProxyEn">(e.ndProxy);
  s.Line<"CaptureEn">(e.capture);
}

void PrintTunnel(Text &text, const ForwardingInterface &e) {
  text.Print<"TunnelInfo:\n">();
  Section<17> s(text);
  s.Line<"TunnelType">(e.tunnelType);
  s.Line<"TunnelId">(e.tunnelId);
  s.MacLine<"ApWiredMac">(e.apWiredMac);
  s.Line<"ApWiredPortType">(e.apWiredPortType);
  s.Line<"ApWiredPortId">(e.apWiredPortId);
}

void PrintIpv4(Text &text, const ForwardingInterface &e) {
  text.Print<"Ipv4Info:\n">();
  Section<14> s(text);
  s.Line<"Vpn">(e.vpn);
  s.Line<"Mtu">(e.mtu);
  s.Line<"IpLearnEn">(e.ipLearn);
  s.Line<"DhcpStrict">(e.dhcpStrict);
  s.Line<"AddBlackList">(e.addBlackList);
  s.Line<"Nat">(e.nat);
  s.Line<"Aspf">(e.aspf);
  s.Line<"TcpMssEn">(e.tcpMssEnable);
  s.Line<"TcpMss">(e.tcpMss);
  s.Line<"DhcpTrust">(e.dhcpTrust);
  s.Line<"DhcpServerEn">(e.dhcpServer);
  s.Line<"DhcpClientEn">(e.dhcpClient);
}

void PrintIpv6(Text &text, const ForwardingInterface &e) {
  text.Print<"Ipv6Info:\n">();
  Section<16> s(text);
  s.Line<"Ipv6LearnEn">(e.ipv6Learn);
  s.Line<"Dhcpv6Strict">(e.dhcpv6Strict);
  s.Line<"Dhcpv6Slaac">(e.dhcpv6Slaac);
  s.Line<"V6AddBlackList">(e.v6AddBlackList);
  s.Line<"Dhcpv6ServerEn">(e.dhcpv6Server);
  s.Line<"Dhcpv6ClientEn">(e.dhcpv6Client);
  s.Line<"NdSnpEn">(e.ndSnooping);
  s.Line<"NdTrust">(e.ndTrust);
  s.Line<"Vpn">(e.vpnV6);
  s.Line<"Mtu">(e.mtuV6);
}

void PrintMaps(Text &text, const ForwardingInterface &e) {
  text.Print<"MapInfo:\n">();
  Section<12> s(text);
  s.Line<"LinkIngMap", "0x%016llx">(e.linkIngressMap);
  s.Line<"FwdIngMap", "0x%016llx">(e.fwdIngressMap);
  s.Line<"LinkEgrMap", "0x%016llx">(e.linkEgressMap);
  s.Line<"FwdEgrMap", "0x%016llx">(e.fwdEgressMap);
}

void PrintService(Text &text, const ForwardingInterface &e) {
  text.Print<"SvcInfo:\n">();
  Section<20> s(text);
  s.Line<"InterfaceIngCarEn">(e.ingInterfaceCar);
  s.Line<"InterfaceEgrCarEn">(e.egrInterfaceCar);
  s.Line<"IngInterfaceCarid">(e.ingInterfaceCarId);
  s.Line<"EgrInterfaceCarid">(e.egrInterfaceCarId);
  s.Line<"InPkts", "%ld">(Sum(e, &InterfaceCounters::inPackets));
  s.Line<"InUcPkts", "%ld">(Sum(e, &InterfaceCounters::inUnicast));
  s.Line<"InMcPkts", "%ld">(Sum(e, &InterfaceCounters::inMulticast));
  s.Line<"InBcPkts", "%ld">(Sum(e, &InterfaceCounters::inBroadcast));
  s.Line<"OutPkts", "%ld">(Sum(e, &InterfaceCounters::outPackets));
  s.Line<"OutUcPkts", "%ld">(Sum(e, &InterfaceCounters::outUnicast));
  s.Line<"OutMcPkts", "%ld">(Sum(e, &InterfaceCounters::outMulticast));
  s.Line<"OutBcPkts", "%ld">(Sum(e, &InterfaceCounters::outBroadcast));
  s.Line<"InBytes", "%ld">(Sum(e, &InterfaceCounters::inBytes));
  s.Line<"OutBytes", "%ld">(Sum(e, &InterfaceCounters::outBytes));
  s.Line<"MacAuth">(e.macAuth);
  s.Line<"Dot1xAuth">(e.dot1xAuth);
  s.Line<"Dot1xPortAuth">(e.dot1xPortAuth);
  s.Line<"PortalAuth">(e.portalAuth);
  s.Line<"Ipv6PortalAuth">(e.portalAuthV6);
  s.Line<"EgrUserIdt">(e.egressUserIdentify);
  s.Line<"FreeRuleGid">(e.freeRuleGroup);
  s.Line<"Ipv6FreeRuleGid">(e.freeRuleGroupV6);
  s.Line<"StaticFreeRuleGid">(e.staticFreeRuleGroup);
  s.Line<"WebProxyPortalParse">(e.webProxyPortalParse);
  s.Line<"ApPortalEn">(e.apPortal);
}

// Continues the service section. The label of SacStatEn carries a colon of its own.
void PrintRateLimits(Text &text, const ForwardingInterface &e) {
  Section<20> s(text);
  s.Line<"SacEn">(e.sac);
  s.Line<"SacRemarkDefaultEn">(e.sacRemarkDefault);
  s.Line<"InterfaceCarType">(e.interfaceCarType);
  s.Line<"InterfaceCarid-BC">(e.carIdBroadcast);
  s.Line<"InterfaceCarid-MC">(e.carIdMulticast);
  s.Line<"InterfaceCarid-UNUC">(e.carIdUnknownUnicast);
  s.Line<"IngVapCarid">(e.ingVapCarId);
  s.Line<"EgrVapCarid">(e.egrVapCarId);
  s.Line<"SacId">(e.sacId);
  s.Line<"SacStatEn:">(e.sacStat);
  s.Line<"PqmEn">(e.pqm);
  s.Line<"DiversionEn">(e.diversion);
}

void PrintQos(Text &text, const ForwardingInterface &e) {
  text.Print<"QosInfo:\n">();
  Section<20> s(text);
  s.Line<"IngUp2DscpEn">(e.ingUpToDscp);
  s.Line<"IngUpTo8021pEn">(e.ingUpTo8021p);
  s.Line<"IngDscpTo8021pEn">(e.ingDscpTo8021p);
  s.Line<"IngUp2TnlDscpEn">(e.ingUpToTunnelDscp);
  s.Line<"IngUp2Tnl8021pEn">(e.ingUpToTunnel8021p);
  s.Line<"IngDscpToTnl8021pEn">(e.ingDscpToTunnel8021p);
  s.Line<"IngDscpToTnlDscpEn">(e.ingDscpToTunnelDscp);
  s.Line<"Egr8021p2UpEn">(e.egr8021pToUp);
  s.Line<"EgrDscp2UpEn">(e.egrDscpToUp);
  s.Line<"MultiMediaEn">(e.multiMedia);
  s.Line<"TcpWndTurnEn">(e.tcpWindowTuning);
  s.Line<"ArpSimTestEn">(e.arpSimulatorTest);
}

void PrintUserIsolation(Text &text, const ForwardingInterface &e) {
  text.Print<"UsrIsolateInfo:\n">();
  Section<20> s(text);
  s.Line<"UsrIsolate">(e.userIsolate);
  s.Line<"UsrIsolateMode">(e.userIsolateMode);
}

}  // namespace

void PrintInterfaceSections(Text &text, const ForwardingInterface &e) {
  PrintCommon(text, e);
  PrintPhysical(text, e);
  PrintLink(text, e);
  PrintLinkFeatures(text, e);
  PrintTunnel(text, e);
  PrintIpv4(text, e);
  PrintIpv6(text, e);
  PrintMaps(text, e);
  PrintService(text, e);
  PrintRateLimits(text, e);
  PrintQos(text, e);
  PrintUserIsolation(text, e);
}

}  // namespace qdt
