#ifndef HOST_ENGINE_AGING_H_
#define HOST_ENGINE_AGING_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/layout/layout.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// A table whose entries age, and what they tell of it.
struct AgingTable {
  TableSpec spec;
  FieldRef agingTime;
  FieldRef refreshed;
  std::optional<FieldRef> valid;  // entries that are not have no age

  bool IsOver(const void *entry, uint64_t uptime) const;
};

// Takes entries out of the engine's tables when their time is over: sessions and server maps. An entry leaves
// when its aging time is 0 (a client has reset it) or has passed since the entry was last refreshed; the
// highest number that its aging time can hold means never.
class Aging {
 public:
  // A table for which the layout has no fields does not age. Both must outlive this object.
  Aging(const Layout &layout, TableWriter *writer);

  // `uptime` is the present second of the monotonic clock. Returns how many entries were removed. Works on
  // the current arena.
  uint32_t Run(uint64_t uptime);
  // The same for one table.
  uint32_t RunTable(uint32_t id, uint64_t uptime);

  // As much of a sweep as takes about a millisecond: goes on with the one under way, or begins one at
  // `uptime`. Returns whether it has more to do. What else changes the tables between two steps does no harm:
  // an entry that is passed over is met by the next sweep.
  bool Step(uint64_t uptime);

 private:
  // How far a sweep has come, and what a slice of it may still do.
  struct Sweep {
    uint64_t uptime = 0;
    size_t table = 0;    // in tables_
    uint32_t place = 0;  // in that table: a node or a bucket
    uint32_t looks = 0;
    uint32_t removals = 0;
    uint32_t removed = 0;

    bool IsUsedUp() const { return looks == 0 || removals == 0; }
  };

  void AddTable(const TableLayout &layout);
  static Sweep WholeSweep(uint64_t uptime);
  // Goes on until the slice is used up; whether the sweep has more to do.
  bool GoOn(Sweep *sweep);
  bool GoOnIn(const AgingTable &table, Sweep *sweep);
  bool GoOnInSessions(const AgingTable &table, Sweep *sweep);
  bool GoOnInServerMaps(const AgingTable &table, Sweep *sweep);
  void Look(const AgingTable &table, void *record, Sweep *sweep);

  TableWriter &writer_;
  std::vector<AgingTable> tables_;
  std::optional<Sweep> sweep_;  // the one under way
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_AGING_H_
