#ifndef SRC_OM_OMA_SESSION_FLOW_H_
#define SRC_OM_OMA_SESSION_FLOW_H_

#include <cstdint>

#include "src/om/engine/session.h"

namespace qdt {

// The initiating direction of a session of either family: its positive key. An IPv4 address stands in the
// first word.
struct SessionFlow {
  uint32_t source[4];
  uint32_t destination[4];
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint8_t protocol;
  uint16_t vpn;
};

enum class FlowState : uint8_t {
  kRead,
  kAbsent,   // the session has no positive key
  kDamaged,  // its key's address leads nowhere
};

// Reads the session's positive key; `flow` is zero unless that succeeds.
FlowState ReadFlow(const SessionRecord &session, SessionFlow &flow);

// What address translation makes of an IPv4 flow's ends.

inline uint32_t TranslatedSource(const SessionRecord &session, const SessionFlow &flow) {
  return session.sourceTranslated ? session.positive.source : flow.source[0];
}

inline uint16_t TranslatedSourcePort(const SessionRecord &session, const SessionFlow &flow) {
  return session.sourcePortTranslated ? session.positive.sourcePort : flow.sourcePort;
}

inline uint32_t TranslatedDestination(const SessionRecord &session, const SessionFlow &flow) {
  return session.destinationTranslated ? session.positive.destination : flow.destination[0];
}

inline uint16_t TranslatedDestinationPort(const SessionRecord &session, const SessionFlow &flow) {
  return session.destinationPortTranslated ? session.positive.destinationPort : flow.destinationPort;
}

}  // namespace qdt

#endif  // SRC_OM_OMA_SESSION_FLOW_H_
