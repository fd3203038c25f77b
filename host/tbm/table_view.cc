#include "host/tbm/table_view.h"

#include <sched.h>

#include "host/base/mix.h"
#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

// A search is repeated only when an entry left the very chain that it was walking.
constexpr int kSearchAttempts = 1000;
// An Update takes well under a microsecond unless its engine was suspended or killed in the middle of it.
constexpr int kCopyAttempts = 2000;

}  // namespace

TableKey::TableKey(const void *bytes, size_t size, size_t hashed) : wordCount(RoundUpToWord(size) / kWord) {
  if (wordCount != 0) words[wordCount - 1] = 0;
  std::memcpy(words, bytes, size);
  uint64_t state = kMixSeed;
  for (uint32_t i = 0; i < RoundUpToWord(hashed) / kWord; ++i) state = MixWord(state, words[i]);
  hash = static_cast<uint32_t>(MixWord(state, hashed));
}

int32_t TableView::Open(ArenaHeader *header, uint32_t table, TableView *view) {
  if (table >= header->tableCount) return kTbmBadParam;
  char *base = reinterpret_cast<char *>(header);
  view->base_ = base;
  view->shape_ = reinterpret_cast<TableShape *>(base + header->directoryOffset) + table;
  view->state_ = reinterpret_cast<TableState *>(base + header->stateOffset) + table;
  view->info_ = reinterpret_cast<InfoArea *>(base + header->infoOffset);
  view->descriptor_ = view->info_->tables + table;
  return view->shape_->dataSize == 0 ? kTbmNotSupported : kTbmOk;
}

int32_t TableView::OpenCurrent(uint32_t instance, uint32_t table, TableView *view) {
  const Arena *arena = Arena::Current();
  if (arena == nullptr) return kTbmNotReady;
  if (instance != 0) return kTbmBadParam;
  return Open(arena->header(), table, view);
}

Slot *TableView::SlotOfAddress(const void *address) const {
  const uint64_t offset = reinterpret_cast<uint64_t>(address) - reinterpret_cast<uint64_t>(SlotAt(1)) -
                          shape_->recordOffset - shape_->searchOffset;
  if (offset % shape_->slotSize != 0 || offset / shape_->slotSize >= shape_->capacity) return nullptr;
  Slot *slot = At(static_cast<uint32_t>(offset / shape_->slotSize) + 1);
  return slot != nullptr && slot->serial.load(std::memory_order_relaxed) != 0 ? slot : nullptr;
}

bool TableView::Lives(const Place &place) const {
  Slot *slot = At(place.ref);
  return slot != nullptr && slot->serial.load(std::memory_order_acquire) == place.serial;
}

bool TableView::HasKey(Slot *slot, const TableKey &key) const {
  if (slot->hash.load(std::memory_order_relaxed) != key.hash) return false;
  uint64_t *words = Key(slot);
  for (uint32_t i = 0; i < key.wordCount; ++i) {
    if (LoadWord(&words[i]) != key.words[i]) return false;
  }
  return true;
}

// False when the chain led astray.
bool TableView::Scan(const Bucket &bucket, const TableKey &key, Slot **found) const {
  *found = nullptr;
  uint32_t ref = bucket.head.load(std::memory_order_acquire);
  for (uint32_t steps = shape_->capacity; ref != 0; --steps) {
    Slot *slot = At(ref);
    if (slot == nullptr || steps == 0) return false;
    if (HasKey(slot, key)) {
      *found = slot;
      return true;
    }
    ref = slot->chainNext.load(std::memory_order_acquire);
  }
  return true;
}

int32_t TableView::Find(const TableKey &key, Slot **found) const {
  *found = nullptr;
  if (!HasIndex()) return kTbmNotFound;
  const Bucket &bucket = BucketOf(key.hash);
  for (int attempt = 0; attempt < kSearchAttempts; ++attempt) {
    const uint32_t removals = bucket.removals.load(std::memory_order_acquire);
    const bool straight = Scan(bucket, key, found);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (bucket.removals.load(std::memory_order_relaxed) != removals) continue;
    if (!straight) return kTbmInternal;  // nothing moved: the chain itself is damaged
    return *found != nullptr ? kTbmOk : kTbmNotFound;
  }
  return kTbmInternal;
}

TableView::Copied TableView::Copy(const Place &place, void *record) const {
  Slot *slot = At(place.ref);
  if (slot == nullptr) return Copied::kGone;
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const uint32_t version = slot->version.load(std::memory_order_acquire);
    if (version % 2 == 0) {
      LoadWords(record, Record(slot), shape_->recordSize);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (slot->serial.load(std::memory_order_relaxed) != place.serial) return Copied::kGone;
      if (slot->version.load(std::memory_order_relaxed) == version) return Copied::kWhole;
    } else if (slot->serial.load(std::memory_order_relaxed) != place.serial) {
      return Copied::kGone;
    }
    // Lets the writer go on where it shares this processor.
    if (attempt % 16 == 15) sched_yield();
  }
  return Copied::kTorn;
}

}  // namespace qdt::host::tbm
