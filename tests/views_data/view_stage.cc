#include "tests/views_data/view_stage.h"

#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/base/host_error.h"
#include "host/record/filter.h"
#include "host/record/list.h"
#include "host/scenario/scenario.h"
#include "qdt/cli.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

constexpr uint32_t kNoVariant = 0x8001;

std::string NewDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "views_data_XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw HostError("no directory for the test's arena");
  return name;
}

std::vector<uint8_t> KeyOf(const TableLayout &table, const std::vector<std::string> &words) {
  std::vector<Condition> conditions;
  conditions.reserve(words.size());
  for (const std::string &word : words) conditions.emplace_back(table, word);
  auto key = WholeKey(table, conditions);
  if (!key) throw HostError("the key of " + std::string(table.shortName) + " is not whole");
  return *key;
}

std::string JsonOfRecord(const RecordBytes &record, const RecordShape &shape) {
  StringOut out;
  JsonWriter json(out);
  WriteJson(&json, record, shape);
  return out.Take();
}

std::string EntryJson(const RecordSource &source, const EntryReader &reader) {
  return JsonOfRecord(RecordBytes(source, reader), RecordShape::Whole(reader.table()));
}

std::string RegionJson(const RecordSource &source, const RegionLayout &region) {
  return JsonOfRecord(RecordBytes(source, source.ReadRegion(region).data()), RecordShape::Whole(region));
}

// Of a text any bytes that stand on one line, often as many as there is room for.
void FillText(const FieldRef &ref, uint8_t *record, std::mt19937_64 *chance) {
  const size_t length = (*chance)() % 3 == 0 ? ref.size : (*chance)() % (ref.size + 1u);
  std::string text(length, '\0');
  for (char &c : text) {
    c = static_cast<char>('!' + (*chance)() % 94);
    if ((*chance)() % 8 == 0) c = static_cast<char>(0x80 + (*chance)() % 128);
  }
  ref.SetText(record, text);
}

// Goes to one of the table's entries; false when it has none.
bool TakeAny(EntryReader *reader, std::mt19937_64 *chance) {
  uint64_t skip = (*chance)() % std::max(reader->Count(), 1u);
  while (reader->Next()) {
    if (skip-- == 0) return true;
  }
  return false;
}

WideValue AnyValue(const FieldRef &ref, std::mt19937_64 *chance) {
  WideValue value = WideValue{(*chance)()} << 64 | (*chance)();
  if ((*chance)() % 4 == 0) return value % 4;  // many a number has a meaning
  // Addresses with zeros in them have a short form.
  if (ref.kind == FieldKind::kIpv6 || ref.kind == FieldKind::kIpv6Words) {
    if ((*chance)() % 2 == 0) value &= ~(WideValue{0xffffffff} << 48);
  }
  if (!IsTimeAgo(ref.kind)) return value;
  // A time that has been.
  timespec now = {};
  clock_gettime(ref.kind == FieldKind::kUptimeAgo ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
  return value % static_cast<WideValue>(now.tv_sec);
}

}  // namespace

ViewStage::ViewStage() : directory_(NewDirectory()) {
  const Layout &layout = Layout::BuiltIn();
  const std::string path = directory_ + "/arena";
  arena_ = Arena::Create(path, layout.Plan(directory_ + "/socket"));
  writer_ = std::make_unique<TableWriter>(arena_.get());
  Scenario::Load(QDT_SOURCE_DIR "/tests/views_data/stage.yaml", layout).Fill(arena_.get(), writer_.get());
  arena_->Publish();
  Arena::SetCurrent(arena_.get());
  source_ = RecordSource::OfEngine(path, layout);
}

ViewStage::~ViewStage() {
  Arena::SetCurrent(nullptr);
  source_.reset();
  arena_.reset();
  std::filesystem::remove_all(directory_);
}

Shown Shown::Of(const std::string &name) {
  const Layout &layout = Layout::BuiltIn();
  if (const TableLayout *table = layout.FindTable(name)) return Shown(*table);
  if (const RegionLayout *region = layout.FindRegion(name)) return Shown(*region);
  throw HostError("no table and no region " + name);
}

