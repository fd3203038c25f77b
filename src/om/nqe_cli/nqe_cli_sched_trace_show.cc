#include <cstdlib>
#include <cstring>

#include "src/om/common/names.h"
#include "src/om/nqe_cli/nqe_cli_sched_trace.h"

// The figures of the scheduler trace: averages by task, tasks by cycles, and a packet's path.

using qdt::ForEachRunc;
using qdt::TracedRunc;

namespace qdt {
namespace {

constexpr uint8_t kTraceEvents = kTraceTime | kTraceICache | kTraceDCache;
constexpr uint16_t kEmptySlot = 0xFFFF;
constexpr uint32_t kPathLineSlots = 20;

double Quotient(double dividend, double divisor) { return divisor == 0 ? 0 : dividend / divisor; }

// A selector node's counter, less that of the task that corrects them all.
double Corrected(const uint64_t (&counters)[QDT_SCHED_TASKS], uint32_t taskId) {
  return static_cast<double>(counters[taskId]) - static_cast<double>(counters[kSelectorCorrection]);
}

bool IsSelector(uint32_t taskId) { return taskId >= kFirstSelector; }

struct Averages {
  double eventA, eventB, packets;
};

Averages AveragesOf(const SchedTraceRunc &runc, uint32_t taskId, uint32_t packetSum) {
  const auto runs = static_cast<double>(runc.runs[taskId]);
  if (!IsSelector(taskId)) {
    return {Quotient(static_cast<double>(runc.eventA[taskId]), runs),
            Quotient(static_cast<double>(runc.eventB[taskId]), runs),
            Quotient(static_cast<double>(runc.packets[taskId]), runs)};
  }
  const auto all = static_cast<double>(runc.runs[taskId] + runc.runs[kSelectorCorrection]);
  return {Quotient(Corrected(runc.eventA, taskId), all), Quotient(Corrected(runc.eventB, taskId), all),
          Quotient(packetSum, runs)};
}

// The line that stands for a flag; its lowest bit that means something decides.
void PrintHeader(OutputBuffer *out, uint8_t flag) {
  constexpr struct {
    SchedTraceFlag flag;
    FixedText<19> title;
  } kTitles[] = {
      {kTraceTime, "Time Trace:\n"},
      {kTraceICache, "ICache Trace:\n"},
      {kTraceDCache, "DCache Trace:\n"},
      {kTraceTaskPath, "Task Path Trace:\n"},
      {kTraceSnapshot, "Active Node Trace:\n"},
  };
  if (flag == 0) {
    QdtCliPrintf(out, "Trace flag is not set\n");
    return;
  }
  for (const auto &row : kTitles) {
    if ((flag & row.flag) == 0) continue;
    QdtCliPrintf(out, "%s", row.title.text);
    return;
  }
  QdtCliPrintf(out, "NQE do not support current tracer flag %d.\n", flag);
}

void ShowRunc(OutputBuffer *out, const TracedRunc &runc) {
  const SchedTraceRunc &record = runc.copy;
  PrintHeader(out, record.flag);
  QdtCliPrintf(out, "\nRunc %d:\n", runc.number);
  if ((record.flag & kTraceTaskPath) != 0 && record.path.recorded != 0) {
    FormatPathTracer(out, &record, 0, 1);
  } else if ((record.flag & kTraceSnapshot) != 0) {
    SchedTraceShowActiveNodePrintInfo(out, runc.number, &record);
  } else if (record.flag != 0) {
    FormatEventTracer(out, record.flag, &record, 0, QDT_SCHED_TASKS);
  }
}

struct SortEntry {
  uint32_t taskId;
  double cycles;
};

// The difference as an integer, so that less than one cycle counts as equal. It stops at the integer's ends.
int CompareCycles(const void *left, const void *right) {
  const double difference =
      static_cast<const SortEntry *>(right)->cycles - static_cast<const SortEntry *>(left)->cycles;
  if (difference >= INT32_MAX) return INT32_MAX;
  if (difference <= INT32_MIN) return INT32_MIN;
  return static_cast<int>(difference);
}

double SortKey(const SchedTraceRunc &runc, uint32_t taskId, bool average) {
  const bool selector = IsSelector(taskId);
  const double cycles = selector ? Corrected(runc.eventA, taskId) : static_cast<double>(runc.eventA[taskId]);
  if (!average) return cycles;
  const uint64_t correction = selector ? runc.runs[kSelectorCorrection] : 0;
  return Quotient(cycles, static_cast<double>(runc.runs[taskId] + correction));
}

using SortEntries = SortEntry[QDT_SCHED_TASKS];

// Tasks that did not run leave entries of task 0 with no cycles, which are sorted and walked as well.
void SortTasks(const SchedTraceRunc &runc, bool average, SortEntries &entries) {
  for (uint32_t t = 0; t < QDT_SCHED_TASKS; ++t) {
    if (runc.runs[t] == 0) {
      entries[t] = {0, 0};
    } else {
      entries[t] = {t, SortKey(runc, t, average)};
    }
  }
  std::qsort(entries, QDT_SCHED_TASKS, sizeof(SortEntry), CompareCycles);
}

// For a selector node the packets of all entries from its place on are added.
uint64_t PacketsFrom(const SchedTraceRunc &runc, const SortEntries &entries, uint32_t position) {
  uint64_t packets = 0;
  for (uint32_t i = position; i < QDT_SCHED_TASKS; ++i) packets += runc.packets[entries[i].taskId];
  return packets;
}

void PrintSorted(OutputBuffer *out, const SchedTraceRunc &runc, const SortEntries &entries) {
  uint64_t packetSum = 0;
  for (uint32_t i = 0; i < QDT_SCHED_TASKS; ++i) {
    const uint32_t t = entries[i].taskId;
    if (runc.runs[t] == 0) continue;
    packetSum += IsSelector(t) ? PacketsFrom(runc, entries, i) : runc.packets[t];
    QdtCliPrintf(out, "task_id = %d, task_name = %s, task_cnt = %lu,", t, SchedTaskName(t), runc.runs[t]);
    FormatEventTracerOutput(out, &runc, t, static_cast<uint32_t>(packetSum));
  }
}

}  // namespace
}  // namespace qdt

