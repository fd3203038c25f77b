#include <algorithm>
#include <cstring>
#include <string_view>

#include "qdt/aging.h"
#include "qdt/stats.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/section.h"
#include "src/om/common/trace_block.h"
#include "src/om/engine/arp_simulator.h"
#include "src/om/engine/global.h"
#include "src/om/engine/packet_socket.h"
#include "src/om/engine/packet_trace.h"
#include "src/om/engine/protocol.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the engine as a whole: its global record with the session aging times in force, what it traces and
// tests, and what its tables take.
namespace qdt {
namespace {

void PrintForwarding(Text &text, const GlobalEntry &e) {
  Section<23> s(text);
  s.MacLine<"SysMac">(e.systemMac);
  s.Line<"RuncNum">(e.runCores);
  s.Line<"FwdIngMap", "0x%lu">(e.fwdIngressMap);
  s.Line<"FwdEgrMap", "0x%lu">(e.fwdEgressMap);
  s.Line<"EthProtAllNum">(e.ethProtocolsAll);
  s.Line<"EthProtIpNum">(e.ethProtocolsIp);
  s.Line<"ArpGatewayDupEnable">(e.arpGatewayDuplicate);
  s.Line<"FibLoadBalanceMode">(e.fibLoadBalanceMode);
  s.Line<"FibHashType">(e.fibHashType);
  s.Line<"HostModeEn">(e.hostMode);
  s.Line<"IgmpSnpEnable">(e.igmpSnooping);
  s.Line<"DnsSnpEnable">(e.dnsSnooping);
  s.Line<"NdSnpEnable">(e.ndSnooping);
  s.Line<"LinuxPort">(e.linuxPort);
  s.Line<"SshPort">(e.sshPort);
  s.Line<"TelnetPort">(e.telnetPort);
  s.MacLine<"AcMac">(e.acMac);
}

void PrintServices(Text &text, const GlobalEntry &e) {
  Section<23> s(text);
  s.Line<"DaaAclGid">(e.daaAclGroup);
  s.Line<"Ipv6DaaAclGid">(e.daaAclGroupV6);
  s.Line<"PortalFreeRuleGid">(e.portalFreeRuleGroup);
  s.Line<"Ipv6PortalFreeRuleGid">(e.portalFreeRuleGroupV6);
  const uint8_t(&p)[16] = e.portalServerV6;
  s.Line<"PortalServerIpv6", "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x">(
      p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15]);
  s.Line<"ManageIpAddr", "%s">(ToText(e.managementAddress).c_str());
  const uint8_t(&m)[16] = e.managementAddressV6;  // shown byte by byte in decimal
  s.Line<"ManageIpv6Addr", "%u%u:%u%u:%u%u:%u%u:%u%u:%u%u:%u%u:%u%u">(
      m[0], m[1], m[2], m[3], m[4], m[5], m[6], m[7], m[8], m[9], m[10], m[11], m[12], m[13], m[14], m[15]);
  s.Line<"HttpsPortalDstPort">(e.httpsPortalPort);
  s.Line<"LocalManageEn">(e.localManagement);
  s.Line<"HttpsPortalEn">(e.httpsPortal);
  s.Line<"DomainFreeRuleEn">(e.domainFreeRule);
  s.Line<"PortalDstIp", "%s">(ToText(e.portalAddress).c_str());
  s.Line<"PortalDstPort">(e.portalPort);
  s.Line<"BlackHoleMacNum">(e.blackHoleMacs);
  s.Line<"PortalEnable">(e.portal);
  s.Line<"PortalDnsDisable">(e.portalDnsDisable);
  s.Line<"CapwapFwdifIndex">(e.capwapFwdIfIndex);
  s.Line<"DenyDnsRqFromWan">(e.denyDnsFromWan);
  s.Line<"StaIpv6SvcEnable">(e.stationIpv6);
  s.Line<"CpCarEn">(e.controlPlaneCar);
  s.Line<"McbcCarEn">(e.mcBcCar);
  s.Line<"McbcCarId-OTH-BC">(e.mcBcCarId[0]);
  s.Line<"McbcCarId-OTH-MC">(e.mcBcCarId[1]);
  s.Line<"McbcCarId-ARP">(e.mcBcCarId[2]);
  s.Line<"McbcCarId-IGMP">(e.mcBcCarId[3]);
  s.Line<"McbcCarId-ND">(e.mcBcCarId[4]);
  s.Line<"McbcCarId-DHCP">(e.mcBcCarId[5]);
  s.Line<"McbcCarId-DHCPV6">(e.mcBcCarId[6]);
  s.Line<"McbcCarId-MDNS">(e.mcBcCarId[7]);
  s.Line<"EthTrunkL2HashType">(e.trunkL2HashType);
  s.Line<"EthTrunkL2HashField", "0x%x">(e.trunkL2HashField);
  s.Line<"EthTrunkL3HashType">(e.trunkL3HashType);
  s.Line<"EthTrunkL3HashField", "0x%x">(e.trunkL3HashField);
  s.Line<"SacGlobalVersion", "%ld">(e.sacVersion);
  s.Line<"SacGlobalSessNum", "%ld">(static_cast<int64_t>(e.sacSessions));
  s.Line<"CpuPort">(e.cpuPort);
  s.Line<"CpuPortTp">(e.cpuPortTp);
}

// Sets the defaults and attaches the engine's aging times, once; a failed attach is tried again with the next
// query.
bool AgingTimesAreReady() {
  if (g_sessInfoInitCnt != 0) return true;
  QdtProtoInfoInit();
  QdtAppInfoTtlInit();
  if (QdtSessionAgingTimeAttach() != 0) return false;
  ++g_sessInfoInitCnt;
  return true;
}

void PrintAgingTimes(Text &text) {
  if (text.failed() || !AgingTimesAreReady()) return text.Fail();
  text.Print<"SessionAgingTime:\n">();
  text.Print<
      "  Session aging time tcp        : %u\n"
      "  Session aging time udp        : %u\n"
      "  Session aging time icmp       : %u\n"
      "  Session aging time http       : %u\n"
      "  Session aging time ftp        : %u\n"
      "  Session aging time dns        : %u\n"
      "  Session aging time sip        : %u\n"
      "  Session aging time rtsp       : %u\n"
      "  Session aging time pptp       : %u\n">(
      QdtFwdGetAgingTime(kProtocolTcp), QdtFwdGetAgingTime(kProtocolUdp), QdtFwdGetAgingTime(kProtocolIcmp),
      QdtGetAppProtoTtl(kAppHttp), QdtGetAppProtoTtl(kAppFtp), QdtGetAppProtoTtl(kAppDns),
      QdtGetAppProtoTtl(kAppSip), QdtGetAppProtoTtl(kAppRtsp), QdtGetAppProtoTtl(kAppPptp));
}

void PrintIngressAcl(Text &text, const GlobalEntry &e) {
  text.Print<"IngGlobalAclEnInfo:\n">();
  const IngressAclEnable &acl = e.ingressAcl;
  Section<30> s(text);
  s.Line<"L2GlobalAclFilterEn">(acl.l2Filter);
  s.Line<"L2GlobalAclCarEn">(acl.l2Car);
  s.Line<"L2GlobalAclRemarkEn">(acl.l2Remark);
  s.Line<"L2GlobalAclMirrorEn">(acl.l2Mirror);
  s.Line<"L2GlobalAclRedirectEn">(acl.l2Redirect);
  s.Line<"L2GlobalAclMatchStatEn">(acl.l2MatchStat);
  s.Line<"L4GlobalAclFilterEn">(acl.l4Filter);
  s.Line<"L4GlobalAclCarEn">(acl.l4Car);
  s.Line<"L4GlobalAclRemarkEn">(acl.l4Remark);
  s.Line<"L4GlobalAclMirrorEn">(acl.l4Mirror);
  s.Line<"L4GlobalAclRedirectEn">(acl.l4Redirect);
  s.Line<"L4GlobalAclMatchStatEn">(acl.l4MatchStat);
  s.Line<"L2L4GlobalAclFilterEn">(acl.l2l4Filter);
  s.Line<"L2L4GlobalAclCarEn">(acl.l2l4Car);
  s.Line<"L2L4GlobalAclRemarkEn">(acl.l2l4Remark);
  s.Line<"L2L4GlobalAclMirrorEn">(acl.l2l4Mirror);
  s.Line<"L2L4GlobalAclRedirectEn">(acl.l2l4Redirect);
  s.Line<"L2L4GlobalAclMatchStatEn">(acl.l2l4MatchStat);
  s.Line<"Ipv6GlobalAclFilterEn">(acl.ipv6Filter);
  s.Line<"Ipv6GlobalAclCarEn">(acl.ipv6Car);
  s.Line<"Ipv6GlobalAclRemarkEn">(acl.ipv6Remark);
  s.Line<"Ipv6GlobalAclMirrorEn">(acl.ipv6Mirror);
  s.Line<"Ipv6GlobalAclRedirectEn">(acl.ipv6Redirect);
  s.Line<"Ipv6GlobalAclMatchStatEn">(acl.ipv6MatchStat);
}

constexpr uint32_t Bit(uint32_t word, int bit) { return word >> bit & 1; }

void PrintEgressAcl(Text &text, const GlobalEntry &e) {
  text.Print<"EgrGlobalAclEnInfo:\n">();
  Section<30> s(text);
  s.Line<"L2GlobalAclFilterEn">(Bit(e.egressAcl, 0));
  s.Line<"L4GlobalAclFilterEn">(Bit(e.egressAcl, 1));
  s.Line<"L2L4GlobalAclFilterEn">(Bit(e.egressAcl, 2));
  s.Line<"Ipv6GlobalAclFilterEn">(Bit(e.egressAcl, 3));
  s.Line<"L2GlobalAclCarEn">(Bit(e.egressAcl, 8));
  s.Line<"L4GlobalAclCarEn">(Bit(e.egressAcl, 9));
  s.Line<"L2L4GlobalAclCarEn">(Bit(e.egressAcl, 10));
  s.Line<"Ipv6GlobalAclCarEn">(Bit(e.egressAcl, 11));
  s.Line<"L2GlobalAclRemarkEn">(Bit(e.egressAcl, 12));
  s.Line<"L4GlobalAclRemarkEn">(Bit(e.egressAcl, 13));
  s.Line<"L2L4GlobalAclRemarkEn">(Bit(e.egressAcl, 14));
  s.Line<"Ipv6GlobalAclRemarkEn">(Bit(e.egressAcl, 15));
  s.Line<"L2GlobalAclMirrorEn">(Bit(e.egressAcl, 16));
  s.Line<"L4GlobalAclMirrorEn">(Bit(e.egressAcl, 17));
  s.Line<"L2L4GlobalAclMirrorEn">(Bit(e.egressAcl, 18));
  s.Line<"Ipv6GlobalAclMirrorEn">(Bit(e.egressAcl, 19));
  s.Line<"L2GlobalAclMatchStatEn">(Bit(e.egressAcl, 20));
  s.Line<"L4GlobalAclMatchStatEn">(Bit(e.egressAcl, 21));
  s.Line<"L2L4GlobalAclMatchStatEn">(Bit(e.egressAcl, 22));
  s.Line<"Ipv6GlobalAclMatchStatEn">(Bit(e.egressAcl, 23));
}

void PrintAclGroups(Text &text, const GlobalEntry &e) {
  Section<30> s(text);
  text.Print<"GlobalIngAclGidInfo:\n">();
  s.Line<"IngL2GlobalAclFilterGid">(e.ingressAclGroup[0]);
  s.Line<"IngL4GlobalAclFilterGid">(e.ingressAclGroup[1]);
  s.Line<"IngL2GlobalAclMatchStatGid">(e.ingressAclGroup[2]);
  s.Line<"IngL4GlobalAclMatchStatGid">(e.ingressAclGroup[3]);
  s.Line<"IngL2GlobalAclRemarkGid">(e.ingressAclGroup[4]);
  s.Line<"IngL4GlobalAclRemarkGid">(e.ingressAclGroup[5]);
  s.Line<"IngL2GlobalAclRedirectGid">(e.ingressAclGroup[6]);
  s.Line<"IngL4GlobalAclRedirectGid">(e.ingressAclGroup[7]);
  s.Line<"IngL2GlobalAclCarGid">(e.ingressAclGroup[8]);
  s.Line<"IngL4GlobalAclCarGid">(e.ingressAclGroup[9]);
  s.Line<"IngL2GlobalAclMirrorGid">(e.ingressAclGroup[10]);
  s.Line<"IngL4GlobalAclMirrorGid">(e.ingressAclGroup[11]);
  text.Print<"GlobalEgrAclGidInfo:\n">();
  s.Line<"EgrL2GlobalAclRemarkGid">(e.egressAclGroup[0]);
  s.Line<"EgrL4GlobalAclRemarkGid">(e.egressAclGroup[1]);
  s.Line<"EgrL2GlobalAclCarGid">(e.egressAclGroup[2]);
  s.Line<"EgrL4GlobalAclCarGid">(e.egressAclGroup[3]);
  s.Line<"EgrL2GlobalAclFilterGid">(e.egressAclGroup[4]);
  s.Line<"EgrL4GlobalAclFilterGid">(e.egressAclGroup[5]);
  s.Line<"EgrL2GlobalAclMirrorGid">(e.egressAclGroup[6]);
  s.Line<"EgrL4GlobalAclMirrorGid">(e.egressAclGroup[7]);
  s.Line<"EgrL2GlobalAclMatchStatGid">(e.egressAclGroup[8]);
  s.Line<"EgrL4GlobalAclMatchStatGid">(e.egressAclGroup[9]);
}

// What the format gets of a discard reason.
struct DropReason {
  char name[128];
};

TraceBlock g_traceBlock;

}  // namespace
}  // namespace qdt

