#include "host/record/record_source.h"

#include <time.h>

#include <algorithm>
#include <cstring>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/tbm/status.h"

namespace qdt::host {
namespace {

constexpr uint64_t kNanoseconds = 1000000000;  // of a second

uint64_t SecondsOf(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec);
}

// A search or a copy that meets an entry which leaves is begun anew so often; the writer must win a race each
// time.
constexpr int kAttempts = 1000;

const tbm::TableView &ViewOf(const RecordSource &source, const TableLayout &table) {
  if (const tbm::TableView *view = source.View(table); view != nullptr) return *view;
  throw HostError("this engine has no table " + std::string(table.shortName) +
                  " (\"nqecli usage\" lists those it has)");
}

}  // namespace

RecordSource::RecordSource(std::unique_ptr<Arena> arena, const Layout &layout, bool live)
    : arena_(std::move(arena)),
      layout_(layout),
      live_(live),
      uptime_(SecondsOf(CLOCK_MONOTONIC)),
      now_(SecondsOf(CLOCK_REALTIME)),
      timer_(TimerMilliseconds()) {
  // What an engine has left behind does not say when that was.
  const ArenaHeader &header = *arena_->header();
  if (live || header.savedTime == 0) return;
  uptime_ = header.savedUptime;
  now_ = header.savedTime / kNanoseconds;
  timer_ = header.savedTimer;
}

void RecordSource::LookNow() {
  if (!live_) return;
  uptime_ = SecondsOf(CLOCK_MONOTONIC);
  now_ = SecondsOf(CLOCK_REALTIME);
  timer_ = TimerMilliseconds();
}

std::unique_ptr<RecordSource> RecordSource::OfEngine(const std::string &arena, const Layout &layout) {
  return std::unique_ptr<RecordSource>(
      new RecordSource(Arena::Look(arena, Arena::Access::kLive), layout, true));
}

std::unique_ptr<RecordSource> RecordSource::OfSnapshot(const std::string &file, const Layout &layout) {
  return std::unique_ptr<RecordSource>(
      new RecordSource(Arena::Look(file, Arena::Access::kSnapshot), layout, false));
}

const tbm::TableView *RecordSource::View(const TableLayout &table) const {
  const uint32_t id = table.spec.id;
  if (opened_[id] == Opened::kNotYet) {
    const bool defined = tbm::TableView::Open(arena_.get(), id, &views_[id]) == tbm::kTbmOk;
    opened_[id] = defined ? Opened::kYes : Opened::kMissing;
    if (defined && !table.fields.empty()) {
      const tbm::TableShape &shape = views_[id].shape();
      if (shape.keySize != table.spec.keySize || shape.recordSize != table.spec.recordSize ||
          shape.attachedSize != table.spec.attachedSize || shape.searchOffset != table.spec.searchOffset) {
        opened_[id] = Opened::kNotYet;
        throw HostError("the table " + std::string(table.shortName) + " of " + arena_->path() +
                        " was made with another layout (its engine has nqed --layout; ask with show)");
      }
    }
  }
  return opened_[id] == Opened::kYes ? &views_[id] : nullptr;
}

std::vector<uint8_t> RecordSource::ReadRegion(const RegionLayout &region) const {
  uint32_t size = 0;
  const auto *bytes = static_cast<const uint8_t *>(arena_->FindRegion(region.spec.name, &size));
  if (bytes == nullptr || size != region.spec.size) return {};
  return {bytes, bytes + size};
}

bool RecordSource::ResolveIn(const TableLayout &table, Reference *reference) const {
  const tbm::TableView *view = View(table);
  if (view == nullptr) return false;
  const tbm::TableShape &shape = view->shape();
  const uint64_t offset = reference->address - EngineAddress(view->Record(1)) - shape.searchOffset;
  const uint64_t number = offset / shape.slotSize;
  if (offset % shape.slotSize != 0 || number >= shape.capacity) return false;
  reference->table = &table;
  reference->kind = Reference::Kind::kStale;
  const auto ref = static_cast<uint32_t>(number + 1);
  if (!view->IsSlot(ref)) return true;
  tbm::Head *head = view->HeadAt(ref);
  const uint64_t serial = head->serial.load(std::memory_order_acquire);
  if (serial == 0) return true;
  tbm::LoadWords(reference->key, tbm::TableView::Key(head), shape.keySize);
  // Of an entry that leaves meanwhile the key may be another's.
  if (head->serial.load(std::memory_order_relaxed) == serial) reference->kind = Reference::Kind::kEntry;
  return true;
}

