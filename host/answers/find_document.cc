#include "host/answers/documents.h"

#include "host/record/record_json.h"

namespace qdt::host {

// {"find": "02:00:5e:30:00:01", "kind": "mac", "matches": [{"table": "arp", "id": 4, "key": {...}, "field":
// "dmac", "value": "02:00:5e:30:00:01"}], "count": 1, "truncated": false}
void WriteFindDocument(TextOut *out, const RecordSource &source, std::string_view text,
                       const SearchValue &value, MatchCount *count) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "find");
  JsonEscaped(&json, text);
  JsonKey(&json, "kind");
  JsonText(&json, value.KindName());
  JsonKey(&json, "matches");
  json.StartArray();
  FindValue(source, value, [&](const Match &match) {
    if (!count->Take()) return false;
    json.StartObject();
    WritePlace(&json, match.table, match.region, match.key);
    JsonKey(&json, "field");
    JsonText(&json, match.path);
    JsonKey(&json, "value");
    WriteJsonValue(&json, match.record, match.field, match.ref, match.bytes);
    json.EndObject();
    return true;
  });
  JsonEndCounted(&json, out, count->found, count->truncated);
}

}  // namespace qdt::host
