#include "host/record/record_yaml.h"

#include <algorithm>
#include <utility>

#include "host/layout/value_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

// Longer ago than any clock tells, which loads as the clock's beginning.
constexpr std::string_view kNever = "4294967295";

// Whether some value of a key selects both.
bool CanStandTogether(const Field &a, const Field &b) {
  const auto selectsB = [&](uint32_t value) {
    return std::ranges::find(b.selectedBy, value) != b.selectedBy.end();
  };
  return a.selector == b.selector && std::ranges::any_of(a.selectedBy, selectsB);
}

// Whether the record's own field is not what a scenario fills in by itself: the key's value, or 0 beside a
// key field that is constant.
bool SaysItself(const ShapeNode &node, const RecordBytes &record) {
  if (node.twin == nullptr) return false;
  if (!node.field->constant) return DiffersFromKey(node, record);
  return node.twin->ref.Read(record.record) != 0;
}

}  // namespace

class YamlWriter::Map {
 public:
  explicit Map(YamlWriter *yaml) : out_(yaml->out_), values_(yaml->values_) {
    ++values_;
    out_.Put('{');
  }
  ~Map() { out_.Put('}'); }
  void Name(std::string_view name) {
    ++values_;
    if (std::exchange(any_, true)) out_.Append(", ");
    out_.Append(name);
    out_.Append(": ");
  }

 private:
  TextOut &out_;
  uint64_t &values_;
  bool any_ = false;
};

YamlWriter::YamlWriter(TextOut *out, const RecordShape &shape) : out_(*out), shape_(shape) {
  for (const ShapeNode &node : shape.nodes) {
    if (node.inKey || node.field->selector.empty()) continue;
    const auto isRival = [&](const ShapeNode &other) {
      return &other != &node && !other.inKey && CanStandTogether(*node.field, *other.field);
    };
    if (std::ranges::none_of(shape.nodes, isRival)) continue;
    Variant variant{&node, {}, node.field->ref.offset};
    for (const Leaf &leaf : LeavesOf({node})) {
      const uint32_t first = leaf.ref.offset - variant.at;
      variant.bits.resize(std::max<size_t>(variant.bits.size(), first + leaf.ref.size));
      const uint64_t mask =
          leaf.ref.bits == 0 ? ~uint64_t{0} : ((uint64_t{1} << leaf.ref.bits) - 1) << leaf.ref.shift;
      for (uint32_t i = 0; i < leaf.ref.size; ++i)
        variant.bits[first + i] |= static_cast<uint8_t>(mask >> (8 * (i % 8)));
    }
    variants_.push_back(std::move(variant));
  }
}

bool YamlWriter::IsZeroElement(const RecordBytes &record, const ShapeNode &node, uint32_t base) const {
  const Field &field = *node.field;
  const uint8_t *bytes = node.inKey ? record.key : record.record;
  const auto isZero = [&](const ShapeNode &inner) { return IsZero(record, inner, base + field.ref.offset); };
  return node.IsStructure()                   ? std::ranges::all_of(node.inner, isZero)
         : field.ref.kind == FieldKind::kText ? field.ref.At(base).GetText(bytes).empty()
                                              : field.ref.At(base).Read(bytes) == 0;
}

bool YamlWriter::IsZero(const RecordBytes &record, const ShapeNode &node, uint32_t base) const {
  const Field &field = *node.field;
  const uint32_t first = node.element.value_or(0);
  const uint32_t end = node.element ? first + 1 : std::max(field.count, 1u);
  for (uint32_t i = first; i < end; ++i) {
    if (!IsZeroElement(record, node, base + i * field.stride)) return false;
  }
  return true;
}

bool YamlWriter::IsZero(const RecordBytes &record) const {
  return std::ranges::all_of(shape_.nodes, [&](const ShapeNode &node) { return IsZero(record, node, 0); });
}

// Whether the record has no bit in the other one's fields that this one lacks.
bool YamlWriter::SaysAll(const Variant &variant, const Variant &other, const uint8_t *record) {
  for (uint32_t i = 0; i < other.bits.size(); ++i) {
    const uint32_t here = other.at + i - variant.at;
    const uint8_t said = here < variant.bits.size() ? variant.bits[here] : 0;
    if ((record[other.at + i] & other.bits[i] & ~said) != 0) return false;
  }
  return true;
}

// Of structures in the same bytes one is enough when it says what the other does; of two that do, the one
// that is for fewer keys, or the first.
bool YamlWriter::IsSaidByAnother(const RecordBytes &record, const ShapeNode &node) const {
  const auto self = std::ranges::find(variants_, &node, &Variant::node);
  if (self == variants_.end() || record.entry == nullptr) return false;
  for (auto other = variants_.begin(); other != variants_.end(); ++other) {
    if (other == self || !CanStandTogether(*node.field, *other->node->field)) continue;
    if (!record.entry->Has(*other->node->field) || !SaysAll(*other, *self, record.record)) continue;
    const size_t ours = node.field->selectedBy.size(), theirs = other->node->field->selectedBy.size();
    if (!SaysAll(*self, *other, record.record) || theirs < ours || (theirs == ours && other < self))
      return true;
  }
  return false;
}

// Between single quotes all is plain but these themselves. An opening bracket counts against how deeply a
// file may be nested, wherever it stands.
void YamlWriter::Quoted(std::string_view text) {
  std::string escaped;
  AppendEscaped(text, &escaped);
  ++values_;
  out_.Put('\'');
  for (const char c : escaped) {
    if (c == '[' || c == '{') {
      out_.Append(c == '[' ? "\\x5b" : "\\x7b");
      continue;
    }
    if (c == '\'') out_.Put(c);
    out_.Put(c);
  }
  out_.Put('\'');
}

