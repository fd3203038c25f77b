#ifndef SRC_OM_ENGINE_ARP_SIMULATOR_H_
#define SRC_OM_ENGINE_ARP_SIMULATOR_H_

#include "src/om/engine/layout.h"

namespace qdt {

// A test of the ARP simulator. IPv4 addresses in host order; what type and interval mean is the engine's.
struct ArpSimulatorEntry {
  uint32_t sourceAddress, destinationAddress;
  uint16_t vlanId;
  MacAddress destinationMac;
  uint16_t type;
  MacAddress sourceMac;
  uint32_t interval;
  uint32_t testTimes, sentTimes;
  uint32_t testing : 1, : 31;
  uint64_t sendTimeMs, replyTimeMs;
};
QDT_RECORD_SIZE(ArpSimulatorEntry, 56);
QDT_FIELD_AT(ArpSimulatorEntry, sourceAddress, 0, 4);
QDT_FIELD_AT(ArpSimulatorEntry, destinationAddress, 4, 4);
QDT_FIELD_AT(ArpSimulatorEntry, vlanId, 8, 2);
QDT_FIELD_AT(ArpSimulatorEntry, destinationMac, 10, 6);
QDT_FIELD_AT(ArpSimulatorEntry, type, 16, 2);
QDT_FIELD_AT(ArpSimulatorEntry, sourceMac, 18, 6);
QDT_FIELD_AT(ArpSimulatorEntry, interval, 24, 4);
QDT_FIELD_AT(ArpSimulatorEntry, testTimes, 28, 4);
QDT_FIELD_AT(ArpSimulatorEntry, sentTimes, 32, 4);
QDT_FIELD_AT(ArpSimulatorEntry, sendTimeMs, 40, 8);
QDT_FIELD_AT(ArpSimulatorEntry, replyTimeMs, 48, 8);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_ARP_SIMULATOR_H_
