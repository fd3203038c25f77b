#include "src/om/nqe_cli/usf_user_text.h"

#include "src/om/common/address.h"
#include "src/om/common/section.h"

namespace qdt {
namespace {

void PrintIngressServices(Text &text, const UserIngressServices &in) {
  text.Print<"UsfUserIngressSvc:\n">();
  Section<19> s(text);
  s.Line<"IngCarEn">(in.car);
  s.Line<"IngStatEn">(in.stat);
  s.Line<"IngPortalPushEn">(in.portalPush);
  s.Line<"IngIpv4AuthAclEn">(in.ipv4AuthAcl);
  s.Line<"IngIpv6AuthAclEn">(in.ipv6AuthAcl);
  s.Line<"Ipv4RedirectAclEn">(in.ipv4RedirectAcl);
  s.Line<"Ipv6RedirectAclEn">(in.ipv6RedirectAcl);
  s.Line<"IngRmkDscpEn">(in.remarkDscp);
  s.Line<"IngRmk8021pEn">(in.remark8021p);
  s.Line<"IngRmkLpEn">(in.remarkLp);
  s.Line<"StaFloodBlacklist">(in.stationFloodBlacklist);
  s.Line<"McFloodEn">(in.multicastFlood);
  s.Line<"IngSacEn">(in.sac);
}

void PrintEgressServices(Text &text, const UserEgressServices &out) {
  text.Print<"UsfUserEgressSvc:\n">();
  Section<18> s(text);
  s.Line<"EgrCarEn">(out.car);
  s.Line<"EgrStatEn">(out.stat);
  s.Line<"EgrIpv4AuthAclEn">(out.ipv4AuthAcl);
  s.Line<"EgrIpv6AuthAclEn">(out.ipv6AuthAcl);
  s.Line<"InnerIsolateEn">(out.innerIsolate);
  s.Line<"InterIsolateEn">(out.interIsolate);
  s.Line<"EgrRmkDscpEn">(out.remarkDscp);
  s.Line<"EgrRmk8021pEn">(out.remark8021p);
  s.Line<"EgrRmkLpEn">(out.remarkLp);
  s.Line<"EgrSacEn">(out.sac);
}

}  // namespace

void PrintUserServices(Text &text, const UsfUserRecord &e) {
  PrintIngressServices(text, e.ingress);
  PrintEgressServices(text, e.egress);
}

void PrintUserParameters(Text &text, const UsfUserRecord &e) {
  text.Print<"UsfUserSvcParam:\n">();
  Section<20> s(text);
  s.Line<"IngCarId">(e.ingressCarId);
  s.Line<"EgrCarId">(e.egressCarId);
  s.Line<"StatId">(e.statId);
  s.Line<"IngIpv4AuthAclGid">(e.ingressIpv4AuthAclGroup);
  s.Line<"IngIpv6AuthAclGid">(e.ingressIpv6AuthAclGroup);
  s.Line<"EgrIpv4AuthAclGid">(e.egressIpv4AuthAclGroup);
  s.Line<"EgrIpv6AuthAclGid">(e.egressIpv6AuthAclGroup);
  s.Line<"Ipv4RedirectAclGid">(e.ipv4RedirectAclGroup);
  s.Line<"Ipv6RedirectAclGid">(e.ipv6RedirectAclGroup);
  s.Line<"IngNewRmkDscp">(e.ingressNewDscp);
  s.Line<"IngNewRmk8021p">(e.ingressNew8021p);
  s.Line<"IngNewRmkLp">(e.ingressNewLp);
  s.Line<"EgrNewRmkDscp">(e.egressNewDscp);
  s.Line<"EgrNewRmk8021p">(e.egressNew8021p);
  s.Line<"EgrNewRmkLp">(e.egressNewLp);
  s.Line<"AuthVlanEn">(e.authVlanEnable);
  s.Line<"AuthVlan">(e.authVlan);
  s.Line<"DenyPushEn">(e.denyPush);
  s.Line<"UserGroupEn">(e.userGroup);
  s.Line<"UserVipFlag">(e.vip);
  s.Line<"UserRoamFlag">(e.roamed);
  s.Line<"WifiUserGlobalId">(e.wifiUserGlobalId);
  s.Line<"ShrinkUpQueueEn">(e.shrinkUpQueue);
  s.Line<"Tid6DowngradeEn">(e.tid6Downgrade);
  s.Line<"UserPreRoamIpv4Addr", "0x%x">(e.addressBeforeRoaming);
  s.Line<"NeedSendUpMsg">(e.needSendUp);
  s.Line<"UserGroupId">(e.userGroupId);
  s.Line<"UserPktCacheType">(e.packetCacheType);
  s.Line<"PeerId">(e.peerId);
  s.Line<"PfeVapIdx">(e.vapIndex);
  s.Line<"SessionInfo">(e.sessionInfo);
  s.Line<"PqmEn">(e.pqm);
  s.Line<"SacRemarkDefaultEn">(e.sacRemarkDefault);
  s.Line<"SacId">(e.sacId);
  s.Line<"SacStatEn">(e.sacStat);
  s.Line<"NormalSendTime", "%llu">(e.normalSendTime);
}

void PrintUserFloodCars(Text &text, const UsfUserRecord &e) {
  const UserFloodCars &car = e.floodCar;
  const auto &turn = e.tcpWindowTurn;
  text.Print<
      "  McbcCarId-OTH-BC    :  %u\n"
      "  McbcCarId-OTH-MC    :  %u\n"
      "  McbcCarId-ARP       :  %u\n"
      "  McbcCarId-IGMP      :  %u\n"
      "  McbcCarId-ND        :  %u\n"
      "  McbcCarId-DHCP      :  %u\n"
      "  McbcCarId-DHCPV6    :  %u\n"
      "  McbcCarId-MDNS      :  %u\n"
      "  TcpWndTurnAct       :  %u,%u,%u,%u,%u,%u,%u,%u\n">(
      car.otherBroadcast, car.otherMulticast, car.arp, car.igmp, car.nd, car.dhcp, car.dhcpv6, car.mdns,
      turn[0], turn[1], turn[2], turn[3], turn[4], turn[5], turn[6], turn[7]);
}

void PrintUserAuthentication(Text &text, const UsfUserRecord &e) {
  const UserAuthentication &auth = e.auth;
  text.Print<"UsfUserAuth:\n">();
  Section<21> s(text);
  s.Line<"AuthStatus">(auth.authenticated);
  s.Line<"PreAuth">(auth.preAuthenticated);
  s.Line<"DenyAll">(auth.denyAll);
  s.Line<"HttpSendToL4">(auth.httpSendToL4);
  s.Line<"PortalEscape">(auth.portalEscape);
  s.Line<"Ipv4PreAuthAclEn">(auth.ipv4PreAuthAcl);
  s.Line<"Ipv6PreAuthAclEn">(auth.ipv6PreAuthAcl);
  s.Line<"CheckUserIp">(auth.checkUserIp);
  s.Line<"DenyArpEn">(auth.denyArp);
  s.Line<"Ipv4PreAuthAclGid">(auth.ipv4PreAuthAclGroup);
  s.Line<"Ipv6PreAuthAclGid">(auth.ipv6PreAuthAclGroup);
  s.Line<"UserIpv4Addr", "%s">(Address(auth.address));
  s.Line<"MngUserIpv4Addr", "%s">(Address(auth.managementAddress));
  s.Line<"ParseEapLog">(auth.parseEapLog);
  s.Line<"EapLogReported">(auth.eapLogReported);
}

void PrintUserTraffic(Text &text, const UserTraffic &traffic) {
  text.Print<
      "  InPassStatPkt        :  %lu\n"
      "  InPassStatByte       :  %lu\n"
      "  EgrPassStatPkt       :  %lu\n"
      "  EgrPassStatByte      :  %lu\n"
      "  InUnicastPackets     :  %u\n"
      "  InMulticastPackets   :  %u\n"
      "  InBroadcastPackets   :  %u\n"
      "  OutUnicastPackets    :  %u\n"
      "  OutMulticastPackets  :  %u\n"
      "  OutBroadcastPackets  :  %u\n">(traffic.inPackets, traffic.inBytes, traffic.outPackets,
                                        traffic.outBytes, traffic.inUnicast, traffic.inMulticast,
                                        traffic.inBroadcast, traffic.outUnicast, traffic.outMulticast,
                                        traffic.outBroadcast);
}

void PrintUserCounters(Text &text, const UsfUserRecord &e) {
  UserCounters sum{};
  for (const UserCounters &block : e.counters) sum += block;
  text.Print<"Ipv4Stat:\n">();
  PrintUserTraffic(text, sum.ipv4);
  text.Print<"Ipv6Stat:\n">();
  PrintUserTraffic(text, sum.ipv6);
}

void PrintLearntAddress(Text &text, const UsfUserRecord &e) {
  text.Print<"UsfIpLearn:\n  userIp:      0x%08x\n">(e.learntAddress);
}

}  // namespace qdt
