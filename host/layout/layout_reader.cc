#include "host/layout/layout_reader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "host/arena/arena_plan.h"
#include "host/arena/table_layout.h"
#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/numbers.h"
#include "host/layout/field_line.h"
#include "host/tbm/route_key.h"

namespace qdt::host {
namespace {

// Marks the bits of a record that fields take, and so finds two that share one. Only variants that one key
// field selects may, and structures that one pointer leads to.
class BitMap {
 public:
  explicit BitMap(uint32_t bytes) : bits_(size_t{bytes} * 8) {}

  enum class Result { kFree, kTaken, kOutside };

  Result Take(const Field &field) {
    sharing_ = nullptr;
    if (!field.selector.empty()) sharing_ = &shared_[std::string(field.selector)];
    if (field.pointer != 0) {
      sharing_ = &shared_[std::to_string(field.pointer)];  // no field has such a name
      const FieldRef pointer{0, sizeof(uint64_t), FieldKind::kReference, 0, 0};
      if (const Result result = TakeValue(pointer, field.pointer); result != Result::kFree) return result;
    }
    return Take(field, 0);
  }

 private:
  Result Take(const Field &field, uint32_t base) {
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
      const uint32_t at = base + field.ref.offset + i * field.stride;
      const Result result = field.fields.empty() ? TakeValue(field.ref, at) : TakeStructure(field, at);
      if (result != Result::kFree) return result;
    }
    return Result::kFree;
  }

  Result TakeStructure(const Field &field, uint32_t at) {
    for (const Field &inner : field.fields.all()) {
      const Result result = Take(inner, at);
      if (result != Result::kFree) return result;
    }
    return Result::kFree;
  }

  Result TakeValue(const FieldRef &ref, uint32_t at) {
    const size_t first = size_t{at} * 8 + ref.shift;
    const size_t last = first + ref.Width();
    if ((size_t{at} + ref.size) * 8 > bits_) return Result::kOutside;
    Grow(&taken_, last);
    if (sharing_ != nullptr) Grow(sharing_, last);
    for (size_t bit = first; bit < last; ++bit) {
      if (taken_[bit] && (sharing_ == nullptr || !(*sharing_)[bit])) return Result::kTaken;
      taken_[bit] = true;
      if (sharing_ != nullptr) (*sharing_)[bit] = true;
    }
    return Result::kFree;
  }

  // Regions are large, and their fields seldom reach their end.
  static void Grow(std::vector<bool> *bits, size_t size) {
    if (bits->size() < size) bits->resize(size);
  }

  size_t bits_;  // of the record
  std::vector<bool> taken_;
  std::map<std::string, std::vector<bool>>
      shared_;  // what those that may share have taken, by what they share
  std::vector<bool> *sharing_ = nullptr;
};

}  // namespace

LayoutReader::LayoutReader() { tables_.resize(kTableCount); }

void LayoutReader::ReadFile(const YamlTree &tree) {
  tree_ = &tree;
  const YamlNode &root = tree.root();
  for (size_t i = 0; i < root.items.size(); i += 2) {
    const YamlNode &section = *root.items[i];
    if (section.text != "tables" && section.text != "regions" && section.text != "views")
      tree.Fail(section.line, section.text + ": not a section of a layout (tables, regions or views)");
    ReadSection(section, *root.items[i + 1]);
  }
}

void LayoutReader::ReadSection(const YamlNode &section, const YamlNode &entries) {
  if (!entries.IsMap())
    tree_->Fail(section.line, section.text + ": not a mapping (write NAME: and its properties)");
  const auto read = section.text == "tables"    ? &LayoutReader::ReadTable
                    : section.text == "regions" ? &LayoutReader::ReadRegion
                                                : &LayoutReader::ReadView;
  for (size_t i = 0; i < entries.items.size(); i += 2) {
    where_ = entries.items[i]->text;
    if (!entries.items[i + 1]->IsMap()) Fail(*entries.items[i], "", "not a mapping (write PROPERTY: VALUE)");
    (this->*read)(*entries.items[i], *entries.items[i + 1]);
  }
}

void LayoutReader::Fail(const YamlNode &node, const std::string &where, const std::string &what) const {
  tree_->Fail(node.line, where_ + (where.empty() ? "" : "." + where) + ": " + what);
}