void SchedTraceShow(OutputBuffer *out) {
  ForEachRunc([out](const TracedRunc &runc) { qdt::ShowRunc(out, runc); });
}

void SchedTraceTopDown(OutputBuffer *out, const char *kind) {
  ForEachRunc([out, kind](const TracedRunc &runc) {
    if ((runc.copy.flag & qdt::kTraceTime) == 0) {
      QdtCliPrintf(out, "current trace flag doesn't have top down info, please set flag to time.\n");
      return;
    }
    QdtCliPrintf(out, "\nRunc %d:\n", runc.number);
    QdtCliPrintf(out, "<< Sorted by %s cycle >>\n", kind);
    qdt::SortEntries entries;
    qdt::SortTasks(runc.copy, std::strcmp(kind, "avg") == 0, entries);
    qdt::PrintSorted(out, runc.copy, entries);
  });
}

void FormatEventTracer(OutputBuffer *out, uint32_t flag, const SchedTraceRunc *record, uint32_t firstId,
                       uint32_t endId) {
  if ((flag & qdt::kTraceEvents) == 0) {
    QdtCliPrintf(out, "NQE do not support current event type: %d.\n", flag);
    return;
  }
  const uint32_t batches = record->overTimeBatches + record->inTimeBatches;
  QdtCliPrintf(out, "oTCnt/(oTCnt+batchCnt) = (%d/%d), over_time_rate = %7.3f\n", record->overTimeBatches,
               batches, qdt::Quotient(record->overTimeBatches, batches));
  uint64_t packetSum = 0;
  for (uint32_t t = firstId; t < endId && t < QDT_SCHED_TASKS; ++t) {
    if (record->runs[t] == 0) continue;
    packetSum += record->packets[t];
    QdtCliPrintf(out, "task_id = %d, task_name = %s, task_cnt = %lu, ", t, qdt::SchedTaskName(t),
                 record->runs[t]);
    if ((g_perfFlag & qdt::kPerfExtended) != 0)
      QdtCliPrintf(out, "max=%u,", static_cast<uint32_t>(record->maximum[t]));
    FormatEventTracerOutput(out, record, t, static_cast<uint32_t>(packetSum));
  }
}

void FormatEventTracerOutput(OutputBuffer *out, const SchedTraceRunc *record, uint32_t taskId,
                             uint32_t packetSum) {
  if (taskId >= QDT_SCHED_TASKS) return;
  const qdt::Averages average = qdt::AveragesOf(*record, taskId, packetSum);
  if (record->flag == qdt::kTraceTime) {
    QdtCliPrintf(out, "avg_cycle = %10.3f, avg_pkts = %7.3f\n", average.eventA, average.packets);
  } else {
    QdtCliPrintf(out, "avg_miss = %10.3f, avg_hit = %8.3f, avg_pkts = %7.3f\n", average.eventA,
                 average.eventB, average.packets);
  }
}

void FormatPathTracer(OutputBuffer *out, const SchedTraceRunc *record, uint32_t first, uint32_t end) {
  constexpr uint32_t kPaths = 1;  // that a record holds
  for (uint32_t i = first; i < end && i < kPaths; ++i) {
    const SchedTracePath *const path = &record->path + i;
    if (path->recorded != 0) FormatPathTracerTaskId(out, path);
  }
}

void FormatPathTracerTaskId(OutputBuffer *out, const SchedTracePath *path) {
  QdtCliPrintf(out, "traceId: %d, taskId: [", 0);
  for (uint32_t i = 0; i < QDT_SCHED_PATH_SLOTS; ++i) {
    if (path->taskIds[i] == qdt::kEmptySlot) continue;
    QdtCliPrintf(out, "%u ", path->taskIds[i]);
    if (i % qdt::kPathLineSlots == 0) QdtCliPrintf(out, "\n");
  }
  QdtCliPrintf(out, "]\n");
}
