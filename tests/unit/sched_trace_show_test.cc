#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/sched_trace_fixture.h"

// The figures of the scheduler trace: show, topdown and the pieces that print them.
namespace qdt::test {
namespace {

constexpr char kNoBatches[] = "oTCnt/(oTCnt+batchCnt) = (0/0), over_time_rate =   0.000\n";

class SchedTraceShowTest : public SchedTraceTest {
 protected:
  void SetUp() override {
    SchedTraceTest::SetUp();
    AddRegion(1);
  }

  std::string Show() { return Perf({"task", "show"}); }
};

// Header and what stands below it.

TEST_F(SchedTraceShowTest, FlagsDecideWhatIsShown) {
  const std::string unsupported = "NQE do not support current event type: ";
  const struct {
    uint8_t flag;
    std::string header, body;
  } kCases[] = {
      {0, "Trace flag is not set\n", ""},
      {1, "NQE do not support current tracer flag 1.\n", unsupported + "1.\n"},
      {2, "Time Trace:\n", kNoBatches},
      {4, "ICache Trace:\n", kNoBatches},
      {8, "DCache Trace:\n", kNoBatches},
      {16, "Task Path Trace:\n", unsupported + "16.\n"},
      {32, "Active Node Trace:\n", "\nrunc: 0\n"},
      {64, "NQE do not support current tracer flag 64.\n", unsupported + "64.\n"},
      {193, "NQE do not support current tracer flag 193.\n", unsupported + "193.\n"},
      {3, "Time Trace:\n", kNoBatches},
      {12, "ICache Trace:\n", kNoBatches},
      {24, "DCache Trace:\n", kNoBatches},
      {34, "Time Trace:\n", "\nrunc: 0\n"},
      {48, "Task Path Trace:\n", "\nrunc: 0\n"},
      {0xFE, "Time Trace:\n", "\nrunc: 0\n"},
  };
  for (const auto &row : kCases) {
    SetFlag(0, row.flag);
    EXPECT_EQ(Show(), row.header + "\nRunc 0:\n" + row.body) << static_cast<int>(row.flag);
  }
}

TEST_F(SchedTraceShowTest, ARecordedPathComesFirst) {
  SetPath(0, 1, {{0, 10}, {1, 24}, {2, 26}});
  const std::string path = "traceId: 0, taskId: [10 \n24 26 ]\n";
  SetFlag(0, kTaskPath);
  EXPECT_EQ(Show(), "Task Path Trace:\n\nRunc 0:\n" + path);
  SetFlag(0, kTaskPath | kSnapshot);
  EXPECT_EQ(Show(), "Task Path Trace:\n\nRunc 0:\n" + path);
  SetFlag(0, kTaskPath | kTime);
  EXPECT_EQ(Show(), "Time Trace:\n\nRunc 0:\n" + path);
  SetFlag(0, kTime);
  EXPECT_EQ(Show(), std::string("Time Trace:\n\nRunc 0:\n") + kNoBatches);
}

TEST_F(SchedTraceShowTest, SnapshotShowsTheNodes) {
  SetFlag(0, kSnapshot);
  SetNode(0, 3, {.status = 1, .packets = 9, .presence = 1, .low = 0x20});
  const std::string nodes = "\nrunc: 0\ncurrent: 3, pktNum: 9, status: active, next: [5 37 ]\n";
  EXPECT_EQ(Show(), "Active Node Trace:\n\nRunc 0:\n" + nodes);
  EXPECT_EQ(Perf({"task", "show_active_node"}), nodes);
}

TEST_F(SchedTraceShowTest, EveryRunContext) {
  AddRegion(3);
  SetFlag(1, kDCache);
  SetFlag(2, kTaskPath);
  SetPath(2, 0xFFFF, {{127, 0}});
  EXPECT_EQ(Show(), std::string("Trace flag is not set\n\nRunc 0:\nDCache Trace:\n\nRunc 1:\n") + kNoBatches +
                        "Task Path Trace:\n\nRunc 2:\ntraceId: 0, taskId: [0 ]\n");
}

// Averages.

TEST_F(SchedTraceShowTest, TimeOfNamedTasksAndSelectorNodes) {
  SetFlag(0, kTime);
  SetBatches(0, 1, 3);
  SetTask(0, 0, {.runs = 4, .packets = 10, .eventA = 1000, .eventB = 999});
  SetTask(0, 1, {.runs = 0, .packets = 100, .eventA = 1000, .eventB = 999});  // did not run
  SetTask(0, 26, {.runs = 2, .packets = 3, .eventA = 5});
  SetTask(0, 65, {.runs = 10, .packets = 1, .eventA = 200, .eventB = 20});
  SetTask(0, 93, {.runs = 3, .packets = 1, .eventA = 20000000});
  SetTask(0, 94, {.runs = 10, .packets = 6, .eventA = 1200});
  SetTask(0, 143, {.runs = 1, .packets = 5, .eventA = 100});
  // Selector nodes: task 65 is taken from the cycles and added to the runs; packets are those so far.
  EXPECT_EQ(
      Show(),
      "Time Trace:\n\nRunc 0:\n"
      "oTCnt/(oTCnt+batchCnt) = (1/4), over_time_rate =   0.250\n"
      "task_id = 0, task_name = TASK_ID_DRV_RX = 0, task_cnt = 4, avg_cycle =    250.000, avg_pkts =   "
      "2.500\n"
      "task_id = 26, task_name = TASK_ID_IP_FWD, task_cnt = 2, avg_cycle =      2.500, avg_pkts =   1.500\n"
      "task_id = 65, task_name = TASK_ID_IFRA_EVENT, task_cnt = 10, avg_cycle =     20.000, avg_pkts =   "
      "0.100\n"
      "task_id = 93, task_name = TASK_ID_SVC_EGR_SAC_REORDER, task_cnt = 3, avg_cycle = 6666666.667, "
      "avg_pkts "
      "=   0.333\n"
      "task_id = 94, task_name = TASK_SELECT, task_cnt = 10, avg_cycle =     50.000, avg_pkts =   2.100\n"
      "task_id = 143, task_name = TASK_SELECT, task_cnt = 1, avg_cycle =     -9.091, avg_pkts =  26.000\n");
}

TEST_F(SchedTraceShowTest, CachesShowMissesAndHits) {
  SetTask(0, 26, {.runs = 4, .packets = 3, .eventA = 5, .eventB = 7});
  SetTask(0, 65, {.runs = 2, .packets = 1, .eventA = 4, .eventB = 16});
  SetTask(0, 100, {.runs = 2, .packets = 2, .eventA = 24, .eventB = 8});
  const std::string figures =
      "\nRunc 0:\n"
      "oTCnt/(oTCnt+batchCnt) = (0/0), over_time_rate =   0.000\n"
      "task_id = 26, task_name = TASK_ID_IP_FWD, task_cnt = 4, "
      "avg_miss =      1.250, avg_hit =    1.750, avg_pkts =   0.750\n"
      "task_id = 65, task_name = TASK_ID_IFRA_EVENT, task_cnt = 2, "
      "avg_miss =      2.000, avg_hit =    8.000, avg_pkts =   0.500\n"
      "task_id = 100, task_name = TASK_SELECT, task_cnt = 2, "
      "avg_miss =      5.000, avg_hit =   -2.000, avg_pkts =   3.000\n";
  SetFlag(0, kICache);
  EXPECT_EQ(Show(), "ICache Trace:\n" + figures);
  SetFlag(0, kDCache);
  EXPECT_EQ(Show(), "DCache Trace:\n" + figures);
  // Time among other flags has the columns of the caches.
  SetFlag(0, kTime | kDCache);
  EXPECT_EQ(Show(), "Time Trace:\n" + figures);
  SetFlag(0, kTime | 1);
  EXPECT_EQ(Show(), "Time Trace:\n" + figures);
}

TEST_F(SchedTraceShowTest, MaximaGoByThePerfFlag) {
  SetFlag(0, kTime);
  SetTask(0, 24, {.runs = 1, .packets = 2, .eventA = 3, .maximum = 4000000000});
  SetTask(0, 25, {.runs = 1, .packets = 2, .eventA = 3, .maximum = (uint64_t{1} << 32) + 5});
  SetPerfFlag(0, 1);
  EXPECT_EQ(Show(), std::string("Time Trace:\n\nRunc 0:\n") + kNoBatches +
                        "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 1, max=4000000000,"
                        "avg_cycle =      3.000, avg_pkts =   2.000\n"
                        "task_id = 25, task_name = TASK_ID_FWK_EGR, task_cnt = 1, max=5,"
                        "avg_cycle =      3.000, avg_pkts =   2.000\n");
  SetPerfFlag(0, 2);
  EXPECT_EQ(Show().find("max="), std::string::npos);
}

TEST_F(SchedTraceShowTest, NumbersAtTheirLimits) {
  SetFlag(0, kTime);
  SetBatches(0, UINT32_MAX, 1);  // their sum is 0 again
  SetTask(0, 24, {.runs = UINT64_MAX, .packets = UINT64_MAX, .eventA = UINT64_MAX});
  EXPECT_EQ(Show(),
            "Time Trace:\n\nRunc 0:\n"
            "oTCnt/(oTCnt+batchCnt) = (-1/0), over_time_rate =   0.000\n"
            "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 18446744073709551615, "
            "avg_cycle =      1.000, avg_pkts =   1.000\n");
  SetBatches(0, 0x80000000u, 0x7FFFFFFFu);
  EXPECT_NE(Show().find(" = (-2147483648/-1), over_time_rate =   0.500\n"), std::string::npos);
  // The packets so far have 32 bits.
  SetTask(0, 24, {.runs = 1, .packets = (uint64_t{1} << 32) + 7});
  SetTask(0, 94, {.runs = 1});
  EXPECT_TRUE(Show().ends_with("avg_cycle =      0.000, avg_pkts =   7.000\n"));
  // Runs that cancel out leave nothing to divide by.
  SetTask(0, 65, {.runs = UINT64_MAX});
  SetTask(0, 94, {.runs = 1, .eventA = 5});
  EXPECT_TRUE(Show().ends_with("avg_cycle =      0.000, avg_pkts =   7.000\n"));
}

TEST_F(SchedTraceShowTest, NamesOfAllTasks) {
  SetFlag(0, kTime);
  std::istringstream names(Golden("sched_task_names.txt"));
  std::string expected = std::string("Time Trace:\n\nRunc 0:\n") + kNoBatches, name;
  for (size_t id = 0; id < 144; ++id) {
    if (!std::getline(names, name)) name = "TASK_SELECT";
    if (id != 65) SetTask(0, id, {.runs = 1});
    if (id != 65)
      expected += "task_id = " + std::to_string(id) + ", task_name = " + name +
                  ", task_cnt = 1, avg_cycle =      0.000, avg_pkts =   0.000\n";
  }
  EXPECT_EQ(name, "TASK_SELECT");
  EXPECT_EQ(Show(), expected);
}

// The pieces by themselves.

TEST_F(SchedTraceShowTest, EventsOfARangeOfTasks) {
  SetFlag(0, kTime);
  for (size_t id : {23, 24, 26, 27, 143}) SetTask(0, id, {.runs = 1, .packets = 1});
  const std::string line23 =
      "task_id = 23, task_name = TASK_ID_DRV_SAC_PREORDER_RX, task_cnt = 1, avg_cycle =      0.000, "
      "avg_pkts =   1.000\n";
  const std::string line143 =
      "task_id = 143, task_name = TASK_SELECT, task_cnt = 1, avg_cycle =      0.000, avg_pkts =   1.000\n";
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 20u, 24u), kNoBatches + line23);
  // Packets so far are those of the range.
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 28u, 144u), kNoBatches + line143);
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 28u, UINT32_MAX), kNoBatches + line143);
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 24u, 24u), kNoBatches);
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 144u, UINT32_MAX), kNoBatches);
  // The flag given says whether there are events; that of the record says which.
  EXPECT_EQ(Appended(FormatEventTracer, 0xF1u, Runc(0), 0u, 144u),
            "NQE do not support current event type: 241.\n");
  SetFlag(0, 0);
  EXPECT_EQ(Appended(FormatEventTracer, 2u, Runc(0), 20u, 24u),
            std::string(kNoBatches) +
                "task_id = 23, task_name = TASK_ID_DRV_SAC_PREORDER_RX, task_cnt = 1, avg_miss =      0.000, "
                "avg_hit =    0.000, avg_pkts =   1.000\n");
}

