#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"

// How full the engine is: the listing of its tables, and the two documents with one figure.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;

constexpr uint32_t kAclGroup = 24;
constexpr uint32_t kRoom = 20480;

constexpr char kRule[] = "-----------------------------------------------------------------";
constexpr char kHead[] =
    "\n-----------------------------------------------------------------"
    "\nTableName                      Spec   Used   Usage(%) Trapstate "
    "\n-----------------------------------------------------------------";
constexpr size_t kHeadSize = 66 + 65 + 66;
static_assert(sizeof(kHead) == kHeadSize + 1);

class TableUsageTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    info_ = {109, 0, tables_, nullptr, nullptr};
    g_tbmGlobalInfo = &info_;
  }
  void TearDown() override {
    g_tbmGlobalInfo = nullptr;
    PlatformTest::TearDown();
  }

  void Define(uint32_t id, const char *name, uint32_t spec, uint32_t trapState = 0) {
    tables_[id].dataSize = 1;
    tables_[id].name = name;
    tables_[id].spec = spec;
    tables_[id].enable = 1;
    tables_[id].trapState = trapState;
  }

  void Fill(uint32_t id, int entries) {
    for (int i = 0; i < entries; ++i) platform.AddEntry(id, Key(i), Record(1).bytes());
  }

  // The listing, which is sent as a whole and frees its buffer.
  std::string List() {
    EXPECT_EQ(QdtOmaTblUsageProc(&request_), 0);
    if (platform.answers.size() != 1) return "answers: " + std::to_string(platform.answers.size());
    const std::string answer = platform.answers.front();
    platform.answers.clear();
    return answer;
  }

  std::string Row(uint32_t id) {
    char text[512] = "untouched";
    const int32_t length = TblUsagePrintUsageInfo(text, sizeof(text), id);
    if (length <= 0) return "result " + std::to_string(length) + ", " + text;
    EXPECT_EQ(std::strlen(text), static_cast<size_t>(length));
    return text;
  }

  TbmTableDesc tables_[109] = {};
  TbmGlobalInfo info_{};
  omcc_request request_;
};

