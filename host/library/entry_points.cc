#include "host/library/entry_points.h"

#include <cstdio>

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
    {"diag", VrxDiagCmdRun, "query the engine's tables, clear control-plane rate-limit statistics"},
    {"pkt_trace", RunPacketTrace, "trace packets: set conditions, show them, count", true},
    {"pmc", VrxFastStatCmdRun, "count hits, packets and processor events on the packet path", true},
    {"perf", VrxSchedTraceCmdRun, "trace the scheduler: tasks, their cycles and their graph", true},
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

}  // namespace qdt::host
