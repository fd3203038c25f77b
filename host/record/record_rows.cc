#include "host/record/record_rows.h"

#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

void AddColumns(const ShapeNode &node, RowColumn column, const std::string &prefix,
                std::vector<RowColumn> *columns) {
  const Field &field = *node.field;
  if (field.pointer != 0 || !field.selector.empty()) column.part = &field;
  column.node = &node;
  column.path = prefix + node.name;
  if (!node.IsStructure() || node.IsArray()) {
    if (!node.IsArray()) {
      const FieldRef ref = field.ref.At(column.base + node.element.value_or(0) * field.stride);
      column.plain = PlainValue::Of(ref, PlainValue::Bits::kNumbers);
    }
    columns->push_back(std::move(column));
    return;
  }
  RowColumn inner = column;
  inner.base += node.element.value_or(0) * field.stride + field.ref.offset;
  inner.beside = field.fields;
  for (const ShapeNode &child : node.inner) AddColumns(child, inner, column.path + ".", columns);
}

}  // namespace

std::vector<RowColumn> ColumnsOf(const RecordShape &shape, const FieldSet &fields) {
  std::vector<RowColumn> columns;
  RowColumn top{};
  top.beside = fields;
  for (const ShapeNode &node : shape.nodes) {
    if (node.field->constant && node.twin == nullptr) continue;
    AddColumns(node, top, "", &columns);
  }
  return columns;
}

void AppendValue(const RecordSource *source, const FieldRef &ref, const uint8_t *bytes, std::string *text) {
  if (ref.kind == FieldKind::kText) return AppendEscaped(ref.GetText(bytes), text);
  if (ref.kind == FieldKind::kAddress) return AppendValue(source, NarrowAddressIn(ref, bytes), bytes, text);
  WideValue value = ref.Read(bytes);
  if (source != nullptr && IsTimeAgo(ref.kind)) value = source->SecondsAgo(ref, value);
  char room[kValueRoom];
  text->append(room, WriteValue(ref, value, room));
}

void AppendKeyText(const TableLayout &table, const uint8_t *key, std::string *text) {
  bool first = true;
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    if (!first) *text += '/';
    first = false;
    AppendValue(nullptr, field.ref, key, text);
  }
}

void AppendNamedKey(const TableLayout &table, const uint8_t *key, std::string *text) {
  bool first = true;
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    if (!first) *text += ' ';
    first = false;
    *text += field.name;
    *text += '=';
    AppendValue(nullptr, field.ref, key, text);
  }
}

void AppendReference(const Reference &reference, std::string *text) {
  switch (reference.kind) {
    case Reference::Kind::kNone:
      return;
    case Reference::Kind::kWild: {
      char room[kValueRoom];
      text->append(room, WriteHex(reference.address, room));
      return;
    }
    case Reference::Kind::kStale:
      *text += reference.table->shortName;
      *text += "/stale";
      return;
    case Reference::Kind::kEntry:
      *text += reference.table->shortName;
      *text += '/';
      return AppendKeyText(*reference.table, reference.key, text);
  }
}

void CellWriter::Append(const RecordBytes &record, const RowColumn &column, std::string *cell) {
  const ShapeNode &node = *column.node;
  const Field &field = *node.field;
  if (column.part != nullptr && record.entry != nullptr) {
    if (!record.entry->Has(*column.part)) return;
    if (column.part->pointer != 0 && record.entry->IsStrayed(*column.part)) {
      *cell += "stale";
      return;
    }
  }
  const uint8_t *bytes = node.inKey ? record.key : record.record;
  if (column.plain) {
    char text[PlainValue::kRoom];
    cell->append(text, column.plain->Put(bytes, text));
    return;
  }
  if (node.IsArray()) {
    JsonWriter json(out_);
    WriteJsonNode(&json, record, node, column.base, column.beside);
    *cell += out_.Take();
    return;
  }
  const FieldRef ref = field.ref.At(column.base + node.element.value_or(0) * field.stride);
  if (ref.kind == FieldKind::kReference) {
    AppendReference(record.source.Resolve(field.targets, ref.Get(bytes)), cell);
  } else {
    AppendValue(&record.source, ref, bytes, cell);
  }
}

}  // namespace qdt::host
