#include "host/tbm/table_writer.h"

#include <syslog.h>

#include <algorithm>
#include <cstring>

#include "host/tbm/route_key.h"
#include "host/tbm/status.h"
#include "host/tbm/table_view.h"

namespace qdt::host {

using namespace tbm;  // the tables' bytes

namespace {

// How long a freed slot rests while other slots are left: an address that a record elsewhere still keeps
// should not soon mean another entry.
constexpr uint32_t kRestingSlots = 1024;

// The slab's storage grows by as much as it has, within these bounds.
constexpr uint64_t kMinGrowth = 16 << 10;
constexpr uint64_t kMaxGrowth = 256 << 10;

// Changes one table. Readers follow the links at the same time, so each change of a list is a single store,
// and the stores stand in the order in which readers check them.
class TableChange {
 public:
  TableChange(Arena *arena, const TableView &view)
      : arena_(arena), view_(view), shape_(view.shape()), state_(view.state()) {}

  int32_t Insert(const TableKey &key, const void *record, void **address);
  void Remove(Slot *slot);
  void Update(Slot *slot, const void *record);

 private:
  bool EnsureIndex();
  bool EnsureSlab(uint32_t slots);
  int32_t TakeSlot(uint32_t *ref);
  void FreeSlot(uint32_t ref);
  void AppendToOrder(uint32_t ref);
  void AppendToChain(uint32_t ref);
  void LeaveOrder(Slot *slot);
  void LeaveChain(Slot *slot);
  void Count(Slot *slot, int32_t change);
  void SetNode(uint32_t ref, void *record);
  uint32_t RefOf(const Slot *slot) const;

