#include "host/engine/entry_points.h"

namespace qdt::host {
namespace {

constexpr EntryPoint kEntryPoints[] = {
    {"diag", VrxDiagCmdRun, "query the engine's tables, clear control-plane rate-limit statistics"},
    {"pkt_trace", nullptr, "packet trace"},
    {"pmc", nullptr, "fast statistics and performance counters"},
    {"perf", nullptr, "scheduler trace"},
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
  OutputBuffer out{g_answer, 0};
  g_answer[0] = '\0';
  Answer answer;
  answer.result = entry.run(&out, static_cast<int32_t>(words.size()), const_cast<char **>(words.data()));
  answer.text = std::string_view(out.buf, out.len);
  return answer;
}

}  // namespace qdt::host
