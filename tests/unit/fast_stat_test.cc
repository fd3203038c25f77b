#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "qdt/pmu.h"
#include "tests/unit/command_test.h"

// The pmc command, its operations and its event tables.
namespace qdt::test {
namespace {

constexpr char kRegion[] = "FAST_STAT_SSMAP_PTR";
constexpr size_t kRegionSize = 8 + 4 * 1096;
constexpr char kHelp[] = "nqecli pmc [ 1 ~ 12]\nnqecli pmc stop\n";

constexpr size_t CoreAt(int core) { return 8 + 1096 * static_cast<size_t>(core); }
constexpr size_t PointAt(int core, int point) { return CoreAt(core) + 8 + 136 * static_cast<size_t>(point); }

class FastStatTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Detach();
  }
  void TearDown() override {
    Detach();
    CommandTest::TearDown();
  }

  static void Detach() {
    g_nqe_core_num = nullptr;
    g_fast_stat_mode = nullptr;
    g_fast_stat_lcore = nullptr;
  }

  void AddRegion(int32_t cores, uint32_t mode) {
    platform.AddRegion(kRegion, kRegionSize);
    Put(kRegion, 0, cores);
    Put(kRegion, 4, mode);
  }
  void Attach(int32_t cores, uint32_t mode) {
    AddRegion(cores, mode);
    ASSERT_EQ(get_fast_stat_SSMAP(), 0);
  }

  // Counts of a point: its hits, its packets, and 8 event counts from `firstEvent` on.
  void PutPoint(int core, int point, uint32_t hits, uint32_t packets, uint64_t firstEvent) {
    const size_t at = PointAt(core, point);
    Put(kRegion, at, hits);
    Put(kRegion, at + 4, packets);
    for (uint64_t i = 0; i < 8; ++i) {
      Put(kRegion, at + 8 + 16 * i, uint64_t{0xBAD0BAD0BAD0BAD0});  // not shown
      Put(kRegion, at + 16 + 16 * i, firstEvent + i);
    }
  }

  uint32_t mode() { return Get<uint32_t>(kRegion, 4); }

  // The answer to "pmc" and the words; what went to standard output is in `printed`.
  std::string Pmc(std::vector<std::string> words) {
    words.insert(words.begin(), "pmc");
    std::string answer;
    printed = StandardOutput([&] { answer = Run(VrxFastStatCmdRun, words); });
    return answer;
  }

  std::string printed;
};

// The command.

TEST_F(FastStatTest, FailedAttachStandsAlone) {
  for (const char *word : {"3", "stop", "help"}) {
    EXPECT_EQ(Pmc({word}), "fast stat OsaSmmap failed, ret=-1\n");
    EXPECT_EQ(printed, "nqecli: OsaSmmap fail, FAST_STAT_SSMAP_PTR, size=0");
    EXPECT_EQ(result, -1);
  }
  EXPECT_EQ(platform.attaches, std::vector<std::string>(3, "FAST_STAT_SSMAP_PTR 0"));
  EXPECT_EQ(g_fast_stat_mode, nullptr);
}

TEST_F(FastStatTest, AttachesOnce) {
  EXPECT_EQ(StandardOutput([] { EXPECT_EQ(get_fast_stat_SSMAP(), -1); }),
            "nqecli: OsaSmmap fail, FAST_STAT_SSMAP_PTR, size=0");
  AddRegion(3, 0);
  EXPECT_EQ(get_fast_stat_SSMAP(), 0);
  EXPECT_EQ(get_fast_stat_SSMAP(), 1);
  EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, 0 -> 0\r\n");
  EXPECT_EQ(platform.attaches.size(), 2u);
  auto *const base = static_cast<uint8_t *>(platform.Region(kRegion));
  EXPECT_EQ(static_cast<void *>(g_nqe_core_num), base);
  EXPECT_EQ(static_cast<void *>(g_fast_stat_mode), base + 4);
  EXPECT_EQ(static_cast<void *>(g_fast_stat_lcore), base + 8);
}

