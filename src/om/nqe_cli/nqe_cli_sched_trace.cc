#include "src/om/nqe_cli/nqe_cli_sched_trace.h"

#include <cstddef>
#include <cstring>
#include <string_view>

#include "platform/shm.h"
#include "src/om/common/log.h"
#include "src/om/common/mapping.h"
#include "src/om/common/rows.h"
#include "src/om/nqe_cli/command_words.h"

// The perf task command: its words, and what it changes in the region.

using qdt::ForEachRecord;
using qdt::ReadEngineMemory;
using qdt::WriteEngineMemory;

uint8_t g_perfFlag;

namespace qdt {

SchedTraceRegion *g_schedTraceRegion;
uint64_t g_schedTraceEnd;

namespace {

// No more run contexts than these are looked at, whatever the region counts.
constexpr uint32_t kMaxRuncs = 64;

struct TraceKind {
  FixedText<9> name;
  SchedTraceFlag flag;
};
constexpr TraceKind kTraceKinds[] = {
    {"time", kTraceTime},          {"icache", kTraceICache},     {"dcache", kTraceDCache},
    {"task_path", kTraceTaskPath}, {"snapshot", kTraceSnapshot},
};

// Run what a subcommand's row says; false when the words are not the subcommand's.
bool RunSet(OutputBuffer *out, const char *argument) {
  if (argument == nullptr) return false;
  SchedTraceSetTraceFlag(out, argument);
  return true;
}

bool RunTopDown(OutputBuffer *out, const char *argument) {
  const std::string_view kind = argument == nullptr ? "" : argument;
  if (kind != "total" && kind != "avg") return false;
  SchedTraceTopDown(out, argument);
  return true;
}

bool RunClear(OutputBuffer *out, const char * /*argument*/) {
  SchedTraceDataOnlyClear(out, "clear data");
  return true;
}

template <void (*Run)(OutputBuffer *out)>
bool RunPlain(OutputBuffer *out, const char * /*argument*/) {
  Run(out);
  return true;
}

struct Subcommand {
  const char *name;
  bool (*run)(OutputBuffer *out, const char *argument);
};
constexpr Subcommand kSubcommands[] = {
    {"set", RunSet},
    {"show", RunPlain<SchedTraceShow>},
    {"disable", RunPlain<SchedTraceDisable>},
    {"clear", RunClear},
    {"show_graph", RunPlain<SchedTraceShowGraph>},
    {"show_active_node", RunPlain<SchedTraceShowActiveNode>},
    {"topdown", RunTopDown},
};
constexpr auto kSubcommandNames = Column<kSubcommands, &Subcommand::name>();

constexpr int32_t kMaxWords = 4;  // perf task SUBCOMMAND ARGUMENT

// A byte of a run context. One that cannot be written stays as it is.
void WriteByte(uint64_t record, size_t offset, uint8_t value) {
  WriteEngineMemory(record + offset, &value, sizeof(value));
}

// Bits of the perf flag of the first run context, or none without one.
uint8_t ReadPerfFlag() {
  const uint64_t record = FindRunc(0);
  uint8_t flag;
  const bool isRead =
      record != 0 && ReadEngineMemory(record + offsetof(SchedTraceRunc, perfFlag), &flag, sizeof(flag));
  return isRead ? flag : 0;
}

}  // namespace

uint64_t FindRunc(uint32_t number) {
  const auto region = reinterpret_cast<uint64_t>(g_schedTraceRegion);
  uint64_t count;
  if (region == 0 || number >= kMaxRuncs || !ReadEngineMemory(region, &count, sizeof(count))) return 0;
  const uint64_t record =
      region + offsetof(SchedTraceRegion, runcs) + uint64_t{number} * sizeof(SchedTraceRunc);
  const bool isThere = number < count && record + sizeof(SchedTraceRunc) <= g_schedTraceEnd &&
                       IsEngineMemory(record, sizeof(SchedTraceRunc));
  return isThere ? record : 0;
}

}  // namespace qdt

void SchedTraceClearTaskInfo(SchedTraceNode *nodes) {
  const qdt::EngineMemoryScope memory;
  const auto address = reinterpret_cast<uint64_t>(nodes);
  for (uint64_t node = address; node < address + QDT_SCHED_NODES * sizeof(SchedTraceNode);
       node += sizeof(SchedTraceNode)) {
    qdt::ClearEngineMemory(node + offsetof(SchedTraceNode, status), sizeof(SchedTraceNode::status));
    qdt::ClearEngineMemory(node + offsetof(SchedTraceNode, packets), sizeof(SchedTraceNode::packets));
  }
}