using qdt::ArpSimulatorEntry;
using qdt::DropReason;
using qdt::GlobalEntry;
using qdt::PacketSocketEntry;
using qdt::PacketSocketKey;
using qdt::PacketTraceBlock;

NQE_TABLE_SEARCH(Global) { return search.FindOne<GlobalEntry>(qdt::kTableGlobal, uint32_t{0}); }

NQE_TABLE_FORMAT_ONE(Global, GlobalEntry) {
  qdt::PrintForwarding(text, e);
  qdt::PrintServices(text, e);
  qdt::PrintAgingTimes(text);
  qdt::PrintIngressAcl(text, e);
  qdt::PrintEgressAcl(text, e);
  qdt::PrintAclGroups(text, e);
}

NQE_TABLE_SEARCH(AfPacketListen) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  unsigned high = 0, low = 0;
  if (qdt::sscanf_s(search.key1, "0x%02x%02x", &high, &low) != 2) return QDT_TBL_FAIL;
  const PacketSocketKey key = {static_cast<uint16_t>(high * 256 + low), 0};
  return search.NextOfKey<PacketSocketEntry>(qdt::kTablePacketSocket, key);
}

NQE_TABLE_FORMAT_EACH(AfPacketListen, PacketSocketEntry) {
  text.Print<
      "  Ethernet protocol  :  0x%x\n"
      "  Fd                 :  %d\n"
      "  IfIndex            :  %u\n\n">(e.protocol, e.fd, e.ifIndex);
}