void YamlWriter::Hex(uint64_t address) {
  char text[kValueRoom];
  ++values_;
  out_.Append({text, WriteHex(address, text)});
}

void YamlWriter::Key(const TableLayout &table, const uint8_t *key) {
  Map map(this);
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    map.Name(field.name);
    if (field.ref.kind == FieldKind::kText) {
      Quoted(field.ref.GetText(key));
      continue;
    }
    std::string text;
    AppendValue(nullptr, field.ref, key, &text);
    if (FormOf(field.ref.kind) != ValueForm::kNumber) {
      Quoted(text);
      continue;
    }
    ++values_;
    out_.Append(text);
  }
}

void YamlWriter::ReferenceValue(const Reference &reference, bool named) {
  if (reference.kind == Reference::Kind::kNone || reference.kind == Reference::Kind::kWild)
    return Hex(reference.address);
  if (named) {
    values_ += 2;
    out_.Put('{');
    out_.Append(reference.table->shortName);
    out_.Append(": ");
  }
  if (reference.kind == Reference::Kind::kEntry) {
    Key(*reference.table, reference.key);
  } else {
    values_ += 3;
    out_.Append("{stale: {}}");
  }
  if (named) out_.Put('}');
}

void YamlWriter::Value(const RecordBytes &record, const Field &field, const FieldRef &ref,
                       const uint8_t *bytes) {
  if (ref.kind == FieldKind::kText) return Quoted(ref.GetText(bytes));
  if (ref.kind == FieldKind::kReference) {
    // Regions hold addresses only.
    if (record.entry == nullptr) return Hex(ref.Get(bytes));
    return ReferenceValue(record.source.Resolve(field.targets, ref.Get(bytes)), field.targets.size() > 1);
  }
  std::string text;
  if (IsTimeAgo(ref.kind) && ref.Read(bytes) == 0) {
    text = kNever;
  } else {
    AppendValue(&record.source, ref, bytes, &text);
  }
  // Addresses have colons.
  if (FormOf(ref.kind) != ValueForm::kNumber) return Quoted(text);
  ++values_;
  out_.Append(text);
}

void YamlWriter::Element(const RecordBytes &record, const ShapeNode &node, uint32_t base) {
  const Field &field = *node.field;
  if (!node.IsStructure())
    return Value(record, field, field.ref.At(base), node.inKey ? record.key : record.record);
  Map map(this);
  for (const ShapeNode &inner : node.inner) {
    if (IsZero(record, inner, base + field.ref.offset)) continue;
    map.Name(inner.name);
    Node(record, inner, base + field.ref.offset, field.fields);
  }
}

// Arrays with few values among zeros name their elements.
void YamlWriter::Node(const RecordBytes &record, const ShapeNode &node, uint32_t base,
                      const FieldSet &beside) {
  const Field &field = *node.field;
  if (!node.IsArray()) return Element(record, node, base + node.element.value_or(0) * field.stride);
  const uint32_t shown = ShownElements(field, base, beside, node.inKey ? record.key : record.record);
  const auto isZero = [&](uint32_t i) { return IsZeroElement(record, node, base + i * field.stride); };
  uint32_t used = 0;
  for (uint32_t i = 0; i < shown; ++i) used += isZero(i) ? 0 : 1;
  if (used * 2 < shown) {
    Map map(this);
    for (uint32_t i = 0; i < shown; ++i) {
      if (isZero(i)) continue;
      map.Name(std::to_string(i));
      Element(record, node, base + i * field.stride);
    }
    return;
  }
  ++values_;
  out_.Put('[');
  for (uint32_t i = 0; i < shown; ++i) {
    if (i > 0) out_.Append(", ");
    Element(record, node, base + i * field.stride);
  }
  out_.Put(']');
}

// A pointer to something else than what is attached to the entry.
void YamlWriter::Stale(uint64_t address) {
  Map map(this);
  map.Name("stale");
  Hex(address);
}

void YamlWriter::OwnFields(const RecordBytes &record) {
  Map own(this);
  for (const ShapeNode &node : shape_.nodes) {
    if (!SaysItself(node, record)) continue;
    own.Name(node.name);
    Value(record, *node.twin, node.twin->ref, record.record);
  }
}

void YamlWriter::Record(const RecordBytes &record) {
  Map map(this);
  bool saysItself = false;
  for (const ShapeNode &node : shape_.nodes) {
    const Field &field = *node.field;
    saysItself = saysItself || SaysItself(node, record);
    if (field.constant && node.inKey) continue;
    const bool isPart = record.entry != nullptr && (field.pointer != 0 || !field.selector.empty());
    if (isPart && !record.entry->Has(field)) continue;
    if (isPart && field.pointer != 0 && record.entry->IsStrayed(field)) {
      map.Name(node.name);
      Stale(record.entry->PointerTo(field));
      continue;
    }
    // A time that is left out is now, an attached structure is not there.
    const bool left = !node.inKey && field.pointer == 0 && !IsTimeAgo(field.ref.kind);
    if ((left && IsZero(record, node, 0)) || IsSaidByAnother(record, node)) continue;
    map.Name(node.name);
    Node(record, node, 0, record.fields);
  }
  if (!saysItself) return;
  map.Name("record");
  OwnFields(record);
}

}  // namespace qdt::host