void LayoutReader::CheckProperties(const YamlNode &node, std::initializer_list<std::string_view> known) {
  for (size_t i = 0; i < node.items.size(); i += 2) {
    const YamlNode &property = *node.items[i];
    if (std::find(known.begin(), known.end(), property.text) != known.end()) continue;
    NearName near(property.text);
    std::string_view nearest;
    for (const std::string_view name : known) {
      if (near.Offer(name)) nearest = name;
    }
    Fail(property, property.text, "no such property" + DidYouMean(nearest, "remove it"));
  }
}

std::string_view LayoutReader::Place(const YamlNode &node) {
  return store_->Keep(tree_->file() + ":" + std::to_string(node.line));
}

// What a table, region or structure is, in one line.
std::string_view LayoutReader::ReadAbout(const YamlNode &node) {
  const YamlNode *given = node.Get("about");
  if (given == nullptr) return {};
  if (!given->IsScalar() || given->text.empty() || given->text.find('\n') != given->text.npos)
    Fail(*given, "about", "not one line of text");
  return store_->Keep(given->text);
}

const TableLayout *LayoutReader::FindTable(std::string_view shortName) const {
  const auto at = std::ranges::find(tables_, shortName, &TableLayout::shortName);
  return at != tables_.end() && !at->place.empty() ? &*at : nullptr;
}

// Names become parts of paths, command lines and answers.
void LayoutReader::CheckName(const YamlNode &name, const std::string &where) const {
  const auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
  if (!name.text.empty() && name.text.size() <= kMaxLayoutName && std::ranges::all_of(name.text, isPart))
    return;
  Fail(name, where,
       Quoted(name.text) + " is not a name (1 to " + std::to_string(kMaxLayoutName) +
           " letters, digits and underlines)");
}

// Neither of a table's names may be another table's.
void LayoutReader::CheckIsFree(const YamlNode &name, const TableLayout &table) const {
  for (const TableLayout &other : tables_) {
    if (other.place.empty()) continue;
    if (other.shortName == table.shortName)
      Fail(name, "", "stands at " + std::string(other.place) + " already (rename one)");
    if (other.spec.name == table.spec.name)
      Fail(name, "name",
           std::string(table.spec.name) + " is " + std::string(other.shortName) + " already (rename one)");
  }
}

uint32_t LayoutReader::ReadNumber(const YamlNode &node, std::string_view property, uint32_t least,
                                  uint32_t most) {
  const YamlNode *given = node.Get(property);
  uint32_t number = 0;
  if (given != nullptr && given->IsScalar()) {
    const char *end = given->text.data() + given->text.size();
    const auto [stop, error] = std::from_chars(given->text.data(), end, number);
    if (error == std::errc() && stop == end && number >= least && number <= most) return number;
  }
  Fail(given != nullptr ? *given : node, std::string(property),
       std::string(given != nullptr ? "not" : "missing,") + " a number from " + std::to_string(least) +
           " to " + std::to_string(most));
}

uint32_t LayoutReader::ReadNumberOr(uint32_t otherwise, const YamlNode &node, std::string_view property,
                                    uint32_t most) {
  return node.Get(property) != nullptr ? ReadNumber(node, property, 0, most) : otherwise;
}

Lookup LayoutReader::ReadLookup(const YamlNode &node) {
  const YamlNode *given = node.Get("lookup");
  if (given == nullptr || given->text == "unique") return Lookup::kUnique;
  if (given->text == "many") return Lookup::kMany;
  if (given->text == "prefix4") return Lookup::kPrefix4;
  if (given->text == "prefix6") return Lookup::kPrefix6;
  Fail(*given, "lookup",
       Quoted(given->text) + " is no way to find entries (unique, many, prefix4 or prefix6)");
}

