#include "host/tbm/table_change.h"

#include <algorithm>
#include <cstring>

#include "host/tbm/route_key.h"
#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

// How long a freed slot rests while other slots are left: an address that a record elsewhere still keeps
// should not soon mean another entry.
constexpr uint32_t kRestingSlots = 1024;

// Storage grows by as much as there is, within these bounds.
constexpr uint64_t kMinSlabGrowth = 16 << 10;
constexpr uint64_t kMinGrowth = 4 << 10;
constexpr uint64_t kMaxGrowth = 1 << 20;
// What readers of a table follow, when it is no more than this, gets its storage at once.
constexpr uint64_t kSmall = 64 << 10;

}  // namespace

bool TableChange::Reserve(uint64_t offset, uint64_t size) {
  char *base = reinterpret_cast<char *>(view_.arena()->header());
  if (!view_.arena()->Reserve(base + offset, size)) return false;
  state_.bytes.store(state_.bytes.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
  return true;
}

// In as few pieces as may be: each is a system call, and an engine that starts makes these for every table.
bool TableChange::ReserveIndex() {
  const uint64_t log = uint64_t{shape_.logRoom} * sizeof(LogEntry);
  const uint64_t heads = uint64_t{shape_.headSize} * shape_.capacity;
  const uint64_t whole = shape_.logOffset + 2 * log - shape_.indexOffset;
  const bool small = whole <= kSmall;
  const uint64_t firstHeads = small ? heads : std::min(heads, kMinGrowth);
  const uint64_t bytes = small ? whole : shape_.headsOffset + firstHeads - shape_.indexOffset;
  if (!Reserve(shape_.indexOffset, bytes)) return false;
  state_.headBytes = firstHeads;
  if (small) state_.logBytes[0] = state_.logBytes[1] = log;
  if (shape_.agingSize != 0 && !Reserve(shape_.requestOffset, shape_.capacity * sizeof(uint64_t)))
    return false;
  return RoutesSize(shape_) == 0 || Reserve(shape_.routesOffset, kRouteHeadBytes);
}

bool TableChange::EnsureIndex() {
  if (view_.HasIndex()) return true;
  const uint64_t bytes = state_.bytes.load(std::memory_order_relaxed);
  if (!ReserveIndex()) {
    // It is tried again from the beginning.
    state_.bytes.store(bytes, std::memory_order_relaxed);
    return false;
  }
  state_.indexReady.store(1, std::memory_order_release);
  if (shape_.nodeCount != 0) {
    std::atomic_ref<void **>(view_.FlowPartition().nodes).store(view_.Nodes(), std::memory_order_release);
  }
  return true;
}

// Has the part at `offset`, of `whole` bytes at most and `*have` so far, grow to `need`.
bool TableChange::Grow(uint64_t offset, uint64_t *have, uint64_t need, uint64_t whole, uint64_t least) {
  if (need <= *have) return true;
  const uint64_t step = std::clamp(*have, least, kMaxGrowth);
  const uint64_t grown = std::min(whole, (need + step - 1) / step * step);
  if (!Reserve(offset + *have, grown - *have)) return false;
  *have = grown;
  return true;
}

bool TableChange::EnsureSlot(uint32_t ref) {
  const uint64_t heads = uint64_t{shape_.headSize} * shape_.capacity;
  const uint64_t slots = uint64_t{shape_.slotSize} * shape_.capacity;
  return Grow(shape_.headsOffset, &state_.headBytes, uint64_t{shape_.headSize} * ref, heads, kMinGrowth) &&
         Grow(shape_.slabOffset, &state_.slabBytes, uint64_t{shape_.slotSize} * ref, slots, kMinSlabGrowth);
}

bool TableChange::EnsureLog(uint32_t which, uint32_t count) {
  const uint64_t whole = uint64_t{shape_.logRoom} * sizeof(LogEntry);
  return count <= shape_.logRoom && Grow(shape_.logOffset + which * whole, &state_.logBytes[which],
                                         count * sizeof(LogEntry), whole, kMinGrowth);
}

// Nodes are read in place, by whoever walks the flow partition.
void TableChange::SetNode(uint32_t ref, void *record) {
  if (shape_.nodeCount == 0) return;
  Note(&view_.Nodes()[ref - 1], sizeof(void *));
  std::atomic_ref<void *>(view_.Nodes()[ref - 1]).store(record, std::memory_order_release);
}

// Freed slots are used again in the order in which they became free.
int32_t TableChange::TakeSlot(uint32_t *ref) {
  const uint32_t used = state_.usedSlots.load(std::memory_order_relaxed);
  if (used < shape_.capacity && state_.freeCount < kRestingSlots) {
    if (!EnsureSlot(used + 1)) return kTbmNoMemory;
    *ref = used + 1;
    state_.usedSlots.store(*ref, std::memory_order_release);
    return kTbmOk;
  }
  if (state_.freeCount == 0) return kTbmFull;
  *ref = state_.freeHead;
  state_.freeHead = view_.HeadAt(*ref)->chainPrev;
  --state_.freeCount;
  return kTbmOk;
}

void TableChange::FreeSlot(uint32_t ref) {
  if (state_.freeCount == 0) {
    state_.freeHead = ref;
  } else {
    NoteHead(state_.freeTail);
    view_.HeadAt(state_.freeTail)->chainPrev = ref;
  }
  state_.freeTail = ref;
  ++state_.freeCount;
}

void TableChange::AppendToLog(uint32_t ref, uint64_t serial) {
  const uint32_t epoch = state_.logEpoch.load(std::memory_order_relaxed);
  std::atomic<uint32_t> &count = state_.logCount[epoch % 2];
  const uint32_t index = count.load(std::memory_order_relaxed);
  LogEntry &entry = view_.Log(epoch)[index];
  Note(&entry, sizeof(entry));
  entry.serial.store(serial, std::memory_order_release);
  entry.ref.store(ref, std::memory_order_release);
  count.store(index + 1, std::memory_order_release);
}

// Entries that have left make room when they outnumber those that live.
bool TableChange::BeginTidying() {
  const uint32_t epoch = state_.logEpoch.load(std::memory_order_relaxed);
  const uint32_t count = state_.logCount[epoch % 2].load(std::memory_order_relaxed);
  if (count / 2 < view_.EntryNum() + kTidySlack / 2) return false;
  state_.tidying = 1;
  state_.tidyFrom = state_.tidyTo = 0;
  return true;
}

// Carries a few entries of the log in force over to the other one, and puts that in force when it has all.
// Where storage is short the log stays as it is.
void TableChange::Tidy() {
  if (state_.tidying == 0 && !BeginTidying()) return;
  const uint32_t epoch = state_.logEpoch.load(std::memory_order_relaxed);
  const uint32_t count = state_.logCount[epoch % 2].load(std::memory_order_relaxed);
  const uint32_t other = (epoch + 1) % 2;
  const LogEntry *from = view_.Log(epoch);
  LogEntry *to = view_.Log(epoch + 1);
  for (uint32_t step = 0; step < kTidyStep && state_.tidyFrom < count; ++step, ++state_.tidyFrom) {
    const uint64_t serial = from[state_.tidyFrom].serial.load(std::memory_order_relaxed);
    const uint32_t ref = from[state_.tidyFrom].ref.load(std::memory_order_relaxed);
    if (view_.SlotAt(ref)->serial.load(std::memory_order_relaxed) != serial) continue;
    if (!EnsureLog(other, state_.tidyTo + 1)) {
      state_.tidying = 0;
      return;
    }
    Note(&to[state_.tidyTo], sizeof(LogEntry));
    to[state_.tidyTo].serial.store(serial, std::memory_order_release);
    to[state_.tidyTo].ref.store(ref, std::memory_order_release);
    ++state_.tidyTo;
  }
  if (state_.tidyFrom < count) return;
  state_.logCount[other].store(state_.tidyTo, std::memory_order_release);
  state_.logEpoch.store(epoch + 1, std::memory_order_release);
  state_.tidying = 0;
}

void TableChange::AppendToChain(uint32_t ref) {
  Head *head = view_.HeadAt(ref);
  Bucket &bucket = view_.BucketOf(head->hash.load(std::memory_order_relaxed));
  const uint32_t first = bucket.head.load(std::memory_order_relaxed);
  Note(&bucket, sizeof(bucket));
  NoteHead(ref);
  if (first == 0) {
    head->chainPrev = ref;
    bucket.head.store(ref, std::memory_order_release);
    return;
  }
  const uint32_t last = view_.HeadAt(first)->chainPrev;
  NoteHead(last);
  NoteHead(first);
  head->chainPrev = last;
  view_.HeadAt(last)->chainNext.store(ref, std::memory_order_release);
  view_.HeadAt(first)->chainPrev = ref;
}

void TableChange::LeaveChain(uint32_t ref) {
  const Head *head = view_.HeadAt(ref);
  Bucket &bucket = view_.BucketOf(head->hash.load(std::memory_order_relaxed));
  const uint32_t first = bucket.head.load(std::memory_order_relaxed);
  const uint32_t next = head->chainNext.load(std::memory_order_relaxed);
  const uint32_t prev = head->chainPrev;
  Note(&bucket, sizeof(bucket));
  NoteHead(prev);
  (first == ref ? bucket.head : view_.HeadAt(prev)->chainNext).store(next, std::memory_order_release);
  // The first entry names the last one; the last entry's successor is the first in this respect.
  const uint32_t follower = next != 0 ? next : first == ref ? 0 : first;
  if (follower == 0) return;
  NoteHead(follower);
  view_.HeadAt(follower)->chainPrev = prev;
}

void TableChange::Count(int32_t change) {
  std::atomic_ref<uint32_t> entries(view_.descriptor().entryNum);
  entries.store(entries.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

RouteIndexWriter TableChange::Routes() {
  return {view_.RouteArea(), RoutesSize(shape_), PrefixAddressSize(shape_),
          [this](uint64_t offset, uint64_t size) { return Reserve(shape_.routesOffset + offset, size); },
          [this](const void *bytes, uint64_t size) { Note(bytes, size); }};
}

int32_t TableChange::InsertRoute(const TableKey &key, uint32_t ref, uint64_t serial) {
  if (RoutesSize(shape_) == 0) return kTbmOk;
  const RouteParts route(key.words);
  return Routes().Insert(route.vpn, route.address, route.length, ref, serial);
}

void TableChange::RemoveRoute(uint32_t ref) {
  if (RoutesSize(shape_) == 0) return;
  uint64_t key[kMaxKeySize / kWord];
  LoadWords(key, TableView::Key(view_.HeadAt(ref)), shape_.keySize);
  const RouteParts route(key);
  Routes().Remove(route.vpn, route.address, route.length);
}

int32_t TableChange::Insert(const TableKey &key, const void *record, void **address) {
  if (view_.EntryNum() >= shape_.capacity) return kTbmFull;
  if (!EnsureIndex()) return kTbmNoMemory;
  const uint32_t epoch = state_.logEpoch.load(std::memory_order_relaxed);
  if (!EnsureLog(epoch % 2, state_.logCount[epoch % 2].load(std::memory_order_relaxed) + 1))
    return kTbmNoMemory;
  uint32_t ref;
  const int32_t status = TakeSlot(&ref);
  if (status != kTbmOk) return status;

  const uint64_t serial = state_.lastSerial.load(std::memory_order_relaxed) + 1;
  Head *head = view_.HeadAt(ref);
  NoteHead(ref);
  NoteSlot(ref);
  head->chainNext.store(0, std::memory_order_release);
  head->hash.store(key.hash, std::memory_order_release);
  StoreWords(TableView::Key(head), key.words, key.wordCount * kWord);
  StoreWords(view_.Record(ref), record, view_.StoredSize());

  view_.SlotAt(ref)->serial.store(serial, std::memory_order_release);
  head->serial.store(serial, std::memory_order_release);
  // The one step that may yet fail. Until it is done nothing leads to the slot.
  const int32_t routed = InsertRoute(key, ref, serial);
  if (routed != kTbmOk) {
    head->serial.store(0, std::memory_order_release);
    view_.SlotAt(ref)->serial.store(0, std::memory_order_release);
    FreeSlot(ref);
    return routed;
  }
  Count(1);
  AppendToLog(ref, serial);
  AppendToChain(ref);
  SetNode(ref, view_.Record(ref));
  // Last: a walk that begins now shows this entry; one that began before does not.
  state_.lastSerial.store(serial, std::memory_order_release);
  Tidy();
  if (address != nullptr) *address = view_.Address(ref);
  return kTbmOk;
}

void TableChange::Remove(uint32_t ref) {
  Head *head = view_.HeadAt(ref);
  NoteHead(ref);
  NoteSlot(ref);
  // First: whoever finds that the entry has gone finds another answer in the routes' index.
  RemoveRoute(ref);
  SetNode(ref, nullptr);
  LeaveChain(ref);
  head->serial.store(0, std::memory_order_release);
  // Between the serial and whatever the slot is used for next: who meets any of that has seen both.
  Bucket &bucket = view_.BucketOf(head->hash.load(std::memory_order_relaxed));
  bucket.removals.store(bucket.removals.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  view_.SlotAt(ref)->serial.store(0, std::memory_order_release);
  Count(-1);
  FreeSlot(ref);
  Tidy();
}

void TableChange::Update(uint32_t ref, const void *record) {
  Slot *slot = view_.SlotAt(ref);
  NoteSlot(ref);
  Note(view_.Spare(), view_.StoredSize());
  StoreWords(view_.Spare(), view_.Record(ref), view_.StoredSize());
  const uint32_t version = slot->version.load(std::memory_order_relaxed);
  slot->version.store(version + 1, std::memory_order_release);
  StoreWords(view_.Record(ref), record, view_.StoredSize());
  slot->version.store(version + 2, std::memory_order_release);
}

}  // namespace qdt::host::tbm