// The memory is the table manager's, of which the format asks itself.
NQE_TABLE_SEARCH(TbmMemStat) { return 0; }

int32_t NqeTableFormatTbmMemStat(char *out, uint32_t room, const void *, int32_t) {
  const TbmTableDesc *const tables = qdt::TableDescriptors();
  if (tables == nullptr) return QDT_TBL_UNSUPPORTED;
  qdt::Text text(out, room);
  text.Print<
      "---------------------------------------------------------------------------------------------------\n"
      "TableId    TableName                        Enable     Spec        EntryNum     MemorySize(Bytes)  \n"
      "---------------------------------------------------------------------------------------------------"
      "\n">();
  uint32_t total = 0;
  for (uint32_t id = 0; id < qdt::kEngineTables && !text.failed(); ++id) {
    const TbmTableDesc &table = tables[id];
    uint32_t bytes = 0;
    TbmTblMemStat(qdt::kEngineInstance, id, &bytes);
    text.Print<"  %-9u%-35s%-11d%-13d%-13d%u\n">(id, table.name, static_cast<int32_t>(table.enable),
                                                 static_cast<int32_t>(table.spec),
                                                 static_cast<int32_t>(table.entryNum), bytes);
    total += bytes;
  }
  text.Print<
      "---------------------------------------------------------------------------------------------------\n"
      "Total Table Memory Size: %u (Bytes)\n"
      "---------------------------------------------------------------------------------------------------"
      "\n">(total);
  return text.Result();
}

