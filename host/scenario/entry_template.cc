#include "host/scenario/entry_template.h"

#include <algorithm>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

// Words of scenarios, which are no names of fields.
constexpr std::string_view kRepeat = "repeat";
constexpr std::string_view kStale = "stale";
constexpr std::string_view kOwnFields = "record";

}  // namespace

EntryTemplate::EntryTemplate(const YamlTree &tree, const Layout &layout, std::string_view owner,
                             bool counting, Mistakes *mistakes)
    : tree_(tree), layout_(layout), owner_(owner), table_(owner), counting_(counting), mistakes_(mistakes) {}

void EntryTemplate::Fail(const YamlNode &node, std::string_view path, const std::string &what) const {
  tree_.Fail(node.line, owner_ + (path.empty() ? "" : ".") + std::string(path) + ": " + what);
}

void EntryTemplate::Bind(const FieldSet &fields, const FieldSet *key, const YamlNode &entry) {
  isEntry_ = key != nullptr;
  const size_t mistakes = CountOf(mistakes_);
  BindMap(fields, key, entry, 0, "");
  // What seems to be missing may just be written wrong.
  if (CountOf(mistakes_) != mistakes || entry.isFaulty) return;
  BindTimes(fields, entry);
  if (key == nullptr) return;
  BindRestOfKey(*key, entry);
  if (const YamlNode *own = entry.Get(kOwnFields)) BindOwn(fields, *key, *own);
}

// What the record's own fields say where they differ from the key's fields of the same names.
void EntryTemplate::BindOwn(const FieldSet &fields, const FieldSet &key, const YamlNode &own) {
  const std::string where(kOwnFields);
  if (!own.IsMap()) Fail(own, where, "not a mapping (write {FIELD: VALUE, ...})");
  for (size_t i = 0; i < own.items.size(); i += 2) {
    const YamlNode &name = *own.items[i];
    const Field *field = fields.Find(name.text);
    if (field == nullptr || key.Find(name.text) == nullptr) {
      Fail(name, where + "." + name.text.substr(0, 64),
           "no field that key and record both have (write it outside of record)");
    }
    BindField(*field, *own.items[i + 1], 0, where + "." + name.text);
  }
}

// A time that is left out is now, 0 seconds ago.
void EntryTemplate::BindTimes(const FieldSet &fields, const YamlNode &entry) {
  for (const Field &field : fields.all()) {
    if (IsTimeAgo(field.ref.kind) && entry.Get(field.name) == nullptr)
      values_.push_back({field.ref, false, 0, 0, {}, &entry, std::string(field.name)});
  }
}

// What the user does not give or has to give.
void EntryTemplate::BindRestOfKey(const FieldSet &key, const YamlNode &entry) {
  for (const Field &field : key.all()) {
    if (field.constant) {
      values_.push_back({field.ref, true, *field.constant, 0, {}, &entry, std::string(field.name)});
    } else if (entry.Get(field.name) == nullptr) {
      Fail(entry, field.name, "missing (it is part of the entry's key)");
    }
  }
}

void EntryTemplate::BindMap(const FieldSet &fields, const FieldSet *key, const YamlNode &map, uint32_t base,
                            const std::string &prefix) {
  for (size_t i = 0; i < map.items.size(); i += 2) {
    const std::string &name = map.items[i]->text;
    if (isEntry_ && key != nullptr && (name == kRepeat || name == kOwnFields)) continue;
    Attempt(mistakes_, [&] { BindNamed(fields, key, map, i, base, prefix); });
  }
}

void EntryTemplate::BindNamed(const FieldSet &fields, const FieldSet *key, const YamlNode &map, size_t item,
                              uint32_t base, const std::string &prefix) {
  const YamlNode *own = isEntry_ && key != nullptr ? map.Get(kOwnFields) : nullptr;
  const YamlNode &name = *map.items[item];
  const YamlNode &value = *map.items[item + 1];
  const Field *field = fields.Find(name.text);
  const Field *keyField = key != nullptr ? key->Find(name.text) : nullptr;
  if (keyField != nullptr && keyField->constant)
    Fail(name, name.text, "always " + ValueText(keyField->ref, *keyField->constant) + " (leave it out)");
  if (keyField != nullptr) BindValue(keyField->ref, true, value, prefix + name.text);
  if (field != nullptr && !field->selector.empty()) BindVariant(*field, name);
  if (field != nullptr && field->pointer != 0 && value.Get(kStale) != nullptr) {
    BindStrayed(*field, value);
  } else if (field != nullptr) {
    if (field->pointer != 0) BindAttached(*field, name);
    const bool hasOwn = own != nullptr && own->Get(name.text) != nullptr;
    if (keyField == nullptr || !hasOwn) BindField(*field, value, base, prefix + name.text);
  }
  if (field == nullptr && keyField == nullptr) FailUnknown(fields, key, name, prefix);
}

