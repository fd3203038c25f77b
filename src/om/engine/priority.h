#ifndef SRC_OM_ENGINE_PRIORITY_H_
#define SRC_OM_ENGINE_PRIORITY_H_

#include "src/om/engine/layout.h"

namespace qdt {

// The QoS maps of one VAP between the 802.11 user priority (UP), the 802.1p priority, the DSCP and the DSCP
// of the tunnel header. Each is indexed by the value that it maps.
struct PriorityMaps {
  uint8_t upToDscp[8];
  uint8_t upTo8021p[8];
  uint8_t dscpTo8021p[64];
  uint8_t dscpToUp[64];
  uint8_t p8021pToUp[8];
  uint8_t dscpToTunnelDscp[64];
  uint8_t upToTunnelDscp[8];
};
QDT_RECORD_SIZE(PriorityMaps, 224);
QDT_FIELD_AT(PriorityMaps, upToDscp, 0, 8);
QDT_FIELD_AT(PriorityMaps, upTo8021p, 8, 8);
QDT_FIELD_AT(PriorityMaps, dscpTo8021p, 16, 64);
QDT_FIELD_AT(PriorityMaps, dscpToUp, 80, 64);
QDT_FIELD_AT(PriorityMaps, p8021pToUp, 144, 8);
QDT_FIELD_AT(PriorityMaps, dscpToTunnelDscp, 152, 64);
QDT_FIELD_AT(PriorityMaps, upToTunnelDscp, 216, 8);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_PRIORITY_H_
