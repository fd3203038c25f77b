/*
 * Scheduler trace: what the engine's scheduler records of the tasks that every packet runs through, and the
 * "perf task" command that selects, clears and shows it.
 *
 * The engine and this library share the region "SCHED_TRACE_SSMAP_PTR": a record for every run context (one a
 * forwarding core). The engine writes while this library reads, without a lock: figures of one answer may
 * come from different moments. Each operation without a record works on the region that
 * VrxSchedTraceCmdRun attached last, and does nothing for run contexts before that. At most 64 run contexts
 * are looked at, none that is not whole in the region's mapping; one that cannot be written stays as it is.
 *
 * All answers are appended with QdtCliPrintf. One command runs at a time.
 */
#ifndef QDT_SCHED_TRACE_H_
#define QDT_SCHED_TRACE_H_

#include <stdint.h>

#include "qdt/api.h"
#include "qdt/cli.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Task ids, selector nodes included; nodes of the task graph; task ids that a recorded path holds. */
#define QDT_SCHED_TASKS 144
#define QDT_SCHED_NODES 128
#define QDT_SCHED_PATH_SLOTS 128

/* The region's records: of a run context (13024 bytes), and within it of a node (24) and a path (258). */
typedef struct SchedTraceRunc SchedTraceRunc;
typedef struct SchedTraceNode SchedTraceNode;
typedef struct SchedTracePath SchedTracePath;

/* The perf flag of run context 0 at the last command; bit 0: maxima are shown, and the usage is longer. */
QDT_API extern uint8_t g_perfFlag;

/* The "perf task" command behind its attachment; see VrxSchedTraceCmdRun. 0, or -1 after printing the help.
 */
QDT_API int32_t SchedTraceCmdInner(OutputBuffer *out, int32_t wordCount, char **words);

/* Appends the usage of "perf task"; three more lines when bit 0 of g_perfFlag is set. */
QDT_API void SchedTraceHelp(OutputBuffer *out);

/*
 * Sets what is traced: "time", "icache", "dcache", "task_path" or "snapshot". A run context that traces
 * something else first has all contexts' figures cleared. Another word is told in the answer.
 */
QDT_API void SchedTraceSetTraceFlag(OutputBuffer *out, const char *name);

/* Stops tracing in all run contexts; the figures stay. */
QDT_API void SchedTraceDisable(OutputBuffer *out);

/* Zeroes the figures of all run contexts and appends "LABEL done."; flags and the task graph stay. */
QDT_API void SchedTraceDataOnlyClear(OutputBuffer *out, const char *label);

/* Zeroes status and packet number of the QDT_SCHED_NODES nodes. */
QDT_API void SchedTraceClearTaskInfo(SchedTraceNode *nodes);

/* The figures that go with the flag of each run context. */
QDT_API void SchedTraceShow(OutputBuffer *out);

/* Tasks by cycles, most first: of one run ("avg") or of all ("total"). Only where time is traced. */
QDT_API void SchedTraceTopDown(OutputBuffer *out, const char *kind);

/* The successors of the nodes as a Graphviz graph: of all run contexts, of one. */
QDT_API void SchedTraceShowGraph(OutputBuffer *out);
QDT_API void SchedTraceShowGraphPrintInfo(OutputBuffer *out, uint32_t runc, const SchedTraceRunc *record);

/* The nodes in use, with their state and successors: of all run contexts, of one. */
QDT_API void SchedTraceShowActiveNode(OutputBuffer *out);
QDT_API void SchedTraceShowActiveNodePrintInfo(OutputBuffer *out, uint32_t runc,
                                               const SchedTraceRunc *record);

/*
 * The averages of the tasks from firstId up to, but not including, endId that ran. `flag` says what is
 * traced; one without time, icache and dcache is told in the answer.
 */
QDT_API void FormatEventTracer(OutputBuffer *out, uint32_t flag, const SchedTraceRunc *record,
                               uint32_t firstId, uint32_t endId);

/*
 * The averages of one task: cycles, or misses and hits, and packets a run. `packetSum` is the number of
 * packets that reached a selector node, and not looked at for other tasks. Nothing for an id that is none.
 */
QDT_API void FormatEventTracerOutput(OutputBuffer *out, const SchedTraceRunc *record, uint32_t taskId,
                                     uint32_t packetSum);

/* The recorded paths from `first` up to, but not including, `end`. A run context holds one, number 0. */
QDT_API void FormatPathTracer(OutputBuffer *out, const SchedTraceRunc *record, uint32_t first, uint32_t end);

/* The task ids of one path. */
QDT_API void FormatPathTracerTaskId(OutputBuffer *out, const SchedTracePath *path);

#ifdef __cplusplus
}
#endif

#endif /* QDT_SCHED_TRACE_H_ */
