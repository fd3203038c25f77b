#include <string>

#include "host/base/host_error.h"
#include "host/inspect/check.h"
#include "tools/nqecli/data_commands.h"
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
uint64_t PrintJson(const host::RecordSource &source) {
  StandardOut out;
  host::JsonWriter json(out);
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
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(count);
  json.EndObject();
  out.Put('\n');
  out.Spill();
  return count;
}

uint64_t PrintLines(const host::RecordSource &source) {
  StandardOut out;
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
    out.Append(line);
  });
  out.Spill();
  return count;
}

}  // namespace

ExitCode Check(const Place &place, std::span<char *const> all) {
  const DataWords words(place, all, kOptionJson);
  if (!words.words.empty()) throw host::HostError("check takes no words; try --help");
  const auto source = OpenSource(words.place);
  const uint64_t count = words.format == host::RecordFormat::kJson ? PrintJson(*source) : PrintLines(*source);
  return count == 0 ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
