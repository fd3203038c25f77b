#include "host/answers/documents.h"

#include "host/inspect/check.h"

namespace qdt::host {

std::string_view NameOf(Severity severity) { return severity == Severity::kError ? "error" : "warning"; }

// {"findings": [{"severity": "error", "table": "fib", "id": 1, "key": {...}, "field": "next_hop", "problem":
// "..."}], "count": N}
uint64_t WriteCheckDocument(TextOut *out, const RecordSource &source) {
  JsonWriter json(*out);
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

}  // namespace qdt::host
