#ifndef HOST_METRICS_COUNTED_TABLES_H_
#define HOST_METRICS_COUNTED_TABLES_H_

#include <cstdint>
#include <string_view>

#include "platform/engine.h"

namespace qdt::host {

// A table whose entries have series of their own: one for each counter that its layout names, with the
// entry's key as labels. Only tables whose keys are numbers of the device's own parts are rows here, never
// addresses, users or flows: those come and go with the traffic, and a time series each would have no end.
struct CountedTable {
  std::string_view table;
  // Entries that have series; of the others it is told how many series they would have had. Together with the
  // counters of the layout this bounds what one engine can cost.
  uint32_t maxEntries;
  // The field of the key whose numbers have names, and what tells them; null for a number without one.
  std::string_view named = {};
  const char *(*nameOf)(uint32_t number) = nullptr;
};

constexpr CountedTable kCountedTables[] = {
    {"fwdif", 256},
    {"cpcar_pro", 256, "protocol", QdtGetNameByProId},
    {"cause", 256},
    {"buf_cache_stat", 1},
};

}  // namespace qdt::host

#endif  // HOST_METRICS_COUNTED_TABLES_H_
