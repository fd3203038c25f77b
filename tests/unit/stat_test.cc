#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the engine's own statistics: buffer caches and timers.
namespace qdt::test {
namespace {

constexpr uint32_t kCaches = 61, kTimers = 71;

class StatTest : public ViewTest {};

// Counters of their own, ones in the words that are never shown, no tasks.
Record Caches() {
  Record caches(2192);
  for (uint32_t at = 16; at < 136; at += 8) caches.U64(at, ~uint64_t{0});
  caches.U64(0, 10000000000000000001u).U64(8, 10000000000000000002u);
  for (uint32_t i = 0; i < 7; ++i) caches.U64(24 + 8 * i, 10000000000000000003u + i);
  return caches;
}

constexpr char kCounters[] =
    "PktCacheStat:\n"
    "  HostPktCache             :  10000000000000000001\n"
    "  ReassPktCache            :  10000000000000000002\n"
    "  CapwapReassOverMaxCache  :  10000000000000000003\n"
    "  CapwapReassOverFragDrop  :  10000000000000000004\n"
    "  CapwapReassOtherDrop     :  10000000000000000005\n"
    "  CapwapReassPktCache      :  10000000000000000006\n"
    "  CapwapReassFrags         :  10000000000000000007\n"
    "  CapwapReassPkts          :  10000000000000000008\n"
    "  CapwapFragPkts           :  10000000000000000009\n"
    "TaskPktCache:\n";

Record &AddTask(Record &caches, size_t slot, const void *name, uint32_t buffers) {
  return caches.Address(144 + 16 * slot, name).U32(152 + 16 * slot, buffers).U32(156 + 16 * slot, ~0u);
}

std::string TaskText(const std::string &name, const std::string &buffers) {
  return "  TaskName                 :  " + name + "\n  CacheNum                 :  " + buffers + "\n";
}

TEST_F(StatTest, CachesWholeAnswer) {
  const char forward[] = "forward", crypto[] = "crypto engine 2";
  Record caches = Caches().U64(136, 3);
  AddTask(caches, 0, forward, 3000000000u);
  AddTask(caches, 1, forward, 0);  // holds none, and is left out
  AddTask(caches, 2, crypto, 7);
  AddTask(caches, 3, crypto, 8);  // beyond the count
  platform.AddEntry(kCaches, Key(uint32_t{70000}), caches.bytes());
  EXPECT_EQ(Query("34", "0", "70000"),
            Framed(kCounters + TaskText("forward", "3000000000") + TaskText("crypto engine 2", "7")));
  EXPECT_EQ(Query("34", "70000"), "search result not found");
  ExpectFindsOne(NqeTableSearchPktCacheStat, kCaches, caches, "search 61 70110100", "x", 70000);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_stat");
}

TEST_F(StatTest, EachCounterAlone) {
  const std::vector<std::string> labels = {
      "HostPktCache           ", "ReassPktCache          ", "",
      "CapwapReassOverMaxCache", "CapwapReassOverFragDrop", "CapwapReassOtherDrop   ",
      "CapwapReassPktCache    ", "CapwapReassFrags       ", "CapwapReassPkts        ",
      "CapwapFragPkts         "};
  for (size_t word = 0; word < 17; ++word) {
    std::string expected = "PktCacheStat:\n";
    for (size_t i = 0; i < labels.size(); ++i) {
      if (i == 2) continue;  // the engine's own
      expected += "  " + labels[i] + "  :  " + (i == word ? "18446744073709551615" : "0") + "\n";
    }
    EXPECT_EQ(FormatText(NqeTableFormatPktCacheStat, Record(2192).U64(8 * word, ~uint64_t{0})),
              expected + "TaskPktCache:\n")
        << word;
  }
}

TEST_F(StatTest, NoTasks) {
  const char name[] = "forward";
  Record caches = Caches();
  AddTask(caches, 0, name, 5);
  EXPECT_EQ(FormatText(NqeTableFormatPktCacheStat, caches), kCounters);
}

// The record has 128 slots, whatever count it claims.
TEST_F(StatTest, TasksBeyondTheSlots) {
  const char name[] = "task";
  Record caches = Caches();
  std::string tasks;
  for (uint32_t slot = 0; slot < 128; ++slot) {
    AddTask(caches, slot, name, slot + 1);
    tasks += TaskText("task", std::to_string(slot + 1));
    if (slot == 126) {
      EXPECT_EQ(FormatText(NqeTableFormatPktCacheStat, caches.U64(136, 127)), kCounters + tasks);
    }
  }
  for (const uint64_t count : {uint64_t{128}, uint64_t{129}, uint64_t{1} << 32, ~uint64_t{0}}) {
    EXPECT_EQ(FormatText(NqeTableFormatPktCacheStat, caches.U64(136, count)), kCounters + tasks) << count;
  }
}

// Two pages, of which the second cannot be read.
class TaskNameTest : public StatTest {
 protected:
  void SetUp() override {
    StatTest::SetUp();
    void *const pages = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    page_ = static_cast<char *>(pages);
    ASSERT_EQ(mprotect(page_ + kPage, kPage, PROT_NONE), 0);
  }
  void TearDown() override {
    munmap(page_, 2 * kPage);
    StatTest::TearDown();
  }

