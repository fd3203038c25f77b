#include <string>

#include "host/base/host_error.h"
#include "host/inspect/check.h"
#include "tools/nqecli/commands/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Finding;
using host::JsonKey;
using host::JsonText;

std::string_view NameOf(host::Severity severity) {
  return severity == host::Severity::kError ? "error" : "warning";
}

// {"findings": [{"severity": "error", "table": "fib", "id": 1, "key": {...}, "field": "next_hop", "problem":
// "..."}], "count": N}
uint64_t PrintJson(StandardOut *out, const host::RecordSource &source) {
  host::JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "findings");
  json.StartArray();
  const uint64_t count = CheckArena(source, [&json](const Finding &finding) {
    json.StartObject();
    JsonKey(&json, "severity");
    JsonText(&json, NameOf(finding.severity));
    WritePlace(&json, finding.table, finding.region, finding.key);
    JsonKey(&json, "field");
    finding.field.empty() ? (void)json.Null() : JsonText(&json, finding.field);
    JsonKey(&json, "problem");
    JsonText(&json, finding.problem);
    json.EndObject();
  });
  JsonEndCounted(&json, out, count);
  return count;
}

uint64_t PrintLines(StandardOut *out, const host::RecordSource &source) {
  std::string line;
  const uint64_t count = CheckArena(source, [&](const Finding &finding) {
    line = NameOf(finding.severity);
    line += "  ";
    AppendPlace(finding.table, finding.region, finding.key, &line);
    line += "  ";
    line += finding.field.empty() ? "-" : finding.field;
    line += "  ";
    line += finding.problem;
    line += '\n';
    out->Append(line);
  });
  return count;
}

}  // namespace

ExitCode Check(const DataWords &words) {
  if (!words.words.empty()) throw host::HostError("check takes no words; try --help");
  const auto source = OpenSource(words.place);
  uint64_t count = 0;
  WriteWhole([&](StandardOut *out) {
    count = words.format == host::RecordFormat::kJson ? PrintJson(out, *source) : PrintLines(out, *source);
  });
  return count == 0 ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
