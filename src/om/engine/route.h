#ifndef SRC_OM_ENGINE_ROUTE_H_
#define SRC_OM_ENGINE_ROUTE_H_

#include "src/om/engine/layout.h"

// Routes, next hops and next-hop groups. A route leads to a next hop or to a group of them; the engine binds
// such references, so records carry the address of the entry they lead to beside its index.
namespace qdt {

// Key of the IPv4 route table. The destination is in network order, unlike in the engine's other IPv4 keys.
struct FibKey {
  uint16_t prefixLength;
  uint16_t vpn;
  uint32_t destination;
};
QDT_RECORD_SIZE(FibKey, 8);
QDT_FIELD_AT(FibKey, prefixLength, 0, 2);
QDT_FIELD_AT(FibKey, vpn, 2, 2);
QDT_FIELD_AT(FibKey, destination, 4, 4);

// Key of the IPv6 route table; the destination in network order as well.
struct Ipv6FibKey {
  uint16_t prefixLength;
  uint16_t vpn;
  uint8_t destination[16];
};
QDT_RECORD_SIZE(Ipv6FibKey, 20);
QDT_FIELD_AT(Ipv6FibKey, prefixLength, 0, 2);
QDT_FIELD_AT(Ipv6FibKey, vpn, 2, 2);
QDT_FIELD_AT(Ipv6FibKey, destination, 4, 16);

// A route, of either family.
struct RouteEntry {
  uint8_t opCode : 3, multipleNextHops : 1, isDefault : 1, direct : 1, : 2;
  uint8_t prefixLength;
  uint16_t nextHopIndex;  // of a next-hop group when there are multiple next hops
  uint32_t reIndex;
  uint64_t boundNextHop;
};
QDT_RECORD_SIZE(RouteEntry, 16);
QDT_FIELD_AT(RouteEntry, prefixLength, 1, 1);
QDT_FIELD_AT(RouteEntry, nextHopIndex, 2, 2);
QDT_FIELD_AT(RouteEntry, reIndex, 4, 4);
QDT_FIELD_AT(RouteEntry, boundNextHop, 8, 8);

constexpr int kMaxEncapsulation = 64;
constexpr int kMaxL3EgressServices = 4;
constexpr int kMaxL1EgressServices = 24;
constexpr int kMaxOutputInterfaces = 4;

// A service that packets leaving through a next hop pass through.
struct EgressService {
  uint8_t type;
  uint8_t argument1;  // of a layer-1 service: the ACL group type
  int16_t argument2;
  uint32_t
      argument3;  // of a layer-1 service: the ACL group id; of a layer-3 one: a forwarding-interface index
  uint64_t boundEntry;
};
QDT_RECORD_SIZE(EgressService, 16);
QDT_FIELD_AT(EgressService, type, 0, 1);
QDT_FIELD_AT(EgressService, argument1, 1, 1);
QDT_FIELD_AT(EgressService, argument2, 2, 2);
QDT_FIELD_AT(EgressService, argument3, 4, 4);
QDT_FIELD_AT(EgressService, boundEntry, 8, 8);

// What is done to packets on their way to an IPv4 next hop. Counts are signed as the engine keeps them.
struct NextHopExtension {
  uint16_t portId;
  uint16_t mtu;
  int8_t arpMiss, arpFake, encapType, encapSize;
  int8_t l3ServiceCount, l1ServiceCount, linkServiceCount, outputInterfaceCount;
  uint8_t encapsulation[kMaxEncapsulation];
  MacAddress dmac;
  MacAddress smac;
  uint16_t etherType;
  uint16_t vlanId;
  uint8_t reserved92[20];
  EgressService l3Service[kMaxL3EgressServices];
  EgressService l1Service[kMaxL1EgressServices];
  uint64_t outputInterface[kMaxOutputInterfaces];  // addresses of forwarding-interface records
};
QDT_RECORD_SIZE(NextHopExtension, 592);
QDT_FIELD_AT(NextHopExtension, portId, 0, 2);
QDT_FIELD_AT(NextHopExtension, mtu, 2, 2);
QDT_FIELD_AT(NextHopExtension, arpMiss, 4, 1);
QDT_FIELD_AT(NextHopExtension, arpFake, 5, 1);
QDT_FIELD_AT(NextHopExtension, encapType, 6, 1);
QDT_FIELD_AT(NextHopExtension, encapSize, 7, 1);
QDT_FIELD_AT(NextHopExtension, l3ServiceCount, 8, 1);
QDT_FIELD_AT(NextHopExtension, l1ServiceCount, 9, 1);
QDT_FIELD_AT(NextHopExtension, linkServiceCount, 10, 1);
QDT_FIELD_AT(NextHopExtension, outputInterfaceCount, 11, 1);
QDT_FIELD_AT(NextHopExtension, encapsulation, 12, 64);
QDT_FIELD_AT(NextHopExtension, dmac, 76, 6);
QDT_FIELD_AT(NextHopExtension, smac, 82, 6);
QDT_FIELD_AT(NextHopExtension, etherType, 88, 2);
QDT_FIELD_AT(NextHopExtension, vlanId, 90, 2);
QDT_FIELD_AT(NextHopExtension, l3Service, 112, 64);
QDT_FIELD_AT(NextHopExtension, l1Service, 176, 384);
QDT_FIELD_AT(NextHopExtension, outputInterface, 560, 32);

struct NextHopEntry {
  uint32_t ifIndex;
  uint32_t address;  // host order
  uint32_t reserved8[2];
  NextHopExtension ext;
};
QDT_RECORD_SIZE(NextHopEntry, 608);
QDT_FIELD_AT(NextHopEntry, ifIndex, 0, 4);
QDT_FIELD_AT(NextHopEntry, address, 4, 4);
QDT_FIELD_AT(NextHopEntry, ext, 16, 592);

struct Ipv6NextHopExtension {
  uint16_t portId;
  uint16_t mtu;
  int8_t ndMiss, ndFake, encapType, encapSize;
  int8_t linkServiceCount, outputInterfaceCount, l1ServiceCount, l3ServiceCount;
  uint32_t reserved12;
  uint64_t outputInterface[kMaxOutputInterfaces];
};
QDT_RECORD_SIZE(Ipv6NextHopExtension, 48);
QDT_FIELD_AT(Ipv6NextHopExtension, portId, 0, 2);
QDT_FIELD_AT(Ipv6NextHopExtension, mtu, 2, 2);
QDT_FIELD_AT(Ipv6NextHopExtension, ndMiss, 4, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, ndFake, 5, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, encapType, 6, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, encapSize, 7, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, linkServiceCount, 8, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, outputInterfaceCount, 9, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, l1ServiceCount, 10, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, l3ServiceCount, 11, 1);
QDT_FIELD_AT(Ipv6NextHopExtension, outputInterface, 16, 32);

struct Ipv6NextHopEntry {
  uint32_t ifIndex;
  uint32_t address[4];  // host-order words
  uint32_t reserved20;
  Ipv6NextHopExtension ext;
};
QDT_RECORD_SIZE(Ipv6NextHopEntry, 72);
QDT_FIELD_AT(Ipv6NextHopEntry, ifIndex, 0, 4);
QDT_FIELD_AT(Ipv6NextHopEntry, address, 4, 16);
QDT_FIELD_AT(Ipv6NextHopEntry, ext, 24, 48);

constexpr int kMaxGroupMembers = 32;

// A group of next hops, of either family: backups and primaries.
struct NextHopGroupEntry {
  uint8_t backupFrr : 1, : 7;
  uint8_t backupCount;
  uint8_t primaryCount;
  uint8_t reserved3;
  uint32_t hashIndex;
  uint32_t primaryBitmap;
  uint32_t nextHopIndex[kMaxGroupMembers];
  uint32_t primaryNextHopIndex[kMaxGroupMembers];
  uint32_t reserved268;
  uint64_t boundNextHop[kMaxGroupMembers];
  uint64_t boundPrimary[kMaxGroupMembers];
};
QDT_RECORD_SIZE(NextHopGroupEntry, 784);
QDT_FIELD_AT(NextHopGroupEntry, backupCount, 1, 1);
QDT_FIELD_AT(NextHopGroupEntry, primaryCount, 2, 1);
QDT_FIELD_AT(NextHopGroupEntry, hashIndex, 4, 4);
QDT_FIELD_AT(NextHopGroupEntry, primaryBitmap, 8, 4);
QDT_FIELD_AT(NextHopGroupEntry, nextHopIndex, 12, 128);
QDT_FIELD_AT(NextHopGroupEntry, primaryNextHopIndex, 140, 128);
QDT_FIELD_AT(NextHopGroupEntry, boundNextHop, 272, 256);
QDT_FIELD_AT(NextHopGroupEntry, boundPrimary, 528, 256);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_ROUTE_H_
