#ifndef HOST_REGIONS_STATISTICS_H_
#define HOST_REGIONS_STATISTICS_H_

#include <cstdint>

#include "host/arena/arena.h"

namespace qdt::host {

// The region of the engine's statistics: for each run context (forwarding core) a vector of
// QDT_STAT_COUNTERS counters, as include/qdt/stats.h lays it out. Only the engine writes it. Programs read it
// through the services QdtSysStat... of include/platform/engine.h, from a snapshot as well.
constexpr char kStatisticsRegion[] = "NQE_RUNC_STAT";

constexpr uint32_t kMaxCores = 64;

RegionSpec StatisticsSpec(uint32_t cores);

// The engine's side: adds to counters while other processes read them.
class Statistics {
 public:
  // `arena` has been made with a StatisticsSpec, and outlives this.
  explicit Statistics(const Arena &arena);

  uint32_t cores() const { return cores_; }

  // `core` and `counter` are in range.
  void Add(uint32_t core, uint32_t counter, uint64_t amount);

 private:
  uint64_t *counters_;
  uint32_t cores_;
};

}  // namespace qdt::host

#endif  // HOST_REGIONS_STATISTICS_H_
