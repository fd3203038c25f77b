#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/tbm.h"
#include "tests/engine/made_up_filler.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

constexpr char kSessions[] = R"(
session:
  - {index: 1, valid: 1, aging_time: 100}
  - {index: 2, valid: 1, aging_time: 200, refreshed: 50}
  - {index: 3, valid: 1, aging_time: 65535, refreshed: 3000}
  - {index: 4, valid: 1, aging_time: 0}
  - {index: 5, valid: 0, aging_time: 0}
  - {index: 6, valid: 1, state: 1, is_ipv6: 1, aging_time: 100, positive6: {protocol: 6}, tcp: {cwnd: 1}}
server_map:
  - {type: 2, source: 0.0.0.0, source_port: 0, destination: 192.0.2.1, destination_port: 1, vrf: 0, protocol: 6,
     aging_time: 100}
  - {type: 0, source: 0.0.0.0, source_port: 0, destination: 192.0.2.2, destination_port: 1, vrf: 0, protocol: 6,
     aging_time: 0xffffffff}
  - {type: 16, source: 0.0.0.0, source_port: 0, destination: 192.0.2.3, destination_port: 1, vrf: 0, protocol: 6,
     aging_time: 0}
fwdif: [{if_index: 7}]
)";

class AgingTest : public testing::Test {
 protected:
  AgingTest() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    start_ = static_cast<uint64_t>(now.tv_sec);
  }

  // The session indexes that are left, as the flow partition and as the table have them.
  static std::vector<uint32_t> Left() {
    std::vector<uint32_t> left;
    const TbmFlowPartition *partition = g_tbmGlobalInfo->flowPartition;
    for (uint32_t i = 0; i < partition->nodeCount; ++i) {
      if (partition->nodes[i] != nullptr) left.push_back(*static_cast<uint32_t *>(partition->nodes[i]));
    }
    uint32_t entries = 0;
    EXPECT_EQ(TbmTblEntryNum(0, kFlowPartitionTable, &entries), 0);
    EXPECT_EQ(entries, left.size());
    return left;
  }
  static uint32_t ServerMaps() {
    uint32_t count = 0;
    EXPECT_EQ(TbmHashMapEntryNum(g_tbmGlobalInfo->serverMaps, &count), 0);
    return count;
  }
  static uint8_t *Session(uint32_t index) {
    void *entry = nullptr;
    EXPECT_EQ(TbmTblSearch(0, kFlowPartitionTable, &index, &entry), 0);
    return static_cast<uint8_t *>(entry);
  }

  TempDir directory_;
  ScenarioFiller filler_{"test", Scenario::FromText("test", kSessions, Layout::BuiltIn())};
  uint64_t start_ = 0;
  Engine engine_{{directory_.File("arena"), directory_.File("socket")}, Layout::BuiltIn(), &filler_};
};

