#include <string>
#include <vector>

#include "tests/unit/sched_trace_fixture.h"

// The task graph: successors as Graphviz draws them, and the active nodes.
namespace qdt::test {
namespace {

class SchedTraceGraphTest : public SchedTraceTest {
 protected:
  // The successors that both forms show for node `id` when its bitmap is these two words.
  std::string Successors(size_t id, uint64_t low, uint64_t high) {
    platform.RemoveRegion(kRegion);
    AddRegion(1);
    SetNode(0, id, {.low = low, .high = high});
    const std::string list = Perf({"task", "show_active_node"});
    const size_t begin = list.find('[') + 1;
    const std::string numbers = list.substr(begin, list.find(']') - begin);

    std::string graph = "\nrunc 0\ndigraph {\n", number;
    for (const char c : numbers) {
      if (c != ' ') {
        number += c;
      } else {
        graph += "\"" + std::to_string(id) + "\" -> \"" + number + "\"\n";
        number.clear();
      }
    }
    EXPECT_EQ(Perf({"task", "show_graph"}), graph + "}\n");
    return numbers;
  }
};

TEST_F(SchedTraceGraphTest, GraphOfEveryRunContext) {
  AddRegion(2);
  SetNode(0, 10, {.low = 1u << 24});
  SetNode(0, 24, {.presence = 0, .low = (1u << 26) | (1u << 27)});  // drawn although it is unused
  SetNode(1, 26, {.high = 1u << 25});
  EXPECT_EQ(Perf({"task", "show_graph"}),
            "\nrunc 0\ndigraph {\n"
            "\"10\" -> \"24\"\n"
            "\"10\" -> \"56\"\n"
            "\"24\" -> \"26\"\n"
            "\"24\" -> \"27\"\n"
            "\"24\" -> \"58\"\n"
            "\"24\" -> \"59\"\n"
            "}\n"
            "\nrunc 1\ndigraph {\n"
            "\"26\" -> \"89\"\n"
            "\"26\" -> \"121\"\n"
            "}\n");
  EXPECT_EQ(Appended(SchedTraceShowGraphPrintInfo, 4000000000u, Runc(1)),
            "\nrunc 4000000000\ndigraph {\n\"26\" -> \"89\"\n\"26\" -> \"121\"\n}\n");
}

// What follows the last node is none, whatever stands there.
TEST_F(SchedTraceGraphTest, ThereAre128Nodes) {
  Record record(13024);
  for (size_t at = 5408; at < 5792; ++at) record.U8(at, 0xFF);
  const auto *const runc = static_cast<const SchedTraceRunc *>(record.data());
  EXPECT_EQ(Appended(SchedTraceShowGraphPrintInfo, 3u, runc), "\nrunc 3\ndigraph {\n}\n");
  EXPECT_EQ(Appended(SchedTraceShowActiveNodePrintInfo, 3u, runc), "\nrunc: 3\n");
}

TEST_F(SchedTraceGraphTest, ActiveNodes) {
  AddRegion(2);
  SetNode(0, 0, {.status = 1, .packets = 65535, .presence = 1, .low = 4});
  SetNode(0, 1, {.status = 1, .packets = 5, .presence = 0, .low = 4});  // unused: not shown
  SetNode(0, 2, {.status = 0xFE, .packets = 0, .presence = 0x80000000u});
  SetNode(0, 127, {.status = 3, .packets = 7, .presence = 2, .high = 1});
  EXPECT_EQ(Perf({"task", "show_active_node"}),
            "\nrunc: 0\n"
            "current: 0, pktNum: 65535, status: active, next: [2 34 ]\n"
            "current: 2, pktNum: 0, status: inactive, next: []\n"
            "current: 127, pktNum: 7, status: active, next: [64 96 ]\n"
            "\nrunc: 1\n");
  EXPECT_EQ(Appended(SchedTraceShowActiveNodePrintInfo, 9u, Runc(1)), "\nrunc: 9\n");
}

TEST_F(SchedTraceGraphTest, ABitStandsForItsNodeAndTheOne32Above) {
  EXPECT_EQ(Successors(100, 1u << 8, 0), "8 40 ");
  EXPECT_EQ(Successors(100, 1, 0), "0 32 ");
  EXPECT_EQ(Successors(100, 1u << 30, 0), "30 62 ");
  EXPECT_EQ(Successors(1, 0, 1u << 8), "72 104 ");
  EXPECT_EQ(Successors(100, 0x7, 0), "0 1 2 32 33 34 ");
}

TEST_F(SchedTraceGraphTest, ANodeIsNotItsOwnSuccessor) {
  EXPECT_EQ(Successors(8, 1u << 8, 0), "40 ");
  EXPECT_EQ(Successors(40, 1u << 8, 0), "8 ");
  EXPECT_EQ(Successors(31, uint64_t{1} << 40, 0), "63 ");
}

// The mask of every 32nd bit is all of the upper half.
TEST_F(SchedTraceGraphTest, UpperHalfBitsStandForTheLastOfBothHalves) {
  for (const int bit : {31, 32, 40, 63}) EXPECT_EQ(Successors(1, uint64_t{1} << bit, 0), "31 63 ") << bit;
  for (const int bit : {31, 32, 40, 63}) EXPECT_EQ(Successors(1, 0, uint64_t{1} << bit), "95 127 ") << bit;
}

TEST_F(SchedTraceGraphTest, AnAnswerThatIsFullIsCut) {
  AddRegion(8);
  for (int runc = 0; runc < 8; ++runc) {
    for (size_t id = 0; id < 128; ++id) SetNode(runc, id, {.low = UINT64_MAX, .high = UINT64_MAX});
  }
  const std::string graph = Perf({"task", "show_graph"});
  EXPECT_EQ(graph.size(), QDT_OUTPUT_CAPACITY - 1u);
  EXPECT_TRUE(graph.starts_with("\nrunc 0\ndigraph {\n\"0\" -> \"1\"\n\"0\" -> \"2\"\n"));
}

}  // namespace
}  // namespace qdt::test
