#ifndef SRC_OM_ENGINE_NAT_H_
#define SRC_OM_ENGINE_NAT_H_

#include "src/om/engine/layout.h"

namespace qdt {

// Key of the NAT ARP tables; the address in host order.
struct NatArpKey {
  uint32_t kind;
  uint32_t startAddress;
};
QDT_RECORD_SIZE(NatArpKey, 8);
QDT_FIELD_AT(NatArpKey, kind, 0, 4);
QDT_FIELD_AT(NatArpKey, startAddress, 4, 4);

// The kinds that the tables' keys begin with.
constexpr uint32_t kNatArpPool = 0x50000;  // pool sections and excluded ranges
constexpr uint32_t kNatArpHost = 0x20000;

struct NatArpEntry {
  NatArpKey key;
  uint32_t addressCount;
  uint32_t reserved12[3];
};
QDT_RECORD_SIZE(NatArpEntry, 24);
QDT_FIELD_AT(NatArpEntry, key, 0, 8);
QDT_FIELD_AT(NatArpEntry, addressCount, 8, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_NAT_H_
