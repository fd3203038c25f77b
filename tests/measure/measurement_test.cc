#include "host/measure/measurement.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <vector>

#include "host/measure/fast_statistics.h"
#include "host/measure/hardware_counters.h"
#include "host/measure/task_trace.h"

namespace qdt::host {
namespace {

// Something for the counters to count.
void Work() {
  volatile uint32_t value = 0;
  for (int i = 0; i < 1000; ++i) value = value + 1;
}

// Hardware counters

TEST(HardwareCounters, CyclesGrowWhereverTheyComeFrom) {
  const HardwareCounters counters(evt_select_mode3);
  ASSERT_EQ(counters.events(), 1u);
  const uint64_t before = counters.Read()[0];
  Work();
  EXPECT_GT(counters.Read()[0], before);
}

TEST(HardwareCounters, EventsThatNobodyCountsStayZero) {
  for (int mode = 1; mode <= QDT_PMU_MODES; ++mode) {
    const HardwareCounters counters(evt_define[mode]);
    size_t rows = 0;
    while (evt_define[mode][rows].event != QDT_PMU_EVENT_END) ++rows;
    EXPECT_EQ(counters.events(), rows);
    EXPECT_LE(counters.counted(), rows);
    const HardwareCounters::Values before = counters.Read();
    Work();
    const HardwareCounters::Values after = counters.Read();
    size_t grown = 0;
    for (size_t i = 0; i < after.size(); ++i) {
      EXPECT_GE(after[i], before[i]);
      grown += after[i] != before[i];
    }
    // The cycles, at least; no more than the hardware counts and they.
    EXPECT_GE(grown, 1u) << mode;
    EXPECT_LE(grown, counters.counted() + 1) << mode;
    for (size_t i = rows; i < after.size(); ++i) EXPECT_EQ(after[i], 0u);
  }
}

// Fast statistics

class FastStatisticsTest : public ::testing::Test {
 protected:
  FastStatisticsTest() : block_(std::make_unique<FastStatBlock>()) {}

  // One packet on the core, by these points.
  void Packet(FastStatistics *statistics, uint32_t core, const std::vector<uint8_t> &points) {
    statistics->Begin(core);
    for (const uint8_t point : points) {
      statistics->Enter(point);
      Work();
    }
    statistics->End();
  }

  bool Untouched() const {
    const FastStatBlock none{};
    return std::memcmp(block_->cores, none.cores, sizeof(none.cores)) == 0;
  }

  std::unique_ptr<FastStatBlock> block_;
};

TEST_F(FastStatisticsTest, CountsFromPointToPoint) {
  FastStatistics statistics(block_.get(), 6);
  EXPECT_EQ(block_->coreCount, 6);
  block_->mode = 3;
  Packet(&statistics, 1, {0, 1, PathTask::kNoPoint, 4, 7});
  Packet(&statistics, 1, {0, 7});
  const auto &points = block_->cores[1].points;
  const uint32_t hits[] = {2, 1, 0, 0, 1, 0, 0, 2};
  for (size_t i = 0; i < std::size(hits); ++i) {
    EXPECT_EQ(points[i].hits, hits[i]) << i;
    EXPECT_EQ(points[i].packets, hits[i]) << i;
    EXPECT_EQ(points[i].events[0].count != 0, hits[i] != 0) << i;
    for (size_t event = 1; event < FastStatBlock::kEvents; ++event)
      EXPECT_EQ(points[i].events[event].count, 0u);
  }
  EXPECT_EQ(block_->cores[0].points[0].hits, 0u);
}

TEST_F(FastStatisticsTest, BusyOnlyWhileAPacketIsMeasured) {
  FastStatistics statistics(block_.get(), 4);
  block_->mode = 3;
  statistics.Begin(3);
  EXPECT_EQ(block_->cores[3].busy, 1u);
  EXPECT_EQ(block_->cores[2].busy, 0u);
  statistics.Enter(0);
  EXPECT_EQ(block_->cores[3].busy, 1u);
  statistics.End();
  EXPECT_EQ(block_->cores[3].busy, 0u);
}

TEST_F(FastStatisticsTest, NothingWithoutAModeThatHasATable) {
  FastStatistics statistics(block_.get(), 4);
  for (const uint32_t mode : {0u, 13u, UINT32_MAX}) {
    block_->mode = mode;
    Packet(&statistics, 0, {0, 1, 7});
    EXPECT_TRUE(Untouched()) << mode;
  }
  block_->mode = 3;
  Packet(&statistics, FastStatBlock::kCores, {0, 1, 7});  // a core without a record
  EXPECT_TRUE(Untouched());
  FastStatistics nowhere(nullptr, 4);
  Packet(&nowhere, 0, {0, 1, 7});
}

TEST_F(FastStatisticsTest, AStopEndsItWithinThePacket) {
  FastStatistics statistics(block_.get(), 4);
  block_->mode = 3;
  statistics.Begin(0);
  statistics.Enter(0);
  statistics.Enter(1);
  block_->mode = 0;
  statistics.Enter(2);
  statistics.End();
  EXPECT_EQ(block_->cores[0].points[0].hits, 1u);
  EXPECT_EQ(block_->cores[0].points[1].hits, 0u);
  EXPECT_EQ(block_->cores[0].points[2].hits, 0u);
  EXPECT_EQ(block_->cores[0].busy, 0u);
}

TEST_F(FastStatisticsTest, CyclesStandInTheirOwnColumn) {
  FastStatistics statistics(block_.get(), 4);
  Packet(&statistics, 0, {0});
  for (const auto &[mode, column] : {std::pair{3u, 0}, {1u, 6}, {10u, 2}, {5u, 3}}) {
    *block_ = FastStatBlock{};
    block_->mode = mode;
    Packet(&statistics, 0, {0});
    EXPECT_NE(block_->cores[0].points[0].events[column].count, 0u) << mode;
  }
}

// Scheduler trace

class TaskTraceTest : public ::testing::Test {
 protected:
  TaskTraceTest() : area_(TaskTraceSize(2) / sizeof(uint64_t)) {
    runcs_ = PublishRuncs(area_.data(), TaskTraceSize(2), 2);
    trace_ = std::make_unique<TaskTrace>(runcs_);
  }

