#ifndef SRC_OM_ENGINE_PACKET_SOCKET_H_
#define SRC_OM_ENGINE_PACKET_SOCKET_H_

#include "src/om/engine/layout.h"

namespace qdt {

struct PacketSocketKey {
  uint16_t etherType;  // host order
  uint16_t reserved2;
};
QDT_RECORD_SIZE(PacketSocketKey, 4);
QDT_FIELD_AT(PacketSocketKey, etherType, 0, 2);

// A packet socket that listens for an Ethernet type.
struct PacketSocketEntry {
  uint32_t protocol;
  int32_t fd;
  uint32_t ifIndex;
};
QDT_RECORD_SIZE(PacketSocketEntry, 12);
QDT_FIELD_AT(PacketSocketEntry, protocol, 0, 4);
QDT_FIELD_AT(PacketSocketEntry, fd, 4, 4);
QDT_FIELD_AT(PacketSocketEntry, ifIndex, 8, 4);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_PACKET_SOCKET_H_
