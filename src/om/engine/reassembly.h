#ifndef SRC_OM_ENGINE_REASSEMBLY_H_
#define SRC_OM_ENGINE_REASSEMBLY_H_

#include "src/om/engine/layout.h"

// Packets whose fragments the engine collects, in one shared region for each IP version: a ring of entries
// that begins and ends at the region's head.
namespace qdt {

// Links hold the addresses of links, not of the entries that they stand in.
struct ReassemblyLink {
  uint64_t previous;
  uint64_t next;
};
QDT_RECORD_SIZE(ReassemblyLink, 16);
QDT_FIELD_AT(ReassemblyLink, previous, 0, 8);
QDT_FIELD_AT(ReassemblyLink, next, 8, 8);

struct ReassemblyRegion {
  uint8_t reserved0[24];
  ReassemblyLink head;
};
QDT_RECORD_SIZE(ReassemblyRegion, 40);
QDT_FIELD_AT(ReassemblyRegion, head, 24, 16);

struct Ipv4ReassemblyEntry {
  uint64_t reserved0[2];
  ReassemblyLink link;
  uint32_t vrf;                 // the protocol is its upper half
  uint32_t sourceAddress;       // host order
  uint32_t destinationAddress;  // host order
  uint32_t packetId;
  uint32_t reserved48[4];
  uint64_t timeStamp;  // milliseconds of the processor's timer; the TTL counts from here
  uint32_t sourcePort;
  uint32_t destinationPort;
  uint32_t vlan;
  uint32_t reserved84[3];
  uint32_t fragments;
  uint32_t ttl : 16;  // milliseconds
  uint32_t : 2;
  uint32_t firstArrived : 1;
  uint32_t lastArrived : 1;
  uint32_t reassemble : 1;
  uint32_t : 11;
};
QDT_RECORD_SIZE(Ipv4ReassemblyEntry, 104);
QDT_FIELD_AT(Ipv4ReassemblyEntry, link, 16, 16);
QDT_FIELD_AT(Ipv4ReassemblyEntry, vrf, 32, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, sourceAddress, 36, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, destinationAddress, 40, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, packetId, 44, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, timeStamp, 64, 8);
QDT_FIELD_AT(Ipv4ReassemblyEntry, sourcePort, 72, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, destinationPort, 76, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, vlan, 80, 4);
QDT_FIELD_AT(Ipv4ReassemblyEntry, fragments, 96, 4);

// As Ipv4ReassemblyEntry, but the flags of the first and the last fragment stand one bit lower. Addresses are
// host-order words.
struct Ipv6ReassemblyEntry {
  uint64_t reserved0[2];
  ReassemblyLink link;
  uint32_t vrf;
  uint32_t sourceAddress[4];
  uint32_t destinationAddress[4];
  uint32_t packetId;
  uint32_t reserved72[4];
  uint64_t timeStamp;
  uint32_t vlan;
  uint32_t sourcePort;
  uint32_t destinationPort;
  uint32_t reserved108[3];
  uint32_t fragments;
  uint32_t ttl : 16;
  uint32_t : 1;
  uint32_t firstArrived : 1;
  uint32_t lastArrived : 1;
  uint32_t : 1;
  uint32_t reassemble : 1;
  uint32_t : 11;
};
QDT_RECORD_SIZE(Ipv6ReassemblyEntry, 128);
QDT_FIELD_AT(Ipv6ReassemblyEntry, link, 16, 16);
QDT_FIELD_AT(Ipv6ReassemblyEntry, vrf, 32, 4);
QDT_FIELD_AT(Ipv6ReassemblyEntry, sourceAddress, 36, 16);
QDT_FIELD_AT(Ipv6ReassemblyEntry, destinationAddress, 52, 16);
QDT_FIELD_AT(Ipv6ReassemblyEntry, packetId, 68, 4);
QDT_FIELD_AT(Ipv6ReassemblyEntry, timeStamp, 88, 8);
QDT_FIELD_AT(Ipv6ReassemblyEntry, vlan, 96, 4);
QDT_FIELD_AT(Ipv6ReassemblyEntry, sourcePort, 100, 4);
QDT_FIELD_AT(Ipv6ReassemblyEntry, destinationPort, 104, 4);
QDT_FIELD_AT(Ipv6ReassemblyEntry, fragments, 120, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_REASSEMBLY_H_