  Arena *arena_;
  const TableView &view_;
  const TableShape &shape_;
  TableState &state_;
};

uint32_t TableChange::RefOf(const Slot *slot) const {
  const auto *first = reinterpret_cast<const char *>(view_.SlotAt(1));
  return static_cast<uint32_t>((reinterpret_cast<const char *>(slot) - first) / shape_.slotSize) + 1;
}

bool TableChange::EnsureIndex() {
  if (view_.HasIndex()) return true;
  if (!arena_->Reserve(view_.Index(), IndexSize(shape_))) return false;
  state_.indexReady.store(1, std::memory_order_release);
  if (shape_.nodeCount != 0) {
    std::atomic_ref<void **>(view_.FlowPartition().nodes).store(view_.Nodes(), std::memory_order_release);
  }
  return true;
}

// Nodes are read in place, by whoever walks the flow partition.
void TableChange::SetNode(uint32_t ref, void *record) {
  if (shape_.nodeCount == 0) return;
  std::atomic_ref<void *>(view_.Nodes()[ref - 1]).store(record, std::memory_order_release);
}

bool TableChange::EnsureSlab(uint32_t slots) {
  const uint64_t have = state_.slabBytes.load(std::memory_order_relaxed);
  const uint64_t need = uint64_t{slots} * shape_.slotSize;
  if (need <= have) return true;
  const uint64_t whole = uint64_t{shape_.capacity} * shape_.slotSize;
  const uint64_t step = std::clamp(have, kMinGrowth, kMaxGrowth);
  const uint64_t grown = std::min(whole, (need + step - 1) / step * step);
  if (!arena_->Reserve(reinterpret_cast<char *>(view_.SlotAt(1)) + have, grown - have)) return false;
  state_.slabBytes.store(grown, std::memory_order_relaxed);
  return true;
}

// Freed slots are used again in the order in which they became free.
int32_t TableChange::TakeSlot(uint32_t *ref) {
  const uint32_t used = state_.usedSlots.load(std::memory_order_relaxed);
  if (used < shape_.capacity && state_.freeCount < kRestingSlots) {
    if (!EnsureSlab(used + 1)) return kTbmNoMemory;
    *ref = used + 1;
    state_.usedSlots.store(*ref, std::memory_order_release);
    return kTbmOk;
  }
  if (state_.freeCount == 0) return kTbmFull;
  *ref = state_.freeHead;
  state_.freeHead = view_.SlotAt(*ref)->orderNext.load(std::memory_order_relaxed);
  --state_.freeCount;
  return kTbmOk;
}

void TableChange::FreeSlot(uint32_t ref) {
  view_.SlotAt(ref)->orderNext.store(0, std::memory_order_relaxed);
  if (state_.freeCount == 0) {
    state_.freeHead = ref;
  } else {
    view_.SlotAt(state_.freeTail)->orderNext.store(ref, std::memory_order_relaxed);
  }
  state_.freeTail = ref;
  ++state_.freeCount;
}

void TableChange::AppendToOrder(uint32_t ref) {
  const uint32_t tail = state_.orderTail;
  view_.SlotAt(ref)->orderPrev = tail;
  (tail == 0 ? state_.orderHead : view_.SlotAt(tail)->orderNext).store(ref, std::memory_order_release);
  state_.orderTail = ref;
}

void TableChange::LeaveOrder(Slot *slot) {
  const uint32_t next = slot->orderNext.load(std::memory_order_relaxed);
  const uint32_t prev = slot->orderPrev;
  (prev == 0 ? state_.orderHead : view_.SlotAt(prev)->orderNext).store(next, std::memory_order_release);
  (next == 0 ? state_.orderTail : view_.SlotAt(next)->orderPrev) = prev;
}

void TableChange::AppendToChain(uint32_t ref) {
  Slot *slot = view_.SlotAt(ref);
  Bucket &bucket = view_.BucketOf(slot->hash.load(std::memory_order_relaxed));
  const uint32_t head = bucket.head.load(std::memory_order_relaxed);
  if (head == 0) {
    slot->chainPrev = ref;
    bucket.head.store(ref, std::memory_order_release);
    return;
  }
  const uint32_t tail = view_.SlotAt(head)->chainPrev;
  slot->chainPrev = tail;
  view_.SlotAt(tail)->chainNext.store(ref, std::memory_order_release);
  view_.SlotAt(head)->chainPrev = ref;
}

void TableChange::LeaveChain(Slot *slot) {
  Bucket &bucket = view_.BucketOf(slot->hash.load(std::memory_order_relaxed));
  const uint32_t head = bucket.head.load(std::memory_order_relaxed);
  const uint32_t next = slot->chainNext.load(std::memory_order_relaxed);
  const uint32_t prev = slot->chainPrev;
  const bool first = view_.SlotAt(head) == slot;
  (first ? bucket.head : view_.SlotAt(prev)->chainNext).store(next, std::memory_order_release);
  // The first entry names the last one; the last entry's successor is the first in this respect.
  const uint32_t follower = next != 0 ? next : first ? 0 : head;
  if (follower != 0) view_.SlotAt(follower)->chainPrev = prev;
  bucket.removals.store(bucket.removals.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void TableChange::Count(Slot *slot, int32_t change) {
  std::atomic_ref<uint32_t>(view_.descriptor().entryNum).fetch_add(change, std::memory_order_relaxed);
  if (PrefixAddressSize(shape_) == 0) return;
  uint16_t length;
  LoadWords(&length, TableView::Key(slot), sizeof(length));
  view_.PrefixCounts()[length].fetch_add(change, std::memory_order_release);
}

int32_t TableChange::Insert(const TableKey &key, const void *record, void **address) {
  if (view_.EntryNum() >= shape_.capacity) return kTbmFull;
  if (!EnsureIndex()) return kTbmNoMemory;
  uint32_t ref;
  const int32_t status = TakeSlot(&ref);
  if (status != kTbmOk) return status;

  Slot *slot = view_.SlotAt(ref);
  slot->orderNext.store(0, std::memory_order_relaxed);
  slot->chainNext.store(0, std::memory_order_relaxed);
  slot->hash.store(key.hash, std::memory_order_relaxed);
  StoreWords(TableView::Key(slot), key.words, key.wordCount * kWord);
  StoreWords(view_.Record(slot), record, shape_.recordSize + shape_.attachedSize);
  Count(slot, 1);

  const uint64_t serial = state_.lastSerial.load(std::memory_order_relaxed) + 1;
  slot->serial.store(serial, std::memory_order_release);
  AppendToOrder(ref);
  AppendToChain(ref);
  SetNode(ref, view_.Record(slot));
  // Last: a walk that begins now shows this entry; one that began before does not.
  state_.lastSerial.store(serial, std::memory_order_release);
  if (address != nullptr) *address = view_.Address(slot);
  return kTbmOk;
}

void TableChange::Remove(Slot *slot) {
  SetNode(RefOf(slot), nullptr);
  LeaveChain(slot);
  LeaveOrder(slot);
  slot->serial.store(0, std::memory_order_release);
  // Whoever sees anything of the slot's next entry sees that this one has gone.
  std::atomic_thread_fence(std::memory_order_release);
  Count(slot, -1);
  FreeSlot(RefOf(slot));
}

void TableChange::Update(Slot *slot, const void *record) {
  const uint32_t version = slot->version.load(std::memory_order_relaxed);
  slot->version.store(version + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  StoreWords(view_.Record(slot), record, shape_.recordSize + shape_.attachedSize);
  slot->version.store(version + 2, std::memory_order_release);
}

void SayFull(const TableView &view, uint32_t table) {
  if (view.state().fullSaid != 0) return;
  view.state().fullSaid = 1;
  syslog(LOG_ERR, "table %u (%s) is full: %u entries\n", table, view.name(), view.shape().capacity);
}

}  // namespace

int32_t TableWriter::Insert(uint32_t table, const void *key, const void *record, void **address) {
  TableView view;
  int32_t status = TableView::Open(arena_->header(), table, &view);
  if (status != kTbmOk) return status;
  TableChange change(arena_, view);
  const auto lookup = static_cast<Lookup>(view.shape().lookup);
  if (key == nullptr || record == nullptr || !IsGoodKey(lookup, key)) return kTbmBadParam;
  const TableKey tableKey = view.KeyOf(key);
  if (lookup != Lookup::kMany) {
    Slot *slot;
    if (view.Find(tableKey, &slot) == kTbmOk) return kTbmExists;
  }
  status = change.Insert(tableKey, record, address);
  if (status == kTbmFull) SayFull(view, table);
  return status;
}

int32_t TableWriter::Remove(uint32_t table, const void *key) {
  TableView view;
  int32_t status = TableView::Open(arena_->header(), table, &view);
  if (status != kTbmOk) return status;
  if (key == nullptr) return kTbmBadParam;
  Slot *slot;
  status = view.Find(view.KeyOf(key), &slot);
  if (status == kTbmOk) TableChange(arena_, view).Remove(slot);
  return status;
}

int32_t TableWriter::RemoveEntry(uint32_t table, void *address) {
  TableView view;
  const int32_t status = TableView::Open(arena_->header(), table, &view);
  if (status != kTbmOk) return status;
  TableChange change(arena_, view);
  Slot *slot = view.SlotOfAddress(address);
  if (slot == nullptr) return kTbmNotFound;
  change.Remove(slot);
  return kTbmOk;
}

int32_t TableWriter::Update(uint32_t table, void *address, const void *record) {
  TableView view;
  const int32_t status = TableView::Open(arena_->header(), table, &view);
  if (status != kTbmOk) return status;
  if (record == nullptr) return kTbmBadParam;
  TableChange change(arena_, view);
  Slot *slot = view.SlotOfAddress(address);
  if (slot == nullptr) return kTbmNotFound;
  change.Update(slot, record);
  return kTbmOk;
}

}  // namespace qdt::host
