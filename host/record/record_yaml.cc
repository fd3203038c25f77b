#include "host/record/record_yaml.h"

#include <algorithm>
#include <utility>

#include "host/layout/value_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {

class YamlWriter::Map {
 public:
  explicit Map(TextOut *out) : out_(*out) { out_.Put('{'); }
  ~Map() { out_.Put('}'); }
  void Name(std::string_view name) {
    if (std::exchange(any_, true)) out_.Append(", ");
    out_.Append(name);
    out_.Append(": ");
  }

 private:
  TextOut &out_;
  bool any_ = false;
};

bool YamlWriter::IsZero(const RecordBytes &record, const ShapeNode &node, uint32_t base) const {
  const Field &field = *node.field;
  const uint8_t *bytes = node.inKey ? record.key : record.record;
  for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
    const uint32_t at = base + i * field.stride;
    const auto isZero = [&](const ShapeNode &inner) { return IsZero(record, inner, at + field.ref.offset); };
    if (node.IsStructure()                   ? !std::ranges::all_of(node.inner, isZero)
        : field.ref.kind == FieldKind::kText ? !field.ref.At(at).GetText(bytes).empty()
                                             : field.ref.At(at).Read(bytes) != 0) {
      return false;
    }
  }
  return true;
}

// Plain words are plain in YAML as well; the rest stands between single quotes.
void YamlWriter::Quoted(std::string_view text) {
  std::string escaped;
  AppendEscaped(text, &escaped);
  out_.Put('\'');
  for (const char c : escaped) {
    if (c == '\'') out_.Put(c);
    out_.Put(c);
  }
  out_.Put('\'');
}

void YamlWriter::Key(const TableLayout &table, const uint8_t *key) {
  Map map(&out_);
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    map.Name(field.name);
    if (field.ref.kind == FieldKind::kText) {
      Quoted(field.ref.GetText(key));
      continue;
    }
    std::string text;
    AppendValue(nullptr, field.ref, key, &text);
    FormOf(field.ref.kind) == ValueForm::kNumber ? out_.Append(text) : Quoted(text);
  }
}

void YamlWriter::ReferenceValue(const Reference &reference, bool named) {
  if (reference.kind == Reference::Kind::kNone || reference.kind == Reference::Kind::kWild) {
    char text[kValueRoom];
    out_.Append({text, WriteHex(reference.address, text)});
    return;
  }
  if (named) {
    out_.Put('{');
    out_.Append(reference.table->shortName);
    out_.Append(": ");
  }
  if (reference.kind == Reference::Kind::kEntry) {
    Key(*reference.table, reference.key);
  } else {
    out_.Append("{stale: {}}");
  }
  if (named) out_.Put('}');
}

void YamlWriter::Value(const RecordBytes &record, const Field &field, const FieldRef &ref,
                       const uint8_t *bytes) {
  if (ref.kind == FieldKind::kText) return Quoted(ref.GetText(bytes));
  if (ref.kind == FieldKind::kReference)
    return ReferenceValue(record.source.Resolve(field.targets, ref.Get(bytes)), field.targets.size() > 1);
  std::string text;
  AppendValue(&record.source, ref, bytes, &text);
  // Addresses have colons.
  FormOf(ref.kind) == ValueForm::kNumber ? out_.Append(text) : Quoted(text);
}

void YamlWriter::Element(const RecordBytes &record, const ShapeNode &node, uint32_t base) {
  const Field &field = *node.field;
  if (!node.IsStructure())
    return Value(record, field, field.ref.At(base), node.inKey ? record.key : record.record);
  Map map(&out_);
  for (const ShapeNode &inner : node.inner) {
    if (IsZero(record, inner, base + field.ref.offset)) continue;
    map.Name(inner.name);
    Node(record, inner, base + field.ref.offset, field.fields);
  }
}

void YamlWriter::Node(const RecordBytes &record, const ShapeNode &node, uint32_t base,
                      const FieldSet &beside) {
  const Field &field = *node.field;
  if (!node.IsArray()) return Element(record, node, base + node.element.value_or(0) * field.stride);
  out_.Put('[');
  const uint32_t shown = ShownElements(field, base, beside, node.inKey ? record.key : record.record);
  for (uint32_t i = 0; i < shown; ++i) {
    if (i > 0) out_.Append(", ");
    Element(record, node, base + i * field.stride);
  }
  out_.Put(']');
}

void YamlWriter::Record(const RecordBytes &record, const RecordShape &shape) {
  Map map(&out_);
  bool differs = false;
  for (const ShapeNode &node : shape.nodes) {
    const Field &field = *node.field;
    differs = differs || DiffersFromKey(node, record);
    if (field.constant && node.inKey) continue;
    const bool isPart = field.pointer != 0 || !field.selector.empty();
    if (isPart && record.entry != nullptr && (!record.entry->Has(field) || record.entry->IsStrayed(field)))
      continue;
    // A time that is left out is now, an attached structure is not there.
    const bool left = !node.inKey && field.pointer == 0 && !IsTimeAgo(field.ref.kind);
    if (left && IsZero(record, node, 0)) continue;
    map.Name(node.name);
    Node(record, node, 0, record.entry == nullptr ? FieldSet() : record.entry->table().fields);
  }
  if (!differs) return;
  map.Name("record");
  Map own(&out_);
  for (const ShapeNode &node : shape.nodes) {
    if (!DiffersFromKey(node, record)) continue;
    own.Name(node.name);
    Value(record, *node.twin, node.twin->ref, record.record);
  }
}

}  // namespace qdt::host
