#include "host/tbm/table_view.h"

#include <sched.h>

#include <cstdlib>
#include <memory>

#include "host/tbm/route_key.h"
#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

CopyMark g_copyMark = nullptr;

// A search is repeated only when an entry left the very chain that it was walking.
constexpr int kSearchAttempts = 10000;
// A copy is repeated only when the writer has begun or finished another change of this very record.
constexpr int kCopyAttempts = 10000;

// Product of two words folded into one. Unlike sums of multiples, nobody who does not know the arena's key
// can choose words that fall together.
uint64_t Fold(uint64_t a, uint64_t b) {
  const auto product = static_cast<unsigned __int128>(a) * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint32_t KeyedHash(const uint64_t *words, uint32_t count, uint64_t size, const uint64_t (&key)[2]) {
  uint64_t state = key[1] ^ size;
  uint32_t i = 0;
  for (; i + 2 <= count; i += 2) state = Fold(words[i] ^ key[0], words[i + 1] ^ state);
  if (i < count) state = Fold(words[i] ^ key[0], state ^ key[1]);
  return static_cast<uint32_t>(Fold(state ^ key[0], key[1] | 1) >> 32);
}

// Room for a record between the engine's bytes and the place where it is delivered, so that what stood there
// goes on standing there when the copy fails. All but the records of layouts that somebody else has made
// stand on the stack.
class Desk {
 public:
  explicit Desk(size_t size) : heap_(size > sizeof(stack_) ? std::malloc(size) : nullptr, std::free) {
    bytes_ = size > sizeof(stack_) ? heap_.get() : stack_;
  }
  // Null when there is no memory.
  void *bytes() { return bytes_; }

 private:
  alignas(uint64_t) char stack_[16 << 10];
  std::unique_ptr<void, void (*)(void *)> heap_;
  void *bytes_;
};

}  // namespace

void SetCopyMark(CopyMark mark) { g_copyMark = mark; }

TableKey::TableKey(const void *bytes, size_t size, size_t hashed, const uint64_t (&hashKey)[2])
    : wordCount(static_cast<uint32_t>(RoundUpToWord(size) / kWord)) {
  const char *at = static_cast<const char *>(bytes);
  for (uint32_t i = 0; i < wordCount; ++i, at += kWord) words[i] = PartOfWord(at, size - i * kWord);
  hash = KeyedHash(words, static_cast<uint32_t>(RoundUpToWord(hashed) / kWord), hashed, hashKey);
}

int32_t TableView::Open(Arena *arena, uint32_t table, TableView *view) {
  ArenaHeader *header = arena->header();
  if (table >= header->tableCount) return kTbmBadParam;
  char *base = reinterpret_cast<char *>(header);
  view->id_ = table;
  view->base_ = base;
  view->arena_ = arena;
  view->header_ = header;
  view->shape_ = reinterpret_cast<TableShape *>(base + header->directoryOffset) + table;
  view->state_ = reinterpret_cast<TableState *>(base + header->stateOffset) + table;
  view->liveSlots_ = base + arena->LiveShift() + view->shape_->slabOffset;
  view->info_ = reinterpret_cast<InfoArea *>(base + header->infoOffset);
  view->descriptor_ = view->info_->tables + table;
  return view->shape_->dataSize == 0 ? kTbmNotSupported : kTbmOk;
}

int32_t TableView::OpenCurrent(uint32_t instance, uint32_t table, TableView *view) {
  Arena *arena = Arena::Current();
  if (arena == nullptr) return kTbmNotReady;
  if (instance != 0) return kTbmBadParam;
  return Open(arena, table, view);
}

uint32_t TableView::RefOfAddress(const void *address) const {
  const uint64_t offset =
      reinterpret_cast<uint64_t>(address) - reinterpret_cast<uint64_t>(Record(1)) - shape_->searchOffset;
  if (offset % shape_->slotSize != 0 || offset / shape_->slotSize >= shape_->capacity) return 0;
  const auto ref = static_cast<uint32_t>(offset / shape_->slotSize) + 1;
  return IsSlot(ref) && LiveSlot(ref)->serial.load(std::memory_order_relaxed) != 0 ? ref : 0;
}

bool TableView::HasKey(Head *head, const TableKey &key) const {
  if (head->hash.load(std::memory_order_acquire) != key.hash) return false;
  const uint64_t *words = Key(head);
  for (uint32_t i = 0; i < key.wordCount; ++i) {
    if (LoadWord(&words[i]) != key.words[i]) return false;
  }
  return true;
}

// False when the chain led astray.
bool TableView::Scan(const Bucket &bucket, const TableKey &key, Place *found) const {
  found->serial = 0;
  uint32_t ref = bucket.head.load(std::memory_order_acquire);
  for (uint32_t steps = shape_->capacity; ref != 0; --steps) {
    Head *head = At(ref);
    if (head == nullptr || steps == 0) return false;
    if (HasKey(head, key)) {
      found->serial = head->serial.load(std::memory_order_acquire);
      found->ref = ref;
      // It may be leaving right now: then the chain goes on behind it.
      if (found->serial != 0) return true;
    }
    ref = head->chainNext.load(std::memory_order_acquire);
  }
  return true;
}

