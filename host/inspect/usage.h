#ifndef HOST_INSPECT_USAGE_H_
#define HOST_INSPECT_USAGE_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/record/record_source.h"

namespace qdt::host {

// How full a table is.
struct TableUsage {
  const TableLayout *table = nullptr;
  uint32_t entries = 0;
  uint32_t capacity = 0;
  uint64_t bytes = 0;  // storage that it takes

  double Percent() const { return 100.0 * entries / capacity; }
  // Whether more than so many percent are in use; exact. A table of one entry is full by nature.
  bool IsAbove(uint32_t percent) const {
    return capacity > 1 && uint64_t{entries} * 100 > uint64_t{capacity} * percent;
  }
};

// All tables that the engine has, the fullest first, then by id.
std::vector<TableUsage> UsageOf(const RecordSource &source);

}  // namespace qdt::host

#endif  // HOST_INSPECT_USAGE_H_