TEST_F(TableUsageTest, WholeListing) {
  Define(108, "CAP_TABLE_LAST", 7, 4294967295u);
  Define(1, "CAP_TABLE_FIB", 1000, 2);
  Define(kAclGroup, "CAP_TABLE_ACL_GROUP", 64, 1);
  Define(57, "CAP_TABLE_WITH_A_NAME_BEYOND_30_CHARS", 4294967295u, 3);
  Fill(1, 333);
  Fill(kAclGroup, 5);  // not what is asked
  platform.aclUse = {0, 16, 999};
  Fill(108, 7);
  EXPECT_EQ(List(),
            "\n-----------------------------------------------------------------"
            "\nTableName                      Spec   Used   Usage(%) Trapstate "
            "\n-----------------------------------------------------------------"
            "\nCAP_TABLE_FIB                  1000   333    33       2"
            "\nCAP_TABLE_ACL_GROUP            64     16     25       1"
            "\nCAP_TABLE_WITH_A_NAME_BEYOND_30_CHARS 4294967295 0      0        3"
            "\nCAP_TABLE_LAST                 7      7      100      4294967295"
            "\n-----------------------------------------------------------------");
  ASSERT_EQ(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_tbl_usage");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TableUsageTest, NoTablesButTheLines) {
  EXPECT_EQ(List(), std::string(kHead) + "\n" + kRule);
  info_.tables = nullptr;
  EXPECT_EQ(List(), std::string(kHead) + "\n" + kRule);
  g_tbmGlobalInfo = nullptr;
  EXPECT_EQ(List(), std::string(kHead) + "\n" + kRule);
}

TEST_F(TableUsageTest, TheGlobalTableIsNotListed) {
  Define(0, "CAP_TABLE_GLOBAL", 1);
  EXPECT_EQ(List(), std::string(kHead) + "\n" + kRule);
  EXPECT_EQ(Row(0), "\nCAP_TABLE_GLOBAL               1      0      0        0");  // but can be asked for
}

TEST_F(TableUsageTest, TablesThatAreSkipped) {
  const std::string skipped = "result 0, untouched";
  Define(5, "CAP_TABLE_X", 10);
  EXPECT_EQ(Row(5), "\nCAP_TABLE_X                    10     0      0        0");
  tables_[5].dataSize = 0;
  EXPECT_EQ(Row(5), skipped);
  Define(5, "CAP_TABLE_X", 10);
  tables_[5].enable = 0;
  EXPECT_EQ(Row(5), skipped);
  Define(5, "CAP_TABLE_X", 0);
  EXPECT_EQ(Row(5), skipped);
  for (const uint32_t id : {109u, 110u, UINT32_MAX}) EXPECT_EQ(Row(id), skipped) << id;
  info_.tables = nullptr;
  EXPECT_EQ(Row(5), skipped);
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TableUsageTest, TablesBehindTheListAreSkipped) {
  const auto tables = std::make_unique<TbmTableDesc[]>(10);  // a sanitizer sees a read behind it
  Define(9, "CAP_TABLE_X", 10);
  tables[9] = tables_[9];
  info_ = {10, 0, tables.get(), nullptr, nullptr};
  const std::string row = "\nCAP_TABLE_X                    10     0      0        0";
  EXPECT_EQ(Row(9), row);
  for (const uint32_t id : {10u, 24u, 108u, 109u, UINT32_MAX})
    EXPECT_EQ(Row(id), "result 0, untouched") << id;
  EXPECT_EQ(List(), std::string(kHead) + row + "\n" + kRule);
  info_.tableCount = 0;
  EXPECT_EQ(Row(9), "result 0, untouched");
  // A longer list changes nothing for the tables that are known.
  info_ = {200, 0, tables_, nullptr, nullptr};
  EXPECT_EQ(List(), std::string(kHead) + row + "\n" + kRule);
  EXPECT_EQ(Row(109), "result 0, untouched");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TableUsageTest, AnyNonZeroFieldMeansDefinedAndInUse) {
  Define(5, "CAP_TABLE_X", 10);
  tables_[5].dataSize = 0xFF00;
  tables_[5].enable = 0x80000000;
  EXPECT_EQ(Row(5), "\nCAP_TABLE_X                    10     0      0        0");
}

TEST_F(TableUsageTest, PercentNeeds64BitsAndIsRoundedDown) {
  Define(kAclGroup, "G", 4000000000u);
  platform.aclUse.groups = 3999999999u;
  EXPECT_EQ(Row(kAclGroup), "\nG                              4000000000 3999999999 99       0");
  platform.aclUse.groups = 4000000000u;
  EXPECT_EQ(Row(kAclGroup), "\nG                              4000000000 4000000000 100      0");
  Define(kAclGroup, "G", 3);
  platform.aclUse.groups = 2;
  EXPECT_EQ(Row(kAclGroup), "\nG                              3      2      66       0");
  platform.aclUse.groups = 6;  // a table that holds more than it should
  EXPECT_EQ(Row(kAclGroup), "\nG                              3      6      200      0");
}

TEST_F(TableUsageTest, ACountThatIsEmptyLeavesTheTableOut) {
  Define(3, "CAP_TABLE_A", 10);
  Define(4, "CAP_TABLE_B", 10);
  Define(5, "CAP_TABLE_C", 10);
  platform.FailCount(4, -4);
  EXPECT_EQ(List(), std::string(kHead) +
                        "\nCAP_TABLE_A                    10     0      0        0"
                        "\nCAP_TABLE_C                    10     0      0        0\n" +
                        kRule);
  const LogLine line = {3, "Get tbl entry num failed, table: CAP_TABLE_B, ret: -4\n"};
  EXPECT_EQ(platform.log, std::vector<LogLine>{line});
  EXPECT_EQ(Row(4), "result 0, untouched");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{line, line}));
}

