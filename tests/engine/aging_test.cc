#include <gtest/gtest.h>
#include <time.h>

#include <atomic>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/tbm.h"
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

// A full table: what leaves costs no more than a look each, and a round comes in pieces that are soon over.
TEST_F(AgingTest, ManySessionsLeaveInOneRound) {
  constexpr uint32_t kMost = 65536 - 6;
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  const TableLayout &sessions = Layout::BuiltIn().Table(kFlowPartitionTable);
  std::vector<uint8_t> record(sessions.spec.StoredSize());
  sessions.At("valid").Set(record.data(), 1);
  sessions.At("refreshed").Set(record.data(), start_ + 1000);
  for (uint32_t i = 0; i < kMost; ++i) {
    const uint32_t key = 100 + i;
    sessions.At("aging_time").Set(record.data(), i % 2 == 0 ? 10 : 65535);
    ASSERT_EQ(writer.Insert(kFlowPartitionTable, &key, record.data(), nullptr), 0);
  }
  Aging aging(Layout::BuiltIn(), &writer);
  const auto cpu = [] {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  };
  uint32_t before = 0, after = 0, pieces = 1;
  EXPECT_EQ(TbmTblEntryNum(0, kFlowPartitionTable, &before), 0);
  const double begin = cpu();
  while (aging.RunSome(start_ + 2000)) ++pieces;
  EXPECT_LT(cpu() - begin, 1.0);  // a walk that began anew with each session took nine seconds
  EXPECT_EQ(TbmTblEntryNum(0, kFlowPartitionTable, &after), 0);
  EXPECT_EQ(before - after,
            kMost / 2 + 4);  // and all of the scenario's but one that never ages and one not in use
  EXPECT_EQ(pieces, 65536u / 2048 + 1 + 1);  // of sessions, their end, and the server maps
}

TEST_F(AgingTest, OtherTablesDoNotAge) {
  TableWriter writer(const_cast<Arena *>(&engine_.arena()));
  Aging(Layout::BuiltIn(), &writer).Run(~uint32_t{0});
  uint32_t count = 0;
  EXPECT_EQ(TbmTblEntryNum(0, 29, &count), 0);
  EXPECT_EQ(count, 1u);
}

}  // namespace
}  // namespace qdt::host
