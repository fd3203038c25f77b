#ifndef HOST_AGENT_ENGINE_STATE_H_
#define HOST_AGENT_ENGINE_STATE_H_

#include <span>

#include "host/agent/state.h"

namespace qdt::host {

// The state data that the engine's arena holds, walked in the process that runs the handlers.
std::span<const StateSource> EngineStateSources();

}  // namespace qdt::host

#endif  // HOST_AGENT_ENGINE_STATE_H_