TEST_F(TableUsageTest, AnyOtherCountFailureEndsTheListing) {
  Define(3, "CAP_TABLE_A", 10);
  Define(kAclGroup, "CAP_TABLE_B", 10);
  Define(25, "CAP_TABLE_C", 10);
  for (const int32_t code : {-1, -3, -5, -7, 1, 4}) {
    platform.log.clear();
    platform.aclUse.code = code;
    EXPECT_EQ(List(),
              std::string(kHead) + "\nCAP_TABLE_A                    10     0      0        0\n" + kRule);
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Get tbl entry num failed, table: CAP_TABLE_B, ret: " +
                                                          std::to_string(code) + "\n"}}));
    EXPECT_EQ(Row(kAclGroup), "result -1, untouched");
  }
}

TEST_F(TableUsageTest, ATableWithoutAName) {
  Define(3, nullptr, 10);
  EXPECT_EQ(Row(3), "\n                               10     0      0        0");
  platform.FailCount(3, -7);
  EXPECT_EQ(Row(3), "result -1, untouched");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Get tbl entry num failed, table: , ret: -7\n"}}));
}

TEST_F(TableUsageTest, ARowIsBoundedByItsRoom) {
  Define(3, "CAP_TABLE_A", 10, 7);
  const std::string row = "\nCAP_TABLE_A                    10     0      0        7";
  const auto length = static_cast<uint32_t>(row.size());
  for (uint32_t room = 0; room <= length; ++room) {
    platform.log.clear();
    const auto area = std::make_unique<char[]>(room);  // a sanitizer sees every byte beyond
    EXPECT_EQ(TblUsagePrintUsageInfo(area.get(), room, 3), -1) << room;
    EXPECT_TRUE(room == 0 || area[0] == 0);
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "sprintf_s table: CAP_TABLE_A failed, ret: -1\n"}}));
  }
  const auto area = std::make_unique<char[]>(length + 1);
  EXPECT_EQ(TblUsagePrintUsageInfo(area.get(), length + 1, 3), static_cast<int32_t>(length));
  EXPECT_EQ(area.get(), row);
}

// One row of just this length, of which 26 characters stand beside the name.
std::string NameForRow(size_t length) { return std::string(length - 26, 'n'); }

TEST_F(TableUsageTest, ARowThatDoesNotFitEndsTheListing) {
  const size_t left = kRoom - kHeadSize - 1;  // behind the head, the NUL taken off
  const std::string fits = NameForRow(left - 66);
  const std::string tooLong = NameForRow(67);
  Define(3, fits.c_str(), 10);
  Define(4, tooLong.c_str(), 10);
  Define(5, "CAP_TABLE_C", 10);  // would fit, but the listing has ended
  const std::string row = "\n" + fits + " 10     0      0        0";
  EXPECT_EQ(List(), kHead + row + "\n" + kRule);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "sprintf_s table: " + tooLong + " failed, ret: -1\n"}}));
}

