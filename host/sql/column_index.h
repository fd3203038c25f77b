#ifndef HOST_SQL_COLUMN_INDEX_H_
#define HOST_SQL_COLUMN_INDEX_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "host/sql/arena_set.h"

namespace qdt::host {

// What an index says of one row of a table.
struct IndexedRow {
  uint64_t hash;
  uint32_t arena;
  uint32_t element;
  tbm::Place place;
};
using ColumnIndex = std::vector<IndexedRow>;  // in the order of the hashes

using IndexedColumns = std::vector<int>;  // by number

// The indexes on columns of a table, for the cursors that a statement opens one after the other: a subquery
// opens one each time that it runs.
class ColumnIndexes {
 public:
  // Whether columns are asked for the first time: one question alone is not worth an index.
  bool IsFirst(const IndexedColumns &columns) { return !std::exchange(kept_[columns].asked, true); }

  // The columns' index, or null. That of arenas that change is not used for long, measured by what it took.
  std::shared_ptr<const ColumnIndex> Find(const IndexedColumns &columns, const ArenaSet &arenas) {
    const Kept &kept = kept_[columns];
    if (kept.generation != arenas.generation()) return nullptr;
    const bool isOld = arenas.IsLive() && Clock::now() - kept.made > kUses * kept.took;
    return isOld ? nullptr : kept.index;
  }

  template <typename Make>
  std::shared_ptr<const ColumnIndex> Keep(const IndexedColumns &columns, const ArenaSet &arenas,
                                          const Make &make) {
    const Clock::time_point began = Clock::now();
    const auto index = std::make_shared<const ColumnIndex>(make());
    Kept &kept = kept_[columns];
    kept.index = index;
    kept.generation = arenas.generation();
    kept.made = Clock::now();
    kept.took = kept.made - began;
    return index;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr int kUses = 100;
  struct Kept {
    bool asked = false;
    std::shared_ptr<const ColumnIndex> index;
    uint64_t generation = 0;
    Clock::time_point made;
    Clock::duration took{};
  };
  std::map<IndexedColumns, Kept> kept_;
};

}  // namespace qdt::host

#endif  // HOST_SQL_COLUMN_INDEX_H_