void LayoutReader::ReadTable(const YamlNode &name, const YamlNode &node) {
  CheckProperties(
      node, {"id", "name", "key_size", "record_size", "data_size", "search_offset", "capacity", "group_rules",
             "lookup", "part_of", "client_writable", "attached_size", "about", "key", "fields"});
  CheckName(name, "");
  TableLayout table;
  table.shortName = store_->Keep(name.text);
  table.about = ReadAbout(node);
  table.place = Place(name);
  const uint32_t id = table.spec.id = ReadNumber(node, "id", 0, kTableCount - 1);
  if (lines_[id] != 0)
    Fail(name, "id", std::to_string(id) + " is " + std::string(tables_[id].shortName) + " already");
  lines_[id] = name.line;

  const YamlNode *full = node.Get("name");
  if (full == nullptr || !full->text.starts_with("CAP_TABLE_")) {
    Fail(full != nullptr ? *full : node, "name", "not a table's name (CAP_TABLE_...)");
  }
  CheckName(*full, "name");
  table.spec.name = store_->Keep(full->text);
  CheckIsFree(name, table);
  table.spec.enabled = node.Get("record_size") != nullptr;
  if (table.spec.enabled) {
    ReadShape(node, &table.spec);
    table.key = ReadFields(node.Get("key"), "key.", table.spec.keySize);
    table.fields = ReadFields(node.Get("fields"), "", table.spec.StoredSize(), table.key);
    CheckKey(table);
    CheckRecordWide(table.fields, table.key);
    if (const YamlNode *name = node.Get("client_writable")) ReadClientWritable(*name, &table);
    if (const YamlNode *owner = node.Get("part_of")) table.partOf = store_->Keep(owner->text);
  } else if (node.items.size() != 4 && (node.items.size() != 6 || table.about.empty())) {
    Fail(node, "record_size", "missing (a table without it has an id, a name and about only)");
  }
  tables_[id] = table;
}

void LayoutReader::ReadShape(const YamlNode &node, TableSpec *spec) {
  constexpr uint32_t kMost16 = std::numeric_limits<uint16_t>::max();
  constexpr uint32_t kMostEntries = 1u << 24;
  spec->keySize = ReadNumber(node, "key_size", 4, tbm::kMaxKeySize);
  spec->recordSize = ReadNumber(node, "record_size", 1, kMost16);
  spec->capacity = ReadNumber(node, "capacity", 1, kMostEntries);
  spec->dataSize = node.Get("data_size") == nullptr ? spec->recordSize
                                                    : ReadNumber(node, "data_size", 1, spec->recordSize);
  spec->searchOffset = ReadNumberOr(0, node, "search_offset", spec->recordSize - 1);
  spec->groupRuleSpec = ReadNumberOr(0, node, "group_rules", kMostEntries);
  spec->lookup = ReadLookup(node);
  if (const uint32_t address = PrefixAddressSize(spec->lookup);
      address != 0 && spec->keySize < kPrefixAddressOffset + address) {
    Fail(*node.Get("key_size"), "key_size",
         "too small for routes (" + std::to_string(kPrefixAddressOffset + address) + " at least)");
  }
  spec->attachedSize = ReadNumberOr(0, node, "attached_size", kMost16);
  if (spec->attachedSize != 0 && spec->recordSize % 8 != 0) {
    Fail(*node.Get("attached_size"), "attached_size", "for records of whole 8 bytes only");
  }
}

// The aging time that clients may set to 0.
void LayoutReader::ReadClientWritable(const YamlNode &name, TableLayout *table) {
  const Field *field = table->fields.Find(name.text);
  if (field == nullptr || field->count != 0 || !field->fields.empty())
    Fail(name, "client_writable", Quoted(name.text) + " is not a value of this table (name its aging time)");
  const FieldRef &ref = field->ref;
  if (ref.kind != FieldKind::kUnsigned || ref.bits != 0 || ref.offset % ref.size != 0)
    Fail(name, "client_writable", "not a whole number at a multiple of its size (u8, u16, u32 or u64)");
  table->spec.agingOffset = ref.offset;
  table->spec.agingSize = static_cast<uint8_t>(ref.size);
}

// One text of a scenario fills the key's field and the record's field of the same name.
void LayoutReader::CheckKey(const TableLayout &table) {
  YamlNode at;
  at.line = lines_[table.spec.id];
  if (table.key.empty() != table.fields.empty())
    Fail(at, "", "key and fields belong together (give both or none)");
  for (const Field &field : table.key.all()) {
    at.line = field.line;
    if (field.count != 0 || !field.fields.empty() || field.ref.kind == FieldKind::kReference) {
      Fail(at, "key." + std::string(field.name),
           "not a single value (keys have no arrays, structures or references)");
    }
    const Field *twin = table.fields.Find(field.name);
    if (twin == nullptr) continue;
    if (twin->count != 0 || !twin->fields.empty() || FormOf(twin->ref.kind) != FormOf(field.ref.kind)) {
      Fail(at, "key." + std::string(field.name),
           "another kind of value than the record's field of this name (rename one)");
    }
  }
}

