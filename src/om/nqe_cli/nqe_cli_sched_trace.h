#ifndef SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_
#define SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_

#include <algorithm>
#include <cstdint>

#include "src/om/common/memory_probe.h"
#include "src/om/engine/sched_trace.h"

// What the sources of the scheduler trace share.
namespace qdt {

// The region of the command that runs.
extern SchedTraceRegion *g_schedTraceRegion;

// A run context: its record, and what that held when its turn came. Figures are taken from the copy, so that
// those of one context belong together.
struct TracedRunc {
  uint32_t number;
  SchedTraceRunc *record;
  SchedTraceRunc copy;
};

// More run contexts than an engine has cores are a damaged count; a record that is not there ends the walk.
constexpr uint64_t kMaxRuncs = 64;

template <typename Visit>
void ForEachRunc(Visit visit) {
  if (g_schedTraceRegion == nullptr) return;
  const auto count = static_cast<uint32_t>(std::min(g_schedTraceRegion->runcCount, kMaxRuncs));
  TracedRunc runc;
  for (runc.number = 0; runc.number < count; ++runc.number) {
    runc.record = &g_schedTraceRegion->runcs[runc.number];
    if (!ReadEngineMemory(reinterpret_cast<uint64_t>(runc.record), &runc.copy, sizeof(runc.copy))) return;
    visit(runc);
  }
}

const char *SchedTaskName(uint32_t taskId);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_
