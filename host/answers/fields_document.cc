#include "host/answers/documents.h"

#include "host/record/schema.h"

namespace qdt::host {
namespace {

void AddRows(const ShapeNode &node, const std::string &prefix, uint32_t base, const char *in,
             std::vector<FieldRow> *rows) {
  const Field &field = *node.field;
  if (node.inKey) in = node.twin == nullptr ? "key" : "key, record";
  if (field.pointer != 0 || !field.selector.empty()) in = "part";
  FieldRow row{&field, prefix + node.name, in, base + field.ref.offset};
  if (field.count != 0) row.path += "[0-" + std::to_string(field.count - 1) + "]";
  rows->push_back(row);
  for (const ShapeNode &inner : node.inner) AddRows(inner, row.path + ".", row.offset, in, rows);
}

void Member(JsonWriter *json, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  JsonKey(json, name);
  JsonText(json, value);
}

void NumberMember(JsonWriter *json, std::string_view name, uint64_t value) {
  JsonKey(json, name);
  json->Uint64(value);
}

}  // namespace

// "u16", "text 32", "ref nhp|nhp_group", "structure".
std::string KindText(const Field &field) {
  if (!field.fields.empty()) return "structure";
  std::string kind(TypeName(field.ref));
  if (field.ref.kind == FieldKind::kText) kind += " " + std::to_string(field.ref.size);
  for (const std::string_view target : field.targets) {
    kind += target == field.targets.front() ? ' ' : '|';
    kind += target;
  }
  return kind;
}

std::vector<FieldRow> FieldRowsOf(const TableLayout *table, const RegionLayout *region) {
  const RecordShape shape = table != nullptr ? RecordShape::Whole(*table) : RecordShape::Whole(*region);
  std::vector<FieldRow> rows;
  for (const ShapeNode &node : shape.nodes) AddRows(node, "", 0, "record", &rows);
  return rows;
}

// {"table": "fib", "id": 1, "about": "...", "fields": [{"path": ..., "in": ..., ...}], "count": N}
void WriteFieldsDocument(TextOut *out, const TableLayout *table, const RegionLayout *region,
                         std::span<const FieldRow> rows) {
  JsonWriter json(*out);
  json.StartObject();
  Member(&json, table != nullptr ? "table" : "region",
         table != nullptr ? table->shortName : region->spec.name);
  if (table != nullptr) NumberMember(&json, "id", table->spec.id);
  Member(&json, "about", table != nullptr ? table->about : region->about);
  JsonKey(&json, "fields");
  json.StartArray();
  for (const FieldRow &row : rows) {
    json.StartObject();
    Member(&json, "path", row.path);
    Member(&json, "in", row.in);
    Member(&json, "kind", KindText(*row.field));
    Member(&json, "bits", BitsText(row.field->ref));
    NumberMember(&json, "offset", row.offset);
    if (row.field->fields.empty()) NumberMember(&json, "width", row.field->ref.Width());
    Member(&json, "unit", row.field->unit);
    Member(&json, "about", row.field->about);
    json.EndObject();
  }
  JsonEndCounted(&json, out, rows.size());
}

}  // namespace qdt::host