void EntryTemplate::FailUnknown(const FieldSet &fields, const FieldSet *key, const YamlNode &name,
                                const std::string &prefix) const {
  // People know a field, and forget the structure that it stands in.
  const Field *around = nullptr;
  for (const Field &field : fields.all()) {
    if (around == nullptr && field.fields.Find(name.text) != nullptr) around = &field;
  }
  const Field *nearest = fields.Nearest(name.text);
  if (nearest == nullptr && key != nullptr) nearest = key->Nearest(name.text);
  const std::string hint = around == nullptr ? DidYouMean(nearest != nullptr ? nearest->name : "",
                                                          "nqecli fields " + table_ + " lists them")
                                             : " (it stands in " + std::string(around->name) + ")";
  Fail(name, prefix + std::string(name.text.substr(0, 64)), "no such field" + hint);
}

// Of structures that share their bytes one key selects one, or several, which are views of the same then.
void EntryTemplate::BindVariant(const Field &field, const YamlNode &node) {
  for (const Variant &other : variants_) {
    if (other.field->selector != field.selector) continue;
    const auto isCommon = [&](uint32_t value) {
      return std::ranges::find(other.field->selectedBy, value) != other.field->selectedBy.end();
    };
    if (counting_ || std::ranges::none_of(field.selectedBy, isCommon))
      Fail(node, field.name,
           "stands in the same bytes as " + std::string(other.field->name) + " (remove one)");
    variantsShare_ = true;
  }
  variants_.push_back({&field, &node});
}

// At most one of the structures that one pointer leads to.
void EntryTemplate::TakePointer(const Field &field, const YamlNode &node) {
  if (std::ranges::find(pointers_, field.pointer) != pointers_.end())
    Fail(node, field.name, "the entry has the other kind of it already (remove one)");
  pointers_.push_back(field.pointer);
}

void EntryTemplate::BindAttached(const Field &field, const YamlNode &node) {
  TakePointer(field, node);
  attached_.push_back({{field.pointer, sizeof(uint64_t), FieldKind::kReference, 0, 0}, field.ref.offset});
}

// A pointer that leads elsewhere than to a structure of the entry's own: {stale: 0x7f0000001000}.
void EntryTemplate::BindStrayed(const Field &field, const YamlNode &node) {
  TakePointer(field, node);
  if (node.items.size() != 2) Fail(node, field.name, "not a stale pointer (write {stale: ADDRESS})");
  BindValue({field.pointer, sizeof(uint64_t), FieldKind::kReference, 0, 0}, false, *node.Get(kStale),
            std::string(field.name) + "." + std::string(kStale));
}

// Where two structures stand in the same bytes the one may not say another thing than the other.
void EntryTemplate::CheckAgreement(const uint8_t *record) const {
  for (const Value &value : values_) {
    if (value.inKey || IsTimeAgo(value.field.kind)) continue;
    const bool stands = value.field.kind == FieldKind::kText
                            ? value.field.GetText(record) == value.text.c_str()
                            : value.field.Read(record) == value.start;
    if (!stands) Fail(*value.node, value.path, "another value stands in the same bytes (remove one)");
  }
}

// Whether the key of repetition `i` selects the structures that were given.
void EntryTemplate::CheckVariants(uint32_t i) const {
  for (const Variant &variant : variants_) {
    const auto isSelector = [&](const Value &value) {
      return value.inKey && value.path == variant.field->selector;
    };
    const auto value = std::find_if(values_.begin(), values_.end(), isSelector);
    const std::span<const uint32_t> selectedBy = variant.field->selectedBy;
    if (std::find(selectedBy.begin(), selectedBy.end(), At(*value, i)) != selectedBy.end()) continue;
    std::string choice;
    for (const uint32_t number : selectedBy)
      choice += (choice.empty() ? "" : " or ") + std::to_string(number);
    Fail(*variant.node, variant.field->name, "is for " + std::string(variant.field->selector) + " " + choice);
  }
}

void EntryTemplate::BindField(const Field &field, const YamlNode &node, uint32_t base,
                              const std::string &path) {
  if (field.count != 0) return BindArray(field, node, base, path);
  BindElement(field, node, base, path);
}

