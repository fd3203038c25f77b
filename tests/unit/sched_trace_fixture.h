#ifndef TESTS_UNIT_SCHED_TRACE_FIXTURE_H_
#define TESTS_UNIT_SCHED_TRACE_FIXTURE_H_

#include <string>
#include <vector>

#include "qdt/sched_trace.h"
#include "tests/unit/command_test.h"

namespace qdt::test {

// The region of the scheduler trace, written by the offsets at which the engine keeps its fields.
class SchedTraceTest : public CommandTest {
 protected:
  static constexpr char kRegion[] = "SCHED_TRACE_SSMAP_PTR";
  static constexpr size_t kRuncSize = 13024;

  static constexpr uint8_t kTime = 2, kICache = 4, kDCache = 8, kTaskPath = 16, kSnapshot = 32;

  void TearDown() override {
    platform.RemoveRegion(kRegion);
    Perf({"task", "show"});  // forgets the region
    g_perfFlag = 0;
    CommandTest::TearDown();
  }

  static constexpr size_t RuncAt(int runc) { return 8 + kRuncSize * static_cast<size_t>(runc); }

  void AddRegion(uint64_t runcs) {
    platform.AddRegion(kRegion, RuncAt(static_cast<int>(runcs)));
    Put(kRegion, 0, runcs);
  }

  void SetFlag(int runc, uint8_t flag) { Put(kRegion, RuncAt(runc), flag); }
  uint8_t flag(int runc) { return Get<uint8_t>(kRegion, RuncAt(runc)); }
  uint8_t started(int runc) { return Get<uint8_t>(kRegion, RuncAt(runc) + 1); }
  void SetPerfFlag(int runc, uint8_t flag) { Put(kRegion, RuncAt(runc) + 5792, flag); }
  void SetBatches(int runc, uint32_t overTime, uint32_t inTime) {
    Put(kRegion, RuncAt(runc) + 5796, overTime);
    Put(kRegion, RuncAt(runc) + 5800, inTime);
  }

  struct Task {
    uint64_t runs = 0, packets = 0, eventA = 0, eventB = 0, maximum = 0;
  };
  void SetTask(int runc, size_t id, const Task &task) {
    Put(kRegion, RuncAt(runc) + 5808 + 8 * id, task.packets);
    Put(kRegion, RuncAt(runc) + 6960 + 8 * id, task.runs);
    Put(kRegion, RuncAt(runc) + 9264 + 8 * id, task.eventA);
    Put(kRegion, RuncAt(runc) + 10416 + 8 * id, task.eventB);
    Put(kRegion, RuncAt(runc) + 11592 + 8 * id, task.maximum);
  }

  struct Node {
    uint8_t status = 0;
    uint16_t packets = 0;
    uint32_t presence = 1;
    uint64_t low = 0, high = 0;
  };
  void SetNode(int runc, size_t id, const Node &node) {
    const size_t at = RuncAt(runc) + 2336 + 24 * id;
    Put(kRegion, at, node.status);
    Put(kRegion, at + 2, node.packets);
    Put(kRegion, at + 4, node.presence);
    Put(kRegion, at + 8, node.low);
    Put(kRegion, at + 16, node.high);
  }

  // A recorded path, its other slots empty.
  void SetPath(int runc, uint16_t mark, const std::vector<std::pair<size_t, uint16_t>> &slots) {
    const size_t at = RuncAt(runc) + 12744;
    Put(kRegion, at, mark);
    for (size_t i = 0; i < 128; ++i) Put(kRegion, at + 2 + 2 * i, uint16_t{0xFFFF});
    for (const auto &[slot, id] : slots) Put(kRegion, at + 2 + 2 * slot, id);
  }

  // The record of a run context, for the operations that take one.
  const SchedTraceRunc *Runc(int runc) {
    return reinterpret_cast<const SchedTraceRunc *>(static_cast<const char *>(platform.Region(kRegion)) +
                                                    RuncAt(runc));
  }

  // The answer to "perf" and the words.
  std::string Perf(std::vector<std::string> words) {
    words.insert(words.begin(), "perf");
    return Run(VrxSchedTraceCmdRun, words);
  }
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_SCHED_TRACE_FIXTURE_H_
