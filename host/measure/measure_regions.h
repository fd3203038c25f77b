#ifndef HOST_MEASURE_MEASURE_REGIONS_H_
#define HOST_MEASURE_MEASURE_REGIONS_H_

#include <cstddef>
#include <cstdint>

namespace qdt::host {

// The shared regions of the engine's measurements, as the engine writes them.

constexpr char kFastStatRegion[] = "FAST_STAT_SSMAP_PTR";

struct FastStatBlock {
  static constexpr uint32_t kCores = 4;
  static constexpr uint32_t kPoints = 8;
  static constexpr uint32_t kEvents = 8;

  struct Event {
    uint64_t reserved0;
    uint64_t count;
  };
  struct Point {
    uint32_t hits, packets;
    Event events[kEvents];
  };
  struct Core {
    uint32_t busy;  // 1 while this core is between the first and the last point of a packet
    uint32_t reserved4;
    Point points[kPoints];
  };

  int32_t coreCount;
  uint32_t mode;  // written by others
  Core cores[kCores];
};
static_assert(sizeof(FastStatBlock) == 4392 && sizeof(FastStatBlock::Core) == 1096);
static_assert(sizeof(FastStatBlock::Point) == 136 && offsetof(FastStatBlock, cores) == 8);

constexpr char kTaskTraceRegion[] = "SCHED_TRACE_SSMAP_PTR";

// What others want traced: bits of TaskTraceBlock::flag.
enum TaskTraceFlag : uint8_t {
  kTraceTaskTime = 2,
  kTraceTaskICache = 4,
  kTraceTaskDCache = 8,
  kTraceTaskPath = 16,
  kTraceTaskNodes = 32,
};

// One run context's part of the region; in front of the first stands their number, 64 bits wide.
struct TaskTraceBlock {
  static constexpr uint32_t kTasks = 144;
  static constexpr uint32_t kNodes = 128;

  struct Node {
    uint8_t status;  // 1: has had packets in this batch
    uint8_t reserved1;
    uint16_t packets;
    uint32_t presence;
    uint64_t successors[2];
  };

  uint8_t flag;  // written by others, as is `started`
  uint8_t started;
  uint8_t reserved2[2334];
  Node nodes[kNodes];
  uint8_t reserved5408[384];
  uint8_t perfFlag;
  uint8_t reserved5793[3];
  uint32_t lateBatches, timelyBatches;
  uint32_t reserved5804;
  uint64_t packets[kTasks];
  uint64_t runs[kTasks];
  uint64_t reserved8112[kTasks];
  uint64_t eventA[kTasks];  // cycles, or misses
  uint64_t eventB[kTasks];  // hits
  uint64_t reserved11568[3];
  uint64_t maximum[kTasks];  // of event A in one run
  uint16_t pathMark;
  uint16_t path[kNodes];
  uint8_t reserved13002[22];
};
static_assert(sizeof(TaskTraceBlock) == 13024 && sizeof(TaskTraceBlock::Node) == 24);
static_assert(offsetof(TaskTraceBlock, nodes) == 2336 && offsetof(TaskTraceBlock, perfFlag) == 5792);
static_assert(offsetof(TaskTraceBlock, packets) == 5808 && offsetof(TaskTraceBlock, runs) == 6960);
static_assert(offsetof(TaskTraceBlock, eventA) == 9264 && offsetof(TaskTraceBlock, eventB) == 10416);
static_assert(offsetof(TaskTraceBlock, maximum) == 11592 && offsetof(TaskTraceBlock, pathMark) == 12744);

// Size of the region for so many run contexts.
constexpr uint32_t TaskTraceSize(uint32_t cores) {
  return static_cast<uint32_t>(sizeof(uint64_t) + cores * sizeof(TaskTraceBlock));
}

}  // namespace qdt::host

#endif  // HOST_MEASURE_MEASURE_REGIONS_H_
