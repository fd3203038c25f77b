#include "host/tbm/walk.h"

namespace qdt::host::tbm {

namespace {

// A step starts again when the log is replaced, or when an entry leaves its bucket, at that very moment.
constexpr int kAttempts = 10000;

// So far ahead of a walk its records are fetched.
constexpr uint32_t kAhead = 12;

}  // namespace

// The index of the first log entry behind the place.
uint32_t TableOrder::IndexBehind(const LogEntry *log, uint32_t epoch, uint32_t count, const Place &place) {
  if (place.serial == 0) return 0;
  if (place.logEpoch == epoch && place.logIndex < count &&
      log[place.logIndex].serial.load(std::memory_order_acquire) == place.serial) {
    return place.logIndex + 1;
  }
  uint32_t first = 0;
  for (uint32_t length = count; length != 0;) {
    const uint32_t half = length / 2;
    const bool before = log[first + half].serial.load(std::memory_order_acquire) <= place.serial;
    first = before ? first + half + 1 : first;
    length = before ? length - half - 1 : half;
  }
  return first;
}

Step TableOrder::Read(const Place &from, std::span<Found> room, uint32_t *found, uint32_t *epoch) const {
  const TableView table = *table_;  // whose values no store of another process changes
  const std::atomic<uint32_t> &inForce = table.state().logEpoch;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    *epoch = inForce.load(std::memory_order_acquire);
    const uint32_t count = table.LogCount(*epoch);
    const LogEntry *const log = table.Log(*epoch);
    // Of the entries that were counted each has its slot by now.
    const uint32_t slots = table.UsedSlots();
    uint32_t filled = 0;
    uint64_t last = from.serial;
    bool isRising = true;
    for (uint32_t index = IndexBehind(log, *epoch, count, from); index < count && filled < room.size();
         ++index) {
      const uint64_t serial = log[index].serial.load(std::memory_order_acquire);
      const uint32_t ref = log[index].ref.load(std::memory_order_acquire);
      // An address alone: a wild one does no harm.
      if (index + kAhead < count)
        __builtin_prefetch(table.LiveSlot(log[index + kAhead].ref.load(std::memory_order_relaxed)));
      if (serial == 0 || ref - 1 >= slots ||
          table.LiveSlot(ref)->serial.load(std::memory_order_acquire) != serial) {
        continue;
      }
      if (serial <= last) {
        isRising = filled != 0;  // what stands before it is good
        break;
      }
      last = serial;
      room[filled++] = {serial, ref, index};
    }
    // A log is overwritten only after another has come in force: what was read is of this one, up to its end.
    if (inForce.load(std::memory_order_relaxed) != *epoch) continue;
    if (!isRising) return Step::kLost;
    *found = filled;
    return filled == 0 ? Step::kEnd : Step::kEntry;
  }
  return Step::kLost;
}

Step TableOrder::Next(Place *place) const {
  Found found[1];
  uint32_t count, epoch;
  const Step step = Read(*place, found, &count, &epoch);
  if (step == Step::kEntry) found[0].PutTo(place, epoch);
  return step;
}

// The successor of an entry that lives; false when it does not.
bool ChainOrder::Follow(uint64_t serial, uint32_t ref, uint32_t *next) const {
  Head *head = serial == 0 ? nullptr : table_.At(ref);
  if (head == nullptr || head->serial.load(std::memory_order_acquire) != serial) return false;
  *next = head->chainNext.load(std::memory_order_acquire);
  // The link was the entry's own while it lived.
  return head->serial.load(std::memory_order_relaxed) == serial;
}

// As the chain is now: the caller checks that no entry left it meanwhile. Goes on behind the place's entry,
// or the one before when that has gone, so that who removes what a walk shows does not walk all the way
// again; else from the chain's beginning.
Step ChainOrder::FollowChain(Place *place) const {
  uint32_t ref;
  Place before = {.serial = place->serial, .ref = place->ref};
  if (!Follow(before.serial, before.ref, &ref)) {
    before = {.serial = place->beforeSerial, .ref = place->beforeRef};
    if (!Follow(before.serial, before.ref, &ref)) {
      before = {};
      ref = bucket_.head.load(std::memory_order_acquire);
    }
  }
  for (uint32_t steps = table_.shape().capacity; ref != 0; --steps) {
    Head *head = table_.At(ref);
    if (head == nullptr || steps == 0) return Step::kLost;
    const uint64_t serial = head->serial.load(std::memory_order_acquire);
    if (serial > place->serial && (key_ == nullptr || table_.HasKey(head, *key_))) {
      *place = {.serial = serial, .ref = ref, .beforeRef = before.ref, .beforeSerial = before.serial};
      return Step::kEntry;
    }
    if (serial != 0) before = {.serial = serial, .ref = ref};
    ref = head->chainNext.load(std::memory_order_acquire);
  }
  return Step::kEnd;
}

Step ChainOrder::Next(Place *place) const {
  if (!table_.HasIndex()) return Step::kEnd;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint32_t removals = bucket_.removals.load(std::memory_order_acquire);
    Place at = *place;
    const Step step = FollowChain(&at);
    if (bucket_.removals.load(std::memory_order_relaxed) != removals) continue;
    if (step == Step::kEntry) *place = at;
    return step;
  }
  return Step::kLost;
}

}  // namespace qdt::host::tbm
