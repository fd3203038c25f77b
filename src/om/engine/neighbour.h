#ifndef SRC_OM_ENGINE_NEIGHBOUR_H_
#define SRC_OM_ENGINE_NEIGHBOUR_H_

#include "src/om/engine/layout.h"

// Neighbours (ARP and ND), the caches of addresses whose resolution is pending, and the addresses of ports.
namespace qdt {

// Key of ARP and ARP-miss entries; the next hop in host order.
struct ArpKey {
  uint16_t zero;
  uint16_t vpn;
  uint32_t nextHop;
};
QDT_RECORD_SIZE(ArpKey, 8);
QDT_FIELD_AT(ArpKey, zero, 0, 2);
QDT_FIELD_AT(ArpKey, vpn, 2, 2);
QDT_FIELD_AT(ArpKey, nextHop, 4, 4);

// Key of ND and ND-miss entries; the next hop as four host-order words.
struct NdKey {
  uint16_t zero;
  uint16_t vpn;
  uint32_t nextHop[4];
};
QDT_RECORD_SIZE(NdKey, 20);
QDT_FIELD_AT(NdKey, zero, 0, 2);
QDT_FIELD_AT(NdKey, vpn, 2, 2);
QDT_FIELD_AT(NdKey, nextHop, 4, 16);

// What is known of a resolved neighbour, of either family.
struct Neighbour {
  uint32_t valid : 1, fake : 1, : 30;
  uint32_t ctrlIfIndex;
  uint32_t fwdIfIndex;
  uint32_t l3CtrlIfIndex;
  uint32_t l3FwdIfIndex;
  MacAddress dmac;
  uint16_t vlanId;
};
QDT_RECORD_SIZE(Neighbour, 28);
QDT_FIELD_AT(Neighbour, ctrlIfIndex, 4, 4);
QDT_FIELD_AT(Neighbour, fwdIfIndex, 8, 4);
QDT_FIELD_AT(Neighbour, l3CtrlIfIndex, 12, 4);
QDT_FIELD_AT(Neighbour, l3FwdIfIndex, 16, 4);
QDT_FIELD_AT(Neighbour, dmac, 20, 6);
QDT_FIELD_AT(Neighbour, vlanId, 26, 2);

struct ArpEntry {
  ArpKey key;
  Neighbour neighbour;
  uint32_t reserved36[2];
};
QDT_RECORD_SIZE(ArpEntry, 44);
QDT_FIELD_AT(ArpEntry, neighbour, 8, 28);

struct NdEntry {
  NdKey key;
  Neighbour neighbour;
  uint32_t reserved48[2];
};
QDT_RECORD_SIZE(NdEntry, 56);
QDT_FIELD_AT(NdEntry, neighbour, 20, 28);

// A packet that waits for its next hop to be resolved. Addresses in host order.
struct ArpMissEntry {
  ArpKey key;
  uint32_t reserved8[2];
  uint32_t createTime;  // seconds of the monotonic clock
  uint32_t sourceAddress;
  uint32_t destinationAddress;
  uint32_t ttl;  // seconds
};
QDT_RECORD_SIZE(ArpMissEntry, 32);
QDT_FIELD_AT(ArpMissEntry, key.nextHop, 4, 4);
QDT_FIELD_AT(ArpMissEntry, createTime, 16, 4);
QDT_FIELD_AT(ArpMissEntry, sourceAddress, 20, 4);
QDT_FIELD_AT(ArpMissEntry, destinationAddress, 24, 4);
QDT_FIELD_AT(ArpMissEntry, ttl, 28, 4);

// As ArpMissEntry; the next hop as host-order words, the packet's own addresses as bytes in network order.
struct NdMissEntry {
  NdKey key;
  uint32_t reserved20[3];
  uint32_t createTime;
  uint32_t ttl;
  uint8_t sourceAddress[16];
  uint8_t destinationAddress[16];
};
QDT_RECORD_SIZE(NdMissEntry, 72);
QDT_FIELD_AT(NdMissEntry, key.nextHop, 4, 16);
QDT_FIELD_AT(NdMissEntry, createTime, 32, 4);
QDT_FIELD_AT(NdMissEntry, ttl, 36, 4);
QDT_FIELD_AT(NdMissEntry, sourceAddress, 40, 16);
QDT_FIELD_AT(NdMissEntry, destinationAddress, 56, 16);

// Where the addresses of a forwarding interface are listed.
struct PortAddressHead {
  uint32_t reserved0;
  uint32_t listKey;  // key of the interface's addresses in the address table of the family
};
QDT_RECORD_SIZE(PortAddressHead, 8);
QDT_FIELD_AT(PortAddressHead, listKey, 4, 4);

struct PortAddress {
  uint32_t address;  // host order
  uint32_t mask;
  uint32_t type;
  uint32_t reserved12[2];
};
QDT_RECORD_SIZE(PortAddress, 20);
QDT_FIELD_AT(PortAddress, address, 0, 4);
QDT_FIELD_AT(PortAddress, mask, 4, 4);
QDT_FIELD_AT(PortAddress, type, 8, 4);

struct Ipv6PortAddress {
  uint32_t address[4];  // host-order words
  uint32_t prefixLength;
  uint32_t type;
  uint32_t reserved24[2];
};
QDT_RECORD_SIZE(Ipv6PortAddress, 32);
QDT_FIELD_AT(Ipv6PortAddress, address, 0, 16);
QDT_FIELD_AT(Ipv6PortAddress, prefixLength, 16, 4);
QDT_FIELD_AT(Ipv6PortAddress, type, 20, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_NEIGHBOUR_H_
