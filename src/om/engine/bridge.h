#ifndef SRC_OM_ENGINE_BRIDGE_H_
#define SRC_OM_ENGINE_BRIDGE_H_

#include "src/om/engine/layout.h"

// Bridges, trunks, and what ARP recorded of duplicate MAC addresses.
namespace qdt {

struct BridgeEntry {
  uint32_t bridgeId;
  uint32_t ifIndex;
  uint8_t vlanFilter;
  uint8_t macLimitEnable;
  uint8_t reserved10[2];
  uint32_t macAgingTime;
  uint32_t macLimitNum;
  uint32_t currentMacNum;
};
QDT_RECORD_SIZE(BridgeEntry, 24);
QDT_FIELD_AT(BridgeEntry, bridgeId, 0, 4);
QDT_FIELD_AT(BridgeEntry, ifIndex, 4, 4);
QDT_FIELD_AT(BridgeEntry, vlanFilter, 8, 1);
QDT_FIELD_AT(BridgeEntry, macLimitEnable, 9, 1);
QDT_FIELD_AT(BridgeEntry, macAgingTime, 12, 4);
QDT_FIELD_AT(BridgeEntry, macLimitNum, 16, 4);
QDT_FIELD_AT(BridgeEntry, currentMacNum, 20, 4);

constexpr int kMaxTrunkMembers = 256;

struct TrunkEntry {
  uint16_t activePorts;
  uint8_t hashType;
  uint8_t reserved3;
  uint32_t trunkIfIndex;
  uint32_t member[kMaxTrunkMembers];  // forwarding-interface indexes
};
QDT_RECORD_SIZE(TrunkEntry, 1032);
QDT_FIELD_AT(TrunkEntry, activePorts, 0, 2);
QDT_FIELD_AT(TrunkEntry, hashType, 2, 1);
QDT_FIELD_AT(TrunkEntry, trunkIfIndex, 4, 4);
QDT_FIELD_AT(TrunkEntry, member, 8, 1024);

// A duplicate MAC address, as ARP met it.
struct DuplicateMacEntry {
  uint32_t ifIndex;
  uint32_t bridgeId;
  MacAddress sourceMac;
  uint16_t vlanId;
  uint32_t reserved16;
};
QDT_RECORD_SIZE(DuplicateMacEntry, 20);
QDT_FIELD_AT(DuplicateMacEntry, ifIndex, 0, 4);
QDT_FIELD_AT(DuplicateMacEntry, bridgeId, 4, 4);
QDT_FIELD_AT(DuplicateMacEntry, sourceMac, 8, 6);
QDT_FIELD_AT(DuplicateMacEntry, vlanId, 14, 2);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_BRIDGE_H_