std::span<const TableLayout *const> RecordSource::TablesOf(std::span<const std::string_view> targets) const {
  for (const Targets &known : targets_) {
    if (known.names.data() == targets.data() && known.names.size() == targets.size()) return known.tables;
  }
  Targets &found = targets_.emplace_back(Targets{targets, {}});
  for (const std::string_view target : targets) {
    if (const TableLayout *table = layout_.FindTable(target); table != nullptr) found.tables.push_back(table);
  }
  return found.tables;
}

Reference RecordSource::Resolve(std::span<const std::string_view> targets, uint64_t address) const {
  return Resolve(TablesOf(targets), address);
}

Reference RecordSource::Resolve(std::span<const TableLayout *const> targets, uint64_t address) const {
  Reference reference;
  reference.address = address;
  if (address == 0) return reference;
  reference.kind = Reference::Kind::kWild;
  for (const TableLayout *table : targets) {
    if (ResolveIn(*table, &reference)) break;
  }
  return reference;
}

WideValue RecordSource::SecondsAgo(const FieldRef &field, WideValue stored) const {
  const uint64_t now = field.kind == FieldKind::kUptimeAgo ? uptime_ : now_;
  return stored < now ? now - stored : 0;
}

EntryReader::EntryReader(const RecordSource &source, const TableLayout &table)
    : source_(source), table_(table), view_(&ViewOf(source, table)), run_(*view_) {
  const size_t keyWords = tbm::RoundUpToWord(view_->shape().keySize) / tbm::kWord;
  words_.resize(keyWords + tbm::RoundUpToWord(view_->StoredSize()) / tbm::kWord);
  entry_.key = reinterpret_cast<const uint8_t *>(words_.data());
  entry_.record = reinterpret_cast<const uint8_t *>(words_.data() + keyWords);
  endSerial_ = view_->state().lastSerial.load(std::memory_order_acquire);
}

uint32_t EntryReader::Count() const { return view_->EntryNum(); }

void EntryReader::FailRestless() const {
  throw HostError("the table " + std::string(table_.shortName) + " of " + source_.arena().path() +
                  (source_.IsLive() ? " changes faster than it can be read (try again, or read a snapshot)"
                                    : " is damaged (its order leads astray)"));
}

// False when the entry has gone meanwhile.
bool EntryReader::Take(const tbm::Place &place) {
  const tbm::TableView::Copied copied =
      view_->Copy(place, const_cast<uint8_t *>(entry_.record), view_->StoredSize());
  if (copied == tbm::TableView::Copied::kRestless) FailRestless();
  if (copied == tbm::TableView::Copied::kGone) return false;
  tbm::LoadWords(const_cast<uint8_t *>(entry_.key), tbm::TableView::Key(view_->HeadAt(place.ref)),
                 view_->shape().keySize);
  // The key was the entry's own if it is still there.
  if (!view_->Lives(place)) return false;
  entry_.place = place;
  entry_.address = source_.EngineAddress(view_->Record(place.ref));
  return true;
}

template <typename Order>
bool EntryReader::NextIn(Order *order) {
  uint64_t gone = 0;
  for (;;) {
    const tbm::Place before = place_;
    const tbm::Step step = order->Next(&place_);
    if (step == tbm::Step::kLost) FailRestless();
    if (step == tbm::Step::kEnd) return false;
    if (place_.serial <= endSerial_) {
      if (Take(place_)) return true;
      if (!tbm::IsNewlyGone(place_, &gone)) FailRestless();
    }
    const bool isBehind = place_.serial > endSerial_;
    place_ = before;
    if (isBehind) return false;
  }
}

