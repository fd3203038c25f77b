#ifndef HOST_TBM_WALK_H_
#define HOST_TBM_WALK_H_

#include <cstdint>
#include <utility>

#include "host/tbm/table_view.h"

namespace qdt::host::tbm {

enum class Step {
  kEntry,  // the place is now that of the next entry
  kEnd,    // there is none
  kLost,   // the writer changes the table faster than it can be followed, or the table is damaged
};

// The two orders in which the entries of a table are walked, both of rising serials. Next moves *place to the
// entry that follows it, also when the entry of *place itself has been removed since; no entry that lives
// meanwhile is passed over.

// All entries, by insertion.
class TableOrder {
 public:
  explicit TableOrder(const TableView &table) : table_(table) {}
  Step Next(Place *place) const;

 private:
  Step FindIn(uint32_t epoch, Place *place) const;
  uint32_t IndexBehind(uint32_t epoch, uint32_t count, const Place &place) const;
  void Prefetch(uint32_t epoch, uint32_t count, uint32_t index) const;

  const TableView &table_;
};

// The entries that share a key, or all those of a bucket, by insertion.
class ChainOrder {
 public:
  ChainOrder(const TableView &table, const TableKey &key)
      : table_(table), bucket_(table.BucketOf(key.hash)), key_(&key) {}
  ChainOrder(const TableView &table, uint32_t bucket)
      : table_(table), bucket_(table.BucketAt(bucket)), key_(nullptr) {}
  Step Next(Place *place) const;

 private:
  Step FollowChain(Place *place) const;
  bool Follow(uint64_t serial, uint32_t ref, uint32_t *next) const;

  const TableView &table_;
  const Bucket &bucket_;
  const TableKey *key_;  // null: any
};

// Whether an entry that was found but had no record any more is another one than the last time, *gone. The
// writer clears the record's serial last, so that no entry is found again then: only a damaged table shows
// one.
inline bool IsNewlyGone(const Place &place, uint64_t *gone) {
  return std::exchange(*gone, place.serial) != place.serial;
}

// What a TbmTravContext holds. All zero: no walk has begun.
struct Cursor {
  uint64_t arena;      // identity of the arena that is walked
  uint64_t walk;       // table and order, see MakeWalkId
  Place last;          // the entry delivered last
  uint64_t endSerial;  // the walk ends with it: entries inserted after the walk began are not shown
  uint32_t count;      // entries of the last batch
  bool begun;
  bool finished;
  bool deletionTold;  // the caller knows that the entry of `last` is gone
};
static_assert(sizeof(Cursor) <= sizeof(TbmTravContext));

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_WALK_H_
