#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/engine/bridge.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/route.h"
#include "src/om/nqe_cli/forwarding_interface_text.h"
#include "src/om/nqe_cli/next_hop_text.h"
#include "src/om/nqe_cli/route_search.h"
#include "src/om/nqe_cli/route_text.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the forwarding interfaces and of the maps that lead to them, and of IPv4 routing and neighbours.
using qdt::Address;
using qdt::ArpEntry;
using qdt::ArpKey;
using qdt::ArpMissEntry;
using qdt::BridgeEntry;
using qdt::DuplicateMacEntry;
using qdt::FibKey;
using qdt::ForwardingInterface;
using qdt::InterfaceMapEntry;
using qdt::NextHopEntry;
using qdt::NextHopGroupEntry;
using qdt::PortAddress;
using qdt::RouteEntry;
using qdt::TrunkEntry;

NQE_TABLE_SEARCH(CtrlIfMap) { return search.FindOne<InterfaceMapEntry>(qdt::kTableCtrlIfMap, search.key2); }

NQE_TABLE_FORMAT_ONE(CtrlIfMap, InterfaceMapEntry) {
  text.Print<"  CtrlIfIdx  :  %u\n  FwdIfIdx   :  %u\n">(e.source, e.fwdIfIndex);
}

NQE_TABLE_SEARCH(FlowIfMap) { return search.FindOne<InterfaceMapEntry>(qdt::kTableFlowIfMap, search.key2); }

NQE_TABLE_FORMAT_ONE(FlowIfMap, InterfaceMapEntry) {
  text.Print<"  FlowIfIdx  :  %u\n  FwdIfIdx   :  %u\n">(e.source, e.fwdIfIndex);
}

NQE_TABLE_SEARCH(PfeVapIfMap) { return search.FindOne<InterfaceMapEntry>(qdt::kTableUserIfMap, search.key2); }

NQE_TABLE_FORMAT_ONE(PfeVapIfMap, InterfaceMapEntry) {
  text.Print<"  UsrId  :  %u\n  FwdIfIdx   :  %u\n">(e.source, e.fwdIfIndex);
}

NQE_TABLE_SEARCH(Fwdif) {
  const qdt::FwdIfIndex index = qdt::FindFwdIf(search.key2);
  if (index.code != 0) return index.code;
  return search.FindOne<ForwardingInterface>(qdt::kTableFwdIf, index.value);
}

NQE_TABLE_FORMAT_ONE(Fwdif, ForwardingInterface) {
  qdt::PrintInterfaceSections(text, e);
  qdt::PrintInterfaceAclSections(text, e);
  qdt::PrintIngressServices(text, e);
}

int32_t NqeTableFwdifIngAclEnInfo(char *out, uint32_t room, const void *entry) {
  return qdt::FormatPiece<ForwardingInterface, qdt::PrintIngressAclEnable>(out, room, entry);
}

NQE_TABLE_SEARCH(Fib) {
  const FibKey key = {static_cast<uint16_t>(search.key2), static_cast<uint16_t>(search.key3),
                      inet_addr(search.key1)};
  return search.FindOne<RouteEntry>(qdt::kTableFib, key);
}

NQE_TABLE_FORMAT_ONE(Fib, RouteEntry) {
  qdt::PrintRoute(text, e, qdt::kTableNextHop, qdt::kTableNextHopGroup);
}

NQE_TABLE_SEARCH(Nhp) { return search.FindOne<NextHopEntry>(qdt::kTableNextHop, search.key2); }

NQE_TABLE_FORMAT_ONE(Nhp, NextHopEntry) {
  text.Print<"  IfIndex    :  %u\n  NextHopIp  :  %s\n">(e.ifIndex, Address(e.address));
  qdt::PrintNextHopExtension(text, e.ext);
}

NQE_TABLE_SEARCH(NhpGroup) { return search.FindOne<NextHopGroupEntry>(qdt::kTableNextHopGroup, search.key2); }