TEST_F(FastStatTest, HelpWithoutAWord) {
  AddRegion(1, 0);
  EXPECT_EQ(Pmc({}), kHelp);
  EXPECT_EQ(result, 0);
  Output output;
  char name[] = "pmc";
  char *words[] = {name, nullptr};
  EXPECT_EQ(VrxFastStatCmdRun(&output.out, 2, words), 0);
  EXPECT_EQ(output.text(), kHelp);
  EXPECT_EQ(VrxFastStatCmdRun(&output.out, 0, words), 0);
  EXPECT_EQ(output.text(), kHelp);
  EXPECT_EQ(Appended(FastStatHelp), kHelp);
}

TEST_F(FastStatTest, OtherWords) {
  AddRegion(1, 0);
  for (const std::string word : {"start", "STOP", "stop ", "-1", "+3", " 3", "x3", ""}) {
    EXPECT_EQ(Pmc({word}), "Not support keyword, " + word + "\n" + kHelp);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(mode(), 0u);
  }
}

TEST_F(FastStatTest, EveryModeStarts) {
  AddRegion(1, 0);
  for (uint32_t m = 1; m <= 12; ++m) {
    Put(kRegion, 4, 0u);
    EXPECT_EQ(Pmc({std::to_string(m)}), "set fast stat mode, 0 -> " + std::to_string(m) + "\n");
    EXPECT_EQ(printed, "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mode(), m);
  }
}

TEST_F(FastStatTest, DigitsDecideAndWhatFollowsIsIgnored) {
  AddRegion(1, 0);
  EXPECT_EQ(Pmc({"3abc", "stop"}), "set fast stat mode, 0 -> 3\n");
  EXPECT_EQ(mode(), 3u);
}

TEST_F(FastStatTest, TheLow32BitsOfTheNumberCount) {
  AddRegion(1, 0);
  EXPECT_EQ(Pmc({"4294967299"}), "set fast stat mode, 0 -> 3\n");
  EXPECT_EQ(mode(), 3u);
  Pmc({"stop"});
  EXPECT_EQ(Pmc({"6442450945"}), "Error in fast_pmc_start, ret=-1, mode=-2147483647\n");
}

TEST_F(FastStatTest, ModesThatDoNotExist) {
  AddRegion(1, 0);
  for (const std::string word : {"0", "13", "99"}) {
    EXPECT_EQ(Pmc({word}), "Error in fast_pmc_start, ret=-1, mode=" + word + "\n");
    EXPECT_EQ(printed, "error in get_evt_from_mode, mode=" + word + "\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(mode(), 0u);
  }
  // Beyond 64 bits the number ends at the largest, of which the low half is shown.
  EXPECT_EQ(Pmc({"99999999999999999999"}), "Error in fast_pmc_start, ret=-1, mode=-1\n");
  EXPECT_EQ(printed, "error in get_evt_from_mode, mode=-1\n");
}

TEST_F(FastStatTest, ModeThatTheEngineWithdrew) {
  Attach(1, 0);
  const PmuEventSelect *const table = std::exchange(evt_define[7], nullptr);
  EXPECT_EQ(Pmc({"7"}), "Error in fast_pmc_start, ret=-1, mode=7\n");
  EXPECT_EQ(printed, "error in get_evt_from_mode, mode=7\n");
  Put(kRegion, 4, 7u);
  PutPoint(0, 0, 1, 1, 1);
  EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, 7 -> 0\r\n");
  evt_define[7] = table;
}

TEST_F(FastStatTest, SecondStartIsRefused) {
  AddRegion(1, 5);
  PutPoint(0, 0, 7, 7, 7);
  EXPECT_EQ(Pmc({"3"}), "Error in fast_pmc_start, ret=-10, mode=3\n");
  EXPECT_EQ(printed, "stop pmc first, cur mode=5\n");
  EXPECT_EQ(result, -10);
  EXPECT_EQ(mode(), 5u);
  EXPECT_EQ(Get<uint32_t>(kRegion, PointAt(0, 0)), 7u) << "a refused start clears nothing";
}

TEST_F(FastStatTest, StopWhileStopped) {
  AddRegion(1, 0);
  PutPoint(0, 0, 7, 7, 7);
  EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, 0 -> 0\r\n");
  EXPECT_EQ(printed, "");
  EXPECT_EQ(result, 0);
}

TEST_F(FastStatTest, StopOfAModeThatIsNone) {
  AddRegion(1, 13);
  PutPoint(0, 0, 7, 7, 7);
  EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, 13 -> 0\r\n");
  Put(kRegion, 4, UINT32_MAX);
  EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, -1 -> 0\r\n");
}

// What a stop prints.

TEST_F(FastStatTest, StopPrintsEveryCore) {
  AddRegion(2, 1);
  PutPoint(0, 0, 11, 12, 101);
  PutPoint(0, 3, 0, 99, 900);  // not hit: no line
  PutPoint(0, 7, 21, 22, 18446744073709551608u);
  PutPoint(1, 2, 31, 32, 301);
  PutPoint(2, 0, 41, 42, 401);  // behind the last core
  constexpr char kHeader[] =
      "[No]statId, Hit-Cnt, Packets,L1D_TLB_REFILL,L1D_CACHE_REFILL,L1D_CACHE,L2D_CACHE_REFILL,L2D_CACHE,"
      "MEM_ACCESS,CYCLES\r\n";
  EXPECT_EQ(Pmc({"stop"}),
            std::string("core=0\r\n") + kHeader +
                "0, 11, 12, 101, 102, 103, 104, 105, 106, 107\r\n"
                "7, 21, 22, 18446744073709551608, 18446744073709551609, 18446744073709551610, "
                "18446744073709551611, 18446744073709551612, 18446744073709551613, 18446744073709551614\r\n"
                "core=1\r\n" +
                kHeader +
                "2, 31, 32, 301, 302, 303, 304, 305, 306, 307\r\n"
                "stop fast pmc, 1 -> 0\r\n");
  EXPECT_EQ(printed, "");
  EXPECT_EQ(mode(), 0u);
  EXPECT_EQ(Get<uint32_t>(kRegion, PointAt(0, 0)), 11u) << "a stop keeps the counters";
}

TEST_F(FastStatTest, ColumnsOfEveryMode) {
  const std::string columns[] = {
      "",
      ",L1D_TLB_REFILL,L1D_CACHE_REFILL,L1D_CACHE,L2D_CACHE_REFILL,L2D_CACHE,MEM_ACCESS,CYCLES",
      ",L1I_TLB_REFILL,L1I_CACHE_REFILL,L1I_CACHE,BR_MIS_PRED,BR_PRED,INST_RETIRED,CYCLES",
      ",CYCLES",
      ",INST_RETIRED,INST_SPEC,STALL_FRONTEND,STALL_BACKEND,STALL_BACKEND_LD,STALL_BACKEND_ST,CYCLES",
      ",STALL_FRONTEND_TLB,STALL_BACKEND_LD_TLB,STALL_BACKEND_ST_TLB,CYCLES",
      ",L1D_CACHE_REFILL,L1D_CACHE,L1D_CACHE_REFILL_RD,L1D_CACHE_RD,L1D_CACHE_REFILL_WR,L1D_CACHE_WR,CYCLES",
      ",L2D_CACHE_REFILL,L2D_CACHE,L2D_CACHE_REFILL_RD,L2D_CACHE_RD,L2D_CACHE_REFILL_WR,L2D_CACHE_WR,CYCLES",
      ",L3D_CACHE_REFILL,L3D_CACHE,L3D_CACHE_REFILL_RD,L3D_CACHE_RD,LL_CACHE_MISS_RD,LL_CACHE_RD,CYCLES",
      ",L1I_TLB_REFILL,L1I_TLB,L1D_TLB_REFILL,L1D_TLB,CYCLES",
      ",L2D_TLB_REFILL,L2D_TLB,CYCLES",
      ",MEM_ACCESS_RD,MEM_ACCESS_WR,MEM_ACCESS,CYCLES",
      ",BUS_ACCESS,BUS_CYCLES,CYCLES",
  };
  const std::string values[] = {"",
                                ", 51",
                                ", 51, 52",
                                ", 51, 52, 53",
                                ", 51, 52, 53, 54",
                                ", 51, 52, 53, 54, 55",
                                ", 51, 52, 53, 54, 55, 56",
                                ", 51, 52, 53, 54, 55, 56, 57"};
  AddRegion(1, 0);
  PutPoint(0, 4, 1, 2, 51);
  for (uint32_t m = 1; m <= 12; ++m) {
    const auto events = static_cast<size_t>(std::count(columns[m].begin(), columns[m].end(), ','));
    Put(kRegion, 4, m);
    EXPECT_EQ(Pmc({"stop"}), "core=0\r\n[No]statId, Hit-Cnt, Packets" + columns[m] + "\r\n4, 1, 2" +
                                 values[events] + "\r\nstop fast pmc, " + std::to_string(m) + " -> 0\r\n");
  }
}

TEST_F(FastStatTest, AtMostFourCoresAreShown) {
  AddRegion(6, 3);
  constexpr char kHeader[] = "[No]statId, Hit-Cnt, Packets,CYCLES\r\n";
  std::string expected;
  for (const char *core : {"core=0\r\n", "core=1\r\n", "core=2\r\n", "core=3\r\n"})
    expected += std::string(core) + kHeader;
  EXPECT_EQ(Pmc({"stop"}), expected + "stop fast pmc, 3 -> 0\r\n");
  for (const int32_t cores : {0, -1, INT32_MIN}) {
    Put(kRegion, 0, cores);
    Put(kRegion, 4, 3u);
    EXPECT_EQ(Pmc({"stop"}), "stop fast pmc, 3 -> 0\r\n") << cores;
  }
}

TEST_F(FastStatTest, CountsAreShownSigned) {
  AddRegion(1, 3);
  PutPoint(0, 1, UINT32_MAX, 0x80000000u, 5);
  EXPECT_EQ(
      Pmc({"stop"}),
      "core=0\r\n[No]statId, Hit-Cnt, Packets,CYCLES\r\n1, -1, -2147483648, 5\r\nstop fast pmc, 3 -> 0\r\n");
}

// The handshake.

TEST_F(FastStatTest, ACoreThatStaysBusyDoesNotHangTheStop) {
  AddRegion(4, 3);
  Put(kRegion, CoreAt(3), 1u);
  PutPoint(3, 0, 1, 2, 3);
  EXPECT_TRUE(Pmc({"stop"}).ends_with("0, 1, 2, 3\r\nstop fast pmc, 3 -> 0\r\n"));
  EXPECT_EQ(Get<uint32_t>(kRegion, CoreAt(3)), 1u) << "the flag is the engine's";
}

// Clearing.

TEST_F(FastStatTest, AStartClearsAllCoresWhateverTheirNumber) {
  AddRegion(0, 0);
  for (int core = 0; core < 4; ++core) {
    Put(kRegion, CoreAt(core), 0x11111111u * static_cast<uint32_t>(core + 1));
    for (int point = 0; point < 8; ++point) PutPoint(core, point, 1, 2, 3);
  }
  // An unknown mode clears as well.
  EXPECT_EQ(Pmc({"13"}), "Error in fast_pmc_start, ret=-1, mode=13\n");
  for (int core = 0; core < 4; ++core) {
    EXPECT_EQ(Get<uint32_t>(kRegion, CoreAt(core)), 0x11111111u * static_cast<uint32_t>(core + 1));
    for (size_t at = CoreAt(core) + 8; at < CoreAt(core) + 1096; at += 8)
      EXPECT_EQ(Get<uint64_t>(kRegion, at), 0u) << at;
  }
}

TEST_F(FastStatTest, ClearOfOneCore) {
  Attach(4, 0);
  for (int core = 0; core < 2; ++core) PutPoint(core, 7, 1, 2, 3);
  fast_stat_lcore_clear(g_fast_stat_lcore);
  EXPECT_EQ(Get<uint32_t>(kRegion, PointAt(0, 7)), 0u);
  EXPECT_EQ(Get<uint64_t>(kRegion, PointAt(0, 7) + 128), 0u);
  EXPECT_EQ(Get<uint32_t>(kRegion, PointAt(1, 7)), 1u);
}

// Areas that are too small: what fits stands there, and standard output names the piece that did not.

class FastStatOverflowTest : public FastStatTest {
 protected:
  // The complaint of a dump into `room` bytes; it must fail.
  template <typename Dump>
  static std::string Complaint(Dump dump, uint32_t room) {
    const auto area = std::make_unique<char[]>(room);
    return StandardOutput([&] { EXPECT_EQ(dump(area.get(), room), -1) << "room " << room; });
  }

  template <typename Dump>
  static std::string Text(Dump dump, uint32_t room) {
    const auto area = std::make_unique<char[]>(room);
    EXPECT_EQ(dump(area.get(), room), static_cast<int32_t>(room) - 1);
    return area.get();
  }
};

TEST_F(FastStatOverflowTest, PointLine) {
  Attach(1, 0);
  PutPoint(0, 0, 11, 12, 101);
  const void *const record = reinterpret_cast<const char *>(g_fast_stat_lcore) + 8;
  const auto dump = [record](char *area, uint32_t room) {
    return fast_stat_dump(5, static_cast<const FastStatPoint *>(record), evt_select_mode_bus1, area, room);
  };
  // "5, 11, 12" ", 101" ", 102" ", 103" "\r\n"
  EXPECT_EQ(Complaint(dump, 0), "[pmc_stat_dump1]out buffer overflow, size=0, pos=0\n");
  EXPECT_EQ(Complaint(dump, 9), "[pmc_stat_dump1]out buffer overflow, size=9, pos=0\n");
  EXPECT_EQ(Complaint(dump, 10), "[pmc_stat_dump2]out buffer overflow, size=10, pos=9\n");
  EXPECT_EQ(Complaint(dump, 24), "[pmc_stat_dump2]out buffer overflow, size=24, pos=19\n");
  EXPECT_EQ(Complaint(dump, 26), "[pmc_stat_dump3]out buffer overflow, size=26, pos=24\n");
  EXPECT_EQ(Text(dump, 27), "5, 11, 12, 101, 102, 103\r\n");
}

TEST_F(FastStatOverflowTest, Core) {
  Attach(1, 0);
  PutPoint(0, 6, 1, 2, 3);
  const auto dump = [](char *area, uint32_t room) {
    return fast_stat_lcore_dump(2, g_fast_stat_lcore, evt_select_mode_tlb2, area, room);
  };
  // "core=2\r\n[No]statId, Hit-Cnt, Packets" ",L2D_TLB_REFILL" ",L2D_TLB" ",CYCLES" "\r\n", then the point.
  EXPECT_EQ(Complaint(dump, 36), "[fast_stat_lcore_dump1]out buffer overflow, size=36, pos=0\n");
  EXPECT_EQ(Complaint(dump, 37), "[fast_stat_lcore_dump2]out buffer overflow, size=37, pos=36\n");
  EXPECT_EQ(Complaint(dump, 66), "[fast_stat_lcore_dump2]out buffer overflow, size=66, pos=59\n");
  EXPECT_EQ(Complaint(dump, 68), "[fast_stat_lcore_dump3]out buffer overflow, size=68, pos=66\n");
  EXPECT_EQ(Complaint(dump, 69), "[pmc_stat_dump1]out buffer overflow, size=1, pos=0\n");
  EXPECT_EQ(Complaint(dump, 86), "[pmc_stat_dump3]out buffer overflow, size=18, pos=16\n");
  EXPECT_EQ(Text(dump, 87),
            "core=2\r\n[No]statId, Hit-Cnt, Packets,L2D_TLB_REFILL,L2D_TLB,CYCLES\r\n6, 1, 2, 3, 4, 5\r\n");
}

TEST_F(FastStatOverflowTest, AllCores) {
  Attach(2, 0);
  const auto dump = [](char *area, uint32_t room) { return fast_stat_AllDump(evt_select_mode3, area, room); };
  // 45 bytes a core.
  EXPECT_EQ(Complaint(dump, 46), "[fast_stat_lcore_dump1]out buffer overflow, size=1, pos=0\n");
  EXPECT_EQ(
      Text(dump, 91),
      "core=0\r\n[No]statId, Hit-Cnt, Packets,CYCLES\r\ncore=1\r\n[No]statId, Hit-Cnt, Packets,CYCLES\r\n");
}

TEST_F(FastStatOverflowTest, Stop) {
  Attach(1, 0);
  const auto stop = [](char *area, uint32_t room) {
    *g_fast_stat_mode = 3;
    const int32_t written = fast_pmc_stop(area, room);
    EXPECT_EQ(*g_fast_stat_mode, 0u);
    return written;
  };
  EXPECT_EQ(Complaint(stop, 45), "[fast_stat_lcore_dump3]out buffer overflow, size=45, pos=43\n");
  EXPECT_EQ(Complaint(stop, 46), "[fast_pmc][stop]out buf overflow, size=46, pos=45");
  EXPECT_EQ(Complaint(stop, 68), "[fast_pmc][stop]out buf overflow, size=68, pos=45");
  EXPECT_EQ(Text(stop, 69), "core=0\r\n[No]statId, Hit-Cnt, Packets,CYCLES\r\nstop fast pmc, 3 -> 0\r\n");
}

TEST_F(FastStatOverflowTest, StopIntoAnAnswerThatIsNearlyFull) {
  Attach(1, 0);
  char name[] = "pmc", stop[] = "stop";
  char *words[] = {name, stop};
  // The last byte of the area is not the stop's.
  {
    Output output(QDT_OUTPUT_CAPACITY - 1 - 24);
    EXPECT_EQ(VrxFastStatCmdRunInner(&output.out, 2, words), 0);
    EXPECT_EQ(output.out.len, QDT_OUTPUT_CAPACITY - 1u - 1u);
    EXPECT_EQ(output.text().substr(output.out.len - 23), "stop fast pmc, 0 -> 0\r\n");
  }
  {
    const uint32_t length = QDT_OUTPUT_CAPACITY - 1 - 23;
    Output output(length);
    EXPECT_EQ(StandardOutput([&] { EXPECT_EQ(VrxFastStatCmdRunInner(&output.out, 2, words), -1); }),
              "[fast_pmc][stop]out buf overflow, size=23, pos=0");
    EXPECT_EQ(output.text().substr(length), "Error in fast_pmc_stop,");  // cut at the area's end
  }
  for (const uint32_t length : {0xFFFFFu, 0x100000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    Output output(length);
    EXPECT_EQ(StandardOutput([&] { EXPECT_EQ(VrxFastStatCmdRunInner(&output.out, 2, words), -1); }),
              "[fast_pmc][stop]out buf overflow, size=0, pos=0");
  }
}

// The event tables.

struct EventRow {
  uint32_t event;
  const char *name;
  uint32_t counter;
};

TEST(FastStatTables, RowsAreFortyBytes) {
  EXPECT_EQ(sizeof(PmuEventSelect), 40u);
  EXPECT_EQ(offsetof(PmuEventSelect, name), 8u);
  EXPECT_EQ(offsetof(PmuEventSelect, counter), 16u);
}

template <size_t N>
void ExpectTable(int mode, const PmuEventSelect (&table)[N], const std::vector<EventRow> &events) {
  SCOPED_TRACE("mode " + std::to_string(mode));
  EXPECT_EQ(evt_define[mode], table);
  ASSERT_EQ(N, events.size() + 2);  // behind them the cycles and the end
  for (size_t i = 0; i < N; ++i) {
    const EventRow expected = i < events.size()    ? events[i]
                              : i == events.size() ? EventRow{0xC0BE, "CYCLES", 31}
                                                   : EventRow{0xC0BF, nullptr, 0};
    EXPECT_EQ(table[i].event, expected.event) << i;
    EXPECT_STREQ(table[i].name, expected.name) << i;
    EXPECT_EQ(table[i].counter, expected.counter) << i;
    const PmuEventSelect zero = {};
    EXPECT_EQ(std::memcmp(table[i].reserved, zero.reserved, sizeof(zero.reserved)), 0) << i;
  }
}

TEST(FastStatTables, EveryMode) {
  EXPECT_EQ(sizeof(evt_define), 13 * sizeof(void *));
  EXPECT_EQ(evt_define[0], nullptr);
  ExpectTable(1, evt_select_mode1,
              {{0x05, "L1D_TLB_REFILL", 0},
               {0x03, "L1D_CACHE_REFILL", 1},
               {0x04, "L1D_CACHE", 2},
               {0x17, "L2D_CACHE_REFILL", 3},
               {0x16, "L2D_CACHE", 4},
               {0x13, "MEM_ACCESS", 5}});
  ExpectTable(2, evt_select_mode2,
              {{0x02, "L1I_TLB_REFILL", 0},
               {0x01, "L1I_CACHE_REFILL", 1},
               {0x14, "L1I_CACHE", 2},
               {0x10, "BR_MIS_PRED", 3},
               {0x12, "BR_PRED", 4},
               {0x08, "INST_RETIRED", 5}});
  ExpectTable(3, evt_select_mode3, {});
  ExpectTable(4, evt_select_mode_stall1,
              {{0x08, "INST_RETIRED", 0},
               {0x1B, "INST_SPEC", 1},
               {0x23, "STALL_FRONTEND", 2},
               {0x24, "STALL_BACKEND", 3},
               {0xE7, "STALL_BACKEND_LD", 4},
               {0xE8, "STALL_BACKEND_ST", 5}});
  ExpectTable(5, evt_select_mode4_stall2,
              {{0xE2, "STALL_FRONTEND_TLB", 0},
               {0xEA, "STALL_BACKEND_LD_TLB", 1},
               {0xEC, "STALL_BACKEND_ST_TLB", 2}});
  ExpectTable(6, evt_select_mode_cache1,
              {{0x03, "L1D_CACHE_REFILL", 0},
               {0x04, "L1D_CACHE", 1},
               {0x42, "L1D_CACHE_REFILL_RD", 2},
               {0x40, "L1D_CACHE_RD", 3},
               {0x43, "L1D_CACHE_REFILL_WR", 4},
               {0x41, "L1D_CACHE_WR", 5}});
  ExpectTable(7, evt_select_mode_cache2,
              {{0x17, "L2D_CACHE_REFILL", 0},
               {0x16, "L2D_CACHE", 1},
               {0x52, "L2D_CACHE_REFILL_RD", 2},
               {0x50, "L2D_CACHE_RD", 3},
               {0x53, "L2D_CACHE_REFILL_WR", 4},
               {0x51, "L2D_CACHE_WR", 5}});
  ExpectTable(8, evt_select_mode_cache3,
              {{0x2A, "L3D_CACHE_REFILL", 0},
               {0x2B, "L3D_CACHE", 1},
               {0xA2, "L3D_CACHE_REFILL_RD", 2},
               {0xA0, "L3D_CACHE_RD", 3},
               {0x37, "LL_CACHE_MISS_RD", 4},
               {0x36, "LL_CACHE_RD", 5}});
  ExpectTable(
      9, evt_select_mode_tlb1,
      {{0x02, "L1I_TLB_REFILL", 0}, {0x26, "L1I_TLB", 1}, {0x05, "L1D_TLB_REFILL", 2}, {0x25, "L1D_TLB", 3}});
  ExpectTable(10, evt_select_mode_tlb2, {{0x2D, "L2D_TLB_REFILL", 0}, {0x2F, "L2D_TLB", 1}});
  ExpectTable(11, evt_select_mode_mem1,
              {{0x66, "MEM_ACCESS_RD", 0}, {0x67, "MEM_ACCESS_WR", 1}, {0x13, "MEM_ACCESS", 2}});
  ExpectTable(12, evt_select_mode_bus1, {{0x19, "BUS_ACCESS", 0}, {0x1D, "BUS_CYCLES", 1}});
}

// A table without an end row ends with the entries of a point.
TEST_F(FastStatTest, ATableWithoutAnEnd) {
  Attach(1, 0);
  PutPoint(0, 0, 1, 2, 51);
  const PmuEventSelect table[8] = {{1, "A", 0, {}}, {2, "B", 1, {}}, {3, "C", 2, {}}, {4, "D", 3, {}},
                                   {5, "E", 4, {}}, {6, "F", 5, {}}, {7, "G", 6, {}}, {8, "H", 7, {}}};
  char area[200];
  fast_stat_lcore_dump(0, g_fast_stat_lcore, table, area, sizeof(area));
  EXPECT_STREQ(area,
               "core=0\r\n[No]statId, Hit-Cnt, Packets,A,B,C,D,E,F,G,H\r\n"
               "0, 1, 2, 51, 52, 53, 54, 55, 56, 57, 58\r\n");
}

}  // namespace
}  // namespace qdt::test