TEST_F(SchedTraceShowTest, AveragesOfOneTask) {
  SetFlag(0, kTime);
  SetTask(0, 5, {.runs = 2, .packets = 1, .eventA = 3});
  SetTask(0, 94, {.runs = 8, .packets = 1, .eventA = 4});
  EXPECT_EQ(Appended(FormatEventTracerOutput, Runc(0), 5u, 1000u),
            "avg_cycle =      1.500, avg_pkts =   0.500\n");
  EXPECT_EQ(Appended(FormatEventTracerOutput, Runc(0), 94u, 1000u),
            "avg_cycle =      0.500, avg_pkts = 125.000\n");
  EXPECT_EQ(Appended(FormatEventTracerOutput, Runc(0), 94u, UINT32_MAX),
            "avg_cycle =      0.500, avg_pkts = 536870911.875\n");
  EXPECT_EQ(Appended(FormatEventTracerOutput, Runc(0), 6u, 1u),
            "avg_cycle =      0.000, avg_pkts =   0.000\n");
  for (const uint32_t none : {144u, UINT32_MAX})
    EXPECT_EQ(Appended(FormatEventTracerOutput, Runc(0), none, 1u), "");
}

TEST_F(SchedTraceShowTest, PathBreaksBehindEvery20thSlot) {
  SetPath(0, 1, {{1, 24}, {19, 1}, {20, 26}, {21, 65534}, {40, 7}, {127, 143}});
  const std::string path = "traceId: 0, taskId: [24 1 26 \n65534 7 \n143 ]\n";
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 0u, 1u), path);
  const auto *const record = reinterpret_cast<const char *>(Runc(0)) + 12744;
  EXPECT_EQ(Appended(FormatPathTracerTaskId, reinterpret_cast<const SchedTracePath *>(record)), path);
  SetPath(0, 1, {});
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 0u, 1u), "traceId: 0, taskId: []\n");
}