NQE_TABLE_SEARCH(StationTrace) {
  if (!qdt::g_traceBlock.Attach()) return QDT_TBL_INTERNAL;
  return search.Deliver(qdt::g_traceBlock.get(), sizeof(PacketTraceBlock));
}

QDT_TABLE_PIECE(NqeTableStationTraceParseFormat) {
  if (entry == nullptr) return QDT_TBL_DATA_SIZE;
  PacketTraceBlock e;
  std::memcpy(&e, entry, sizeof(e));
  qdt::Text text(out, room);
  text.Print<"  Enable :  %u \n  IsAll  :  %u \n  StaNum :  %u \n">(e.on.stations, e.allStations,
                                                                    e.stationCount);
  if (text.failed()) return text.Result();
  // The count is a signed byte to the engine; stations that do not fit are no failure.
  const int stations = std::min<int>(static_cast<int8_t>(e.stationCount), qdt::kMaxTracedStations);
  for (int i = 0; i < stations; ++i) {
    const qdt::MacAddress &mac = e.stations[i].mac;
    text.Print<"  StaMac :  %02x:%02x:%02x:%02x:%02x:%02x\n">(mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  }
  return static_cast<int32_t>(text.size());
}

QDT_TABLE_FORMAT(NqeTableFormatStationTrace) {
  if (recordLen != static_cast<int32_t>(sizeof(PacketTraceBlock))) return QDT_TBL_DATA_SIZE;
  return NqeTableStationTraceParseFormat(out, room, record);
}

NQE_TABLE_SEARCH(DropId) {
  if (search.key2 >= QDT_STAT_DISCARD_COUNT) return QDT_TBL_INVALID_INPUT;
  const char *const name = QdtOmaSysStatDescGet()[QDT_STAT_DISCARD + search.key2];
  if (name == nullptr) return QDT_TBL_INVALID_INPUT;
  DropReason reason{};
  std::memcpy(reason.name, name, strnlen(name, sizeof(reason.name)));
  return search.Deliver(&reason, sizeof(reason));
}

NQE_TABLE_FORMAT_ONE(DropIdDesc, DropReason) {
  text.Print<"  Discard Type:  %s\n">(std::string_view(e.name, strnlen(e.name, sizeof(e.name))));
}

NQE_TABLE_SEARCH(ArpSimulator) { return search.NextOf<ArpSimulatorEntry>(qdt::kTableArpSimulator); }

NQE_TABLE_FORMAT_EACH(ArpSimulator, ArpSimulatorEntry) {
  const qdt::MacAddress &source = e.sourceMac, &destination = e.destinationMac;
  text.Print<
      "  Type             :  %hu\n"
      "  Interval         :  %u\n"
      "  TestTimes        :  %u\n"
      "  VlanId           :  %hu\n"
      "  SrcMac           :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  DstMac           :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  SrcIp            :  %s\n"
      "  DstIp            :  %s\n"
      "  SentTimes        :  %u\n"
      "  Testing          :  %u\n"
      "  TestSendTimeMs   :  %u\n"
      "  TestReplyTimeMs  :  %u\n\n">(
      e.type, e.interval, e.testTimes, e.vlanId, source[0], source[1], source[2], source[3], source[4],
      source[5], destination[0], destination[1], destination[2], destination[3], destination[4],
      destination[5], qdt::ToText(e.sourceAddress).c_str(), qdt::ToText(e.destinationAddress).c_str(),
      e.sentTimes, e.testing, static_cast<uint32_t>(e.sendTimeMs), static_cast<uint32_t>(e.replyTimeMs));
}
