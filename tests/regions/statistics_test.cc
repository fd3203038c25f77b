#include "host/regions/statistics.h"

#include <unistd.h>

#include <csignal>
#include <vector>

#include "platform/engine.h"
#include "platform/shm.h"
#include "qdt/stats.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

constexpr uint32_t kCores = 3;

class StatisticsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    ArenaPlan plan = TestPlan();
    plan.regions.push_back(StatisticsSpec(kCores));
    Start(plan);
    Statistics statistics(*engine_);
    for (const uint32_t counter : {0, 99, 100, 186, 187, 460, 461, 540, 541, 576, 577, 830}) {
      statistics.Add(0, counter, counter + 1);
      statistics.Add(1, counter, 1000);
      statistics.Add(2, counter, 1000000);
    }
  }

  // What the counters at both ends of each range hold after an accumulation onto 5 everywhere.
  static std::string Accumulated(uint32_t mask) {
    std::vector<uint64_t> vector(QDT_STAT_COUNTERS, 5);
    QdtSysStatAccumulate(mask, vector.data());
    std::string text;
    for (uint32_t i = 0; i < QDT_STAT_COUNTERS; ++i) {
      if (vector[i] != 5) text += std::to_string(i) + "=" + std::to_string(vector[i]) + " ";
    }
    return text;
  }
};

TEST_F(StatisticsTest, AccumulatesTheChosenKindsOverAllCores) {
  EXPECT_EQ(Accumulated(0), "");
  EXPECT_EQ(Accumulated(QDT_STAT_KIND_NORMAL),
            "0=1001006 99=1001105 461=1001467 540=1001546 541=1001547 576=1001582 ");
  EXPECT_EQ(Accumulated(QDT_STAT_KIND_DISCARD), "187=1001193 460=1001466 577=1001583 830=1001836 ");
  EXPECT_EQ(Accumulated(QDT_STAT_KIND_ERROR), "100=1001106 186=1001192 ");
  EXPECT_EQ(Accumulated(7),
            "0=1001006 99=1001105 100=1001106 186=1001192 187=1001193 460=1001466 461=1001467 540=1001546 "
            "541=1001547 576=1001582 577=1001583 830=1001836 ");
  EXPECT_EQ(Accumulated(8), "");
}

TEST_F(StatisticsTest, TellsEachCore) {
  EXPECT_EQ(QdtSysStatGetNumRuncs(), 3);
  for (uint32_t core = 0; core < kCores; ++core) {
    const uint64_t *vector = QdtSysStatGetRuncStat(core);
    ASSERT_NE(vector, nullptr) << core;
    EXPECT_EQ(vector[1], 0u);
  }
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[830], 831u);
  EXPECT_EQ(QdtSysStatGetRuncStat(1)[830], 1000u);
  EXPECT_EQ(QdtSysStatGetRuncStat(2)[0], 1000000u);
  EXPECT_EQ(QdtSysStatGetRuncStat(3), nullptr);
  EXPECT_EQ(QdtSysStatGetRuncStat(~0u), nullptr);
}

TEST_F(StatisticsTest, ClientsReadAndCannotWrite) {
  EXPECT_EQ(AsClient([](Arena *) { return Accumulated(QDT_STAT_KIND_ERROR); }), "100=1001106 186=1001192 ");
  const std::string end = AsClient([](Arena *) -> std::string {
    std::signal(SIGSEGV, SIG_DFL);  // sanitizers would report the fault
    QdtSysStatGetRuncStat(0)[0] = 7;
    return "written";
  });
  EXPECT_EQ(end, "signal 11");
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[0], 1u);
}

TEST_F(StatisticsTest, AClientSeesWhatTheEngineCountsLater) {
  int toClient[2];
  ASSERT_EQ(pipe(toClient), 0);
  Child client(&engine_, [&]() -> std::string {
    const auto arena = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(arena.get());
    char go = 0;
    if (read(toClient[0], &go, 1) != 1) return "no word";
    return std::to_string(QdtSysStatGetRuncStat(2)[42]);
  });
  Statistics(*engine_).Add(2, 42, 77);
  ASSERT_EQ(write(toClient[1], "x", 1), 1);
  EXPECT_EQ(client.Wait(), "77");
  close(toClient[0]);
  close(toClient[1]);
}

TEST_F(StatisticsTest, ASnapshotHasThemToo) {
  const std::string copy = Snapshot();
  Statistics(*engine_).Add(0, 0, 500);
  EXPECT_EQ(InChild(&engine_,
                    [&]() -> std::string {
                      const auto arena = Arena::Attach(copy, Arena::Access::kSnapshot);
                      Arena::SetCurrent(arena.get());
                      return Accumulated(QDT_STAT_KIND_ERROR) + std::to_string(QdtSysStatGetNumRuncs()) +
                             " " + std::to_string(QdtSysStatGetRuncStat(0)[0]);
                    }),
            "100=1001106 186=1001192 3 1");
}

TEST_F(StatisticsTest, WithoutAnArenaThereIsNothing) {
  Arena::SetCurrent(nullptr);
  EXPECT_EQ(QdtSysStatGetNumRuncs(), 0);
  EXPECT_EQ(QdtSysStatGetRuncStat(0), nullptr);
  EXPECT_EQ(Accumulated(7), "");
}

TEST_F(HostTest, AnArenaWithoutStatisticsHasNoCores) {
  Start();
  EXPECT_EQ(QdtSysStatGetNumRuncs(), 0);
  EXPECT_EQ(QdtSysStatGetRuncStat(0), nullptr);
}

TEST_F(StatisticsTest, TheOtherRegionsStayWritableAndTheirOwn) {
  auto *trace = static_cast<char *>(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0));
  ASSERT_NE(trace, nullptr);
  for (int i = 0; i < 224; ++i) trace[i] = 1;
  EXPECT_EQ(Accumulated(QDT_STAT_KIND_ERROR), "100=1001106 186=1001192 ");
  EXPECT_EQ(AsClient([](Arena *) -> std::string {
              static_cast<char *>(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0))[0] = 2;
              return "written";
            }),
            "written");
  EXPECT_EQ(trace[0], 2);
}

}  // namespace
}  // namespace qdt::host
