#include "host/tbm/route_blocks.h"

#include <algorithm>

namespace qdt::host::tbm {

namespace {

// The storage of blocks grows by as much as it has, within these bounds.
constexpr uint64_t kMinGrowth = 16 << 10;
constexpr uint64_t kMaxGrowth = 256 << 10;

// A block's first word: the free block that follows it (32 bits), the change that freed it (24), its class
// (8).
constexpr uint64_t kChangeMask = (1 << 24) - 1;

constexpr uint64_t FirstWord(RouteRef next, uint64_t change, uint64_t blockClass) {
  return blockClass << 56 | (change & kChangeMask) << 32 | next;
}

}  // namespace

// The head changes with everything else.
RouteBlocks::RouteBlocks(char *area, uint64_t size, uint32_t addressSize, const BackArea &back,
                         const NoteArea &note)
    : area_(area), size_(size), addressSize_(addressSize), back_(back), note_(note) {
  note_(area_, sizeof(RouteHead));
}

// Whoever sees anything that this change writes into blocks sees the count as well.
void RouteBlocks::Count(uint64_t changes) {
  change_ = head().changes.load(std::memory_order_relaxed) + changes;
  head().changes.store(change_, std::memory_order_release);
}

void RouteBlocks::Begin() {
  keepSizes_ = EndWithHeadroom(Used()) > head().backed.load(std::memory_order_relaxed);
  Count(1);
}

void RouteBlocks::BeginUrgently() {
  urgent_ = true;
  keepSizes_ = true;
  Count(kRouteRestCounts + 1);
}

// After 2^24 changes a block may seem to be just freed; that only makes it wait.
bool RouteBlocks::Rested(RouteRef ref) const {
  const uint64_t freed = Words(ref)->load(std::memory_order_relaxed) >> 32;
  return urgent_ || ((change_ - freed) & kChangeMask) >= kRouteRestCounts;
}

RouteRef RouteBlocks::TakeFree(uint32_t blockClass) {
  FreeBlocks &free = head().free[blockClass];
  const RouteRef ref = free.oldest;
  if (ref == 0 || !Rested(ref)) return 0;
  free.oldest = static_cast<RouteRef>(Words(ref)->load(std::memory_order_relaxed));
  return ref;
}

bool RouteBlocks::EnsureBacked(uint64_t end) {
  const uint64_t backed = head().backed.load(std::memory_order_relaxed);
  const uint64_t have = std::max(backed, kRouteBlocksOffset);
  if (end <= backed) return true;
  full_ = end > size_;
  if (full_) return false;
  const uint64_t step = std::clamp(have - kRouteBlocksOffset, kMinGrowth, kMaxGrowth);
  const uint64_t grown = std::min(size_, have + (end - have + step - 1) / step * step);
  if (!back_(have, grown - have)) return false;
  head().backed.store(grown, std::memory_order_release);
  return true;
}

uint64_t RouteBlocks::EndWithHeadroom(uint64_t used) const {
  return used + RouteHeadroom(addressSize_) + kRouteReach;
}

RouteRef RouteBlocks::TakeNew(uint32_t blockClass) {
  const uint64_t size = RouteBlockBytes(blockClass, addressSize_);
  const uint64_t count = blockClass == kRouteClass ? kRoutesOfLines : 1;
  const uint64_t place = Used();
  const uint64_t end = place + count * size;
  if (!EnsureBacked(urgent_ ? end + kRouteReach : EndWithHeadroom(end))) return 0;
  head().used = end;
  const auto name = [&](uint64_t i) { return static_cast<RouteRef>((place + i * size) / kRouteWord << 1); };
  for (uint64_t i = 0; i < count; ++i) {
    SetFirstWord(name(i), FirstWord(0, 0, blockClass));
    if (i != 0) Append(name(i), change_ - kRouteRestCounts);
  }
  return name(0);
}

RouteRef RouteBlocks::Take(uint32_t blockClass) {
  RouteRef ref = TakeFree(blockClass);
  if (ref == 0) ref = TakeNew(blockClass);
  if (ref == 0) return 0;
  taken_[takenCount_++] = ref;
  note_(Words(ref), RouteBlockBytes(blockClass, addressSize_));
  return ref;
}

void RouteBlocks::SetFirstWord(RouteRef ref, uint64_t word) {
  note_(Words(ref), sizeof(word));
  Words(ref)->store(word, std::memory_order_relaxed);
}

// Behind the class's other free blocks. What readers may still look at stays as it is.
void RouteBlocks::Append(RouteRef ref, uint64_t freed) {
  const uint32_t blockClass = ClassOf(ref);
  FreeBlocks &free = head().free[blockClass];
  SetFirstWord(ref, FirstWord(0, freed, blockClass));
  if (free.oldest == 0) {
    free.oldest = ref;
  } else {
    SetFirstWord(free.newest, Words(free.newest)->load(std::memory_order_relaxed) | ref);
  }
  free.newest = ref;
}

void RouteBlocks::End(const Refs &freed, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) Append(freed[i] & ~RouteRef{1}, change_);
  takenCount_ = 0;
  leftCount_ = 0;
  Count(1);
}

bool RouteBlocks::HasRoot(uint16_t vpn) const {
  return (head().vpnGroups.load(std::memory_order_relaxed) >> (vpn / kVpnsOfGroup) & 1) != 0;
}

bool RouteBlocks::BackRoot(uint16_t vpn) {
  if (HasRoot(vpn)) return true;
  const uint64_t group = vpn / kVpnsOfGroup;
  const uint64_t groups = head().vpnGroups.load(std::memory_order_relaxed);
  if (!back_(kRouteHeadBytes + group * kVpnGroupBytes, kVpnGroupBytes)) return false;
  head().vpnGroups.store(groups | uint64_t{1} << group, std::memory_order_release);
  return true;
}

bool RouteBlocks::Prepare(uint16_t vpn) { return BackRoot(vpn) && EnsureBacked(EndWithHeadroom(Used())); }

}  // namespace qdt::host::tbm
