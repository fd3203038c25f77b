#ifndef HOST_MEASURE_MEASUREMENT_H_
#define HOST_MEASURE_MEASUREMENT_H_

#include <chrono>

#include "host/arena/arena.h"
#include "host/measure/fast_statistics.h"
#include "host/measure/path_task.h"
#include "host/measure/task_trace.h"

namespace qdt::host {

// What the engine measures on its packet path, for the "pmc" and "perf task" commands: one place that the
// path tells where a packet is. Nothing is measured for which the layouts have no region.
class Measurement {
 public:
  // Makes the plan's region of the scheduler trace, if it has one, as large as `cores` take.
  static void Plan(ArenaPlan *plan, uint32_t cores);

  // Writes into the regions what does not change: cores and task graph. The arena outlives this.
  Measurement(const Arena &arena, uint32_t cores);

  // A batch is what arrives between two looks at the clock; `spent` is how long it took.
  void BeginBatch() { tasks_.BeginBatch(); }
  void EndBatch(std::chrono::nanoseconds spent) { tasks_.EndBatch(spent > kBatchTime); }

  void BeginPacket(uint32_t core);
  void Enter(const PathTask &task);
  void EndPacket();

 private:
  // What a batch may take so that the next one is not late.
  static constexpr std::chrono::milliseconds kBatchTime{10};

  FastStatistics points_;
  TaskTrace tasks_;
};

}  // namespace qdt::host

#endif  // HOST_MEASURE_MEASUREMENT_H_