// Nothing changes a saved arena any more, so that its order leads to as many entries as the table counts, but
// for one that its engine was putting in or taking out when it died.
void EntryReader::CheckWalked() const {
  const uint64_t count = view_->EntryNum();
  if (!isPart_ && !source_.IsLive() && (walked_ > count + 1 || walked_ + 1 < count)) FailRestless();
}

bool EntryReader::Next() {
  if (NextIn(&run_)) {
    ++walked_;
    return true;
  }
  CheckWalked();
  return false;
}

bool EntryReader::NextPlace(tbm::Place *place) {
  const tbm::Step step = tbm::TableOrder(*view_).Next(&place_);
  if (step == tbm::Step::kLost) FailRestless();
  *place = place_;
  if (step == tbm::Step::kEntry && place_.serial <= endSerial_) {
    ++walked_;
    return true;
  }
  CheckWalked();
  return false;
}

bool EntryReader::NextOfKey(const uint8_t *key) {
  const tbm::TableKey wanted = view_->KeyOf(key);
  tbm::ChainOrder order(*view_, wanted);
  return NextIn(&order);
}

// All entries of a group stand in one chain, among others.
bool EntryReader::NextOfGroup(const uint8_t *key) {
  const tbm::TableKey group = view_->GroupKeyOf(key);
  tbm::ChainOrder order(*view_, group.hash & (view_->shape().bucketCount - 1));
  while (NextIn(&order)) {
    if (std::memcmp(entry_.key, key, view_->shape().groupKeySize) == 0) return true;
  }
  return false;
}

// The entry that `search` finds; it is asked again when the entry leaves before it is read.
template <typename Search>
bool EntryReader::TakeFound(const Search &search) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    tbm::Place found;
    const int32_t status = search(&found);
    if (status == tbm::kTbmNotFound) return false;
    if (status != tbm::kTbmOk) FailRestless();
    if (Take(found)) return true;
  }
  FailRestless();
}

bool EntryReader::Find(const uint8_t *key) {
  const tbm::TableKey wanted = view_->KeyOf(key);
  return TakeFound([&](tbm::Place *found) { return view_->Find(wanted, found); });
}

bool EntryReader::Match(const uint8_t *key) {
  return TakeFound([&](tbm::Place *found) { return view_->Match(key, found); });
}

bool EntryReader::FindNear(const uint8_t *key, uint32_t guess) {
  if (tbm::Head *head = view_->At(guess); head != nullptr) {
    const uint64_t serial = head->serial.load(std::memory_order_acquire);
    uint64_t words[tbm::kMaxKeySize / tbm::kWord];
    const uint32_t size = view_->shape().keySize;
    tbm::LoadWords(words, tbm::TableView::Key(head), size);
    if (serial != 0 && std::memcmp(words, key, size) == 0 && Take({serial, guess, 0, 0}) &&
        std::memcmp(entry_.key, key, size) == 0) {
      return true;
    }
  }
  return Find(key);
}

bool EntryReader::At(uint64_t address) {
  const uint32_t ref = view_->RefOfAddress(source_.Here(address));
  if (ref == 0) return false;
  const uint64_t serial = view_->LiveSlot(ref)->serial.load(std::memory_order_acquire);
  return serial != 0 && Take({serial, ref, 0, 0});
}

bool EntryReader::Again(const tbm::Place &place) { return view_->Lives(place) && Take(place); }

uint64_t EntryReader::PointerTo(const Field &field) const {
  uint64_t pointer = 0;
  std::memcpy(&pointer, entry_.record + field.pointer, sizeof(pointer));
  return pointer;
}

bool EntryReader::IsStrayed(const Field &field) const {
  const uint64_t pointer = PointerTo(field);
  return pointer != 0 && pointer != entry_.address + field.ref.offset;
}

bool EntryReader::Has(const Field &field) const {
  if (!field.selector.empty())
    return std::ranges::find(field.selectedBy, field.choice.Get(entry_.key)) != field.selectedBy.end();
  if (field.pointer == 0) return true;
  return PointerTo(field) != 0 &&
         (field.chosenBy.empty() || field.choice.Get(entry_.record) == field.chosenValue);
}

}  // namespace qdt::host