void EntryTemplate::BindArray(const Field &field, const YamlNode &node, uint32_t base,
                              const std::string &path) {
  const std::string holds = " (the array holds " + std::to_string(field.count) + ")";
  if (node.IsList()) {
    if (node.items.size() > field.count) {
      Fail(node, path, std::to_string(node.items.size()) + " elements are too many" + holds);
    }
    for (uint32_t i = 0; i < node.items.size(); ++i) {
      BindElement(field, *node.items[i], base + i * field.stride, path + "[" + std::to_string(i) + "]");
    }
  } else if (node.IsMap()) {
    for (size_t i = 0; i < node.items.size(); i += 2) {
      const std::string &text = node.items[i]->text;
      const std::optional<uint32_t> index = ParseCount(text);
      if (!index || *index >= field.count)
        Fail(*node.items[i], path, Quoted(text) + " is not the number of an element" + holds);
      BindElement(field, *node.items[i + 1], base + *index * field.stride,
                  path + "[" + std::to_string(*index) + "]");
    }
  } else {
    Fail(node, path, "not a list (write [VALUE, ...] or {NUMBER: VALUE, ...})");
  }
}

void EntryTemplate::BindElement(const Field &field, const YamlNode &node, uint32_t base,
                                const std::string &path) {
  if (!field.fields.empty()) {
    if (!node.IsMap()) Fail(node, path, "not a mapping (write {FIELD: VALUE, ...})");
    BindMap(field.fields, nullptr, node, base + field.ref.offset, path + ".");
  } else if (field.ref.kind == FieldKind::kReference && node.IsMap()) {
    BindReference(field, node, base, path);
  } else {
    BindValue(field.ref.At(base), false, node, path);
  }
}

void EntryTemplate::BindValue(const FieldRef &field, bool inKey, const YamlNode &node,
                              const std::string &path) {
  if (field.kind == FieldKind::kAddress) {
    const YamlNode *from = node.Get("from");
    const YamlNode &first = from != nullptr ? *from : node;
    const std::optional<FieldRef> narrow = NarrowAddress(field, first.text);
    if (!narrow)
      Fail(first, path, Quoted(first.text) + " is not an address (write an IPv4, IPv6 or MAC address)");
    return BindValue(*narrow, inKey, node, path);
  }
  Value value{field, inKey, 0, 0, {}, &node, path};
  if (node.IsMap() && field.kind != FieldKind::kText) {
    const YamlNode *from = node.Get("from");
    const YamlNode *step = node.Get("step");
    if (from == nullptr || step == nullptr || node.items.size() != 4) {
      if (node.isFaulty) return;
      Fail(node, path, "not a value (write one, or {from: VALUE, step: NUMBER})");
    }
    if (!counting_) Fail(node, path, "counts up in an entry that is not repeated (add repeat: NUMBER)");
    value.start = Parse(field, *from, path);
    value.step = Parse(FieldRef{0, 8, FieldKind::kSigned, 0, 0}, *step, path + ".step");
  } else if (!node.IsScalar()) {
    Fail(node, path, node.IsNull() ? "no value (write one, or leave the field out)" : "not a single value");
  } else if (field.kind == FieldKind::kText) {
    value.text = ReadText(field, node, path);
  } else {
    value.start = Parse(field, node, path);
  }
  values_.push_back(std::move(value));
}

// Texts are written as they are shown: what cannot be typed stands behind a backslash.
std::string EntryTemplate::ReadText(const FieldRef &field, const YamlNode &node,
                                    const std::string &path) const {
  std::string text;
  if (!Unescape(node.text, &text)) {
    Fail(node, path,
         Quoted(node.text) +
             " has a backslash before something else (write \\\\ for one, or \\x1b for a byte)");
  }
  if (text.size() > field.size) {
    Fail(node, path,
         std::to_string(text.size()) + " bytes are too many (the field holds " + std::to_string(field.size) +
             ")");
  }
  return text;
}

// Of a field that can lead to one of several tables the value names the one: {nhp: {index: 5}}.
void EntryTemplate::BindReference(const Field &field, const YamlNode &node, uint32_t base,
                                  const std::string &path) {
  if (field.targets.size() == 1) return BindTarget(field, field.targets[0], node, base, path);
  std::string choice;
  for (const std::string_view target : field.targets) {
    const YamlNode *key = node.items.size() == 2 ? node.Get(target) : nullptr;
    if (key != nullptr && key->IsMap())
      return BindTarget(field, target, *key, base, path + "." + std::string(target));
    choice += (choice.empty() ? "{" : " or {") + std::string(target) + ": {KEY FIELD: VALUE, ...}}";
  }
  if (!node.isFaulty) Fail(node, path, "not a reference that names its table (write " + choice + ")");
}