void SchedTraceDataOnlyClear(OutputBuffer *out, const char *label) {
  ForEachRecord([](uint32_t, uint64_t record) {
    constexpr size_t kFirst = offsetof(SchedTraceRunc, reserved5793);
    qdt::ClearEngineMemory(record + kFirst, sizeof(SchedTraceRunc) - kFirst);
    SchedTraceClearTaskInfo(
        reinterpret_cast<SchedTraceNode *>(record + offsetof(SchedTraceRunc, nodes)));  // NOLINT
  });
  QdtCliPrintf(out, "%s done.\n", label);
}

void SchedTraceSetTraceFlag(OutputBuffer *out, const char *name) {
  const qdt::TraceKind *const kind = qdt::FindByName(qdt::kTraceKinds, name);
  if (kind == nullptr) {
    QdtCliPrintf(out, "Trace flag type is wrong\n");
    return;
  }
  ForEachRecord([&](uint32_t, uint64_t record) {
    uint8_t flag = 0;
    ReadEngineMemory(record + offsetof(SchedTraceRunc, flag), &flag, sizeof(flag));
    if ((flag & kind->flag) != 0) {
      QdtCliPrintf(out, "Trace Flag is remains: %s\n", name);
    } else {
      SchedTraceDataOnlyClear(out, name);
      qdt::WriteByte(record, offsetof(SchedTraceRunc, flag), kind->flag);
      qdt::WriteByte(record, offsetof(SchedTraceRunc, started), 1);
    }
    QdtCliPrintf(out, "Trace Flag set: %s. \n", name);
  });
}

void SchedTraceDisable(OutputBuffer *out) {
  bool any = false;
  ForEachRecord([&](uint32_t, uint64_t record) {
    qdt::WriteByte(record, offsetof(SchedTraceRunc, flag), 0);
    qdt::WriteByte(record, offsetof(SchedTraceRunc, started), 0);
    any = true;
  });
  if (any) QdtCliPrintf(out, "Trace flag disable\n");
}

void SchedTraceHelp(OutputBuffer *out) {
  QdtCliPrintf(out, "nqecli perf task clear\n");
  QdtCliPrintf(out, "nqecli perf task disable\n");
  QdtCliPrintf(out, "nqecli perf task show\n");
  QdtCliPrintf(out, "nqecli perf task topdown\n");
  QdtCliPrintf(out, "        avg | total\n");
  QdtCliPrintf(out, "nqecli perf task set\n");
  QdtCliPrintf(out, "        time | icache | dcache\n");
  if ((g_perfFlag & qdt::kPerfExtended) == 0) return;
  QdtCliPrintf(out, "        task_path\n");
  QdtCliPrintf(out, "nqecli perf task show_graph\n");
  QdtCliPrintf(out, "nqecli perf task show_active_node\n");
}

int32_t SchedTraceCmdInner(OutputBuffer *out, int32_t wordCount, char **words) {
  const char *const family = qdt::WordAt(wordCount, words, 1);
  const char *const name = qdt::WordAt(wordCount, words, 2);
  if (wordCount <= qdt::kMaxWords && family != nullptr && name != nullptr &&
      std::strcmp(family, "task") == 0) {
    const size_t subcommand = qdt::IndexOf(qdt::kSubcommandNames, name);
    if (subcommand < std::size(qdt::kSubcommands) && qdt::CallOf<qdt::kSubcommands, &qdt::Subcommand::run>(
                                                         subcommand, out, qdt::WordAt(wordCount, words, 3)))
      return 0;
  }
  SchedTraceHelp(out);
  return -1;
}

int32_t VrxSchedTraceCmdRun(OutputBuffer *out, int32_t wordCount, char **words) {
  qdt::g_schedTraceRegion = static_cast<qdt::SchedTraceRegion *>(VRX_Smmap(qdt::kSchedTraceRegion, 0, 0));
  if (qdt::g_schedTraceRegion == nullptr) {
    QDT_LOG_ERROR("sched trace create smmap failed.\n");
    qdt::EmptyAnswer(out);
    QdtCliPrintf(out, "sched trace OsaSmmap failed\n");
    return -1;
  }
  const qdt::EngineMemoryScope memory;
  qdt::g_schedTraceEnd = qdt::EndOfMapping(reinterpret_cast<uint64_t>(qdt::g_schedTraceRegion));
  g_perfFlag = qdt::ReadPerfFlag();
  QdtCliPrintf(out, "sched trace OsaSmmap success.\n");
  qdt::EmptyAnswer(out);  // whoever asks sees the command's answer alone
  return SchedTraceCmdInner(out, wordCount, words);
}
