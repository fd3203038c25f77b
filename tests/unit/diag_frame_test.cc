#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/fake_platform/fake_platform.h"

// The words of the diag command, its usage list and the registry. tests/unit/frame/ tests how a query runs.
namespace qdt::test {
namespace {

class DiagTest : public PlatformTest {
 protected:
  void ExpectUsage(const std::vector<std::string> &words) {
    EXPECT_EQ(Diag(words), Golden("usage.txt"));
    EXPECT_EQ(result, 63);  // the last line's length
  }
};

TEST_F(DiagTest, UsageHasALineForEachForm) {
  const std::string usage = Golden("usage.txt");
  EXPECT_EQ(std::count(usage.begin(), usage.end(), '\n'), 101);
  EXPECT_EQ(usage.substr(0, 24), "diag clear cpcar status\n");
  EXPECT_NE(usage.find("\n 0. fwdif                    diag search nqpTable 0 0 ctrl-if-Index 0 0\n"),
            std::string::npos);
  EXPECT_NE(
      usage.find("\n                             diag search nqpTable 23 all|num(eg:num5) 0 0 0\n38. local"),
      std::string::npos);
}

TEST_F(DiagTest, AnythingElsePrintsTheUsage) {
  ExpectUsage({});
  ExpectUsage({"help"});
  ExpectUsage({"clear"});
  ExpectUsage({"clear", "cpcar"});
  ExpectUsage({"clear", "cpcar", "Status"});
  ExpectUsage({"clear", "CPCAR", "status"});
  ExpectUsage({"clear", "cpcar", "status", "now"});
  ExpectUsage({"clear", "", "status"});
  ExpectUsage({"search", "nqpTable", "1", "0", "5", "0"});
  ExpectUsage({"search", "nqpTable", "1", "0", "5", "0", "0", "0"});
  ExpectUsage({"search", "nqptable", "1", "0", "5", "0", "0"});
  ExpectUsage({"Search", "nqpTable", "1", "0", "5", "0", "0"});
  ExpectUsage({"clear", "cpcar", "status", "0", "5", "0", "0"});
  EXPECT_EQ(platform.clearCpcarCalls, 0);
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(DiagTest, ARejectedNumberPrintsTheUsage) {
  platform.AddEntry(11, Key(uint32_t{5}), Record(16).bytes());
  for (const std::string bad : {"-1", "x", "08", "1x", "4294967296", "99999999999999999999", "\xFF\xFE"}) {
    ExpectUsage({"search", "nqpTable", bad, "0", "5", "0", "0"});
    ExpectUsage({"search", "nqpTable", "1", "0", bad, "0", "0"});
    ExpectUsage({"search", "nqpTable", "1", "0", "5", bad, "0"});
    ExpectUsage({"search", "nqpTable", "1", "0", "5", "0", bad});
  }
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(DiagTest, ClearsTheRateLimitStatistics) {
  for (const int32_t code : {0, 5, -1}) {
    platform.clearCpcarResult = code;
    EXPECT_EQ(Diag({"clear", "cpcar", "status"}), "");
    EXPECT_EQ(result, code);
  }
  EXPECT_EQ(platform.clearCpcarCalls, 3);
}

TEST_F(DiagTest, TheCommandsOwnNameIsNotLookedAt) {
  std::vector<char> area(QDT_OUTPUT_CAPACITY);
  OutputBuffer out = {area.data(), 0};
  char name[] = "", clear[] = "clear", cpcar[] = "cpcar", status[] = "status";
  char *words[] = {name, clear, cpcar, status};
  EXPECT_EQ(VrxDiagCmdRun(&out, 4, words), 0);
  EXPECT_EQ(platform.clearCpcarCalls, 1);
}

TEST_F(DiagTest, NoWordsAtAllPrintTheUsage) {
  std::vector<char> area(QDT_OUTPUT_CAPACITY);
  for (const int32_t count : {0, -1}) {
    OutputBuffer out = {area.data(), 12345};
    EXPECT_EQ(VrxDiagCmdRun(&out, count, nullptr), 63);
    EXPECT_EQ(out.buf, Golden("usage.txt"));
  }
}

TEST_F(DiagTest, NumbersMayBeWrittenInAnyBase) {
  platform.AddEntry(11, Key(uint32_t{31}), Record(16).U32(0, 31).U32(4, 12).bytes());
  const std::string answer =
      "------------------------------\n"
      "  CtrlIfIdx  :  31\n"
      "  FwdIfIdx   :  12\n"
      "------------------------------";
  EXPECT_EQ(Query("1", "0", "31"), answer);
  EXPECT_EQ(result, 99);  // the answer's length
  EXPECT_EQ(Query("0x1", "0", "0x1F"), answer);
  EXPECT_EQ(Query("01", "0", "037", "0x", ""), answer);
  EXPECT_EQ(Query("1", "", "31"), answer);
}

TEST_F(DiagTest, ZeroInHexadecimalIsTableZero) {
  EXPECT_EQ(Query("0x0", "0", "5"), "search result not found");
  EXPECT_EQ(platform.log, std::vector<LogLine>{});
  platform.FailTable(11, -12);
  EXPECT_EQ(Query("0x0", "0", "5"), "stop the search,a node is deleted");
}

TEST_F(DiagTest, IdsWithoutAViewAreInvalid) {
  for (const char *id : {"14", "24", "89", "90", "1000", "4294967295"}) {
    EXPECT_EQ(Query(id, "0"), "invalid input param") << id;
    EXPECT_EQ(result, 19) << id;
    EXPECT_EQ(Query(id, "all"), "invalid input param") << id;
    EXPECT_EQ(Query(id, "num5"), "invalid input param") << id;
  }
}

TEST_F(DiagTest, HugeAndForeignWordsAreKeys) {
  platform.AddEntry(11, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 12).bytes());
  const std::string answer = Query("1", "0", "5");
  EXPECT_EQ(Query("1", std::string(1 << 20, 'k'), "5"), answer);
  EXPECT_EQ(Query("1", "num5" + std::string(1 << 20, 'k'), "5"), answer);
  EXPECT_EQ(Query("1", "num" + std::string(1 << 20, '9'), "5"), "invalid input param");
  EXPECT_EQ(Query("1", "\xE4\xB8\xAD\xFF", "5"), answer);
}

TEST(RegistryTest, RowsHaveTheirViews) {
  EXPECT_EQ(g_nqeTblOps[0].search, NqeTableSearchFwdif);
  EXPECT_EQ(g_nqeTblOps[0].format, NqeTableFormatFwdif);
  EXPECT_EQ(g_nqeTblOps[1].search, NqeTableSearchCtrlIfMap);
  EXPECT_EQ(g_nqeTblOps[1].format, NqeTableFormatCtrlIfMap);
  EXPECT_EQ(g_nqeTblOps[2].search, NqeTableSearchFlowIfMap);
  EXPECT_EQ(g_nqeTblOps[2].format, NqeTableFormatFlowIfMap);
  EXPECT_EQ(g_nqeTblOps[61].search, NqeTableSearchPfeVapIfMap);
  EXPECT_EQ(g_nqeTblOps[61].format, NqeTableFormatPfeVapIfMap);
  for (const int id : {14, 24}) {
    EXPECT_EQ(g_nqeTblOps[id].search, nullptr);
    EXPECT_EQ(g_nqeTblOps[id].format, nullptr);
  }
  EXPECT_EQ(std::size(g_nqeTblOps), 89u);
}

TEST(RegistryTest, TablesThatAreWalkedByKey) {
  const std::set<int> flagged = {7, 8, 27, 52, 54, 72, 73};
  ASSERT_EQ(std::size(g_qdtTblGetAllItemsOfOneKey), 89u);
  for (int id = 0; id < 89; ++id) {
    EXPECT_EQ(g_qdtTblGetAllItemsOfOneKey[id], flagged.count(id)) << id;
  }
}

}  // namespace
}  // namespace qdt::test