  void Packet(uint32_t core, const std::vector<uint16_t> &tasks) {
    trace_->Begin(core);
    for (const uint16_t task : tasks) {
      trace_->Enter(task);
      Work();
    }
    trace_->End();
  }

  void Batch(uint32_t core, const std::vector<std::vector<uint16_t>> &packets, bool late = false) {
    trace_->BeginBatch();
    for (const auto &tasks : packets) Packet(core, tasks);
    trace_->EndBatch(late);
  }

  bool HasNoFigures(const TaskTraceBlock &runc) const {
    for (uint32_t i = 0; i < TaskTraceBlock::kTasks; ++i) {
      if (runc.runs[i] != 0 || runc.packets[i] != 0 || runc.eventA[i] != 0 || runc.eventB[i] != 0 ||
          runc.maximum[i] != 0) {
        return false;
      }
    }
    return runc.lateBatches == 0 && runc.timelyBatches == 0;
  }

  std::vector<uint64_t> area_;
  std::span<TaskTraceBlock> runcs_;
  std::unique_ptr<TaskTrace> trace_;
};

TEST(TaskTraceRegion, HoldsAsManyRunContextsAsItHasRoomFor) {
  std::vector<uint64_t> area(TaskTraceSize(3) / sizeof(uint64_t));
  EXPECT_EQ(PublishRuncs(area.data(), TaskTraceSize(3), 2).size(), 2u);
  EXPECT_EQ(area[0], 2u);
  EXPECT_EQ(PublishRuncs(area.data(), TaskTraceSize(3), 64).size(), 3u);
  EXPECT_EQ(area[0], 3u);
  EXPECT_EQ(PublishRuncs(area.data(), TaskTraceSize(3) - 1, 64).size(), 2u);
  EXPECT_EQ(PublishRuncs(area.data(), 8, 64).size(), 0u);
  EXPECT_EQ(area[0], 0u);
  EXPECT_TRUE(PublishRuncs(area.data(), 7, 64).empty());
  EXPECT_TRUE(PublishRuncs(nullptr, 0, 64).empty());
  EXPECT_EQ(TaskTraceSize(4), 52104u);
}

TEST_F(TaskTraceTest, TheGraphStandsThereFromTheBeginning) {
  const std::set<uint16_t> tasks = {1, 10, 21, 24, 25, 26, 27, 66, 79, 83, 84, 94};
  for (const TaskTraceBlock &runc : runcs_) {
    EXPECT_EQ(runc.perfFlag, 1);
    EXPECT_EQ(runc.flag, 0);
    for (uint16_t id = 0; id < TaskTraceBlock::kNodes; ++id)
      EXPECT_EQ(runc.nodes[id].presence != 0, tasks.contains(id)) << id;
    EXPECT_EQ(runc.nodes[94].successors[0], 1u << 26 | 1u << 27);
    EXPECT_EQ(runc.nodes[94].successors[1], 1u << (84 - 64));
    EXPECT_EQ(runc.nodes[25].successors[0], 1u << 1 | 1u << 21);
    EXPECT_EQ(runc.nodes[25].successors[1], 1u << (66 - 64));
    EXPECT_EQ(runc.nodes[66].successors[0] | runc.nodes[66].successors[1], 0u);
  }
}

TEST_F(TaskTraceTest, Time) {
  runcs_[0].flag = kTraceTaskTime;
  Batch(0, {{0, 24, 66}, {0, 24, 79}});
  Batch(0, {{0, 24, 79}}, true);
  Batch(0, {});  // nothing came
  const TaskTraceBlock &runc = runcs_[0];
  for (const auto &[task, runs] : {std::pair{0, 3u}, {24, 3u}, {66, 1u}, {79, 2u}, {1, 0u}}) {
    EXPECT_EQ(runc.runs[task], runs) << task;
    EXPECT_EQ(runc.packets[task], runs) << task;
    EXPECT_EQ(runc.eventA[task] != 0, runs != 0) << task;
    EXPECT_LE(runc.maximum[task], runc.eventA[task]);
    EXPECT_GE(runc.maximum[task] * runs, runc.eventA[task]);
    EXPECT_EQ(runc.eventB[task], 0u);
  }
  EXPECT_EQ(runc.timelyBatches, 1u);
  EXPECT_EQ(runc.lateBatches, 1u);
  EXPECT_EQ(runc.pathMark, 0);
  EXPECT_EQ(runc.nodes[0].status, 0);
  EXPECT_TRUE(HasNoFigures(runcs_[1]));
}

TEST_F(TaskTraceTest, OtherCoresAndNoFlag) {
  Batch(0, {{0, 24}});
  EXPECT_TRUE(HasNoFigures(runcs_[0]));
  runcs_[0].flag = kTraceTaskTime;
  Batch(1, {{0, 24}});
  Batch(2, {{0, 24}});  // without a run context
  EXPECT_TRUE(HasNoFigures(runcs_[0]));
  EXPECT_TRUE(HasNoFigures(runcs_[1]));
  // What is asked for in the middle of a batch begins with the next, and ends likewise.
  trace_->BeginBatch();
  runcs_[1].flag = kTraceTaskTime;
  Packet(1, {0});
  EXPECT_TRUE(HasNoFigures(runcs_[1]));
  Batch(1, {{0}});
  EXPECT_EQ(runcs_[1].runs[0], 1u);
}

TEST_F(TaskTraceTest, CachesCountRunsAndWhatTheMachineCanCount) {
  for (const uint8_t flag : {kTraceTaskICache, kTraceTaskDCache}) {
    runcs_[1].flag = flag;
    Batch(1, {{0, 24}, {0}});
  }
  EXPECT_EQ(runcs_[1].runs[0], 4u);
  EXPECT_EQ(runcs_[1].packets[24], 2u);
  const PmuEventSelect data[] = {{0x04, "L1D_CACHE", 0, {}}, {QDT_PMU_EVENT_END, nullptr, 0, {}}};
  EXPECT_EQ(runcs_[1].eventB[0] != 0, HardwareCounters(data).counted() != 0);
}

TEST_F(TaskTraceTest, PathOfTheFirstPacketOfABatch) {
  runcs_[0].flag = kTraceTaskPath;
  Batch(0, {{0, 24, 79}, {0, 66}});
  const TaskTraceBlock &runc = runcs_[0];
  EXPECT_EQ(runc.pathMark, 1);
  EXPECT_EQ(runc.path[0], 0);
  EXPECT_EQ(runc.path[1], 24);
  EXPECT_EQ(runc.path[2], 79);
  EXPECT_EQ(runc.path[3], 0xFFFF);
  EXPECT_EQ(runc.path[127], 0xFFFF);
  EXPECT_TRUE(HasNoFigures(runc));
  Batch(0, {{0, 66}});
  EXPECT_EQ(runc.path[1], 66);
  EXPECT_EQ(runc.path[2], 0xFFFF);
}

TEST_F(TaskTraceTest, NodesOfTheLastBatchThatHadPackets) {
  runcs_[0].flag = kTraceTaskNodes;
  Batch(0, {{0, 24}, {0, 66}});
  Batch(0, {});
  const auto &nodes = runcs_[0].nodes;
  EXPECT_EQ(nodes[0].status, 1);
  EXPECT_EQ(nodes[0].packets, 2);
  EXPECT_EQ(nodes[66].packets, 1);
  Batch(0, {{0, 24}});
  EXPECT_EQ(nodes[0].packets, 1);
  EXPECT_EQ(nodes[66].status, 0);
  EXPECT_EQ(nodes[66].packets, 0);
  EXPECT_TRUE(HasNoFigures(runcs_[0]));
}

TEST(TaskTrace, WithoutARegion) {
  TaskTrace trace({});
  trace.BeginBatch();
  trace.Begin(0);
  trace.Enter(24);
  trace.End();
  trace.EndBatch(false);
}

TEST(Measurement, PlansARunContextForEveryCore) {
  ArenaPlan plan;
  plan.regions = {{"OTHER", 8}, {kTaskTraceRegion, 52104}};
  Measurement::Plan(&plan, 64);
  EXPECT_EQ(plan.regions[0].size, 8u);
  EXPECT_EQ(plan.regions[1].size, TaskTraceSize(64));
}

}  // namespace
}  // namespace qdt::host