TEST_F(TableUsageTest, WithoutRoomForTheLastLineNothingIsSent) {
  const std::string name = NameForRow(kRoom - kHeadSize - 1 - 65);
  Define(3, name.c_str(), 10);
  EXPECT_EQ(QdtOmaTblUsageProc(&request_), -1);
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{3, "sprintf_s table uasge end block line failed, ret: -1\n"}}));
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(TableUsageTest, ShortMemoryIsLogged) {
  platform.FailAllocation(0);
  EXPECT_EQ(QdtOmaTblUsageProc(&request_), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for tbl usage failed\n"}}));
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(TableUsageTest, AFailedSend) {
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    EXPECT_EQ(QdtOmaTblUsageProc(&request_), -1);
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
  EXPECT_EQ(platform.answers.size(), 2u);
  EXPECT_TRUE(platform.log.empty());
}

// The documents.

constexpr char kNode[] = "node /tavrix-software-fwd:software-fwd/fwd-statistics-infos/fwd-statistics-info 2";

class FigureDocumentTest : public PlatformTest {
 protected:
  using Handler = int32_t (*)(char **);

  // The handler's document is handed over and released; what was done to it is in platform.documents.calls.
  void ExpectDocument(Handler handler) {
    platform.documents.calls.clear();
    char *text = nullptr;
    EXPECT_EQ(handler(&text), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "<document/>");
    free_ex(g_mallocHandle, text);
    EXPECT_TRUE(platform.log.empty());
  }

  // The value in the last leaf of the handler's document.
  std::string Figure(Handler handler) {
    ExpectDocument(handler);
    const Lines &calls = platform.documents.calls;
    if (calls.size() < 5) return "only " + std::to_string(calls.size()) + " calls";
    return calls[4].substr(calls[4].rfind(' ') + 1);
  }

  void ExpectFailure(Handler handler, int failAt, const Lines &calls, const std::vector<LogLine> &log) {
    platform.documents.calls.clear();
    platform.log.clear();
    platform.documents.failAt = failAt;
    char marker;
    char *text = &marker;
    EXPECT_EQ(handler(&text), -1) << failAt;
    EXPECT_EQ(text, &marker);
    EXPECT_EQ(platform.documents.calls, calls);
    EXPECT_EQ(platform.log, log);
    EXPECT_EQ(platform.documents.live, 0);
  }

  // Every call that a document is made of, failing in turn. `leaves` are the three, in their order.
  void ExpectFailures(Handler handler, const Lines &leaves, const std::string &missing) {
    const std::vector<LogLine> silence;
    ExpectFailure(handler, 0, {"document"}, {{3, missing}});
    ExpectFailure(handler, 1, {"document", kNode, leaves[0], "free"}, silence);
    ExpectFailure(handler, 2, {"document", kNode, leaves[0], "free"}, silence);
    ExpectFailure(handler, 3, {"document", kNode, leaves[0], leaves[1], "free"}, silence);
    ExpectFailure(handler, 4, {"document", kNode, leaves[0], leaves[1], leaves[2], "free"},
                  {{3, "qdt add omcc leaf failed\n"}});
  }

  // A text that the library did not make is handed over as it came; the document is released all the same.
  void ExpectNoText(Handler handler) {
    platform.documents.failAt = 5;
    char marker;
    char *text = &marker;
    EXPECT_EQ(handler(&text), 0);
    EXPECT_EQ(text, nullptr);
    ASSERT_EQ(platform.documents.calls.size(), 7u);
    EXPECT_EQ(platform.documents.calls[5], "format 2");
    EXPECT_EQ(platform.documents.calls[6], "free");
    EXPECT_TRUE(platform.log.empty());
  }
};

class NobuffTest : public FigureDocumentTest {
 protected:
  // A core whose four water lines have these counters, all its others another one.
  void AddCore(const std::vector<uint64_t> &waterLines, uint64_t others) {
    std::vector<uint64_t> counters(831, others);
    std::copy(waterLines.begin(), waterLines.end(), counters.begin() + 363);
    platform.runContexts.push_back(counters);
  }
};

TEST_F(NobuffTest, WholeDocument) {
  AddCore({1, 20, 300, 4000}, 99);
  AddCore({50000, 600000, 7000000, 80000000}, 98);
  ExpectDocument(QdtOmaPacketDropNobuffProc);
  EXPECT_EQ(platform.documents.calls, (Lines{"document", kNode, "leaf slot-id 0", "leaf cpu-id 0",
                                             "leaf packet-drop-nobuff 87654321", "format 2", "free"}));
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(NobuffTest, EachWaterLineCounts) {
  for (int line = 0; line < 4; ++line) {
    platform.runContexts.clear();
    std::vector<uint64_t> waterLines(4);
    waterLines[line] = 7;
    AddCore(waterLines, 0);
    EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "7") << line;
  }
}

TEST_F(NobuffTest, WithoutCoresTheCountIsZero) {
  EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "0");
  AddCore({1, 1, 1, 1}, 0);
  for (const int32_t count : {0, -1, INT32_MIN}) {
    platform.runContextCount = count;
    EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "0") << count;
  }
}

