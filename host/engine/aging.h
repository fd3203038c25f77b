#ifndef HOST_ENGINE_AGING_H_
#define HOST_ENGINE_AGING_H_

#include <cstdint>
#include <optional>
#include <vector>

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

  // Goes on with the round that RunSome has begun, or begins one: looks at no more entries than an engine can
  // spare time for between two requests. False when the round is over.
  bool RunSome(uint64_t uptime);

 private:
  void AddTable(const TableLayout &layout);

  TableWriter &writer_;
  std::vector<AgingTable> tables_;
  size_t next_ = 0;  // the table that RunSome looks at, and where in it
  std::optional<TableSweep> sweep_;
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_AGING_H_
