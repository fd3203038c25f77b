#include "platform/shm.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "host/arena/arena_layout.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

class ShmTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Start();
  }
};

TEST_F(ShmTest, RegionsAreZeroedAndApart) {
  auto *trace = static_cast<char *>(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0));
  auto *stat = static_cast<char *>(VRX_Smmap("FAST_STAT_SSMAP_PTR", 0, 0));
  ASSERT_NE(trace, nullptr);
  ASSERT_NE(stat, nullptr);
  for (int i = 0; i < 224; ++i) ASSERT_EQ(trace[i], 0);
  std::memset(stat, 1, 100000);
  for (int i = 0; i < 224; ++i) ASSERT_EQ(trace[i], 0);
  EXPECT_EQ(VRX_Smmap("PKT_TRACE_CTX_PTR", 100, 0), trace);
}

TEST_F(ShmTest, ClientsAndEngineShareRegions) {
  auto *trace = static_cast<char *>(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0));
  EXPECT_EQ(AsClient([&](Arena *) -> std::string {
              void *mine = VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0);
              if (mine != trace) return "elsewhere";
              std::memcpy(mine, "hello", 6);
              return "written";
            }),
            "written");
  EXPECT_STREQ(trace, "hello");
}

TEST_F(ShmTest, WrongRegionsAreRefused) {
  EXPECT_EQ(VRX_Smmap("NO_SUCH_REGION", 0, 0), nullptr);
  EXPECT_EQ(VRX_Smmap("", 0, 0), nullptr);
  EXPECT_EQ(VRX_Smmap(nullptr, 0, 0), nullptr);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{});
  EXPECT_EQ(VRX_Smmap("PKT_TRACE_CTX_PTR", 225, 0), nullptr);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{
                           "3 shared region PKT_TRACE_CTX_PTR has 224 bytes, 225 were asked for\n"});
  Arena::SetCurrent(nullptr);
  EXPECT_EQ(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0), nullptr);
}

TEST_F(ShmTest, ReadOnlyClientGetsNoRegion) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
  EXPECT_EQ(InChild(&engine_,
                    [&]() -> std::string {
                      if (setuid(65534) != 0) return "no setuid";
                      const auto client = Arena::Attach(path_, Arena::Access::kLive);
                      Arena::SetCurrent(client.get());
                      if (VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0) != nullptr) return "mapped";
                      const auto log = TakeLog();
                      return log.size() == 1 ? log[0] : std::to_string(log.size()) + " lines";
                    }),
            "3 shared region PKT_TRACE_CTX_PTR: no permission to write to " + path_ + "\n");
}

TEST_F(ShmTest, PartitionIsTheArena) {
  uint16_t handle = 0;
  ASSERT_EQ(DHF_ShmPtAttach("OSA_SHM_CST_NAME", &handle), 0);
  EXPECT_EQ(DHF_ShmPtTotalSizeGet(handle), engine_->header()->totalSize);
  const uint32_t before = DHF_ShmPtAllocedSizeGet(handle);
  EXPECT_GT(before, 100000u);  // the regions at least
  Add(kUniqueTable, 1, 1);
  uint32_t table = 0;
  ASSERT_EQ(TbmTblMemStat(0, kUniqueTable, &table), 0);
  EXPECT_EQ(DHF_ShmPtAllocedSizeGet(handle), before + table);
  EXPECT_NE(DHF_ShmPtAttach("OTHER", &handle), 0);
  EXPECT_NE(DHF_ShmPtAttach(nullptr, &handle), 0);
  EXPECT_NE(DHF_ShmPtAttach("OSA_SHM_CST_NAME", nullptr), 0);
  EXPECT_EQ(DHF_ShmPtTotalSizeGet(static_cast<uint16_t>(handle + 1)), 0u);
  EXPECT_EQ(DHF_ShmPtAllocedSizeGet(static_cast<uint16_t>(handle + 1)), 0u);
}

}  // namespace
}  // namespace qdt::host
