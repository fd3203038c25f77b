#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/unit/kernel_calls.h"
#include "tests/unit/sched_trace_fixture.h"

// The perf task command: its words, its help, and what it changes in the region.
namespace qdt::test {
namespace {

constexpr char kHelp[] =
    "nqecli perf task clear\n"
    "nqecli perf task disable\n"
    "nqecli perf task show\n"
    "nqecli perf task topdown\n"
    "        avg | total\n"
    "nqecli perf task set\n"
    "        time | icache | dcache\n";
constexpr char kMoreHelp[] =
    "        task_path\n"
    "nqecli perf task show_graph\n"
    "nqecli perf task show_active_node\n";

TEST_F(SchedTraceTest, FailedAttachStandsAlone) {
  EXPECT_EQ(Perf({"task", "show"}), "sched trace OsaSmmap failed\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "sched trace create smmap failed.\n"}}));
  EXPECT_EQ(platform.attaches, std::vector<std::string>{"SCHED_TRACE_SSMAP_PTR 0"});
}

TEST_F(SchedTraceTest, AttachesAtEveryCommand) {
  AddRegion(1);
  Perf({"task", "show"});
  platform.RemoveRegion(kRegion);
  EXPECT_EQ(Perf({"task", "show"}), "sched trace OsaSmmap failed\n");
  AddRegion(1);
  EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
  EXPECT_EQ(platform.attaches, std::vector<std::string>(3, "SCHED_TRACE_SSMAP_PTR 0"));
}

// The line of the attaching is written where the answer stood, and then taken back.
TEST_F(SchedTraceTest, SuccessLineNeverReachesTheUser) {
  AddRegion(0);
  Output output(10);
  char name[] = "perf", task[] = "task", show[] = "show";
  char *words[] = {name, task, show};
  EXPECT_EQ(VrxSchedTraceCmdRun(&output.out, 3, words), 0);
  EXPECT_EQ(output.out.len, 0u);
  EXPECT_EQ(output.text(), "");
  EXPECT_EQ(std::string(output.out.buf + 1), "#########sched trace OsaSmmap success.\n");
}

TEST_F(SchedTraceTest, HelpGoesByThePerfFlagOfTheFirstRunContext) {
  AddRegion(2);
  SetPerfFlag(1, 1);
  for (const uint8_t without : {0, 2, 0xFE}) {
    SetPerfFlag(0, without);
    EXPECT_EQ(Perf({}), kHelp);
    EXPECT_EQ(g_perfFlag, without);
    EXPECT_EQ(result, -1);
  }
  for (const uint8_t with : {1, 3, 0xFF}) {
    SetPerfFlag(0, with);
    EXPECT_EQ(Perf({}), std::string(kHelp) + kMoreHelp);
    EXPECT_EQ(g_perfFlag, with);
  }
  platform.RemoveRegion(kRegion);
  AddRegion(0);
  EXPECT_EQ(Perf({}), kHelp);
  EXPECT_EQ(g_perfFlag, 0);
}

TEST_F(SchedTraceTest, WordsThatAreNoCommand) {
  AddRegion(1);
  const std::vector<std::vector<std::string>> lines = {
      {},
      {"task"},
      {"show"},
      {"Task", "show"},
      {"task", ""},
      {"task", "SHOW"},
      {"task", "set"},
      {"task", "topdown"},
      {"task", "topdown", "max"},
      {"task", "topdown", "totals"},
      {"task", "show", "time", "more"},
      {"task", "set", "time", "more"},
      {"task", "help"},
  };
  for (const auto &words : lines) {
    EXPECT_EQ(Perf(words), kHelp) << ::testing::PrintToString(words);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(flag(0), 0);
  }
}

TEST_F(SchedTraceTest, AThirdWordBehindACommandIsIgnored) {
  AddRegion(1);
  EXPECT_EQ(Perf({"task", "disable", "now"}), "Trace flag disable\n");
  EXPECT_EQ(Perf({"task", "clear", "now"}), "clear data done.\n");
  EXPECT_EQ(result, 0);
}

TEST_F(SchedTraceTest, MissingWordsAreNull) {
  AddRegion(1);
  Output output;
  char name[] = "perf", task[] = "task", set[] = "set";
  char *words[] = {name, task, set, nullptr};
  for (const int32_t count : {0, 1, 2, 4}) {
    EXPECT_EQ(VrxSchedTraceCmdRun(&output.out, count, words), -1);
    EXPECT_EQ(output.text(), kHelp) << count;
  }
}

// Setting.

struct Kind {
  const char *word;
  uint8_t flag;
};
constexpr Kind kKinds[] = {{"time", 2}, {"icache", 4}, {"dcache", 8}, {"task_path", 16}, {"snapshot", 32}};

TEST_F(SchedTraceTest, SetEachKind) {
  AddRegion(1);
  for (const Kind &kind : kKinds) {
    const std::string word = kind.word;
    SetTask(0, 26, {.runs = 5});
    EXPECT_EQ(Perf({"task", "set", word}), word + " done.\nTrace Flag set: " + word + ". \n");
    EXPECT_EQ(flag(0), kind.flag) << "it replaces the flag before";
    EXPECT_EQ(started(0), 1);
    EXPECT_EQ(Get<uint64_t>(kRegion, RuncAt(0) + 6960 + 8 * 26), 0u);
  }
}

TEST_F(SchedTraceTest, SettingItAgainKeepsTheData) {
  AddRegion(1);
  Perf({"task", "set", "time"});
  SetTask(0, 26, {.runs = 5});
  Put(kRegion, RuncAt(0) + 1, uint8_t{0});
  EXPECT_EQ(Perf({"task", "set", "time"}), "Trace Flag is remains: time\nTrace Flag set: time. \n");
  EXPECT_EQ(Get<uint64_t>(kRegion, RuncAt(0) + 6960 + 8 * 26), 5u);
  EXPECT_EQ(started(0), 0);
  // A flag that has the bit among others stays as it is.
  SetFlag(0, 0xFF);
  EXPECT_EQ(Perf({"task", "set", "icache"}), "Trace Flag is remains: icache\nTrace Flag set: icache. \n");
  EXPECT_EQ(flag(0), 0xFF);
}

TEST_F(SchedTraceTest, SetGoesRunContextByRunContext) {
  AddRegion(3);
  SetFlag(1, kTime);
  for (int runc = 0; runc < 3; ++runc) SetTask(runc, 26, {.runs = 5});
  EXPECT_EQ(Perf({"task", "set", "time"}),
            "time done.\nTrace Flag set: time. \n"
            "Trace Flag is remains: time\nTrace Flag set: time. \n"
            "time done.\nTrace Flag set: time. \n");
  for (int runc = 0; runc < 3; ++runc) {
    EXPECT_EQ(flag(runc), kTime);
    // Each clear is of all run contexts, of the one that kept its flag, too.
    EXPECT_EQ(Get<uint64_t>(kRegion, RuncAt(runc) + 6960 + 8 * 26), 0u);
  }
}

TEST_F(SchedTraceTest, UnknownKind) {
  AddRegion(1);
  SetFlag(0, kTime);
  for (const char *word : {"", "Time", "times", "2", "none"}) {
    EXPECT_EQ(Perf({"task", "set", word}), "Trace flag type is wrong\n");
    EXPECT_EQ(flag(0), kTime);
  }
}

TEST_F(SchedTraceTest, Disable) {
  AddRegion(2);
  for (int runc = 0; runc < 2; ++runc) {
    SetFlag(runc, 0xFF);
    Put(kRegion, RuncAt(runc) + 1, uint8_t{1});
    SetTask(runc, 1, {.runs = 5});
  }
  EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
  for (int runc = 0; runc < 2; ++runc) {
    EXPECT_EQ(flag(runc), 0);
    EXPECT_EQ(started(runc), 0);
    EXPECT_EQ(Get<uint64_t>(kRegion, RuncAt(runc) + 6960 + 8), 5u) << "the figures stay";
  }
}

// Clearing.

TEST_F(SchedTraceTest, ClearZeroesFiguresAndKeepsTheGraph) {
  AddRegion(2);
  auto *const bytes = static_cast<uint8_t *>(platform.Region(kRegion));
  std::memset(bytes + 8, 0xA5, 2 * kRuncSize);
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
  for (int runc = 0; runc < 2; ++runc) {
    for (size_t at = 0; at < kRuncSize; ++at) {
      const size_t inNode = (at - 2336) % 24;
      const bool cleared =
          at >= 5793 || (at >= 2336 && at < 2336 + 128 * 24 && (inNode == 0 || inNode == 2 || inNode == 3));
      ASSERT_EQ(bytes[RuncAt(runc) + at], cleared ? 0 : 0xA5) << "byte " << at;
    }
  }
}

TEST_F(SchedTraceTest, ClearOfNodes) {
  std::vector<uint8_t> nodes(128 * 24 + 24, 0xA5);
  SchedTraceClearTaskInfo(reinterpret_cast<SchedTraceNode *>(nodes.data()));
  for (size_t at = 0; at < nodes.size(); ++at) {
    const bool cleared = at < 128 * 24 && (at % 24 == 0 || at % 24 == 2 || at % 24 == 3);
    ASSERT_EQ(nodes[at], cleared ? 0 : 0xA5) << at;
  }
}

TEST_F(SchedTraceTest, WithoutRunContextsOnlyClearSaysAnything) {
  AddRegion(0);
  for (const auto &words : std::vector<std::vector<std::string>>{{"task", "show"},
                                                                 {"task", "disable"},
                                                                 {"task", "show_graph"},
                                                                 {"task", "show_active_node"},
                                                                 {"task", "topdown", "avg"},
                                                                 {"task", "set", "time"}}) {
    EXPECT_EQ(Perf(words), "") << ::testing::PrintToString(words);
    EXPECT_EQ(result, 0);
  }
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
}

// The operations by themselves, before any command: there is no region, and so no run context.
TEST_F(SchedTraceTest, WithoutARegion) {
  Perf({"task", "show"});
  EXPECT_EQ(Appended(SchedTraceShow), "");
  EXPECT_EQ(Appended(SchedTraceShowGraph), "");
  EXPECT_EQ(Appended(SchedTraceShowActiveNode), "");
  EXPECT_EQ(Appended(SchedTraceDisable), "");
  EXPECT_EQ(Appended(SchedTraceTopDown, "avg"), "");
  EXPECT_EQ(Appended(SchedTraceSetTraceFlag, "time"), "");
  EXPECT_EQ(Appended(SchedTraceDataOnlyClear, "some label"), "some label done.\n");
}

// A count that cannot be right never leads far outside: what is not mapped ends the walk.
TEST_F(SchedTraceTest, DamagedCountOfRunContexts) {
  for (const uint64_t count : {uint64_t{65}, UINT64_MAX}) {
    AddRegion(64);
    for (int runc = 0; runc < 64; ++runc) SetNode(runc, 0, {.presence = 0});
    Put(kRegion, 0, count);
    std::string expected;
    for (int runc = 0; runc < 64; ++runc) expected += "\nrunc: " + std::to_string(runc) + "\n";
    EXPECT_EQ(Perf({"task", "show_active_node"}), expected);
    platform.RemoveRegion(kRegion);
  }
}

// Regions of which not everything may be written or is there.

class SchedTraceMemoryTest : public SchedTraceTest {
 protected:
  // A region with room for two run contexts, from the start of its pages on. What lies behind it is another
  // region, whose bytes are all ones.
  void SetUp() override {
    SchedTraceTest::SetUp();
    void *const place = mmap(nullptr, 2 * kBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(place, MAP_FAILED);
    bytes_ = Map("region", place);
    foreign_ = Map("foreign", bytes_ + kBytes);
    std::memset(foreign_, 0xFF, kBytes);
    platform.lentRegions[kRegion] = bytes_;
    SetCount(2);
  }
  void TearDown() override {
    platform.lentRegions.clear();
    SchedTraceTest::TearDown();
    munmap(bytes_, 2 * kBytes);
  }

  static constexpr size_t kBytes = 64 * 1024;  // whole pages, whatever their size

  void SetCount(uint64_t count) { std::memcpy(bytes_, &count, sizeof(count)); }
  // Fills the records and what is behind them up to the end of the pages.
  void Fill(uint8_t value) { std::memset(bytes_ + 8, value, kBytes - 8); }
  std::string Bytes() const { return std::string(reinterpret_cast<char *>(bytes_), kBytes); }
  bool ForeignIsWhole() const {
    return std::string(reinterpret_cast<char *>(foreign_), kBytes) == std::string(kBytes, '\xFF');
  }

  uint8_t *bytes_ = nullptr;
  uint8_t *foreign_ = nullptr;

 private:
  static uint8_t *Map(const char *name, void *place) {
    const int file = memfd_create(name, 0);
    EXPECT_EQ(ftruncate(file, kBytes), 0);
    void *const mapped = mmap(place, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0);
    EXPECT_EQ(mapped, place);
    close(file);
    return static_cast<uint8_t *>(mapped);
  }
};

// Room for five contexts: 8 + 5 * 13024 bytes are less than the pages, six are more.
constexpr char kFiveContexts[] = "\nrunc: 0\n\nrunc: 1\n\nrunc: 2\n\nrunc: 3\n\nrunc: 4\n";

TEST_F(SchedTraceMemoryTest, WhatLiesBehindTheRegionIsNotShown) {
  for (const uint64_t count : {uint64_t{6}, uint64_t{64}, UINT64_MAX}) {
    SetCount(count);
    EXPECT_EQ(Perf({"task", "show_active_node"}), kFiveContexts) << count;
    const std::string shown = Perf({"task", "show"});
    EXPECT_NE(shown.find("Runc 4"), std::string::npos);
    EXPECT_EQ(shown.find("Runc 5"), std::string::npos);
  }
}

TEST_F(SchedTraceMemoryTest, WhatLiesBehindTheRegionIsNotWritten) {
  for (const uint64_t count : {uint64_t{6}, UINT64_MAX}) {
    SetCount(count);
    EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
    EXPECT_EQ(Perf({"task", "set", "time"}),
              "time done.\nTrace Flag set: time. \ntime done.\nTrace Flag set: time. \n"
              "time done.\nTrace Flag set: time. \ntime done.\nTrace Flag set: time. \n"
              "time done.\nTrace Flag set: time. \n");
    EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
    EXPECT_TRUE(ForeignIsWhole());
  }
}

TEST_F(SchedTraceMemoryTest, WhereNothingFollowsTheRegion) {
  for (const bool unmapped : {false, true}) {
    if (unmapped) {
      ASSERT_EQ(munmap(foreign_, kBytes), 0);
    } else {
      ASSERT_EQ(mprotect(foreign_, kBytes, PROT_NONE), 0);
    }
    SetCount(64);
    EXPECT_EQ(Perf({"task", "show_active_node"}), kFiveContexts);
    EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
    EXPECT_EQ(Perf({"task", "set", "task_path"}).size(), std::strlen("task_path done.\n"
                                                                     "Trace Flag set: task_path. \n") *
                                                             5);
    EXPECT_EQ(bytes_[RuncAt(4)], kTaskPath);
    EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
    EXPECT_EQ(bytes_[RuncAt(4)], 0);
  }
}

// A region whose mapping is longer than its file.
TEST_F(SchedTraceMemoryTest, ARegionThatWasCutShort) {
  const int file = memfd_create("cut", 0);
  ASSERT_EQ(ftruncate(file, kBytes / 2), 0);
  ASSERT_EQ(mmap(bytes_, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0), bytes_);
  close(file);
  SetCount(64);
  EXPECT_EQ(Perf({"task", "show_active_node"}), "\nrunc: 0\n\nrunc: 1\n");
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
  EXPECT_EQ(Perf({"task", "set", "time"}),
            "time done.\nTrace Flag set: time. \ntime done.\nTrace Flag set: time. \n");
  EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
}

TEST_F(SchedTraceMemoryTest, RunContextsThatMayOnlyBeReadKeepWhatTheyHold) {
  Fill(0xA5);
  SetCount(2);
  ASSERT_EQ(mprotect(bytes_, kBytes, PROT_READ), 0);
  const std::string before = Bytes();
  EXPECT_EQ(Perf({"task", "set", "snapshot"}),
            "Trace Flag is remains: snapshot\nTrace Flag set: snapshot. \n"
            "Trace Flag is remains: snapshot\nTrace Flag set: snapshot. \n");
  EXPECT_EQ(Perf({"task", "set", "time"}),
            "time done.\nTrace Flag set: time. \ntime done.\nTrace Flag set: time. \n");
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
  EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(Bytes() == before);
  EXPECT_TRUE(platform.log.empty());
}

// The first pages may be written, the others only read: each context that can be changed is.
TEST_F(SchedTraceMemoryTest, SomeRunContextsMayOnlyBeRead) {
  Fill(0xA5);
  SetCount(4);
  const size_t writable = 32 * 1024;  // the contexts 0 and 1, and the start of 2
  ASSERT_EQ(mprotect(bytes_ + writable, kBytes - writable, PROT_READ), 0);
  EXPECT_EQ(Perf({"task", "disable"}), "Trace flag disable\n");
  for (int runc = 0; runc < 4; ++runc) EXPECT_EQ(bytes_[RuncAt(runc)], runc < 3 ? 0 : 0xA5) << runc;
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
  for (int runc = 0; runc < 4; ++runc) EXPECT_EQ(bytes_[RuncAt(runc) + 13023], runc < 2 ? 0 : 0xA5) << runc;
}

TEST_F(SchedTraceMemoryTest, ARegionThatCannotBeReadHasNoRunContexts) {
  ASSERT_EQ(mprotect(bytes_, kBytes, PROT_NONE), 0);
  for (const char *word : {"show", "disable", "show_graph", "show_active_node"}) {
    EXPECT_EQ(Perf({"task", word}), "") << word;
  }
  EXPECT_EQ(Perf({"task", "set", "time"}), "");
  EXPECT_EQ(Perf({"task", "topdown", "avg"}), "");
  EXPECT_EQ(Perf({"task", "clear"}), "clear data done.\n");
  EXPECT_EQ(g_perfFlag, 0);
}

// The kernel is asked about pages: not for each of a context's 128 nodes, nor for its 13 KB.
TEST_F(SchedTraceMemoryTest, AsksTheKernelAboutPagesOnly) {
  SetCount(5);
  for (const char *word : {"clear", "disable", "show_active_node"}) {
    KernelCalls::count = 0;
    Perf({"task", word});
    EXPECT_LE(KernelCalls::count.load(), 64) << word;
  }
}

}  // namespace
}  // namespace qdt::test
