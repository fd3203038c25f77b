#ifndef SRC_OM_ENGINE_SWITCHING_H_
#define SRC_OM_ENGINE_SWITCHING_H_

#include "src/om/engine/layout.h"

// Layer-2 switching: VLANs and their members, MAC addresses, the lists of interfaces and stations that frames
// are replicated to, and the state of ports. The tables of lists hold several entries a key, one for each
// receiver. Addresses in host order.
namespace qdt {

// Key of VLAN entries: the VLAN comes first.
struct VlanKey {
  uint16_t vlanId;
  uint16_t bridgeId;
};
QDT_RECORD_SIZE(VlanKey, 4);
QDT_FIELD_AT(VlanKey, vlanId, 0, 2);
QDT_FIELD_AT(VlanKey, bridgeId, 2, 2);

struct VlanEntry {
  uint32_t reserved0;
  uint16_t vlanId;
  uint16_t macLearn : 1, broadcastLimit : 1, unknownUnicastAction : 2, macLimit : 1, macLimitFull : 1,
      macLimitAction : 2, macLimitAlarm : 1, roamedUsers : 1, arpReply : 1, igmpSnooping : 1, dhcp : 1, : 3;
  uint16_t broadcastListId;
  uint16_t statId;
  uint16_t macLimitNum;
  uint16_t instanceId;
  uint32_t currentMacNum;
  uint32_t ifIndex;  // of the VLAN interface
};
QDT_RECORD_SIZE(VlanEntry, 24);
QDT_FIELD_AT(VlanEntry, vlanId, 4, 2);
QDT_FIELD_AT(VlanEntry, broadcastListId, 8, 2);
QDT_FIELD_AT(VlanEntry, statId, 10, 2);
QDT_FIELD_AT(VlanEntry, macLimitNum, 12, 2);
QDT_FIELD_AT(VlanEntry, instanceId, 14, 2);
QDT_FIELD_AT(VlanEntry, currentMacNum, 16, 4);
QDT_FIELD_AT(VlanEntry, ifIndex, 20, 4);

constexpr uint32_t kVlanBitmapWords = 128;  // which VLAN a bit stands for is the engine's own

// The VLANs that a forwarding interface is a member of, and those that leave it without their tag.
struct VlanBitmapEntry {
  int32_t fwdIfIndex;
  uint32_t member[kVlanBitmapWords];
  uint32_t untagged[kVlanBitmapWords];
};
QDT_RECORD_SIZE(VlanBitmapEntry, 1028);
QDT_FIELD_AT(VlanBitmapEntry, fwdIfIndex, 0, 4);
QDT_FIELD_AT(VlanBitmapEntry, member, 4, 512);
QDT_FIELD_AT(VlanBitmapEntry, untagged, 516, 512);

struct MacKey {
  uint32_t bridgeId;
  uint16_t vlanId;
  MacAddress mac;
};
QDT_RECORD_SIZE(MacKey, 12);
QDT_FIELD_AT(MacKey, bridgeId, 0, 4);
QDT_FIELD_AT(MacKey, vlanId, 4, 2);
QDT_FIELD_AT(MacKey, mac, 6, 6);

struct MacEntry {
  MacKey key;
  uint32_t isStatic : 1, drop : 1, local : 1, security : 1, roam : 1, isDefault : 1, : 2, aging : 8, : 16;
  uint32_t outIfIndex;
};
QDT_RECORD_SIZE(MacEntry, 20);
QDT_FIELD_AT(MacEntry, key, 0, 12);
QDT_FIELD_AT(MacEntry, outIfIndex, 16, 4);

struct PortTagEntry {
  uint32_t portId;
  uint32_t encapsulation;
};
QDT_RECORD_SIZE(PortTagEntry, 8);
QDT_FIELD_AT(PortTagEntry, portId, 0, 4);
QDT_FIELD_AT(PortTagEntry, encapsulation, 4, 4);

// The forwarding-interface indexes of two ports that are isolated from each other when `enabled` says so.
struct PortIsolateKey {
  uint32_t source;
  uint32_t destination;
};
QDT_RECORD_SIZE(PortIsolateKey, 8);
QDT_FIELD_AT(PortIsolateKey, source, 0, 4);
QDT_FIELD_AT(PortIsolateKey, destination, 4, 4);

struct PortIsolateEntry {
  PortIsolateKey key;
  uint32_t enabled : 1, : 31;
};
QDT_RECORD_SIZE(PortIsolateEntry, 12);
QDT_FIELD_AT(PortIsolateEntry, key, 0, 8);

// Key of the lists of one VLAN: those of broadcast receivers, route ports and excluded ports.
struct VlanListKey {
  uint16_t bridgeId;  // of broadcast receivers; the meaning in the other lists is the engine's
  uint16_t vlanId;
};
QDT_RECORD_SIZE(VlanListKey, 4);
QDT_FIELD_AT(VlanListKey, bridgeId, 0, 2);
QDT_FIELD_AT(VlanListKey, vlanId, 2, 2);

struct VlanListEntry {
  VlanListKey key;
  uint32_t fwdIfIndex;
};
QDT_RECORD_SIZE(VlanListEntry, 8);
QDT_FIELD_AT(VlanListEntry, fwdIfIndex, 4, 4);

// One interface of the global broadcast list.
struct GlobalBroadcastEntry {
  uint32_t fwdIfIndex;
};
QDT_RECORD_SIZE(GlobalBroadcastEntry, 4);
QDT_FIELD_AT(GlobalBroadcastEntry, fwdIfIndex, 0, 4);

struct MulticastGroup {
  uint32_t group;
  uint32_t source;
};
QDT_RECORD_SIZE(MulticastGroup, 8);
QDT_FIELD_AT(MulticastGroup, group, 0, 4);
QDT_FIELD_AT(MulticastGroup, source, 4, 4);

struct MulticastKey {
  VlanListKey vlan;
  MulticastGroup address;
};
QDT_RECORD_SIZE(MulticastKey, 12);
QDT_FIELD_AT(MulticastKey, vlan, 0, 4);
QDT_FIELD_AT(MulticastKey, address, 4, 8);

struct MulticastEntry {
  MulticastKey key;
  uint32_t fwdIfIndex;
};
QDT_RECORD_SIZE(MulticastEntry, 16);
QDT_FIELD_AT(MulticastEntry, fwdIfIndex, 12, 4);

// Key of the lists of users that multicasts are turned into unicasts for.
struct MulticastUserKey {
  VlanListKey vlan;
  uint32_t fwdIfIndex;
  MulticastGroup address;
};
QDT_RECORD_SIZE(MulticastUserKey, 16);
QDT_FIELD_AT(MulticastUserKey, vlan, 0, 4);
QDT_FIELD_AT(MulticastUserKey, fwdIfIndex, 4, 4);
QDT_FIELD_AT(MulticastUserKey, address, 8, 8);

struct MulticastUserEntry {
  MulticastUserKey key;
  MacAddress user;
  uint16_t reserved22;
};
QDT_RECORD_SIZE(MulticastUserEntry, 24);
QDT_FIELD_AT(MulticastUserEntry, user, 16, 6);

// Entry of the dummy multicast routes.
struct DummyMulticastRoute {
  uint16_t bridgeId;
  uint16_t vlanId;
  uint32_t source;
  uint32_t group;
  uint8_t aging;
  uint8_t reserved13[3];
};
QDT_RECORD_SIZE(DummyMulticastRoute, 16);
QDT_FIELD_AT(DummyMulticastRoute, bridgeId, 0, 2);
QDT_FIELD_AT(DummyMulticastRoute, vlanId, 2, 2);
QDT_FIELD_AT(DummyMulticastRoute, source, 4, 4);
QDT_FIELD_AT(DummyMulticastRoute, group, 8, 4);
QDT_FIELD_AT(DummyMulticastRoute, aging, 12, 1);

// A port in one spanning-tree instance.
struct PortInstanceKey {
  uint16_t bridgeId;
  uint16_t instanceId;
  uint32_t fwdIfIndex;
};
QDT_RECORD_SIZE(PortInstanceKey, 8);
QDT_FIELD_AT(PortInstanceKey, bridgeId, 0, 2);
QDT_FIELD_AT(PortInstanceKey, instanceId, 2, 2);
QDT_FIELD_AT(PortInstanceKey, fwdIfIndex, 4, 4);

struct PortInstanceEntry {
  PortInstanceKey key;
  uint8_t state;
  uint8_t reserved9[3];
};
QDT_RECORD_SIZE(PortInstanceEntry, 12);
QDT_FIELD_AT(PortInstanceEntry, key, 0, 8);
QDT_FIELD_AT(PortInstanceEntry, state, 8, 1);

// The counter of one cause of the control plane.
struct CauseEntry {
  uint32_t cpCauseId;
  uint32_t reserved4;
  uint32_t causeIndex;
  uint32_t packets;
};
QDT_RECORD_SIZE(CauseEntry, 16);
QDT_FIELD_AT(CauseEntry, cpCauseId, 0, 4);
QDT_FIELD_AT(CauseEntry, causeIndex, 8, 4);
QDT_FIELD_AT(CauseEntry, packets, 12, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SWITCHING_H_