TEST_F(AgingTest, EntriesLeaveWhenTheirTimeIsOver) {
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  Aging aging(Layout::BuiltIn(), &writer);
  EXPECT_EQ(Left(), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(aging.Run(start_), 2u);  // a session and a server map of aging time 0
  EXPECT_EQ(Left(), (std::vector<uint32_t>{1, 2, 3, 5, 6}));
  EXPECT_EQ(ServerMaps(), 2u);
  // The scenario may have been read a moment after the clock was.
  EXPECT_EQ(aging.Run(start_ + 98), 0u);
  EXPECT_EQ(aging.Run(start_ + 110), 3u);
  EXPECT_EQ(Left(), (std::vector<uint32_t>{2, 3, 5}));
  EXPECT_EQ(ServerMaps(), 1u);
  EXPECT_EQ(aging.Run(start_ + 148), 0u);
  EXPECT_EQ(aging.Run(start_ + 160), 1u);
  EXPECT_EQ(aging.Run(start_ + 10'000'000), 0u);  // those that never age, and one that is not in use
  EXPECT_EQ(Left(), (std::vector<uint32_t>{3, 5}));
}

TEST_F(AgingTest, ResetSessionsLeaveAtOnce) {
  engine_.Age();
  for (const uint32_t index : {3u, 2u}) {
    std::atomic_ref<uint16_t>(*reinterpret_cast<uint16_t *>(Session(index) + 10)).store(0);
    EXPECT_EQ(engine_.Age(), 1u);
  }
  EXPECT_EQ(Left(), (std::vector<uint32_t>{1, 5, 6}));
}

TEST_F(AgingTest, RefreshedSessionsStay) {
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  Aging aging(Layout::BuiltIn(), &writer);
  Layout::BuiltIn().Table(kFlowPartitionTable).At("refreshed").Set(Session(1), start_ + 105);
  aging.Run(start_ + 110);
  EXPECT_EQ(Left(), (std::vector<uint32_t>{1, 2, 3, 5}));
}

// Sessions that leave together are taken out in slices, between which the engine does other things.
TEST(AgingSliceTest, AFullTableLeavesInSlices) {
  constexpr uint32_t kSessions = 65536;
  const TempDir directory;
  ScenarioFiller filler{"test", Scenario::FromText("test", R"(
session: [{repeat: 65536, index: {from: 0, step: 1}, valid: 1, aging_time: 7}]
server_map:
  - {type: 2, source: 0.0.0.0, source_port: 0, destination: 192.0.2.1, destination_port: 1, vrf: 0, protocol: 6,
     aging_time: 7}
)",
                                                   Layout::BuiltIn())};
  Engine engine({directory.File("arena"), directory.File("socket")}, Layout::BuiltIn(), &filler);
  TableWriter writer(const_cast<Arena *>(&engine.arena()));
  Aging aging(Layout::BuiltIn(), &writer);
  const auto sessions = [] {
    uint32_t count = 0;
    EXPECT_EQ(TbmTblEntryNum(0, kFlowPartitionTable, &count), 0);
    return count;
  };
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64_t later = static_cast<uint64_t>(now.tv_sec) + 100;
  uint32_t steps = 1;
  uint32_t left = sessions();
  ASSERT_EQ(left, kSessions);
  while (aging.Step(later)) {
    ++steps;
    EXPECT_LE(left - sessions(), 1024u);
    left = sessions();
    // One that comes back where the sweep has been stays for now.
    if (steps == 20) {
      std::vector<uint8_t> record(Layout::BuiltIn().Table(kFlowPartitionTable).spec.StoredSize());
      const uint32_t key = 0;
      ASSERT_EQ(writer.Insert(kFlowPartitionTable, &key, record.data(), nullptr), 0);
      ++left;
    }
  }
  EXPECT_EQ(sessions(), 1u);
  EXPECT_GE(steps, kSessions / 1024);
  EXPECT_LE(steps, kSessions / 1024 + 10);
  EXPECT_EQ(aging.Run(later), 0u);
  uint32_t maps = 0;
  EXPECT_EQ(TbmHashMapEntryNum(g_tbmGlobalInfo->serverMaps, &maps), 0);
  EXPECT_EQ(maps, 0u);
}

TEST(AgingSliceTest, ASweepIsSlicedAsWellWhenNothingLeaves) {
  const TempDir directory;
  ScenarioFiller filler{"test", Scenario::FromText("test", R"(
session: [{repeat: 65536, index: {from: 0, step: 1}, valid: 1, aging_time: 65535}]
)",
                                                   Layout::BuiltIn())};
  Engine engine({directory.File("arena"), directory.File("socket")}, Layout::BuiltIn(), &filler);
  uint32_t steps = 1;
  while (engine.AgeStep()) ++steps;
  EXPECT_GE(steps, 8u);
  EXPECT_EQ(CountEntries().entries, 65536u);
}

TEST_F(AgingTest, OtherTablesDoNotAge) {
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  Aging(Layout::BuiltIn(), &writer).Run(~uint32_t{0});
  uint32_t count = 0;
  EXPECT_EQ(TbmTblEntryNum(0, 29, &count), 0);
  EXPECT_EQ(count, 1u);
}

// Takes entries out itself.
class KeepingFiller : public MadeUpFiller {
 public:
  bool AgesIn(uint32_t table) const override { return table != kFlowPartitionTable; }
  void Leaves(uint32_t table, const void *entry) override {
    left.emplace_back(table, *static_cast<const uint32_t *>(entry));
  }
  std::vector<std::pair<uint32_t, uint32_t>> left;
};

TEST_F(AgingTest, WhoTakesEntriesOutHimselfIsToldOfThoseThatAClientHasEnded) {
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  KeepingFiller filler;
  Aging aging(Layout::BuiltIn(), &writer, &filler);
  EXPECT_EQ(aging.RunTable(kFlowPartitionTable, start_ + 100000), 1u);
  EXPECT_EQ(Left(), (std::vector<uint32_t>{1, 2, 3, 5, 6}));
  EXPECT_EQ(filler.left, (std::vector<std::pair<uint32_t, uint32_t>>{{kFlowPartitionTable, 4}}));
  Session(2)[10] = Session(2)[11] = 0;  // its aging time
  EXPECT_EQ(aging.RunTable(kFlowPartitionTable, start_), 1u);
  EXPECT_EQ(filler.left.back().second, 2u);
}

}  // namespace
}  // namespace qdt::host
