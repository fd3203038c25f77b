#include "host/record/record_json.h"

#include <algorithm>
#include <string>

#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

void WriteReference(JsonWriter *json, const RecordBytes &record, const Field &field, uint64_t address) {
  const Reference to = record.source.Resolve(field.targets, address);
  char text[kValueRoom];
  const std::string_view hex(text, WriteHex(address, text));
  if (to.kind == Reference::Kind::kNone) {
    json->Null();
    return;
  }
  if (to.kind == Reference::Kind::kWild) return JsonText(json, hex);
  const bool named = field.targets.size() > 1;
  if (named) {
    json->StartObject();
    JsonKey(json, to.table->shortName);
  }
  if (to.kind == Reference::Kind::kEntry) {
    WriteJsonKey(json, *to.table, to.key);
  } else {
    WriteJsonStale(json, address);
  }
  if (named) json->EndObject();
}

void WriteNumber(JsonWriter *json, const FieldRef &ref, WideValue value) {
  json->PlainNumber([&](char *out) -> size_t {
    if (ref.Width() != 1) return WriteValue(ref, value, out);
    std::memcpy(out, value != 0 ? "true " : "false", 5);
    return value != 0 ? 4 : 5;
  });
}

void WriteStructure(JsonWriter *json, const RecordBytes &record, const ShapeNode &node, uint32_t base) {
  json->StartObject();
  for (const ShapeNode &inner : node.inner) {
    json->PlainText(inner.name);
    WriteJsonNode(json, record, inner, base, node.field->fields);
  }
  json->EndObject();
}

const uint8_t *BytesOf(const RecordBytes &record, bool inKey) { return inKey ? record.key : record.record; }

}  // namespace

void WriteJsonStale(JsonWriter *json, uint64_t address) {
  char text[kValueRoom];
  json->StartObject();
  JsonKey(json, "stale");
  JsonText(json, {text, WriteHex(address, text)});
  json->EndObject();
}

void JsonEndCounted(JsonWriter *json, TextOut *out, uint64_t count) {
  json->EndArray();
  JsonKey(json, "count");
  json->Uint64(count);
  json->EndObject();
  out->Put('\n');
}

void JsonEndCounted(JsonWriter *json, TextOut *out, uint64_t count, bool truncated, const MoreMembers &more) {
  json->EndArray();
  JsonKey(json, "count");
  json->Uint64(count);
  JsonKey(json, "truncated");
  json->Bool(truncated);
  if (more) more(json);
  json->EndObject();
  out->Put('\n');
}

void JsonEscaped(JsonWriter *json, std::string_view text) {
  std::string escaped;
  AppendEscaped(text, &escaped);
  JsonText(json, escaped);
}

void WriteJsonKey(JsonWriter *json, const TableLayout &table, const uint8_t *key) {
  json->StartObject();
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    json->PlainText(field.name);
    const FieldRef ref = field.ref.kind == FieldKind::kAddress ? NarrowAddressIn(field.ref, key) : field.ref;
    char text[kValueRoom];
    if (ref.kind == FieldKind::kText) {
      JsonEscaped(json, ref.GetText(key));
    } else if (FormOf(ref.kind) == ValueForm::kNumber) {
      WriteNumber(json, ref, ref.Read(key));
    } else {
      json->PlainText({text, WriteValue(ref, ref.Read(key), text)});
    }
  }
  json->EndObject();
}

void WriteJsonValue(JsonWriter *json, const RecordBytes &record, const Field &field, const FieldRef &ref,
                    const uint8_t *bytes) {
  char text[kValueRoom];
  switch (FormOf(ref.kind)) {
    case ValueForm::kText:
      return JsonEscaped(json, ref.GetText(bytes));
    case ValueForm::kReference:
      return WriteReference(json, record, field, ref.Get(bytes));
    case ValueForm::kAddress: {
      const FieldRef narrow = NarrowAddressIn(ref, bytes);
      return json->PlainText({text, WriteValue(narrow, narrow.Read(bytes), text)});
    }
    case ValueForm::kNumber:
      return WriteNumber(
          json, ref, IsTimeAgo(ref.kind) ? record.source.SecondsAgo(ref, ref.Read(bytes)) : ref.Read(bytes));
    default:
      return json->PlainText({text, WriteValue(ref, ref.Read(bytes), text)});
  }
}

uint32_t ShownElements(const Field &field, uint32_t base, const FieldSet &beside, const uint8_t *bytes) {
  const uint8_t *first = bytes + base + field.ref.offset;
  const auto isZero = [](uint8_t byte) { return byte == 0; };
  uint32_t shown = field.count;
  while (shown > 0 && std::all_of(first + (shown - 1) * field.stride,
                                  first + (shown - 1) * field.stride + field.elementSize, isZero)) {
    --shown;
  }
  for (const Field &counter : beside.all()) {
    if (counter.counts != field.name) continue;
    const uint64_t counted = counter.ref.At(base).Get(bytes);
    if (counted <= field.count) shown = std::max(shown, static_cast<uint32_t>(counted));
  }
  return shown;
}

void WriteJsonNode(JsonWriter *json, const RecordBytes &record, const ShapeNode &node, uint32_t base,
                   const FieldSet &beside) {
  const Field &field = *node.field;
  const uint8_t *bytes = BytesOf(record, node.inKey);
  if (field.count == 0 && !node.IsStructure())
    return WriteJsonValue(json, record, field, base == 0 ? field.ref : field.ref.At(base), bytes);
  const auto write = [&](uint32_t element) {
    const uint32_t at = base + element * field.stride;
    if (node.IsStructure()) {
      WriteStructure(json, record, node, at + field.ref.offset);
    } else {
      WriteJsonValue(json, record, field, field.ref.At(at), bytes);
    }
  };
  if (!node.IsArray()) return write(node.element.value_or(0));
  json->StartArray();
  const uint32_t shown = ShownElements(field, base, beside, bytes);
  for (uint32_t i = 0; i < shown; ++i) write(i);
  json->EndArray();
}

bool DiffersFromKey(const ShapeNode &node, const RecordBytes &record) {
  if (node.twin == nullptr) return false;
  const FieldRef &own = node.twin->ref;
  const FieldRef &key = node.field->ref;
  // Stored in one way, as nearly all are, they are the same when their bytes are.
  if (own.kind == key.kind && own.size == key.size && own.bits == 0 && key.bits == 0 &&
      std::memcmp(record.record + own.offset, record.key + key.offset, key.size) == 0)
    return false;
  if (key.kind == FieldKind::kText) return own.GetText(record.record) != key.GetText(record.key);
  return own.Read(record.record) != key.Read(record.key);
}

}  // namespace qdt::host
