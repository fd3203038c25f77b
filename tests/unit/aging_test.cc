#include "qdt/aging.h"

#include <map>
#include <string>

#include "tests/fake_platform/fake_platform.h"
#include "tests/unit/aging_globals.h"

// Session aging times: the defaults, the engine's current times, and which of them is in force.
namespace qdt::test {
namespace {

constexpr char kProtocols[] = "IPP_SESSION_AGING_TIME", kApplications[] = "APP_SESSION_AGING_TIME";

// Looked at before any test has run.
const bool g_zeroAtLoad = [] {
  for (const uint16_t time : g_qdtProtoTtlDefault) {
    if (time != 0) return false;
  }
  for (const auto &entry : g_qdtAppTtlDefault) {
    for (const uint16_t value : entry) {
      if (value != 0) return false;
    }
  }
  return g_qdtProtoTtlCur == nullptr && g_qdtAppTtlCur == nullptr && g_sessInfoInitCnt == 0;
}();

class AgingTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.AddRegion(kProtocols, 6);
    platform.AddRegion(kApplications, 318);
  }

  uint16_t *Protocols() { return static_cast<uint16_t *>(platform.Region(kProtocols)); }
  uint16_t *Applications() { return static_cast<uint16_t *>(platform.Region(kApplications)); }

  AgingGlobals globals_;
};

TEST_F(AgingTest, NothingIsSetAtLoad) { EXPECT_TRUE(g_zeroAtLoad); }

TEST_F(AgingTest, ProtocolDefaults) {
  ASSERT_EQ(sizeof(g_qdtProtoTtlDefault), 6u);
  QdtProtoInfoInit();
  EXPECT_EQ(g_qdtProtoTtlDefault[0], 240);
  EXPECT_EQ(g_qdtProtoTtlDefault[1], 120);
  EXPECT_EQ(g_qdtProtoTtlDefault[2], 20);
  EXPECT_EQ(g_qdtAppTtlDefault[1][2], 0);
}

TEST_F(AgingTest, ApplicationDefaults) {
  ASSERT_EQ(std::size(g_qdtAppTtlDefault), 106u);
  ASSERT_EQ(std::size(g_qdtAppTtlDefault[0]), 3u);
  QdtAppInfoTtlInit();
  const std::map<int, uint16_t> set = {{1, 240}, {2, 30}, {3, 240}, {6, 240}, {10, 600}, {15, 240}};
  for (int id = 0; id < 106; ++id) {
    EXPECT_EQ(g_qdtAppTtlDefault[id][0], 0) << id;
    EXPECT_EQ(g_qdtAppTtlDefault[id][1], 0) << id;
    EXPECT_EQ(g_qdtAppTtlDefault[id][2], set.count(id) != 0 ? set.at(id) : 0) << id;
  }
  EXPECT_EQ(g_qdtProtoTtlDefault[0], 0);
}

TEST_F(AgingTest, AttachesBothRegionsInOrder) {
  EXPECT_EQ(QdtSessionAgingTimeAttach(), 0);
  EXPECT_EQ(platform.attaches,
            (std::vector<std::string>{"IPP_SESSION_AGING_TIME 6", "APP_SESSION_AGING_TIME 318"}));
  EXPECT_EQ(g_qdtProtoTtlCur, Protocols());
  EXPECT_EQ(g_qdtAppTtlCur[0], Applications());
  EXPECT_EQ(g_sessInfoInitCnt, 0u);  // counted by the view that sets everything up
}

TEST_F(AgingTest, EndsAtTheFirstMissingRegion) {
  platform.RemoveRegion(kProtocols);
  EXPECT_EQ(QdtSessionAgingTimeAttach(), -1);
  EXPECT_EQ(platform.attaches, std::vector<std::string>{"IPP_SESSION_AGING_TIME 6"});
  EXPECT_EQ(g_qdtAppTtlCur, nullptr);

  platform.AddRegion(kProtocols, 6);
  platform.RemoveRegion(kApplications);
  EXPECT_EQ(QdtSessionAgingTimeAttach(), -1);
  EXPECT_EQ(platform.attaches.size(), 3u);
  EXPECT_EQ(g_qdtProtoTtlCur, Protocols());
}