TEST_F(NobuffTest, CoresWithoutCountersAreSkipped) {
  platform.runContexts.emplace_back();
  AddCore({1, 2, 3, 4}, 0);
  platform.runContexts.emplace_back();
  AddCore({10, 20, 30, 40}, 0);
  EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "110");
  platform.runContextCount = 3;
  EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "10");
}

TEST_F(NobuffTest, SumsOf64Bits) {
  AddCore({UINT64_MAX, 0, 0, 0}, 0);
  EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "18446744073709551615");
  AddCore({2, 0, 0, 0}, 0);
  EXPECT_EQ(Figure(QdtOmaPacketDropNobuffProc), "1");
}

TEST_F(NobuffTest, FailuresOfTheDocumentLibrary) {
  ExpectFailures(QdtOmaPacketDropNobuffProc, {"leaf slot-id 0", "leaf cpu-id 0", "leaf packet-drop-nobuff 0"},
                 "QdtOmaPacketDropNobuffProc: doc is null\n");
}

TEST_F(NobuffTest, ADocumentThatCannotBeFormatted) { ExpectNoText(QdtOmaPacketDropNobuffProc); }

class MemoryUsageTest : public FigureDocumentTest {
 protected:
  std::string Usage(uint32_t allocated, uint32_t total) {
    platform.partition.allocated = allocated;
    platform.partition.total = total;
    return Figure(QdtOmaMemoryUsage);
  }
};

TEST_F(MemoryUsageTest, WholeDocument) {
  platform.partition.allocated = 1000;
  platform.partition.total = 3000;
  ExpectDocument(QdtOmaMemoryUsage);
  EXPECT_EQ(platform.documents.calls, (Lines{"document", kNode, "leaf cpu-id 0", "leaf slot-id 0",
                                             "leaf fwd-memory-usage 33", "format 2", "free"}));
  EXPECT_EQ(platform.partition.attaches, Lines{"OSA_SHM_CST_NAME"});
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(MemoryUsageTest, Percentages) {
  EXPECT_EQ(Usage(0, 1), "0");
  EXPECT_EQ(Usage(1, 1), "100");
  EXPECT_EQ(Usage(999, 1000), "99");
  EXPECT_EQ(Usage(UINT32_MAX - 1, UINT32_MAX), "99");
  EXPECT_EQ(Usage(UINT32_MAX, UINT32_MAX), "100");
  EXPECT_EQ(Usage(3, 2), "150");
}

TEST_F(MemoryUsageTest, APartitionWithoutMemoryIsUnused) {
  EXPECT_EQ(Usage(0, 0), "0");
  EXPECT_EQ(Usage(5, 0), "0");
}

TEST_F(MemoryUsageTest, APartitionThatIsMissingIsNoError) {
  platform.partition.code = -1;
  ExpectFailure(QdtOmaMemoryUsage, -1, {},
                {{6, "Qdt share memory partition attach failed, ret: 0xFFFFFFFF.\n"}});
  platform.partition.code = 0x1a2b;
  ExpectFailure(QdtOmaMemoryUsage, -1, {}, {{6, "Qdt share memory partition attach failed, ret: 0x1A2B.\n"}});
}

TEST_F(MemoryUsageTest, FailuresOfTheDocumentLibrary) {
  ExpectFailures(QdtOmaMemoryUsage, {"leaf cpu-id 0", "leaf slot-id 0", "leaf fwd-memory-usage 0"},
                 "QdtOmaMemoryUsage: doc is null\n");
}

TEST_F(MemoryUsageTest, ADocumentThatCannotBeFormatted) { ExpectNoText(QdtOmaMemoryUsage); }

}  // namespace
}  // namespace qdt::test