  // How the only task's name is shown.
  static std::string Shown(const void *name) {
    Record caches = Caches().U64(136, 1);
    const std::string text = FormatText(NqeTableFormatPktCacheStat, AddTask(caches, 0, name, 5));
    const std::string ahead = std::string(kCounters) + "  TaskName                 :  ";
    const std::string behind = "\n  CacheNum                 :  5\n";
    EXPECT_TRUE(text.starts_with(ahead) && text.ends_with(behind)) << text;
    return text.substr(ahead.size(), text.size() - ahead.size() - behind.size());
  }

  const size_t kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char *page_ = nullptr;
};

TEST_F(TaskNameTest, AtAnyAddress) {
  for (size_t at = 0; at < 130; ++at) {
    for (const std::string &name : {std::string("f"), std::string("forward"), std::string(64, 'n')}) {
      std::memset(page_, 'x', 256);
      std::memcpy(page_ + at, name.c_str(), name.size() + 1);
      EXPECT_EQ(Shown(page_ + at), name) << at;
    }
  }
}

TEST_F(TaskNameTest, AtTheEndOfWhatCanBeRead) {
  std::memcpy(page_ + kPage - 8, "forward", 8);
  EXPECT_EQ(Shown(page_ + kPage - 8), "forward");
  EXPECT_EQ(Shown(page_ + kPage - 1), "");
  std::memset(page_ + kPage - 100, 'n', 100);  // and no NUL before the end
  EXPECT_EQ(Shown(page_ + kPage - 100), std::string(100, 'n'));
  EXPECT_EQ(Shown(page_ + kPage - 1), "n");
}

TEST_F(TaskNameTest, ThatCannotBeRead) {
  EXPECT_EQ(Shown(nullptr), "");
  EXPECT_EQ(Shown(page_ + kPage), "");
  EXPECT_EQ(Shown(reinterpret_cast<const void *>(uintptr_t{1})), "");
  EXPECT_EQ(Shown(reinterpret_cast<const void *>(~uintptr_t{0})), "");
}

TEST_F(TaskNameTest, LongOnesAreShownWhole) {
  for (const size_t length : {255, 256, 257, 2000, 4000, 4090}) {
    std::memset(page_, '\0', kPage);
    std::memset(page_ + 5, 'n', length);
    EXPECT_EQ(Shown(page_ + 5), std::string(length, 'n')) << length;
  }
  std::memset(page_, 'n', 4095);
  page_[4095] = '\0';
  EXPECT_EQ(Shown(page_), std::string(4095, 'n'));
}

TEST_F(TaskNameTest, OnesWithoutAnEndAreCut) {
  std::memset(page_, 'n', kPage);
  EXPECT_EQ(Shown(page_), std::string(4095, 'n'));
  EXPECT_EQ(Shown(page_ + kPage - 4094), std::string(4094, 'n'));
}

TEST_F(StatTest, CachesLengthsAndRoom) {
  const char name[] = "forward";
  Record caches = Caches().U64(136, 2);
  AddTask(caches, 0, name, 5);
  AddTask(caches, 1, name, 6);
  ExpectOneRecordOnly(NqeTableFormatPktCacheStat, 2192);
  ExpectBoundedByRoom(NqeTableFormatPktCacheStat, caches);
}

// Timers.

Record Timer() {
  return Record(32)
      .U64(0, 10000000000000000001u)
      .U64(8, 10000000000000000002u)
      .U32(16, 3000000003u)
      .U32(20, 3000000004u)
      .U32(24, 3000000005u)
      .U32(28, 3000000006u);
}

TEST_F(StatTest, TimerWholeAnswer) {
  platform.AddEntry(kTimers, Key(uint32_t{70000}), Timer().bytes());
  EXPECT_EQ(Query("37", "0", "70000"), Framed("  NextSchedAt       :  10000000000000000001\n"
                                              "  LastExpired       :  10000000000000000002\n"
                                              "  ExpiredCnt        :  3000000003\n"
                                              "  TimerRemainedCnt  :  3000000004\n"
                                              "  WorkAddedCnt      :  3000000005\n"
                                              "  WorkIgnoredCnt    :  3000000006\n"));
  EXPECT_EQ(Query("37", "70000"), "search result not found");
  ExpectFindsOne(NqeTableSearchTimerStat, kTimers, Timer(), "search 71 70110100", "x", 70000);
}

TEST_F(StatTest, TimerLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatTimerStat, 32);
  ExpectBoundedByRoom(NqeTableFormatTimerStat, Timer());
}

}  // namespace
}  // namespace qdt::test
