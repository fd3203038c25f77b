#ifndef HOST_TBM_WALK_H_
#define HOST_TBM_WALK_H_

#include <cstdint>
#include <span>
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
  explicit TableOrder(const TableView &table) : table_(&table) {}
  Step Next(Place *place) const;

 protected:
  // Where the log has an entry.
  struct Found {
    uint64_t serial;
    uint32_t ref;
    uint32_t index;

    // Value by value: who reads on at once would wait for a copy of the whole.
    void PutTo(Place *place, uint32_t epoch) const {
      place->serial = serial;
      place->ref = ref;
      place->logEpoch = epoch;
      place->logIndex = index;
    }
  };
  // Finds the entries that follow the place, at most as many as there is room for, at least one with kEntry.
  Step Read(const Place &from, std::span<Found> room, uint32_t *count, uint32_t *epoch) const;

 private:
  static uint32_t IndexBehind(const LogEntry *log, uint32_t epoch, uint32_t count, const Place &place);

  const TableView *table_;
};

// The same for who walks on at once: some entries at a time are read from the log. One that leaves meanwhile
// may still come, and is not there any more.
class TableRun : private TableOrder {
 public:
  explicit TableRun(const TableView &table) : TableOrder(table) {}

  Step Next(Place *place) {
    // The place may be another one than that which was given last.
    if (next_ == count_ || place->serial != last_) {
      next_ = count_ = 0;
      if (const Step step = Read(*place, ahead_, &count_, &epoch_); step != Step::kEntry) return step;
    }
    const Found &found = ahead_[next_++];
    last_ = found.serial;
    found.PutTo(place, epoch_);
    return Step::kEntry;
  }

 private:
  Found ahead_[32];
  uint32_t next_ = 0;
  uint32_t count_ = 0;
  uint32_t epoch_ = 0;
  uint64_t last_ = 0;
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
