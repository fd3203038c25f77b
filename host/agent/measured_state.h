#ifndef HOST_AGENT_MEASURED_STATE_H_
#define HOST_AGENT_MEASURED_STATE_H_

#include <string>

#include "host/agent/state.h"
#include "host/arena/arena.h"

namespace qdt::host {

// Tells the results of the engine's measurements below a container of the namespace `space`; nothing of what
// the engine does not measure.
void TellMeasurements(const Arena &arena, const std::string &space, const std::string &path, StateSink *sink);

}  // namespace qdt::host

#endif  // HOST_AGENT_MEASURED_STATE_H_
