#include "src/om/nqe_cli/nqe_cli_sched_trace.h"

#include <cstring>
#include <string_view>

#include "platform/shm.h"
#include "src/om/common/log.h"
#include "src/om/common/shared_word.h"
#include "src/om/nqe_cli/command_words.h"

// The perf task command: its words, and what it changes in the region.

using qdt::ForEachRunc;
using qdt::TracedRunc;
using qdt::WriteShared;

uint8_t g_perfFlag;

namespace qdt {

SchedTraceRegion *g_schedTraceRegion;

namespace {

struct TraceKind {
  const char *name;
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

constexpr int32_t kMaxWords = 4;  // perf task SUBCOMMAND ARGUMENT

}  // namespace
}  // namespace qdt

void SchedTraceClearTaskInfo(SchedTraceNode *nodes) {
  for (uint32_t i = 0; i < QDT_SCHED_NODES; ++i) {
    nodes[i].status = 0;
    nodes[i].packets = 0;
  }
}

void SchedTraceDataOnlyClear(OutputBuffer *out, const char *label) {
  ForEachRunc([](const TracedRunc &runc) {
    constexpr size_t kFirst = offsetof(SchedTraceRunc, reserved5793);
    std::memset(reinterpret_cast<uint8_t *>(runc.record) + kFirst, 0, sizeof(SchedTraceRunc) - kFirst);
    SchedTraceClearTaskInfo(runc.record->nodes);
  });
  QdtCliPrintf(out, "%s done.\n", label);
}

void SchedTraceSetTraceFlag(OutputBuffer *out, const char *name) {
  const qdt::TraceKind *const kind = qdt::FindByName(qdt::kTraceKinds, name);
  if (kind == nullptr) {
    QdtCliPrintf(out, "Trace flag type is wrong\n");
    return;
  }
  ForEachRunc([&](const TracedRunc &runc) {
    if ((runc.copy.flag & kind->flag) != 0) {
      QdtCliPrintf(out, "Trace Flag is remains: %s\n", name);
    } else {
      SchedTraceDataOnlyClear(out, name);
      WriteShared(runc.record->flag, uint8_t{kind->flag});
      WriteShared(runc.record->started, uint8_t{1});
    }
    QdtCliPrintf(out, "Trace Flag set: %s. \n", name);
  });
}

void SchedTraceDisable(OutputBuffer *out) {
  bool any = false;
  ForEachRunc([&](const TracedRunc &runc) {
    WriteShared(runc.record->flag, uint8_t{0});
    WriteShared(runc.record->started, uint8_t{0});
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
    const qdt::Subcommand *const subcommand = qdt::FindByName(qdt::kSubcommands, name);
    if (subcommand != nullptr && subcommand->run(out, qdt::WordAt(wordCount, words, 3))) return 0;
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
  g_perfFlag = 0;
  ForEachRunc([](const TracedRunc &runc) {
    if (runc.number == 0) g_perfFlag = runc.copy.perfFlag;
  });
  QdtCliPrintf(out, "sched trace OsaSmmap success.\n");
  qdt::EmptyAnswer(out);  // whoever asks sees the command's answer alone
  return SchedTraceCmdInner(out, wordCount, words);
}
