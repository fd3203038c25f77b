#include <cstdio>

#include "host/answers/documents.h"

namespace qdt::host {

// {"usage": [{"table": "fib", "id": 1, "entries": 12, "capacity": 8192, "percent": 0.1, "bytes": 65536}],
// "count": 93}
void WriteUsageDocument(TextOut *out, std::span<const TableUsage> tables) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "usage");
  json.StartArray();
  for (const TableUsage &usage : tables) {
    json.StartObject();
    JsonKey(&json, "table");
    JsonText(&json, usage.table->shortName);
    JsonKey(&json, "id");
    json.Uint(usage.table->spec.id);
    JsonKey(&json, "entries");
    json.Uint(usage.entries);
    JsonKey(&json, "capacity");
    json.Uint(usage.capacity);
    JsonKey(&json, "percent");
    // As the columns have it; the writer of JSON would cut where they round.
    char percent[16];
    const int length = std::snprintf(percent, sizeof(percent), "%.1f", usage.Percent());
    json.RawValue(percent, static_cast<size_t>(length), rapidjson::kNumberType);
    JsonKey(&json, "bytes");
    json.Uint64(usage.bytes);
    json.EndObject();
  }
  JsonEndCounted(&json, out, tables.size());
}

}  // namespace qdt::host
