#ifndef HOST_ENGINE_AGING_H_
#define HOST_ENGINE_AGING_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/engine/filler.h"
#include "host/layout/layout.h"
#include "host/tbm/table_sweep.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// A table whose entries age, and what they tell of it.
struct AgingTable {
  TableSpec spec;
  FieldRef agingTime;
  FieldRef refreshed;
  std::optional<FieldRef> valid;  // entries that are not have no age

  bool endsByRequest = false;  // and not by time

  bool IsOver(const void *entry, uint64_t uptime) const;
};

// Takes entries out of the engine's tables when their time is over: sessions and server maps. An entry leaves
// when its aging time is 0 (a client has reset it) or has passed since the entry was last refreshed; the
// highest number that its aging time can hold means never.
class Aging {
 public:
  // A table for which the layout has no fields does not age. All must outlive this object. The filler, if
  // there is one, is told what leaves.
  Aging(const Layout &layout, TableWriter *writer, Filler *filler = nullptr);

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
  void AddTable(const TableLayout &layout);

  TableWriter &writer_;
  Filler *filler_;
  std::vector<AgingTable> tables_;
  size_t next_ = 0;  // the table that Step goes on with, and how far it has come in it
  uint64_t uptime_ = 0;
  std::optional<TableSweep> sweep_;
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_AGING_H_