// Fields that the key has as well are here the record's own.
std::vector<Leaf> Shown::OwnLeaves() const {
  std::vector<Leaf> leaves = Leaves();
  for (Leaf &leaf : leaves) {
    const Field *twin = leaf.inKey ? table_->fields.Find(leaf.field->name) : nullptr;
    if (twin == nullptr) continue;
    leaf.ref = twin->ref;
    leaf.field = twin;
    leaf.inKey = false;
  }
  std::erase_if(leaves, [](const Leaf &leaf) { return leaf.inKey; });
  return leaves;
}

void ViewStage::Take(const Shown &shown, const std::vector<std::string> &key) {
  shown_ = shown;
  leaves_ = shown.OwnLeaves();
  if (shown.region() != nullptr) {
    uint32_t size = 0;
    address_ = arena_->FindRegion(shown.region()->spec.name, &size);
    if (address_ == nullptr || size != shown.region()->spec.size)
      throw HostError("no region " + shown.name());
    record_.assign(size, 0);
    return;
  }
  const TableLayout &table = *shown.table();
  key_ = KeyOf(table, key);
  record_.assign(table.spec.StoredSize(), 0);
  EntryReader reader(*source_, table);
  const bool isThere =
      table.spec.lookup == Lookup::kMany ? reader.NextOfKey(key_.data()) : reader.Find(key_.data());
  address_ = reinterpret_cast<void *>(isThere ? reader.entry().address + table.spec.searchOffset : 0);
  if (!isThere && writer_->Insert(table.spec.id, key_.data(), record_.data(), &address_) != 0)
    throw HostError("no room in the table " + shown.name());
}

void ViewStage::FillEntry(Fill fill, std::mt19937_64 *chance) {
  for (uint8_t &byte : record_) byte = static_cast<uint8_t>((*chance)());
  for (const Leaf &leaf : leaves_) FillLeaf(leaf, chance);
  // What references say besides comes after all else.
  for (const Leaf &leaf : leaves_) {
    if (leaf.ref.kind == FieldKind::kReference) FillReference(leaf, chance);
  }
  FillCounts(fill, shown_->fields(), 0, chance);
  FillSelectors(fill, chance);
  Attach(fill == Fill::kFields, chance);
  Update();
}

void ViewStage::FillLeaf(const Leaf &leaf, std::mt19937_64 *chance) {
  if (leaf.ref.kind == FieldKind::kText) return FillText(leaf.ref, record_.data(), chance);
  // A number that leads somewhere often does.
  if (!leaf.field->leadsTo.empty() && (*chance)() % 2 == 0) {
    const TableLayout &target = *source_->layout().FindTable(leaf.field->leadsTo);
    EntryReader reader(*source_, target);
    if (TakeAny(&reader, chance))
      return leaf.ref.Write(record_.data(), target.key.all().front().ref.Read(reader.entry().key));
  }
  leaf.ref.Write(record_.data(), AnyValue(leaf.ref, chance));
}

void ViewStage::Change(const Leaf &leaf, std::mt19937_64 *chance) {
  const std::vector<uint8_t> before = record_;
  while (record_ == before) {
    leaf.ref.kind == FieldKind::kReference ? FillReference(leaf, chance) : FillLeaf(leaf, chance);
  }
  Update();
}

// To an entry as the fields beside it say, to one as they do not, to none, or astray.
void ViewStage::FillReference(const Leaf &leaf, std::mt19937_64 *chance) {
  uint64_t address = 0;
  const uint64_t how = (*chance)() % 8;
  if (how == 0) address = (*chance)();
  if (how > 1) {
    const auto &targets = leaf.field->targets;
    const TableLayout &target = *source_->layout().FindTable(targets[(*chance)() % targets.size()]);
    EntryReader reader(*source_, target);
    if (TakeAny(&reader, chance)) {
      address = reader.entry().address + target.spec.searchOffset;
      if (how > 3) Agree(leaf, source_->Resolve(leaf.field->targets, address));
    }
  }
  leaf.ref.Set(record_.data(), address);
}