TEST_F(SchedTraceShowTest, OnlyTheRecordsOwnMarkedPathIsShown) {
  SetPath(0, 0x8000, {{1, 24}});
  const std::string path = "traceId: 0, taskId: [24 ]\n";
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 0u, UINT32_MAX), path);
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 1u, 3u), "");
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 0u, 0u), "");
  SetPath(0, 0, {{1, 24}});
  EXPECT_EQ(Appended(FormatPathTracer, Runc(0), 0u, 1u), "");
}

// Tasks by cycles.

TEST_F(SchedTraceShowTest, TopDownNeedsTime) {
  const std::string refusal = "current trace flag doesn't have top down info, please set flag to time.\n";
  for (const uint8_t flag : {0, 4, 8, 16, 32, 0xFD}) {
    SetFlag(0, flag);
    EXPECT_EQ(Perf({"task", "topdown", "total"}), refusal);
  }
  AddRegion(3);
  SetFlag(1, kTime);
  EXPECT_EQ(Perf({"task", "topdown", "avg"}), refusal + "\nRunc 1:\n<< Sorted by avg cycle >>\n" + refusal);
}

class SchedTraceTopDownTest : public SchedTraceShowTest {
 protected:
  void SetUp() override {
    SchedTraceShowTest::SetUp();
    SetFlag(0, kTime);
  }
};

