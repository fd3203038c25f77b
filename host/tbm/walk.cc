#include "host/tbm/walk.h"

namespace qdt::host::tbm {

namespace {

// A step starts again when the entry that it stands on is removed at that very moment, and looks again when
// only the entry's neighbour changes.
constexpr int kAttempts = 10000;
constexpr int kLooks = 100;

}  // namespace

// Moves from a living entry (or from before the first) to its neighbour. kLost: the entry is gone, or the
// writer keeps changing its neighbour.
Step TableOrder::Follow(Place *place) const {
  Slot *slot = place->serial == 0 ? nullptr : table_.At(place->ref);
  if (place->serial != 0 && slot == nullptr) return Step::kLost;
  const std::atomic<uint32_t> &link = slot == nullptr ? table_.state().orderHead : slot->orderNext;
  for (int look = 0; look < kLooks; ++look) {
    const uint32_t ref = link.load(std::memory_order_acquire);
    Slot *next = table_.At(ref);
    const uint64_t serial = next == nullptr ? 0 : next->serial.load(std::memory_order_acquire);
    std::atomic_thread_fence(std::memory_order_acquire);
    // The link and the serial belong together when the entry lived and named the same neighbour all the
    // while.
    if (slot != nullptr && slot->serial.load(std::memory_order_relaxed) != place->serial) return Step::kLost;
    if (link.load(std::memory_order_relaxed) != ref) continue;
    if (ref == 0) return Step::kEnd;
    if (serial <= place->serial) continue;
    *place = {ref, serial};
    return Step::kEntry;
  }
  return Step::kLost;
}

Step TableOrder::Next(Place *place) const {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // From the start, when the entry is gone: its successor is the first one with a greater serial.
    Place at = table_.Lives(*place) ? *place : Place{};
    Step step;
    do {
      step = Follow(&at);
    } while (step == Step::kEntry && at.serial <= place->serial);
    if (step == Step::kEntry) *place = at;
    if (step != Step::kLost) return step;
  }
  return Step::kLost;
}

// As the chain is now: the caller checks that no entry left it meanwhile.
Step ChainOrder::FollowChain(Place *place) const {
  uint32_t ref = table_.Lives(*place) ? table_.SlotAt(place->ref)->chainNext.load(std::memory_order_acquire)
                                      : bucket_.head.load(std::memory_order_acquire);
  for (uint32_t steps = table_.shape().capacity; ref != 0; --steps) {
    Slot *slot = table_.At(ref);
    if (slot == nullptr || steps == 0) return Step::kLost;
    const uint64_t serial = slot->serial.load(std::memory_order_acquire);
    if (serial > place->serial && (key_ == nullptr || table_.HasKey(slot, *key_))) {
      *place = {ref, serial};
      return Step::kEntry;
    }
    ref = slot->chainNext.load(std::memory_order_acquire);
  }
  return Step::kEnd;
}

Step ChainOrder::Next(Place *place) const {
  if (!table_.HasIndex()) return Step::kEnd;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint32_t removals = bucket_.removals.load(std::memory_order_acquire);
    Place at = *place;
    const Step step = FollowChain(&at);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (bucket_.removals.load(std::memory_order_relaxed) != removals) continue;
    if (step == Step::kEntry) *place = at;
    return step;
  }
  return Step::kLost;
}

}  // namespace qdt::host::tbm
