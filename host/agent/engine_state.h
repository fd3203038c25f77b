#ifndef HOST_AGENT_ENGINE_STATE_H_
#define HOST_AGENT_ENGINE_STATE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "host/agent/state.h"
#include "host/omcc/model.h"
#include "host/record/record_source.h"

namespace qdt::host {

// A look at the arena that this process works on.
std::unique_ptr<RecordSource> EngineSource();

// What the two documents of the handlers tell.
struct EngineFigures {
  uint64_t drops = 0;                     // packets without a buffer
  std::optional<uint32_t> memoryPercent;  // of shared memory; none where the engine has none
};
EngineFigures ReadEngineFigures(const Model &model);

// The state data that the engine's arena holds, walked in the process that runs the handlers.
std::span<const StateSource> EngineStateSources();

}  // namespace qdt::host

#endif  // HOST_AGENT_ENGINE_STATE_H_
