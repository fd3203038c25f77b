#include <sys/mman.h>

#include <string>
#include <vector>

#include "host/base/sanitized.h"
#include "tests/unit/kernel_calls.h"
#include "tests/unit/session_fixture.h"

// Aging out of sessions through the flow partition, and the session statistics.
namespace qdt::test {
namespace {

constexpr uint32_t kPause = 10000;

class SessionResetTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    info_ = {109, 0, nullptr, nullptr, &partition_};
    g_tbmGlobalInfo = &info_;
  }
  void TearDown() override {
    g_tbmGlobalInfo = nullptr;
    SessionTest::TearDown();
  }

  Record Ipv4(uint8_t protocol = 6) { return Session(Ipv4Key(1, 2, 3, 4, protocol)); }
  Record Ipv6() { return Session(Ipv6Key(1, 2, 3, 4, 6)); }

  // Puts a session into the next slot of the partition; its index among the sessions.
  size_t Put(const Record &record) {
    sessions_.push_back(record);
    PutNode(const_cast<void *>(sessions_.back().data()));
    return sessions_.size() - 1;
  }
  void PutNode(void *node) {
    nodes_.push_back(node);
    partition_ = {static_cast<uint32_t>(nodes_.size()), 0, nodes_.data()};
  }

  uint16_t AgingTime(size_t session) const {
    uint16_t agingTime;
    std::memcpy(&agingTime, sessions_[session].bytes().data() + 10, sizeof(agingTime));
    return agingTime;
  }
  std::string AgingTimes() const {
    std::string times;
    for (size_t i = 0; i < sessions_.size(); ++i) times += std::to_string(AgingTime(i)) + " ";
    return times;
  }

  TbmGlobalInfo info_{};
  TbmFlowPartition partition_{};
  std::deque<Record> sessions_;
  std::vector<void *> nodes_;
};

TEST_F(SessionResetTest, WithoutParametersEveryValidIpv4Session) {
  Put(Ipv4());
  PutNode(nullptr);
  Put(Ipv6());
  Put(Ipv4().U8(8, 0));  // free
  Put(Ipv4().U8(9, 1));  // in transition
  Put(Ipv4().U16(10, 65535));
  Put(Ipv4().U64(112, 0));
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "0 300 300 300 0 0 ");
  EXPECT_EQ(platform.pauses, std::vector<uint32_t>{kPause});
  EXPECT_TRUE(platform.answers.empty());
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_TRUE(platform.allocations.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionResetTest, ChangesNothingButTheAgingTime) {
  Record record = Ipv4();
  for (int i = 56; i < 112; ++i) record.U8(i, 0xEE);
  Put(record);
  QdtOmaResetSessionProc(&request_);
  EXPECT_EQ(sessions_[0].bytes(), record.U16(10, 0).bytes());
}

TEST_F(SessionResetTest, OnlyWhatPassesTheFilter) {
  Put(Ipv4(6));
  Put(Ipv4(17));
  Put(Ipv6());
  request_.numbers = {{"protocol", 17}, {"session-number", 0}};
  request_.flags = {{"verbose", 1}};
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "300 0 300 ");
  request_ = {};
  request_.texts["type"] = "ipv6";
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "300 0 0 ");
  request_.texts["type"] = "both";  // the filter of the last request is gone
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "0 0 0 ");
}

TEST_F(SessionResetTest, ASessionThatCannotBeComparedIsLeftAlone) {
  for (const uint64_t wild : kWildAddresses) Put(Ipv4().U64(112, wild));
  Put(Ipv4());
  request_.numbers["protocol"] = 6;
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "300 300 0 ");
  EXPECT_EQ(platform.log, std::vector<LogLine>(2, {3, "Query session compare protocol failed, ret: 2\n"}));
}

TEST_F(SessionResetTest, ANodeThatLeadsNowhereIsPassedOver) {
  Put(Ipv4());
  for (const uint64_t wild : {uint64_t{8}, uint64_t{0x8000000000000000}, UINT64_MAX - 7})
    PutNode(reinterpret_cast<void *>(wild));
  Put(Ipv4());
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(AgingTimes(), "0 0 ");
}

TEST_F(SessionResetTest, ASessionThatMayOnlyBeReadStays) {
  void *const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  const Record session = Ipv4();
  std::memcpy(page, session.data(), 192);
  ASSERT_EQ(mprotect(page, 4096, PROT_READ), 0);
  PutNode(page);
  Put(Ipv4());
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(std::memcmp(page, session.data(), 192), 0);
  EXPECT_EQ(AgingTimes(), "0 ");
  munmap(page, 4096);
}

// Sessions and their keys lie close together; the kernel is asked about their pages, and again behind a
// pause.
TEST_F(SessionResetTest, AsksTheKernelAboutPagesOnly) {
  for (int i = 0; i < 2000; ++i) Put(Ipv4(i % 2 == 0 ? 6 : 17));
  request_.numbers["protocol"] = 17;
  KernelCalls::count = 0;
  EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
  EXPECT_EQ(platform.pauses.size(), 2u);
  for (size_t i = 0; i < 2000; ++i) ASSERT_EQ(AgingTime(i), i % 2 == 0 ? 300 : 0) << i;
  // One a pointer would be 5,000. Sanitizers spread blocks over more pages.
  EXPECT_LE(KernelCalls::count.load(), host::kSanitized ? 4000 : 2000);
}

