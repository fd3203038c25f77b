#include <algorithm>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/record/record_json.h"
#include "host/record/schema.h"
#include "tools/nqecli/commands/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Field;
using host::ShapeNode;

// A value or structure by its path; of an array all elements in one.
struct Row {
  const Field *field;
  std::string path;
  const char *in;
  uint32_t offset;  // of the first element, from the start of the key or record
};

// "u16", "text 32", "ref nhp|nhp_group", "structure".
std::string KindOf(const Field &field) {
  if (!field.fields.empty()) return "structure";
  std::string kind(TypeName(field.ref));
  if (field.ref.kind == host::FieldKind::kText) kind += " " + std::to_string(field.ref.size);
  for (const std::string_view target : field.targets) {
    kind += target == field.targets.front() ? ' ' : '|';
    kind += target;
  }
  return kind;
}

void AddRows(const ShapeNode &node, const std::string &prefix, uint32_t base, const char *in,
             std::vector<Row> *rows) {
  const Field &field = *node.field;
  if (node.inKey) in = node.twin == nullptr ? "key" : "key, record";
  if (field.pointer != 0 || !field.selector.empty()) in = "part";
  Row row{&field, prefix + node.name, in, base + field.ref.offset};
  if (field.count != 0) row.path += "[0-" + std::to_string(field.count - 1) + "]";
  rows->push_back(row);
  for (const ShapeNode &inner : node.inner) AddRows(inner, row.path + ".", row.offset, in, rows);
}

std::vector<Row> RowsOf(const host::RecordShape &shape) {
  std::vector<Row> rows;
  for (const ShapeNode &node : shape.nodes) AddRows(node, "", 0, "record", &rows);
  return rows;
}

// "path  in  kind  bits  offset  unit  meaning", each as wide as its widest cell.
void PrintColumns(const std::vector<Row> &rows) {
  std::vector<std::vector<std::string>> lines{{"field", "in", "kind", "bits", "offset", "unit", "meaning"}};
  for (const Row &row : rows) {
    lines.push_back({row.path, row.in, KindOf(*row.field), host::BitsText(row.field->ref),
                     std::to_string(row.offset), std::string(row.field->unit),
                     std::string(row.field->about)});
  }
  std::vector<size_t> widths(lines.front().size());
  for (const auto &line : lines) {
    for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  StandardOut out;
  for (const auto &line : lines) {
    std::string text;
    for (size_t i = 0; i < line.size(); ++i) {
      text += line[i];
      if (i + 1 < line.size()) text.append(widths[i] - line[i].size() + 2, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out.Append(text + "\n");
  }
  out.Spill();
}

void Member(host::JsonWriter *json, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  host::JsonKey(json, name);
  host::JsonText(json, value);
}

void NumberMember(host::JsonWriter *json, std::string_view name, uint64_t value) {
  host::JsonKey(json, name);
  json->Uint64(value);
}

// {"table": "fib", "id": 1, "about": "...", "fields": [{"path": ..., "in": ..., ...}], "count": N}
void PrintJson(const host::TableLayout *table, const host::RegionLayout *region,
               const std::vector<Row> &rows) {
  StandardOut out;
  host::JsonWriter json(out);
  json.StartObject();
  Member(&json, table != nullptr ? "table" : "region",
         table != nullptr ? table->shortName : region->spec.name);
  if (table != nullptr) NumberMember(&json, "id", table->spec.id);
  Member(&json, "about", table != nullptr ? table->about : region->about);
  host::JsonKey(&json, "fields");
  json.StartArray();
  for (const Row &row : rows) {
    json.StartObject();
    Member(&json, "path", row.path);
    Member(&json, "in", row.in);
    Member(&json, "kind", KindOf(*row.field));
    Member(&json, "bits", host::BitsText(row.field->ref));
    NumberMember(&json, "offset", row.offset);
    if (row.field->fields.empty()) NumberMember(&json, "width", row.field->ref.Width());
    Member(&json, "unit", row.field->unit);
    Member(&json, "about", row.field->about);
    json.EndObject();
  }
  JsonEndCounted(&json, &out, rows.size());
  out.Spill();
}

}  // namespace

ExitCode Fields(const DataWords &words) {
  if (words.words.size() != 1)
    throw host::HostError(
        "fields takes the name of a table or region; \"nqecli tables\" and \"nqecli regions\" list them");
  const std::string &name = words.words.front();
  const host::RegionLayout *region = RegionOf(name);
  const host::TableLayout *table = region == nullptr ? &TableOf(name, kUseList | kUseRegion) : nullptr;
  const host::RecordShape shape =
      table != nullptr ? host::RecordShape::Whole(*table) : host::RecordShape::Whole(*region);
  const std::vector<Row> rows = RowsOf(shape);
  words.format == host::RecordFormat::kJson ? PrintJson(table, region, rows) : PrintColumns(rows);
  return kAnswered;
}

}  // namespace qdt::nqecli
