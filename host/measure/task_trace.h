#ifndef HOST_MEASURE_TASK_TRACE_H_
#define HOST_MEASURE_TASK_TRACE_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/measure/hardware_counters.h"
#include "host/measure/measure_regions.h"
#include "host/measure/path_task.h"

namespace qdt::host {

// The engine's side of the scheduler trace: says which tasks there are and which may follow which, and while
// somebody has set a run context's flag in the shared region, keeps what that asks for.
class TaskTrace {
 public:
  // The run contexts of the shared region, which outlives this; none: nothing is traced.
  TaskTrace(std::span<TaskTraceBlock> runcs);

  // A batch of packets begins. What is to be traced holds until the next.
  void BeginBatch();
  // Ends it; `late` when it took more time than there was.
  void EndBatch(bool late);

  // A packet's way through `core` begins, comes to a task, and ends.
  void Begin(uint32_t core);
  void Enter(uint16_t task);
  void End();

 private:
  struct Core {
    uint8_t flag = 0;
    bool hadPackets = false;
    bool pathDue = false;  // the batch's first packet is still to come
  };
  struct Figures {
    uint64_t a = 0, b = 0;
  };

  Figures ReadFigures() const;
  void Follow(uint8_t cacheEvent);
  void Close();
  void RecordPath();

  std::span<TaskTraceBlock> runcs_;
  std::vector<Core> cores_;
  uint8_t cacheEvent_ = 0;  // flag of the cache that `caches_` counts, or 0
  std::optional<HardwareCounters> caches_;
  bool told_ = false;

  Core *core_ = nullptr;  // that is traced now
  TaskTraceBlock *runc_ = nullptr;
  static constexpr uint16_t kNoTask = 0xFFFF;
  uint16_t task_ = kNoTask;
  Figures since_;
  std::array<uint16_t, TaskTraceBlock::kNodes> path_{};
  size_t pathLength_ = 0;
};

// The run contexts that the region at `region` with `size` bytes has room for, at most `cores`, and their
// number written in front of them.
std::span<TaskTraceBlock> PublishRuncs(void *region, uint32_t size, uint32_t cores);

}  // namespace qdt::host

#endif  // HOST_MEASURE_TASK_TRACE_H_