std::string Joined(const Field &outer, const Field &inner) {
  return std::string(outer.name) + "." + std::string(inner.name);
}

// What concerns a record as a whole: structures are chosen by fields of the key.
void LayoutReader::CheckRecordWide(const FieldSet &fields, const FieldSet &key) {
  YamlNode at;
  for (const Field &field : fields.all()) {
    at.line = field.line;
    if (!field.selector.empty() && key.Find(field.selector) == nullptr) {
      Fail(at, std::string(field.name),
           Quoted(field.selector) + " is not a field of the key that could select a variant");
    }
    if (field.ref.kind == FieldKind::kAddress)
      Fail(at, std::string(field.name), "address is for keys (a record tells which kind it holds)");
    if (const Field *choice = fields.Find(field.chosenBy);
        !field.chosenBy.empty() && (choice == nullptr || choice->count != 0 || !choice->fields.empty())) {
      Fail(at, std::string(field.name),
           Quoted(field.chosenBy) + " is not a value of the record that could tell");
    }
    for (const Field &inner : field.fields.all()) {
      at.line = inner.line;
      if (!inner.selector.empty() || !inner.clearedBy.empty())
        Fail(at, Joined(field, inner), "variant and cleared_by are not for fields inside a structure");
      if (inner.pointer != 0 || IsTimeAgo(inner.ref.kind))
        Fail(at, Joined(field, inner),
             "pointer, uptime_ago and time_ago are not for fields inside a structure");
    }
  }
}

void LayoutReader::ReadRegion(const YamlNode &name, const YamlNode &node) {
  CheckProperties(node, {"size", "about", "fields"});
  CheckName(name, "");
  if (regions_.size() == kMaxLayoutRegions)
    Fail(name, "", "more than " + std::to_string(kMaxLayoutRegions) + " regions (leave some out)");
  RegionLayout region;
  region.spec.name = store_->Keep(name.text);
  region.about = ReadAbout(node);
  region.place = Place(name);
  for (const RegionLayout &other : regions_) {
    if (other.spec.name == name.text)
      Fail(name, "", "stands at " + std::string(other.place) + " already (remove one)");
  }
  region.spec.size = ReadNumber(node, "size", 1, 1u << 24);
  region.fields = ReadFields(node.Get("fields"), "", region.spec.size);
  CheckRecordWide(region.fields, FieldSet());
  regions_.push_back(region);
}

// What CheckRecordWide refuses is left out.
void LookUpChoices(std::vector<Field> *fields, const FieldSet &key) {
  for (Field &field : *fields) {
    const auto choice = std::ranges::find(*fields, field.chosenBy, &Field::name);
    if (const Field *selector = key.Find(field.selector)) {
      field.choice = selector->ref;
    } else if (choice != fields->end()) {
      field.choice = choice->ref;
    }
  }
}

FieldSet LayoutReader::ReadFields(const YamlNode *node, const std::string &where, uint32_t size,
                                  const FieldSet &key) {
  if (node == nullptr) return {};
  if (!node->IsMap())
    Fail(*node, where.empty() ? "fields" : where + "fields", "not a mapping (write NAME: OFFSET TYPE)");
  std::vector<Field> fields;  // the mapping's keys are unique
  BitMap bits(size);
  for (size_t i = 0; i < node->items.size(); i += 2) {
    const YamlNode &name = *node->items[i];
    CheckName(name, where + name.text.substr(0, kMaxLayoutName));
    if (name.text == "repeat" || name.text == "stale" || name.text == "record")
      Fail(name, where + name.text, "a word that scenarios keep (rename it)");
    Field field = ReadField(name.text, *node->items[i + 1], where);
    switch (bits.Take(field)) {
      case BitMap::Result::kOutside:
        Fail(name, where + name.text, "lies outside its " + std::to_string(size) + " bytes");
      case BitMap::Result::kTaken:
        Fail(name, where + name.text, "shares bits with a field before it");
      case BitMap::Result::kFree:
        fields.push_back(field);
    }
  }
  LookUpChoices(&fields, key);
  const FieldSet set = store_->Keep(std::move(fields));
  CheckMeanings(set);
  return set;
}