TEST_F(SchedTraceTopDownTest, TotalAndAverage) {
  SetTask(0, 24, {.runs = 4, .packets = 8, .eventA = 2000});
  SetTask(0, 26, {.runs = 2, .packets = 3, .eventA = 500});
  SetTask(0, 65, {.runs = 10, .packets = 1, .eventA = 200});
  SetTask(0, 94, {.runs = 10, .packets = 6, .eventA = 1200});
  SetTask(0, 100, {.runs = 5, .packets = 9, .eventA = 50});
  const std::string fwkIng =
      "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 4,avg_cycle =    500.000, avg_pkts =   2.000\n";
  const std::string ipFwd =
      "task_id = 26, task_name = TASK_ID_IP_FWD, task_cnt = 2,avg_cycle =    250.000, avg_pkts =   1.500\n";
  const std::string event =
      "task_id = 65, task_name = TASK_ID_IFRA_EVENT, task_cnt = 10,avg_cycle =     20.000, avg_pkts =   "
      "0.100\n";
  // By keys 2000, 1000, 500, 200 and -150. Selector 94: 8 packets so far, then 6 + 3 + 1 + 9 from it to the
  // end; selector 100: these 27, 3 and 1 of the two between, its own 9.
  EXPECT_EQ(Perf({"task", "topdown", "total"}),
            "\nRunc 0:\n<< Sorted by total cycle >>\n" + fwkIng +
                "task_id = 94, task_name = TASK_SELECT, task_cnt = 10,avg_cycle =     50.000, avg_pkts =   "
                "2.700\n" +
                ipFwd + event +
                "task_id = 100, task_name = TASK_SELECT, task_cnt = 5,avg_cycle =    -10.000, avg_pkts =   "
                "8.000\n");
  // By keys 500, 250, 50, 20 and -10. Selector 94: 8 + 3 so far, then 6 + 1 + 9.
  EXPECT_EQ(Perf({"task", "topdown", "avg"}),
            "\nRunc 0:\n<< Sorted by avg cycle >>\n" + fwkIng + ipFwd +
                "task_id = 94, task_name = TASK_SELECT, task_cnt = 10,avg_cycle =     50.000, avg_pkts =   "
                "2.700\n" +
                event +
                "task_id = 100, task_name = TASK_SELECT, task_cnt = 5,avg_cycle =    -10.000, avg_pkts =   "
                "7.400\n");
}