NQE_TABLE_FORMAT_ONE(NhpGroup, NextHopGroupEntry) { qdt::PrintNextHopGroup(text, e); }

// The key of the next hop `key1` in VPN `key2`.
static ArpKey ArpKeyOf(const qdt::Search &search) {
  return {0, static_cast<uint16_t>(search.key2), ntohl(inet_addr(search.key1))};
}

NQE_TABLE_SEARCH(Arp) { return search.FindOne<ArpEntry>(qdt::kTableArp, ArpKeyOf(search)); }

NQE_TABLE_FORMAT_ONE(Arp, ArpEntry) { qdt::PrintNeighbour(text, e.neighbour); }

NQE_TABLE_SEARCH(ArpMissCache) {
  if (inet_addr(search.key1) != INADDR_NONE) {
    return search.NextOfKey<ArpMissEntry>(qdt::kTableArpMiss, ArpKeyOf(search));
  }
  return qdt::AsksForAll(search) ? search.NextOf<ArpMissEntry>(qdt::kTableArpMiss)
                                 : int32_t{QDT_TBL_INVALID_INPUT};
}

NQE_TABLE_FORMAT_EACH(ArpMissCache, ArpMissEntry) {
  qdt::PrintMiss(text, Address(e.key.nextHop), e.createTime, e.ttl, Address(e.sourceAddress),
                 Address(e.destinationAddress));
}

NQE_TABLE_SEARCH(PortIpList) {
  return qdt::NextOfPort<PortAddress>(search, qdt::kTablePortIpHead, qdt::kTablePortIp);
}

NQE_TABLE_FORMAT_EACH(PortIpList, PortAddress) {
  text.Print<"  IpAddr  :  %s\n  IpMask  :  %s\n  IpType  :  %u\n\n">(Address(e.address), Address(e.mask),
                                                                      e.type);
}

NQE_TABLE_SEARCH(Bridge) { return search.FindOne<BridgeEntry>(qdt::kTableBridge, search.key2); }

NQE_TABLE_FORMAT_ONE(Bridge, BridgeEntry) {
  text.Print<
      "  BrId         :  %u\n"
      "  BrIfIndex    :  %u\n"
      "  VlanFilter   :  %u\n"
      "  MacLimitEn   :  %u\n"
      "  MacAgeTime   :  %u\n"
      "  MacLimitNum  :  %u\n"
      "  CurMacNum    :  %u\n">(e.bridgeId, e.ifIndex, e.vlanFilter, e.macLimitEnable, e.macAgingTime,
                                e.macLimitNum, e.currentMacNum);
}

NQE_TABLE_SEARCH(ArpUdpMac) { return search.NextOf<DuplicateMacEntry>(qdt::kTableArpDuplicateMac); }

NQE_TABLE_FORMAT_EACH(ArpDupMac, DuplicateMacEntry) {
  text.Print<
      "  IfIndex  :  %u  BrId     :  %u  VlanId   :  %u  SrcMac   :  %02x:%02x:%02x:%02x:%02x:%02x\n\n">(
      e.ifIndex, e.bridgeId, e.vlanId, qdt::Mac(e.sourceMac));
}

NQE_TABLE_SEARCH(Trunk) { return search.FindOne<TrunkEntry>(qdt::kTableTrunk, search.key2); }

NQE_TABLE_FORMAT_FIRST(Trunk, TrunkEntry) {
  text.Print<"  ActivePortNum  :  %u\n  HashType       :  %u\n  TrunkIfIdx     :  %u\n">(
      e.activePorts, e.hashType, e.trunkIfIndex);
  for (uint16_t port = 0; port < e.activePorts && port < qdt::kMaxTrunkMembers; ++port) {
    text.Print<"  MemfwdifIdx[%u]  :  %u\n">(port + 1u, e.member[port]);
  }
}
