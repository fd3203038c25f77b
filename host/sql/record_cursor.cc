#include "host/sql/record_cursor.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

// Rows between two looks whether the engine still lives, which are system calls.
constexpr uint32_t kRowsBetweenLooks = 1024;

// Arenas that a thread walks before it hands them over: waking a thread takes as long as walking a small one.
constexpr size_t kScannedAtOnce = 4;

size_t Threads() { return std::max<size_t>(std::thread::hardware_concurrency(), 1); }

}  // namespace

RecordCursor::RecordCursor(const ArenaSet &arenas, const SqlTable &table,
                           std::shared_ptr<ColumnIndexes> indexes)
    : arenas_(arenas), table_(table), indexes_(std::move(indexes)) {}

RecordCursor::~RecordCursor() = default;

// Many arenas are walked ahead of whoever takes the rows; what leads to one row is not worth a thread.
bool RecordCursor::IsParallel() const { return plan_ == Plan::kWalk && isMany_; }

void RecordCursor::Begin(Plan plan, std::vector<uint8_t> key) {
  plan_ = plan;
  key_ = std::move(key);
  ready_.clear();
  ahead_.clear();
  nextArena_ = onlyArena_.value_or(0);
  // Of none at all the first is asked for as well, which says so.
  endArena_ = onlyArena_ ? nextArena_ + 1 : std::max<size_t>(arenas_.size(), 1);
  nextScan_ = nextArena_;
  isMany_ = endArena_ - nextArena_ > 1;
  inArena_ = false;
  element_ = elements_ = 0;
}

void RecordCursor::Nothing() { Begin(Plan::kNothing, {}); }
void RecordCursor::Walk(bool unread) {
  Begin(Plan::kWalk, {});
  unread_ = unread && table_.list() == nullptr;
}
void RecordCursor::Key(std::vector<uint8_t> bytes) { Begin(Plan::kKey, std::move(bytes)); }
void RecordCursor::Group(std::vector<uint8_t> bytes) { Begin(Plan::kGroup, std::move(bytes)); }
void RecordCursor::Match(std::vector<uint8_t> bytes) { Begin(Plan::kMatch, std::move(bytes)); }
void RecordCursor::Address(uint64_t address) {
  Begin(Plan::kAddress, {});
  wantedAddress_ = address;
}

void RecordCursor::Indexed(const IndexedColumns &columns, const std::function<uint64_t()> &hashOf,
                           uint64_t hash) {
  std::shared_ptr<const ColumnIndex> &index = taken_[columns];
  if (index == nullptr) index = indexes_->Find(columns, arenas_);
  if (index == nullptr) {
    if (indexes_->IsFirst(columns)) return Walk(false);
    index = indexes_->Keep(columns, arenas_, [&] { return MakeIndex(hashOf); });
  }
  Begin(Plan::kIndexed, {});
  index_ = index.get();
  wantedHash_ = hash;
  indexAt_ =
      static_cast<size_t>(std::ranges::lower_bound(*index_, hash, {}, &IndexedRow::hash) - index_->begin());
}

// Of all arenas, whichever is asked for now.
ColumnIndex RecordCursor::MakeIndex(const std::function<uint64_t()> &hashOf) {
  const std::optional<size_t> only = std::exchange(onlyArena_, std::nullopt);
  Walk(false);
  onlyArena_ = only;
  ColumnIndex index;
  while (Next()) index.push_back({hashOf(), static_cast<uint32_t>(arena_), element_, reader_->entry().place});
  std::ranges::stable_sort(index, {}, &IndexedRow::hash);
  return index;
}

void RecordCursor::UseArena(size_t i) {
  if (reader_ != nullptr && source_ != nullptr && arena_ == i && !IsParallel()) {
    if (++sinceCheck_ % kRowsBetweenLooks == 0) CheckAlive(*source_);
    // A walk shows what there is when it begins.
    if (plan_ != Plan::kWalk) return reader_->Rewind();
  }
  reader_.reset();
  arena_ = i;
  if (IsParallel()) {
    TakeScanned();
  } else {
    source_ = arenas_.View(i);
  }
  reader_ = std::make_unique<EntryReader>(*source_, table_.layout());
}

RecordCursor::Scanned RecordCursor::Scan(const Opener &open, const TableLayout &table, bool unread) {
  Scanned scanned;
  try {
    scanned.source = open();
    EntryReader reader(*scanned.source, table);
    // A damaged arena may say any number.
    if (!unread) scanned.places.reserve(std::min(reader.Count(), 1u << 20));
    tbm::Place place;
    for (; reader.NextPlace(&place); ++scanned.count) {
      if (!unread) scanned.places.push_back(place);
    }
  } catch (const std::exception &) {
    scanned.error = std::current_exception();
  }
  return scanned;
}

