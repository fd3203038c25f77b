#include <cstring>

#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/route.h"
#include "src/om/nqe_cli/route_search.h"
#include "src/om/nqe_cli/route_text.h"
#include "src/om/nqe_cli/table_view.h"

// Views of IPv6 routing and neighbours.
using qdt::Address;
using qdt::Ipv6FibKey;
using qdt::Ipv6NextHopEntry;
using qdt::Ipv6PortAddress;
using qdt::NdEntry;
using qdt::NdKey;
using qdt::NdMissEntry;
using qdt::NextHopGroupEntry;
using qdt::RouteEntry;

NQE_TABLE_SEARCH(Ipv6Fib) {
  Ipv6FibKey key = {static_cast<uint16_t>(search.key2), static_cast<uint16_t>(search.key3), {}};
  std::memcpy(key.destination, qdt::ParseIpv6(search.key1).bytes, sizeof(key.destination));
  return search.FindOne<RouteEntry>(qdt::kTableIpv6Fib, key);
}

NQE_TABLE_FORMAT_ONE(Ipv6Fib, RouteEntry) {
  qdt::PrintRoute(text, e, qdt::kTableIpv6NextHop, qdt::kTableIpv6NextHopGroup);
}

NQE_TABLE_SEARCH(Ipv6Nhp) { return search.FindOne<Ipv6NextHopEntry>(qdt::kTableIpv6NextHop, search.key2); }

NQE_TABLE_FORMAT_ONE(Ipv6Nhp, Ipv6NextHopEntry) {
  text.Print<"  IfIndex    :  %u\n  NextHopIp  :  %s\n">(e.ifIndex, Address(e.address));
  const qdt::Ipv6NextHopExtension &ext = e.ext;
  text.Print<
      "  PortId    : %d\n"
      "  Mtu       : %d\n"
      "  NdMiss   : %d\n"
      "  NdFake   : %d\n"
      "  EncapType : %d\n"
      "  EncapSize : %d\n"
      "  L3SvcNum  : %d\n"
      "  L1SvcNum  : %d\n"
      "  LinkSvcNum: %d\n"
      "  FwdIfNum  : %d\n">(ext.portId, ext.mtu, ext.ndMiss, ext.ndFake, ext.encapType, ext.encapSize,
                            ext.l3ServiceCount, ext.l1ServiceCount, ext.linkServiceCount,
                            ext.outputInterfaceCount);
  qdt::PrintOutputInterfaces(text, ext.outputInterfaceCount, ext.outputInterface);
}

NQE_TABLE_SEARCH(Ipv6NhpGroup) {
  return search.FindOne<NextHopGroupEntry>(qdt::kTableIpv6NextHopGroup, search.key2);
}

NQE_TABLE_FORMAT_ONE(Ipv6NhpGroup, NextHopGroupEntry) { qdt::PrintNextHopGroup(text, e); }

// The key of the next hop `key1` in VPN `key2`.
static NdKey NdKeyOf(const qdt::Search &search) {
  NdKey key = {0, static_cast<uint16_t>(search.key2), {}};
  qdt::ToHostWords(qdt::ParseIpv6(search.key1), key.nextHop);
  return key;
}

NQE_TABLE_SEARCH(Nd) {
  QDT_LOG_INFO("NqeTableSearchNd k1 %s, k2 %u\n", search.key1, search.key2);
  const NdKey key = NdKeyOf(search);
  void *entry = nullptr;
  if (const int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableNd, &key, &entry); code != 0) {
    QDT_LOG_INFO("Error in TbmTblSearch(CAP_TABLE_IPV6_ND), ret=%d\n", code);
    return code;
  }
  return search.Deliver(entry, sizeof(NdEntry));
}

NQE_TABLE_FORMAT_ONE(Nd, NdEntry) { qdt::PrintNeighbour(text, e.neighbour); }

NQE_TABLE_SEARCH(NdMissCache) {
  const NdKey key = NdKeyOf(search);
  constexpr uint32_t kNoAddress[4] = {};
  const bool hasAddress = std::memcmp(key.nextHop, kNoAddress, sizeof(kNoAddress)) != 0;
  if (hasAddress) return search.NextOfKey<NdMissEntry>(qdt::kTableNdMiss, key);
  if (qdt::AsksForAll(search)) return search.NextOf<NdMissEntry>(qdt::kTableNdMiss);
  if (search.loopNum != 0 && !search.Allocate(size_t{search.loopNum} * sizeof(NdMissEntry))) {
    return QDT_TBL_NO_MEMORY;  // a buffer is asked for before the keys are looked at
  }
  return QDT_TBL_INVALID_INPUT;
}

NQE_TABLE_FORMAT_EACH(NdMissCache, NdMissEntry) {
  qdt::PrintMiss(text, Address(e.key.nextHop), e.createTime, e.ttl, Address(e.sourceAddress),
                 Address(e.destinationAddress));
}

NQE_TABLE_SEARCH(Ipv6PortIpList) {
  return qdt::NextOfPort<Ipv6PortAddress>(search, qdt::kTablePortIpv6Head, qdt::kTablePortIpv6);
}

NQE_TABLE_FORMAT_EACH(Ipv6PortIpList, Ipv6PortAddress) {
  text.Print<"  IpAddr  :  %s\n  Prefix  :  %u\n  IpType  :  %u\n\n">(Address(e.address), e.prefixLength,
                                                                      e.type);
}
