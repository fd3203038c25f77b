#ifndef HOST_MEASURE_FAST_STATISTICS_H_
#define HOST_MEASURE_FAST_STATISTICS_H_

#include <cstdint>
#include <optional>

#include "host/measure/hardware_counters.h"
#include "host/measure/measure_regions.h"

namespace qdt::host {

// The engine's side of the fast statistics: while somebody has set a mode in the shared region, counts hits,
// packets and the mode's events from each measurement point to the next.
class FastStatistics {
 public:
  // `block` is the shared region, which outlives this; null: there is none, and nothing is counted.
  FastStatistics(FastStatBlock *block, uint32_t cores);

  // A packet's way through `core` begins, reaches a point (or one that is none), and ends.
  void Begin(uint32_t core);
  void Enter(uint8_t point);
  void End();

 private:
  uint32_t Mode() const;
  void Follow(uint32_t mode);
  void Close();

  FastStatBlock *block_;
  uint32_t mode_ = 0;                         // that the counters are of
  std::optional<HardwareCounters> counters_;  // of a mode that has a table
  bool told_ = false;

  FastStatBlock::Core *core_ = nullptr;  // that measures a packet now
  FastStatBlock::Point *point_ = nullptr;
  HardwareCounters::Values since_{};
};

}  // namespace qdt::host

#endif  // HOST_MEASURE_FAST_STATISTICS_H_