// A selector node stands where its cycles and runs put it after the correction by task 65.
TEST_F(SchedTraceTopDownTest, SelectorsAreSortedByWhatIsLeftOfTheirCycles) {
  SetTask(0, 24, {.runs = 20, .packets = 40, .eventA = 1100});
  SetTask(0, 65, {.runs = 10, .packets = 1, .eventA = 200});
  SetTask(0, 94, {.runs = 10, .packets = 6, .eventA = 1200});
  // By keys 1100, 1000 and 200; by 55, 50 and 20.
  for (const std::string kind : {"total", "avg"}) {
    EXPECT_EQ(Perf({"task", "topdown", kind}),
              "\nRunc 0:\n<< Sorted by " + kind +
                  " cycle >>\n"
                  "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 20,avg_cycle =     55.000, "
                  "avg_pkts =   2.000\n"
                  "task_id = 94, task_name = TASK_SELECT, task_cnt = 10,avg_cycle =     50.000, "
                  "avg_pkts =   4.700\n"
                  "task_id = 65, task_name = TASK_ID_IFRA_EVENT, task_cnt = 10,avg_cycle =     20.000, "
                  "avg_pkts =   0.100\n");
  }
}

TEST_F(SchedTraceTopDownTest, NoMaximaWhateverThePerfFlag) {
  SetPerfFlag(0, 1);
  SetTask(0, 24, {.runs = 1, .packets = 1, .eventA = 1, .maximum = 9});
  EXPECT_EQ(Perf({"task", "topdown", "total"}),
            "\nRunc 0:\n<< Sorted by total cycle >>\n"
            "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 1,avg_cycle =      1.000, avg_pkts =   "
            "1.000\n");
}