Field LayoutReader::ReadField(const std::string &name, const YamlNode &node, const std::string &where) {
  Field field = node.IsMap() ? ReadStructure(node, where + name) : ReadLine(node, where + name);
  field.name = store_->Keep(name);
  field.line = node.line;
  for (const std::string_view target : field.targets) {
    references_.push_back({tree_->file(), node.line, where_ + "." + where + name, target});
  }
  if (!field.leadsTo.empty())
    references_.push_back({tree_->file(), node.line, where_ + "." + where + name, field.leadsTo});
  return field;
}

Field LayoutReader::ReadLine(const YamlNode &node, const std::string &where) {
  Field field;
  std::string problem = "not a field (write OFFSET TYPE)";
  if (!node.IsScalar() || !ParseFieldLine(node.text, store_.get(), &field, &problem))
    Fail(node, where, problem);
  return field;
}

Field LayoutReader::ReadStructure(const YamlNode &node, const std::string &where) {
  const std::string outer = std::exchange(where_, where_ + "." + where);
  CheckProperties(node, {"at", "count", "stride", "variant", "pointer", "chosen_by", "about", "fields"});
  constexpr uint32_t kMost = 1u << 24;
  Field field;
  field.about = ReadAbout(node);
  field.ref.offset = ReadNumber(node, "at", 0, kMost);
  if (node.Get("count") != nullptr) {
    field.count = ReadNumber(node, "count", 1, kMost);
    field.stride = ReadNumber(node, "stride", 1, kMost);
  }
  field.elementSize = field.stride != 0 ? field.stride : std::numeric_limits<uint16_t>::max();
  if (uint64_t{field.count} * field.stride > kMost) Fail(node, "count", "an array that no record holds");
  field.fields = ReadFields(node.Get("fields"), "", field.elementSize);
  if (field.fields.empty()) Fail(node, "fields", "missing (a structure without fields)");
  if (node.Get("variant") != nullptr) ReadVariant(*node.Get("variant"), &field);
  if (node.Get("pointer") != nullptr) ReadPointer(node, &field);
  where_ = outer;
  return field;
}

// A record holds the address of a structure that is attached to it.
void LayoutReader::ReadPointer(const YamlNode &node, Field *field) {
  field->pointer = ReadNumber(node, "pointer", 1, std::numeric_limits<uint16_t>::max());
  if (field->count != 0 || !field->selector.empty()) {
    Fail(*node.Get("pointer"), "pointer", "not for arrays and variants");
  }
  if (field->pointer % 8 != 0 || field->ref.offset % 8 != 0) {
    Fail(*node.Get("pointer"), "pointer", "pointer and structure must stand at multiples of 8 bytes");
  }
  const YamlNode *choice = node.Get("chosen_by");
  if (choice == nullptr) return;
  const FieldValues chosen = ReadValues(*choice, "chosen_by", "FIELD VALUE");
  if (chosen.values.size() != 1) Fail(*choice, "chosen_by", "more than one value (write FIELD VALUE)");
  field->chosenBy = chosen.field;
  field->chosenValue = chosen.values.front();
}

void LayoutReader::ReadVariant(const YamlNode &node, Field *field) {
  FieldValues chosen = ReadValues(node, "variant", "KEYFIELD VALUE, with one value or several");
  field->selector = chosen.field;
  field->selectedBy = store_->Keep(std::move(chosen.values));
}

// FIELD VALUE [VALUE ...]
LayoutReader::FieldValues LayoutReader::ReadValues(const YamlNode &node, const char *property,
                                                   const char *form) {
  std::istringstream words(node.text);
  FieldValues read;
  std::string name;
  words >> name;
  bool good = false;  // there is one at least
  for (std::string word; words >> word;) {
    const std::optional<uint64_t> value = host::ReadNumber(word);
    good = value && *value <= std::numeric_limits<uint32_t>::max();
    if (!good) break;
    read.values.push_back(static_cast<uint32_t>(*value));
  }
  if (!good) Fail(node, property, "not a choice (write " + std::string(form) + ")");
  read.field = store_->Keep(std::move(name));
  return read;
}

