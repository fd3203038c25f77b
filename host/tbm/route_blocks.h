#ifndef HOST_TBM_ROUTE_BLOCKS_H_
#define HOST_TBM_ROUTE_BLOCKS_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

#include "host/arena/route_layout.h"
#include "host/tbm/route_bits.h"

namespace qdt::host::tbm {

// Backs bytes of an area, told by their offset, with storage; false when there is none left.
using BackArea = std::function<bool(uint64_t offset, uint64_t size)>;

// Hears which bytes of an area change, before they do.
using NoteArea = std::function<void(const void *bytes, uint64_t size)>;

// The blocks of a route index, as its writer takes and frees them. Each change of the index is one of these
// objects: it takes new blocks, is published by a single store of the index's owner, and then frees what it
// replaced.
class RouteBlocks {
 public:
  RouteBlocks(char *area, uint64_t size, uint32_t addressSize, const BackArea &back, const NoteArea &note);

  // Before a change that puts something in: ensures the storage of the VPN's root and the headroom.
  bool Prepare(uint16_t vpn);
  bool HasRoot(uint16_t vpn) const;

  // Before a change takes its first block.
  void Begin();
  // The same when no storage is left: makes all readers that search right now search again, so that nothing
  // has to rest, and draws on the headroom.
  void BeginUrgently();
  // While the headroom is drawn on there are only removals, and a node's copy takes a block of the node's own
  // size. So each change gives back what it takes, and a headroom for one lasts for all.
  bool keepSizes() const { return keepSizes_; }

  // A block of a class, 0 when there is none.
  RouteRef Take(uint32_t blockClass);
  // The block leaves the index with this change.
  void Leave(RouteRef ref) { left_[leftCount_++] = ref; }
  // The change ends: it is published, or given up.
  void Commit() { End(left_, leftCount_); }
  void Undo() { End(taken_, takenCount_); }

  // Whether a block was missing because the area has no room, not because it has no storage.
  bool full() const { return full_; }

  RouteWord *Words(RouteRef ref) const { return reinterpret_cast<RouteWord *>(area_ + RouteOffset(ref)); }
  uint32_t ClassOf(RouteRef ref) const {
    return static_cast<uint32_t>(Words(ref)->load(std::memory_order_relaxed) >> 56);
  }

  RouteRef Root(uint16_t vpn) const { return RootAt(vpn).load(std::memory_order_relaxed); }
  void SetRoot(uint16_t vpn, RouteRef ref) {
    note_(&RootAt(vpn), sizeof(RouteRef));
    RootAt(vpn).store(ref, std::memory_order_release);
  }

 private:
  // Of one change: the way down, what is behind it, a node put in between and one put aside, a route.
  using Refs = std::array<RouteRef, RouteDepth(16) + 4>;

  void Count(uint64_t changes);
  bool BackRoot(uint16_t vpn);
  uint64_t EndWithHeadroom(uint64_t used) const;
  uint64_t Used() const { return std::max(head().used, kRouteBlocksOffset); }
  bool Rested(RouteRef ref) const;
  RouteRef TakeFree(uint32_t blockClass);
  RouteRef TakeNew(uint32_t blockClass);
  bool EnsureBacked(uint64_t end);
  void Append(RouteRef ref, uint64_t freed);
  void SetFirstWord(RouteRef ref, uint64_t word);
  void End(const Refs &freed, uint32_t count);
  RouteHead &head() const { return *reinterpret_cast<RouteHead *>(area_); }
  std::atomic<RouteRef> &RootAt(uint16_t vpn) const {
    return reinterpret_cast<std::atomic<RouteRef> *>(area_ + kRouteHeadBytes)[vpn];
  }

  char *const area_;
  const uint64_t size_;
  const uint32_t addressSize_;
  const BackArea &back_;
  const NoteArea &note_;
  uint64_t change_ = 0;
  bool urgent_ = false;
  bool keepSizes_ = false;
  bool full_ = false;
  Refs taken_;
  uint32_t takenCount_ = 0;
  Refs left_;
  uint32_t leftCount_ = 0;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_ROUTE_BLOCKS_H_