void RecordCursor::ScanAhead() {
  while (ahead_.size() < Threads() && nextScan_ < endArena_) {
    // The set itself may change meanwhile, on the statement's thread.
    std::vector<Opener> openers;
    while (openers.size() < kScannedAtOnce && nextScan_ < endArena_)
      openers.push_back(arenas_.Opener(nextScan_++));
    const auto scan = [openers = std::move(openers), &table = table_.layout(), unread = unread_] {
      std::deque<Scanned> all;
      for (const Opener &open : openers) all.push_back(Scan(open, table, unread));
      return all;
    };
    ahead_.push_back(std::async(std::launch::async, scan));
  }
}

// The next arena's places.
void RecordCursor::TakeScanned() {
  if (ready_.empty()) {
    ready_ = ahead_.front().get();
    ahead_.erase(ahead_.begin());
    ScanAhead();
  }
  scanned_ = std::move(ready_.front());
  ready_.pop_front();
  place_ = 0;
  if (scanned_.error != nullptr) std::rethrow_exception(scanned_.error);
  source_ = std::move(scanned_.source);
}

bool RecordCursor::NextArena() {
  if (nextArena_ >= endArena_) return false;
  if (IsParallel()) ScanAhead();
  UseArena(nextArena_);
  ++nextArena_;
  inArena_ = true;
  asked_ = false;
  return true;
}

bool RecordCursor::NextScanned() {
  while (place_ < scanned_.count) {
    const size_t i = place_++;
    unreadRef_ = static_cast<uint32_t>(place_);
    if (unread_ || reader_->Again(scanned_.places[i])) return true;
  }
  return false;
}

// The next entry of the current arena.
bool RecordCursor::NextOfArena() {
  if (plan_ == Plan::kWalk) {
    if (++sinceCheck_ % kRowsBetweenLooks == 0) CheckAlive(*source_);
    if (IsParallel()) return NextScanned();
    if (!unread_) return reader_->Next();
    tbm::Place place;
    const bool found = reader_->NextPlace(&place);
    unreadRef_ = place.ref;
    return found;
  }
  if (plan_ == Plan::kGroup) return reader_->NextOfGroup(key_.data());
  if (plan_ == Plan::kKey && table_.layout().spec.lookup == Lookup::kMany)
    return reader_->NextOfKey(key_.data());
  if (std::exchange(asked_, true)) return false;
  if (plan_ == Plan::kKey) return reader_->Find(key_.data());
  if (plan_ == Plan::kMatch) return reader_->Match(key_.data());
  return reader_->At(wantedAddress_);
}

bool RecordCursor::NextIndexed() {
  for (; indexAt_ < index_->size() && (*index_)[indexAt_].hash == wantedHash_; ++indexAt_) {
    const IndexedRow &row = (*index_)[indexAt_];
    if (onlyArena_ && row.arena != *onlyArena_) continue;
    if (arena_ != row.arena || reader_ == nullptr) UseArena(row.arena);
    if (!reader_->Again(row.place)) continue;
    if (table_.list() != nullptr) {
      if (!FirstElement() || row.element >= elements_) continue;
      SetElement(row.element);
    }
    ++indexAt_;
    return true;
  }
  return false;
}

bool RecordCursor::NextEntry() {
  for (;;) {
    if (!inArena_ && !NextArena()) return false;
    if (NextOfArena()) return true;
    inArena_ = false;
  }
}

void RecordCursor::SetElement(uint32_t element) {
  const RowColumn &list = *table_.list();
  const Field &field = *list.node->field;
  element_ = element;
  elementBase_ = list.base + element * field.stride + (list.node->IsStructure() ? field.ref.offset : 0);
}

// Whether the record has elements in the table's list.
bool RecordCursor::FirstElement() {
  const RowColumn &list = *table_.list();
  if (list.part != nullptr &&
      (!reader_->Has(*list.part) || (list.part->pointer != 0 && reader_->IsStrayed(*list.part)))) {
    elements_ = 0;
  } else {
    elements_ = ShownElements(*list.node->field, list.base, list.beside, reader_->entry().record);
  }
  SetElement(0);
  return elements_ != 0;
}

bool RecordCursor::Next() {
  if (plan_ == Plan::kNothing) return false;
  if (plan_ == Plan::kIndexed) return NextIndexed();
  if (table_.list() == nullptr) return NextEntry();
  if (element_ + 1 < elements_) {
    SetElement(element_ + 1);
    return true;
  }
  while (NextEntry()) {
    if (FirstElement()) return true;
  }
  return false;
}

int64_t RecordCursor::number() const {
  constexpr int kBitsOfSlot = 25;  // a table has at most 2^24 entries, counted from 1
  const bool isUnread = plan_ == Plan::kWalk && unread_;
  const uint32_t slot = isUnread ? unreadRef_ : reader_->entry().place.ref;
  const uint64_t entry = uint64_t{arena_} << kBitsOfSlot | slot;
  const uint32_t rows = table_.list() == nullptr ? 1 : std::max(table_.list()->node->field->count, 1u);
  return static_cast<int64_t>(entry * rows + element_);
}

uint64_t RecordCursor::address() const {
  return reader_->entry().address + table_.layout().spec.searchOffset;
}

}  // namespace qdt::host
