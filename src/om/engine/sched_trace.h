#ifndef SRC_OM_ENGINE_SCHED_TRACE_H_
#define SRC_OM_ENGINE_SCHED_TRACE_H_

#include "qdt/sched_trace.h"
#include "src/om/engine/layout.h"

// The region of the scheduler trace. Its creator is the engine, which writes figures while a trace flag is
// set; commands set and clear. The public header names the records of run contexts, nodes and paths, which
// therefore stand outside the namespace.

// A task in the graph of the scheduler.
struct SchedTraceNode {
  uint8_t status;  // bit 0: active
  uint8_t reserved1;
  uint16_t packets;
  uint32_t presence;       // 0: unused
  uint64_t successors[2];  // bit j: node j follows this one
};
QDT_RECORD_SIZE(SchedTraceNode, 24);
QDT_FIELD_AT(SchedTraceNode, status, 0, 1);
QDT_FIELD_AT(SchedTraceNode, packets, 2, 2);
QDT_FIELD_AT(SchedTraceNode, presence, 4, 4);
QDT_FIELD_AT(SchedTraceNode, successors, 8, 16);

// The way of one packet through the tasks.
struct SchedTracePath {
  uint16_t recorded;
  uint16_t taskIds[QDT_SCHED_PATH_SLOTS];  // 0xFFFF: empty
};
QDT_RECORD_SIZE(SchedTracePath, 258);
QDT_FIELD_AT(SchedTracePath, recorded, 0, 2);
QDT_FIELD_AT(SchedTracePath, taskIds, 2, 256);

struct SchedTraceRunc {
  uint8_t flag;
  uint8_t started;
  uint8_t reserved2[2334];
  SchedTraceNode nodes[QDT_SCHED_NODES];
  uint8_t reserved5408[384];
  uint8_t perfFlag;
  uint8_t reserved5793[3];  // the first bytes that a clear zeroes
  uint32_t overTimeBatches, inTimeBatches;
  uint32_t reserved5804;
  // By task id, all of them. Event A is cycles while time is traced; while a cache is, A is misses and B
  // hits.
  uint64_t packets[QDT_SCHED_TASKS];
  uint64_t runs[QDT_SCHED_TASKS];
  uint64_t reserved8112[QDT_SCHED_TASKS];
  uint64_t eventA[QDT_SCHED_TASKS];
  uint64_t eventB[QDT_SCHED_TASKS];
  uint64_t reserved11568[3];
  uint64_t maximum[QDT_SCHED_TASKS];
  SchedTracePath path;
  uint16_t reserved13002[11];
};
QDT_RECORD_SIZE(SchedTraceRunc, 13024);
QDT_FIELD_AT(SchedTraceRunc, flag, 0, 1);
QDT_FIELD_AT(SchedTraceRunc, started, 1, 1);
QDT_FIELD_AT(SchedTraceRunc, nodes, 2336, 3072);
QDT_FIELD_AT(SchedTraceRunc, perfFlag, 5792, 1);
QDT_FIELD_AT(SchedTraceRunc, reserved5793, 5793, 3);
QDT_FIELD_AT(SchedTraceRunc, overTimeBatches, 5796, 4);
QDT_FIELD_AT(SchedTraceRunc, inTimeBatches, 5800, 4);
QDT_FIELD_AT(SchedTraceRunc, packets, 5808, 1152);
QDT_FIELD_AT(SchedTraceRunc, runs, 6960, 1152);
QDT_FIELD_AT(SchedTraceRunc, eventA, 9264, 1152);
QDT_FIELD_AT(SchedTraceRunc, eventB, 10416, 1152);
QDT_FIELD_AT(SchedTraceRunc, maximum, 11592, 1152);
QDT_FIELD_AT(SchedTraceRunc, path, 12744, 258);

namespace qdt {

constexpr char kSchedTraceRegion[] = "SCHED_TRACE_SSMAP_PTR";

struct SchedTraceRegion {
  uint64_t runcCount;
  SchedTraceRunc runcs[];  // runcCount of them
};
QDT_RECORD_SIZE(SchedTraceRegion, 8);  // the run contexts follow at once
QDT_FIELD_AT(SchedTraceRegion, runcCount, 0, 8);

// What is traced: bits of a run context's flag.
enum SchedTraceFlag : uint8_t {
  kTraceTime = 2,
  kTraceICache = 4,
  kTraceDCache = 8,
  kTraceTaskPath = 16,
  kTraceSnapshot = 32,  // of the active nodes
};

constexpr uint8_t kPerfExtended = 1;  // bit of the perf flag: maxima are shown, and the help is longer

// Task ids below this are named tasks; from it on they are selector nodes, all of one name.
constexpr uint32_t kFirstSelector = 94;

// The task whose figures correct those of selector nodes.
constexpr uint32_t kSelectorCorrection = 65;

}  // namespace qdt

#endif  // SRC_OM_ENGINE_SCHED_TRACE_H_