void EntryTemplate::BindTarget(const Field &field, std::string_view table, const YamlNode &node,
                               uint32_t base, const std::string &path) {
  const TableLayout *target = layout_.FindTable(table);
  const YamlNode *stale = node.Get(kStale);
  if (stale != nullptr && (node.items.size() != 2 || !stale->IsMap())) {
    Fail(node, path, "not a stale reference (write {stale: {KEY FIELD: VALUE, ...}})");
  }
  if (target->key.empty()) Fail(node, path, std::string(target->shortName) + " has no fields yet (write 0)");
  UnboundReference unbound;
  unbound.reference = {field.ref.At(base), target, {}, stale != nullptr, &node, path, {}};
  if (stale != nullptr && stale->items.empty()) {
    references_.push_back(std::move(unbound));
    return;
  }
  unbound.key = std::make_unique<EntryTemplate>(tree_, layout_, owner_ + "." + path, counting_, mistakes_);
  unbound.key->table_ = target->shortName;
  const YamlNode &wanted = stale != nullptr ? *stale : node;
  const size_t mistakes = CountOf(mistakes_);
  unbound.key->BindMap(FieldSet(), &target->key, wanted, 0, "");
  if (CountOf(mistakes_) != mistakes || wanted.isFaulty) return;
  unbound.key->BindRestOfKey(target->key, wanted);
  references_.push_back(std::move(unbound));
}

WideValue EntryTemplate::Parse(const FieldRef &field, const YamlNode &node, const std::string &path) const {
  if (!node.IsScalar()) Fail(node, path, "not a single value");
  std::string problem;
  const std::optional<WideValue> value = ParseValue(field, node.text, &problem);
  if (!value) Fail(node, path, problem);
  return *value;
}

WideValue EntryTemplate::At(const Value &value, uint32_t i) const {
  const WideValue now = value.start + value.step * i;
  if (!value.field.Fits(now)) {
    Fail(*value.node, value.path,
         "repetition " + std::to_string(i + 1) + " counts past " + std::to_string(value.field.Width()) +
             " bits");
  }
  return now;
}

void EntryTemplate::Prepare(uint32_t count, uint32_t keySize, uint32_t recordSize) {
  sharedKey_.assign(keySize, 0);
  sharedRecord_.assign(recordSize, 0);
  counters_.clear();
  for (const Value &value : values_) {
    uint8_t *area = (value.inKey ? sharedKey_ : sharedRecord_).data();
    if (value.field.kind == FieldKind::kText) {
      value.field.SetText(area, value.text);
    } else if (value.step == 0) {
      value.field.Write(area, StoredValue(value.field, value.start));
    } else {
      // The first one fits, and so do all when the last one does.
      counters_.push_back(
          {&value, value.field.Fits(value.start + value.step * (count - 1)) && !IsTimeAgo(value.field.kind)});
    }
  }
  for (const UnboundReference &unbound : references_) {
    if (unbound.key != nullptr) unbound.key->Prepare(count, unbound.reference.target->spec.keySize, 0);
  }
}

void EntryTemplate::Write(uint32_t i, uint8_t *key, uint8_t *record) const {
  if (!variants_.empty()) CheckVariants(i);
  std::copy(sharedKey_.begin(), sharedKey_.end(), key);
  std::copy(sharedRecord_.begin(), sharedRecord_.end(), record);
  for (const Counter &counter : counters_) {
    const Value &value = *counter.value;
    const WideValue now =
        counter.isPlain ? value.start + value.step * i : StoredValue(value.field, At(value, i));
    value.field.Write(value.inKey ? key : record, now);
  }
  if (variantsShare_) CheckAgreement(record);
}

std::optional<std::string> EntryTemplate::WhyAllKeysAreOne(uint32_t count) const {
  std::string names;
  std::string still;
  for (const Value &value : values_) {
    if (!value.inKey || value.path == kRepeat) continue;
    if (value.step != 0) return std::nullopt;
    const bool counts = value.node->IsMap() && value.node->Get("step") != nullptr;
    if (counts && still.empty()) still = value.path;
    if (value.node->IsScalar() || counts) names += (names.empty() ? "" : " or ") + value.path;
  }
  const std::string all = "its " + std::to_string(count) + " repetitions have the same key";
  if (!still.empty()) return all + ", since " + still + " counts by a step of 0 (write another step)";
  return all + " (let " + names + " count: {from: VALUE, step: 1})";
}

std::vector<EntryTemplate::Reference> EntryTemplate::References(uint32_t i) const {
  std::vector<Reference> references;
  for (const UnboundReference &unbound : references_) {
    Reference reference = unbound.reference;
    if (unbound.key != nullptr) {
      reference.key.resize(reference.target->spec.keySize);
      unbound.key->Write(i, reinterpret_cast<uint8_t *>(reference.key.data()), nullptr);
      reference.wanted = unbound.key->KeyText(i);
    }
    references.push_back(std::move(reference));
  }
  return references;
}

// "{group_type: 2, group_id: 7}"
std::string EntryTemplate::KeyText(uint32_t i) const {
  std::string text;
  for (const Value &value : values_) {
    const bool isText = value.field.kind == FieldKind::kText;
    text += (text.empty() ? "{" : ", ") + value.path + ": " +
            (isText ? Quoted(value.text) : ValueText(value.field, At(value, i)));
  }
  return text + "}";
}

}  // namespace qdt::host