int32_t TableView::Find(const TableKey &key, Place *found) const {
  if (!HasIndex()) return kTbmNotFound;
  const Bucket &bucket = BucketOf(key.hash);
  for (int attempt = 0; attempt < kSearchAttempts; ++attempt) {
    const uint32_t removals = bucket.removals.load(std::memory_order_acquire);
    const bool straight = Scan(bucket, key, found);
    if (bucket.removals.load(std::memory_order_relaxed) != removals) continue;
    if (!straight) return kTbmInternal;  // nothing moved: the chain itself is damaged
    return found->serial != 0 ? kTbmOk : kTbmNotFound;
  }
  return kTbmInternal;
}

int32_t TableView::Match(const void *key, Place *found) const {
  if (!HasIndex()) return kTbmNotFound;
  const RouteParts parts(key);
  Route route;
  switch (Routes().Match(parts.vpn, parts.address, &route)) {
    case RouteIndex::Found::kNone:
      return kTbmNotFound;
    case RouteIndex::Found::kLost:
      return kTbmInternal;
    case RouteIndex::Found::kRoute:
      break;
  }
  *found = {.serial = route.serial, .ref = route.slot};
  return IsSlot(route.slot) ? kTbmOk : kTbmInternal;
}

// Of a record that is being overwritten, as Copy. While the version is odd the spare holds what the record
// was before: a reader need not wait, and finds the record whole where the writer was killed.
TableView::Copied TableView::CopyMoving(const Place &place, void *record, uint32_t size) const {
  const Slot *slot = LiveSlot(place.ref);
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const uint32_t version = slot->version.load(std::memory_order_acquire);
    LoadWords(record, version % 2 == 0 ? LiveRecord(place.ref) : Spare(), size);
    if (slot->serial.load(std::memory_order_acquire) != place.serial) return Copied::kGone;
    if (slot->version.load(std::memory_order_relaxed) == version) {
      if (IsAskedToEnd(place)) EndIn(record);
      return Copied::kWhole;
    }
    // Lets the writer go on where it shares this processor.
    if (attempt % 16 == 15) sched_yield();
  }
  return Copied::kRestless;
}

void TableView::Mark(void *records, uint32_t count) const {
  if (g_copyMark != nullptr) g_copyMark(id_, records, shape_->recordSize, count);
}

TableView::Copied TableView::Deliver(const Place &place) const {
  const Arena::Role role = arena_->role();
  if (role == Arena::Role::kEngine) {  // which looks and changes in turns
    if (IsAskedToEnd(place)) EndForAll(place.ref);
    return Copied::kWhole;
  }
  if (role == Arena::Role::kSnapshot && RestsWhole(place)) {
    Mark(Record(place.ref), 1);
    return Copied::kWhole;
  }
  const uint32_t size = StoredSize();
  Desk desk(size);
  void *whole = desk.bytes();
  if (whole == nullptr) return Copied::kRestless;
  const Copied copied = Copy(place, whole, size);
  if (copied != Copied::kWhole) return copied;
  Mark(whole, 1);
  arena_->NoteCopies();
  // A store of the same bytes as well: from here on the page is this process's own.
  std::memcpy(Record(place.ref), whole, size);
  SlotAt(place.ref)->serial.store(place.serial, std::memory_order_relaxed);
  return Copied::kWhole;
}

void *TableView::Delivered(uint32_t ref) const {
  if (g_copyMark == nullptr || arena_->role() != Arena::Role::kEngine) return Address(ref);
  // The library reads it once this has returned.
  static thread_local std::unique_ptr<void, void (*)(void *)> marked(nullptr, std::free);
  const uint32_t size = shape_->recordSize;
  marked.reset(std::malloc(size));
  if (marked == nullptr) return Address(ref);
  std::memcpy(marked.get(), Record(ref), size);
  Mark(marked.get(), 1);
  if (std::memcmp(marked.get(), Record(ref), size) == 0) return Address(ref);
  return static_cast<char *>(marked.get()) + shape_->searchOffset;
}

// Nobody writes to a snapshot any more.
bool TableView::RestsWhole(const Place &place) const {
  return Lives(place) && SlotAt(place.ref)->version.load(std::memory_order_relaxed) % 2 == 0 &&
         !IsAskedToEnd(place);
}

// An aging time lies within one word, so that readers need no version.
void TableView::EndForAll(uint32_t ref) const {
  const uint32_t first = shape_->agingOffset / kWord;
  uint64_t *word = Record(ref) + first;
  uint64_t changed = LoadWord(word);
  arena_->NoteChange(word, sizeof(*word));
  std::memset(reinterpret_cast<char *>(&changed) + shape_->agingOffset % kWord, 0, shape_->agingSize);
  StoreWord(word, changed);
}

bool TableView::HasEnded(const void *record) const {
  const auto *aging = static_cast<const volatile char *>(record) + shape_->agingOffset;
  char any = 0;
  for (uint32_t i = 0; i < shape_->agingSize; ++i) any = static_cast<char>(any | aging[i]);
  return any == 0;
}

void TableView::EndIn(void *record) const {
  std::memset(static_cast<char *>(record) + shape_->agingOffset, 0, shape_->agingSize);
}

}  // namespace qdt::host::tbm