// Tasks that did not run leave entries of task 0, which are printed when that ran.
TEST_F(SchedTraceTopDownTest, TaskZeroOnceMoreForEveryTaskThatDidNotRun) {
  SetTask(0, 0, {.runs = 1, .packets = 2, .eventA = 50});
  SetTask(0, 94, {.runs = 1, .packets = 3, .eventA = 100});
  std::string expected =
      "\nRunc 0:\n<< Sorted by total cycle >>\n"
      "task_id = 94, task_name = TASK_SELECT, task_cnt = 1,avg_cycle =    100.000, avg_pkts = 289.000\n";
  for (int i = 0; i < 143; ++i)
    expected +=
        "task_id = 0, task_name = TASK_ID_DRV_RX = 0, task_cnt = 1,avg_cycle =     50.000, avg_pkts =   "
        "2.000\n";
  EXPECT_EQ(Perf({"task", "topdown", "total"}), expected);
}

// Packets of task 0 count for each entry that it left, although it did not run.
TEST_F(SchedTraceTopDownTest, EntriesOfTaskZeroCountItsPackets) {
  SetTask(0, 0, {.packets = 2});
  SetTask(0, 94, {.runs = 1, .packets = 3, .eventA = 100});
  EXPECT_EQ(
      Perf({"task", "topdown", "total"}),
      "\nRunc 0:\n<< Sorted by total cycle >>\n"
      "task_id = 94, task_name = TASK_SELECT, task_cnt = 1,avg_cycle =    100.000, avg_pkts = 289.000\n");
}

// Keys less than one cycle apart are equal; the C library's sort keeps these in the order of their ids.
TEST_F(SchedTraceTopDownTest, LessThanOneCycleIsEqual) {
  SetTask(0, 24, {.runs = 10, .eventA = 31});
  SetTask(0, 25, {.runs = 10, .eventA = 40});
  const std::string title = "\nRunc 0:\n<< Sorted by avg cycle >>\n";
  const std::string ing =
      "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 10,avg_cycle =      3.100, avg_pkts =   0.000\n";
  EXPECT_EQ(
      Perf({"task", "topdown", "avg"}),
      title + ing +
          "task_id = 25, task_name = TASK_ID_FWK_EGR, task_cnt = 10,avg_cycle =      4.000, avg_pkts =   "
          "0.000\n");
  SetTask(0, 25, {.runs = 10, .eventA = 45});
  EXPECT_EQ(
      Perf({"task", "topdown", "avg"}),
      title +
          "task_id = 25, task_name = TASK_ID_FWK_EGR, task_cnt = 10,avg_cycle =      4.500, avg_pkts =   "
          "0.000\n" +
          ing);
}

TEST_F(SchedTraceTopDownTest, DifferencesBeyondAnIntegerKeepTheirOrder) {
  SetTask(0, 24, {.runs = 1, .eventA = 1});
  SetTask(0, 25, {.runs = 1, .eventA = 5000000000});
  SetTask(0, 26, {.runs = 1, .eventA = 1000000000000});
  EXPECT_EQ(Perf({"task", "topdown", "total"}),
            "\nRunc 0:\n<< Sorted by total cycle >>\n"
            "task_id = 26, task_name = TASK_ID_IP_FWD, task_cnt = 1,avg_cycle = 1000000000000.000, "
            "avg_pkts =   0.000\n"
            "task_id = 25, task_name = TASK_ID_FWK_EGR, task_cnt = 1,avg_cycle = 5000000000.000, "
            "avg_pkts =   0.000\n"
            "task_id = 24, task_name = TASK_ID_FWK_ING, task_cnt = 1,avg_cycle =      1.000, "
            "avg_pkts =   0.000\n");
}

}  // namespace
}  // namespace qdt::test