// Entries of one owner begin with its key, and so can be walked together.
void LayoutReader::JoinToOwner(TableLayout *table) {
  const TableLayout *owner = FindTable(table->partOf);
  const auto fail = [&](const std::string &what) {
    throw HostError(std::string(table->place) + ": " + std::string(table->shortName) +
                    ".part_of: " + Quoted(table->partOf) + " " + what);
  };
  if (owner == nullptr || owner->spec.dataSize == 0 || owner->spec.lookup != Lookup::kUnique)
    fail("is not a table with one entry a key");
  if (owner->spec.keySize % 8 != 0 || owner->spec.keySize >= table->spec.keySize)
    fail("has a key that cannot begin this table's (8 bytes or a multiple, and shorter)");
  for (const Field &field : owner->key.all()) {
    const Field *own = table->key.Find(field.name);
    if (own == nullptr || own->ref.offset != field.ref.offset || own->ref.kind != field.ref.kind ||
        own->ref.size != field.ref.size) {
      fail("has the key field " + std::string(field.name) +
           ", which this table's key must have in the same place");
    }
  }
  table->spec.groupKeySize = static_cast<uint8_t>(owner->spec.keySize);
}

Layout LayoutReader::Finish() {
  std::vector<uint16_t> byName;
  for (uint32_t id = 0; id < kTableCount; ++id) {
    if (lines_[id] == 0)
      throw HostError("layouts: table " + std::to_string(id) + " is missing (give all 109 ids)");
    byName.push_back(static_cast<uint16_t>(id));
  }
  std::ranges::sort(byName, {}, [this](uint16_t id) { return tables_[id].shortName; });
  for (TableLayout &table : tables_) {
    if (!table.partOf.empty()) JoinToOwner(&table);
  }
  CheckReferences();
  CheckViewKeys();
  std::ranges::sort(views_, {}, &ViewLayout::id);
  LayoutStore &store = *store_;
  const auto tables = store.Keep(std::move(tables_));
  const auto regions = store.Keep(std::move(regions_));
  const auto views = store.Keep(std::move(views_));
  Layout layout(tables, regions, views, store.Keep(std::move(byName)), std::move(store_));
  CheckArenaHoldsAll(layout);
  return layout;
}

void LayoutReader::CheckReferences() const {
  for (const Reference &reference : references_) {
    const TableLayout *table = FindTable(reference.target);
    if (table == nullptr || table->spec.dataSize == 0 || table->spec.lookup == Lookup::kMany) {
      throw HostError(reference.file + ":" + std::to_string(reference.line) + ": " + reference.where + ": " +
                      Quoted(reference.target) + " is not a table with one entry a key");
    }
  }
}

// What options say of other fields is true: those stand beside it.
void LayoutReader::CheckMeanings(const FieldSet &fields) {
  YamlNode at;
  for (const Field &field : fields.all()) {
    at.line = field.line;
    for (const std::string_view other : field.agreesWith) {
      const Field *beside = fields.Find(other);
      if (beside == nullptr || !beside->fields.empty() ||
          (beside->count != 0 && beside->count != field.count))
        Fail(at, std::string(field.name),
             Quoted(other) + " is not a value beside it that could say where it leads");
    }
    if (field.counts.empty()) continue;
    const Field *counted = fields.Find(field.counts);
    if (counted == nullptr || counted->count == 0)
      Fail(at, std::string(field.name), Quoted(field.counts) + " is not an array beside it");
  }
}

// Whatever the arena does not hold has a place: the first table or region without which it would.
void LayoutReader::CheckArenaHoldsAll(const Layout &layout) {
  const auto refusal = [](const ArenaPlan &plan) -> std::string {
    try {
      const PlanLayout tried(plan);
    } catch (const HostError &error) {
      return error.what();
    }
    return "";
  };
  const ArenaPlan whole = layout.Plan("");
  if (refusal(whole).empty()) return;
  ArenaPlan part;
  part.tables.resize(kTableCount);
  for (uint32_t id = 0; id < kTableCount; ++id) part.tables[id].id = id;
  const auto check = [&](std::string_view place, std::string_view name) {
    const std::string why = refusal(part);
    if (!why.empty())
      throw HostError(std::string(place) + ": " + std::string(name) + ": " + why +
                      " (make it smaller, or leave it out)");
  };
  for (const TableLayout &table : layout.tables()) {
    part.tables[table.spec.id] = table.spec;
    check(table.place, table.shortName);
  }
  for (const RegionLayout &region : layout.regions()) {
    part.regions.push_back(region.spec);
    check(region.place, region.spec.name);
  }
}

}  // namespace qdt::host
