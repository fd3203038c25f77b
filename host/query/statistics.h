#ifndef HOST_QUERY_STATISTICS_H_
#define HOST_QUERY_STATISTICS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/record_source.h"

namespace qdt::host {

// One of the engine's counters.
struct Counter {
  uint32_t number = 0;
  std::string name;             // empty for a counter without one
  std::string_view kind;        // "normal", "discard" or "error"
  uint64_t sum = 0;             // over all cores
  std::vector<uint64_t> cores;  // what each has counted
};

struct CounterList {
  std::vector<Counter> counters;
  uint32_t cores = 0;
};

// The counters whose names match the pattern, in which * stands for any characters; all for an empty one.
// Throws HostError when the engine keeps no statistics.
CounterList ReadCounters(const RecordSource &source, std::string_view pattern);

}  // namespace qdt::host

#endif  // HOST_QUERY_STATISTICS_H_