TEST_F(SessionResetTest, EachChunkSeesTheMemoryAsItIsThen) {
  const Record session = Ipv4();
  void *const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  std::memcpy(page, session.data(), 192);
  PutNode(page);
  SessionParamValuelClear();
  uint32_t cursor = 0;
  EXPECT_EQ(QdtFlowPartScan(QdtSessResetTrav, 1, &cursor), 0);
  EXPECT_EQ(std::memcmp(page, Record(session).U16(10, 0).data(), 192), 0);
  munmap(page, 4096);
  cursor = 0;
  EXPECT_EQ(QdtFlowPartScan(QdtSessResetTrav, 1, &cursor), 0);
  EXPECT_EQ(QdtSessResetProc(), 0);
}

TEST_F(SessionResetTest, PausesAfterEveryThousandSlots) {
  for (const auto &[slots, pauses] :
       {std::pair<size_t, size_t>{1, 1}, {1000, 1}, {1001, 2}, {2000, 2}, {2500, 3}}) {
    while (nodes_.size() < slots) PutNode(nullptr);
    platform.pauses.clear();
    EXPECT_EQ(QdtSessResetProc(), 0);
    EXPECT_EQ(platform.pauses, std::vector<uint32_t>(pauses, kPause)) << slots;
  }
  Put(Ipv4());
  SessionParamValuelClear();
  EXPECT_EQ(QdtSessResetProc(), 0);
  EXPECT_EQ(AgingTimes(), "0 ");
}

TEST_F(SessionResetTest, WithoutAPartitionThereIsNothingToDo) {
  const auto resets = [this] {
    EXPECT_EQ(QdtOmaResetSessionProc(&request_), 0);
    EXPECT_TRUE(platform.pauses.empty());
  };
  resets();  // no slot
  partition_ = {5, 0, nullptr};
  resets();
  info_.flowPartition = nullptr;
  resets();
  g_tbmGlobalInfo = nullptr;
  resets();
}

std::vector<void *> g_visited;
int32_t Visit(void *record) {
  g_visited.push_back(record);
  return -1;  // is not asked for
}

TEST_F(SessionResetTest, Scans) {
  g_visited.clear();
  for (int i = 0; i < 7; ++i) i == 3 ? PutNode(nullptr) : static_cast<void>(Put(Ipv4()));
  uint32_t cursor = 0;
  EXPECT_EQ(QdtFlowPartScan(Visit, 4, &cursor), 0);
  EXPECT_EQ(cursor, 4u);
  EXPECT_EQ(g_visited, (std::vector<void *>{nodes_[0], nodes_[1], nodes_[2]}));
  g_visited.clear();
  EXPECT_EQ(QdtFlowPartScan(Visit, 4, &cursor), 0);
  EXPECT_EQ(cursor, 7u);
  EXPECT_EQ(g_visited, (std::vector<void *>{nodes_[4], nodes_[5], nodes_[6]}));
  g_visited.clear();
  EXPECT_EQ(QdtFlowPartScan(Visit, 4, &cursor), -1);
  EXPECT_EQ(cursor, 7u);
  cursor = 8;
  EXPECT_EQ(QdtFlowPartScan(Visit, 4, &cursor), -1);
  cursor = 6;
  EXPECT_EQ(QdtFlowPartScan(Visit, UINT32_MAX, &cursor), 0);
  EXPECT_EQ(cursor, 7u);
  EXPECT_EQ(g_visited, std::vector<void *>{nodes_[6]});
}

TEST_F(SessionResetTest, OneRecord) {
  SessionParamValuelClear();
  EXPECT_EQ(QdtSessResetTrav(nullptr), 0);
  Record record = Ipv4();
  EXPECT_EQ(QdtSessResetTrav(const_cast<void *>(record.data())), 0);
  EXPECT_EQ(record.bytes(), Record(record).U16(10, 0).bytes());
}

class SessionStatisticsTest : public SessionTest {
 protected:
  int32_t Run() {
    const int32_t returned = QdtOmaSessionStatisticsProc(&request_);
    EXPECT_EQ(platform.liveAllocations(), 0u);
    return returned;
  }
};

TEST_F(SessionStatisticsTest, SendsTheEnginesText) {
  for (const int32_t result : {0, 1, 17}) {
    platform.sessionStatistics = {result, "sessions: 17\n", {}};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(platform.sessionStatistics.rooms, std::vector<uint32_t>{20480});
  }
  EXPECT_EQ(platform.answers, std::vector<std::string>(3, "sessions: 17\n"));
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_session");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionStatisticsTest, Failures) {
  platform.FailAllocation(0);
  EXPECT_EQ(Run(), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for session statistics failed\n"}}));
  EXPECT_TRUE(platform.sessionStatistics.rooms.empty());
  platform.log.clear();
  platform.FailAllocation(-1);
  platform.sessionStatistics = {-1, "half", {}};
  EXPECT_EQ(Run(), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Print session statistics info failed\n"}}));
  EXPECT_TRUE(platform.answers.empty());
  platform.log.clear();
  platform.sessionStatistics.result = 0;
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    EXPECT_EQ(Run(), -1);
  }
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionStatisticsTest, RatesAreZeroAndStaySo) {
  platform.sessionStatistics.text = "sessions: 17\n";
  Run();
  for (const uint64_t rate :
       {g_lastSaveFlowCreateNum, g_lastRateCalTime, g_curFlowNum, g_curFlowRate, g_maxFlowRate, g_maxFlowNum})
    EXPECT_EQ(rate, 0u);
}

}  // namespace
}  // namespace qdt::test
