#include "host/answers/documents.h"

namespace qdt::host {

// {"statistics": [{"number": 0, "name": "...", "class": "normal", "sum": 3, "cores": [1, 2]}], "count": 831,
// "cores": 2}
void WriteStatisticsDocument(TextOut *out, const CounterList &list) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "statistics");
  json.StartArray();
  for (const Counter &counter : list.counters) {
    json.StartObject();
    JsonKey(&json, "number");
    json.Uint(counter.number);
    JsonKey(&json, "name");
    counter.name.empty() ? static_cast<void>(json.Null()) : JsonEscaped(&json, counter.name);
    JsonKey(&json, "class");
    JsonText(&json, counter.kind);
    JsonKey(&json, "sum");
    json.Uint64(counter.sum);
    JsonKey(&json, "cores");
    json.StartArray();
    for (const uint64_t value : counter.cores) json.Uint64(value);
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(list.counters.size());
  JsonKey(&json, "cores");
  json.Uint(list.cores);
  json.EndObject();
  out->Put('\n');
}

}  // namespace qdt::host
