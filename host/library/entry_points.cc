#include "host/library/entry_points.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "host/arena/arena.h"
#include "qdt/trace.h"

namespace qdt::host {
namespace {

// A condition that was set comes back as -1 behind its confirmation, so that only the text tells success.
int32_t RunPacketTrace(OutputBuffer *out, int32_t wordCount, char **words) {
  VrxPktTraceCmdRun(out, wordCount, words);
  return 0;
}

constexpr EntryPoint kEntryPoints[] = {
    {"diag", VrxDiagCmdRun, "query the engine's tables, clear control-plane rate-limit statistics",
     "diag search nqpTable 1 0 2001 0 0\ndiag clear cpcar status"},
    {"pkt_trace", RunPacketTrace, "trace packets: set conditions, show them, count",
     "pkt_trace set sip 192.0.2.17\npkt_trace enable\npkt_trace show", true},
    {"pmc", VrxFastStatCmdRun, "count hits, packets and processor events on the packet path",
     "pmc 1\npmc stop", true},
    {"perf", VrxSchedTraceCmdRun, "trace the scheduler: tasks, their cycles and their graph",
     "perf task set time\nperf task show", true},
};

// Never written as a whole: the pages behind an answer's end stay untouched.
char g_answer[QDT_OUTPUT_CAPACITY];

}  // namespace

std::span<const EntryPoint> EntryPoints() { return kEntryPoints; }

const EntryPoint *FindEntryPoint(std::string_view name) {
  for (const EntryPoint &entry : kEntryPoints) {
    if (name == entry.name) return &entry;
  }
  return nullptr;
}

Answer RunEntryPoint(const EntryPoint &entry, std::span<char *const> words) {
  if (Arena *arena = Arena::Current()) arena->DropCopies();
  OutputBuffer out{g_answer, 0};
  g_answer[0] = '\0';
  Answer answer;
  answer.result = entry.run(&out, static_cast<int32_t>(words.size()), const_cast<char **>(words.data()));
  answer.text = std::string_view(out.buf, out.len);
  std::fflush(stdout);  // what a command tells there comes before its answer
  return answer;
}

bool OnlyRefuses(std::string_view answer) {
  constexpr std::string_view kLines[] = {
      "Trace flag type is wrong",
      "current trace flag doesn't have top down info, please set flag to time.",
  };
  if (answer.empty()) return false;
  while (!answer.empty()) {
    const std::string_view line = answer.substr(0, answer.find('\n'));
    if (std::ranges::find(kLines, line) == std::end(kLines)) return false;
    answer.remove_prefix(std::min(line.size() + 1, answer.size()));
  }
  return true;
}

}  // namespace qdt::host