void ViewStage::Agree(const Leaf &leaf, const Reference &to) {
  const size_t name = leaf.path.rfind('.') + 1;  // 0 when there is no point
  const std::string index = leaf.path.substr(std::min(leaf.path.find('[', name), leaf.path.size()));
  const Field *key = to.table->key.all().data();
  for (const std::string_view beside : leaf.field->agreesWith) {
    const std::string path = leaf.path.substr(0, name) + std::string(beside) + index;
    const auto at = std::ranges::find(leaves_, path, &Leaf::path);
    if (at == leaves_.end()) throw HostError("no field " + path);
    at->ref.Write(record_.data(), key++->ref.Read(to.key));
  }
}

void ViewStage::FillCounts(Fill fill, const FieldSet &fields, uint32_t base, std::mt19937_64 *chance) {
  for (const Field &field : fields.all()) {
    if (field.count == 0) FillCounts(fill, field.fields, base + field.ref.offset, chance);
    if (field.counts.empty()) continue;
    const uint32_t room = fields.Find(field.counts)->count;
    if (fill == Fill::kBytes && (*chance)() % 4 == 0) continue;  // whatever it is
    field.ref.At(base).Set(record_.data(), fill == Fill::kFields ? room : (*chance)() % (room + 1));
  }
}

// What the key says of the record's variant the record mostly says as well; else it has none.
void ViewStage::FillSelectors(Fill fill, std::mt19937_64 *chance) {
  for (const Field &field : shown_->fields().all()) {
    const Field *twin = field.selector.empty() ? nullptr : shown_->fields().Find(field.selector);
    if (twin == nullptr) continue;
    WideValue value = shown_->table()->key.Find(field.selector)->ref.Read(key_.data());
    // Of a record that contradicts its key by naming another variant, views show that one and data the key's.
    if (fill == Fill::kBytes && (*chance)() % 4 == 0) value = kNoVariant;
    twin->ref.Write(record_.data(), value);
  }
}

void ViewStage::Attach(bool always, std::mt19937_64 *chance) {
  for (const Field &field : shown_->fields().all()) {
    if (field.pointer == 0) continue;
    uint64_t pointer =
        reinterpret_cast<uint64_t>(address_) - shown_->table()->spec.searchOffset + field.ref.offset;
    if (!always && (*chance)() % 4 == 0) pointer = 0;
    std::memcpy(record_.data() + field.pointer, &pointer, sizeof(pointer));
  }
}

void ViewStage::SetRecord(std::vector<uint8_t> record) {
  record_ = std::move(record);
  Update();
}

void ViewStage::Update() {
  if (shown_->region() != nullptr) {
    std::memcpy(address_, record_.data(), record_.size());
    return;
  }
  if (writer_->Update(shown_->table()->spec.id, address_, record_.data()) != 0)
    throw HostError("the entry has gone");
}

std::string ViewStage::Text(uint32_t view, const std::vector<std::string> &query) const {
  std::string room(QDT_OUTPUT_CAPACITY, '\0');
  uint32_t keys[3] = {};
  for (size_t i = 1; i < query.size(); ++i)
    keys[i - 1] = static_cast<uint32_t>(std::strtoul(query[i].c_str(), nullptr, 0));
  CliNqeTblSearch(room.data(), QDT_OUTPUT_CAPACITY, view, query[0].c_str(), keys[0], keys[1], keys[2]);
  return room.c_str();
}

std::string ViewStage::Json(const Shown &shown) const {
  if (shown.region() != nullptr) return RegionJson(*source_, *shown.region());
  EntryReader reader(*source_, *shown.table());
  if (!reader.At(reinterpret_cast<uint64_t>(address_))) throw HostError("the entry has gone");
  return EntryJson(*source_, reader);
}

std::optional<std::string> ViewStage::JsonOf(const std::string &name,
                                             const std::vector<std::string> &key) const {
  const Shown shown = Shown::Of(name);
  if (shown.region() != nullptr) return RegionJson(*source_, *shown.region());
  EntryReader reader(*source_, *shown.table());
  if (key.empty() ? !reader.Next() : !reader.Find(KeyOf(*shown.table(), key).data())) return std::nullopt;
  return EntryJson(*source_, reader);
}

}  // namespace qdt::host
