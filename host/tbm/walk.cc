#include "host/tbm/walk.h"

namespace qdt::host::tbm {

namespace {

// A step starts again when the log is replaced, or when an entry leaves its bucket, at that very moment.
constexpr int kAttempts = 10000;

// So far ahead of a walk its records are fetched.
constexpr uint32_t kAhead = 12;

}  // namespace

// The index of the first log entry behind the place.
uint32_t TableOrder::IndexBehind(uint32_t epoch, uint32_t count, const Place &place) const {
  if (place.serial == 0) return 0;
  const LogEntry *log = table_.Log(epoch);
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

void TableOrder::Prefetch(uint32_t epoch, uint32_t count, uint32_t index) const {
  if (index + kAhead >= count) return;
  // An address alone: a wild one does no harm.
  __builtin_prefetch(table_.LiveSlot(table_.Log(epoch)[index + kAhead].ref.load(std::memory_order_relaxed)));
}

Step TableOrder::FindIn(uint32_t epoch, Place *place) const {
  const uint32_t count = table_.LogCount(epoch);
  const LogEntry *log = table_.Log(epoch);
  for (uint32_t index = IndexBehind(epoch, count, *place); index < count; ++index) {
    const uint64_t serial = log[index].serial.load(std::memory_order_acquire);
    const uint32_t ref = log[index].ref.load(std::memory_order_acquire);
    if (serial == 0 || !table_.Lives({serial, ref, 0, 0})) continue;
    Prefetch(epoch, count, index);
    if (serial <= place->serial) return Step::kLost;
    *place = {serial, ref, epoch, index};
    return Step::kEntry;
  }
  return Step::kEnd;
}

Step TableOrder::Next(Place *place) const {
  const std::atomic<uint32_t> &inForce = table_.state().logEpoch;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint32_t epoch = inForce.load(std::memory_order_acquire);
    Place at = *place;
    const Step step = FindIn(epoch, &at);
    // A log is overwritten only after another has come in force: what was read is of this one, up to its end.
    if (inForce.load(std::memory_order_relaxed) != epoch) continue;
    if (step == Step::kEntry) *place = at;
    return step;
  }
  return Step::kLost;
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
