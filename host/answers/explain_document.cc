#include "host/answers/documents.h"

#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

void WriteAsked(JsonWriter *json, const ExplainStep &step) {
  json->StartObject();
  for (const ExplainStep::Asked &asked : step.asked) {
    JsonKey(json, asked.field);
    if (FormOf(asked.ref.kind) == ValueForm::kNumber) {
      json->Uint64(static_cast<uint64_t>(asked.value));
    } else {
      JsonText(json, ValueText(asked.ref, asked.value));
    }
  }
  json->EndObject();
}

}  // namespace

// {"explain": "192.0.2.11", "kind": "ipv4", "vpn": 0, "steps": [{"step": "neighbour", "depth": 0, "table":
// "arp", "id": 4, "looked_for": {"vpn": 0, "next_hop": "192.0.2.11"}, "found": {...}, "note": ""}], "count":
// 1}
uint64_t WriteExplainDocument(TextOut *out, const RecordSource &source, std::string_view address,
                              const ExplainRequest &request) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "explain");
  JsonText(&json, address);
  JsonKey(&json, "kind");
  JsonText(&json, request.address.KindName());
  JsonKey(&json, "vpn");
  json.Uint(request.vpn);
  JsonKey(&json, "steps");
  json.StartArray();
  const uint64_t count = ExplainAddress(source, request, [&json](const ExplainStep &step) {
    json.StartObject();
    JsonKey(&json, "step");
    JsonText(&json, step.step);
    JsonKey(&json, "depth");
    json.Uint(step.depth);
    WritePlace(&json, step.table, nullptr, nullptr);
    JsonKey(&json, "looked_for");
    WriteAsked(&json, step);
    JsonKey(&json, "found");
    if (step.found == nullptr) {
      json.Null();
    } else {
      WriteJson(&json, *step.found, RecordShape::Whole(*step.table));
    }
    JsonKey(&json, "note");
    JsonText(&json, step.note);
    json.EndObject();
  });
  JsonEndCounted(&json, out, count);
  return count;
}

}  // namespace qdt::host