TEST_F(AgingTest, CurrentProtocolTimes) {
  QdtProtoInfoInit();
  ASSERT_EQ(QdtSessionAgingTimeAttach(), 0);
  Protocols()[0] = 300;
  Protocols()[1] = 65535;
  Protocols()[2] = 1;
  for (int protocol = 0; protocol < 256; ++protocol) {
    EXPECT_EQ(QdtFwdGetAgingTime(static_cast<uint8_t>(protocol)),
              protocol == 6 ? 300u : (protocol == 1 ? 1u : 65535u))
        << protocol;
  }
}

TEST_F(AgingTest, AZeroMeansTheProtocolsDefault) {
  QdtProtoInfoInit();
  ASSERT_EQ(QdtSessionAgingTimeAttach(), 0);
  EXPECT_EQ(QdtFwdGetAgingTime(6), 240u);
  EXPECT_EQ(QdtFwdGetAgingTime(17), 120u);
  EXPECT_EQ(QdtFwdGetAgingTime(47), 120u);
  EXPECT_EQ(QdtFwdGetAgingTime(1), 20u);
  Protocols()[1] = 7;  // the engine changes one of them
  EXPECT_EQ(QdtFwdGetAgingTime(6), 240u);
  EXPECT_EQ(QdtFwdGetAgingTime(47), 7u);
  EXPECT_EQ(QdtFwdGetAgingTime(1), 20u);
}

TEST_F(AgingTest, CurrentApplicationTimes) {
  QdtAppInfoTtlInit();
  ASSERT_EQ(QdtSessionAgingTimeAttach(), 0);
  for (int id = 0; id < 53; ++id) {
    Applications()[3 * id] = 1;
    Applications()[3 * id + 1] = 2;
    Applications()[3 * id + 2] = static_cast<uint16_t>(1000 + id);
  }
  for (uint32_t id = 0; id < 53; ++id) EXPECT_EQ(QdtGetAppProtoTtl(id), 1000 + id);
}

TEST_F(AgingTest, AZeroMeansTheApplicationsDefault) {
  QdtAppInfoTtlInit();
  g_qdtAppTtlDefault[52][2] = 52;
  ASSERT_EQ(QdtSessionAgingTimeAttach(), 0);
  for (int id = 0; id < 53; ++id) Applications()[3 * id] = Applications()[3 * id + 1] = 9;
  const std::map<uint32_t, uint32_t> set = {{1, 240},  {2, 30},   {3, 240}, {6, 240},
                                            {10, 600}, {15, 240}, {52, 52}};
  for (uint32_t id = 0; id < 53; ++id) EXPECT_EQ(QdtGetAppProtoTtl(id), set.count(id) != 0 ? set.at(id) : 0);
}

TEST_F(AgingTest, IdsBeyondTheRegionHaveTheirDefaultOnly) {
  ASSERT_EQ(QdtSessionAgingTimeAttach(), 0);
  std::memset(Applications(), 0xFF, 320);  // all that the region's words hold
  g_qdtAppTtlDefault[52][2] = 52;
  g_qdtAppTtlDefault[53][2] = 53;
  g_qdtAppTtlDefault[105][2] = 105;
  EXPECT_EQ(QdtGetAppProtoTtl(52), 65535u);
  EXPECT_EQ(QdtGetAppProtoTtl(53), 53u);
  EXPECT_EQ(QdtGetAppProtoTtl(54), 0u);
  EXPECT_EQ(QdtGetAppProtoTtl(105), 105u);
  EXPECT_EQ(QdtGetAppProtoTtl(106), 0u);
  EXPECT_EQ(QdtGetAppProtoTtl(UINT32_MAX), 0u);
}

TEST_F(AgingTest, BeforeAnyAttachTheDefaultsApply) {
  QdtProtoInfoInit();
  QdtAppInfoTtlInit();
  EXPECT_EQ(QdtFwdGetAgingTime(6), 240u);
  EXPECT_EQ(QdtFwdGetAgingTime(0), 120u);
  EXPECT_EQ(QdtFwdGetAgingTime(1), 20u);
  EXPECT_EQ(QdtGetAppProtoTtl(10), 600u);
  EXPECT_EQ(QdtGetAppProtoTtl(0), 0u);
  EXPECT_TRUE(platform.attaches.empty());
}

}  // namespace
}  // namespace qdt::test
