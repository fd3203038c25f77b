#ifndef SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_
#define SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_

#include <cstdint>

#include "src/om/common/memory_probe.h"
#include "src/om/engine/sched_trace.h"

// What the sources of the scheduler trace share.
namespace qdt {

// The region of the command that runs, and where its mapping ends. The count of run contexts stands in the
// region: when it is too large, what lies behind is not read as one, nor written to.
extern SchedTraceRegion *g_schedTraceRegion;
extern uint64_t g_schedTraceEnd;

// The address of a run context's record, or 0 when there is none. The record can be read, but perhaps not
// written, and belongs to the engine: it is read and written as all engine memory.
uint64_t FindRunc(uint32_t number);

// Visits the records of the run contexts: visit(number, address).
template <typename Visit>
void ForEachRecord(Visit visit) {
  const EngineMemoryScope memory;
  uint64_t record = FindRunc(0);
  for (uint32_t number = 0; record != 0; record = FindRunc(++number)) visit(number, record);
}

// A run context, and what its record held when its turn came. Figures are taken from the copy, so that those
// of one context belong together.
struct TracedRunc {
  uint32_t number;
  SchedTraceRunc copy;
};

template <typename Visit>
void ForEachRunc(Visit visit) {
  TracedRunc runc;
  ForEachRecord([&](uint32_t number, uint64_t record) {
    runc.number = number;
    if (ReadEngineMemory(record, &runc.copy, sizeof(runc.copy))) visit(runc);
  });
}

const char *SchedTaskName(uint32_t taskId);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_NQE_CLI_SCHED_TRACE_H_
