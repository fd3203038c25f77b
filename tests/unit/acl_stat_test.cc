#include <string>

#include "tests/unit/view_test.h"

// The view of ACL statistics.
namespace qdt::test {
namespace {

constexpr uint32_t kStats = 25;

const char *const kCounters[6] = {
    "  AclPassPktCnt    :  ", "  AclPassByte      :  ", "  AclFilterPktCnt  :  ",
    "  AclFilterByte    :  ", "  AclMatchPktCnt   :  ", "  AclMatchByte     :  "};

// Each counter's blocks hold n, 10 n, 100 n and 1000 n.
constexpr char kFull[] =
    "  GroupType        :  4000000001\n"
    "  GroupId          :  4000000002\n"
    "  StatId           :  4000000003\n"
    "  AclPassPktCnt    :  1111000000000000001\n"
    "  AclPassByte      :  2222000000000000002\n"
    "  AclFilterPktCnt  :  3333000000000000003\n"
    "  AclFilterByte    :  4444000000000000004\n"
    "  AclMatchPktCnt   :  5555000000000000005\n"
    "  AclMatchByte     :  6666000000000000006\n\n";

class AclStatTest : public ViewTest {
 protected:
  static Record Full() {
    Record stat(208);
    stat.U32(0, 4000000001u).U32(4, 4000000002u).U32(8, 4000000003u).U32(12, ~0u);
    constexpr uint64_t kScale = 1000000000000000;
    for (uint64_t n = 1; n <= 6; ++n) {
      const size_t at = 16 + 8 * (n - 1);
      stat.U64(at, n * kScale + n);
      stat.U64(at + 48, n * 10 * kScale);
      stat.U64(at + 96, n * 100 * kScale);
      stat.U64(at + 144, n * 1000 * kScale);
    }
    return stat;
  }

  void Add(const Record &stat, uint32_t type, uint32_t id, uint32_t statId) {
    platform.AddEntry(kStats, Key(type, id, statId), stat.bytes());
  }
};

TEST_F(AclStatTest, SumsTheFourBlocks) { EXPECT_EQ(FormatText(NqeTableFormatAclStat, Full()), kFull); }

TEST_F(AclStatTest, EachCounterOfEachBlockAlone) {
  for (size_t word = 0; word < 24; ++word) {
    std::string expected = "  GroupType        :  0\n  GroupId          :  0\n  StatId           :  0\n";
    for (size_t counter = 0; counter < 6; ++counter) {
      expected +=
          std::string(kCounters[counter]) + (counter == word % 6 ? "18446744073709551615" : "0") + "\n";
    }
    EXPECT_EQ(FormatText(NqeTableFormatAclStat, Record(208).U64(16 + 8 * word, ~uint64_t{0})),
              expected + "\n");
  }
}

TEST_F(AclStatTest, SumsWrap) {
  Record stat(208);
  stat.U64(16, ~uint64_t{0}).U64(64, 3).U64(112, ~uint64_t{0}).U64(160, 1);
  const std::string text = FormatText(NqeTableFormatAclStat, stat);
  EXPECT_NE(text.find("  AclPassPktCnt    :  2\n  AclPassByte      :  0\n"), std::string::npos) << text;
}

TEST_F(AclStatTest, PrintsEveryRecord) {
  Record two(416);
  two.Copy(0, {static_cast<const char *>(Full().data()), 208}).U32(208, 5);
  EXPECT_EQ(FormatText(NqeTableFormatAclStat, two), std::string(kFull) +
                                                        "  GroupType        :  5\n"
                                                        "  GroupId          :  0\n"
                                                        "  StatId           :  0\n"
                                                        "  AclPassPktCnt    :  0\n"
                                                        "  AclPassByte      :  0\n"
                                                        "  AclFilterPktCnt  :  0\n"
                                                        "  AclFilterByte    :  0\n"
                                                        "  AclMatchPktCnt   :  0\n"
                                                        "  AclMatchByte     :  0\n\n");
  ExpectBoundedByRoom(NqeTableFormatAclStat, two);
}

TEST_F(AclStatTest, LengthMustBeWholeRecords) {
  const Record stats(832);
  char out[4000] = "#";
  for (const int32_t length : {INT32_MIN, -416, -208, -1, 0, 1, 40, 207, 209, 415, 417, INT32_MAX}) {
    EXPECT_EQ(NqeTableFormatAclStat(out, sizeof(out), stats.data(), length), -119) << length;
  }
  EXPECT_EQ(NqeTableFormatAclStat(out, sizeof(out), nullptr, 208), -119);
  EXPECT_EQ(out[0], '#');
}

TEST_F(AclStatTest, WholeAnswer) {
  Add(Full(), 4000000001u, 4000000002u, 4000000003u);
  EXPECT_EQ(Query("13", "0", "4000000001", "4000000002", "4000000003"), Framed(kFull));
  EXPECT_EQ(Query("13", "all"), Framed(kFull));
  EXPECT_EQ(Query("13", "num100"), Framed(kFull));
  EXPECT_EQ(Query("13", "0", "4000000001", "4000000002", "4"), "search result not found");
}

TEST_F(AclStatTest, FindsByTypeGroupAndId) {
  Add(Full(), 0x01020304, 0x05060708, 0x090A0B0C);
  EXPECT_EQ(Call(NqeTableSearchAclStat, 0, "key", 0x01020304, 0x05060708, 0x090A0B0C),
            (Found{0, Full().bytes()}));
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 25 04030201080706050c0b0a09"});
  EXPECT_EQ(platform.allocations.back().size, 208u);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_acl");
}

TEST_F(AclStatTest, WalksInBatches) {
  for (uint32_t id = 0; id < 60; ++id) Add(Record(208).U32(8, id), 0, 0, id);
  const std::string answer = Query("13", "all");
  uint32_t next = 0;
  for (size_t at = 0; (at = answer.find("  StatId           :  ", at)) != std::string::npos; ++at) {
    EXPECT_EQ(std::stoul(answer.substr(at + 21)), next++);
  }
  EXPECT_EQ(next, 60u);
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"next 25 10400", "next 25 10400"}));
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(AclStatTest, NoStatistics) {
  EXPECT_EQ(Query("13", "all"), "datasize empty or invalid");
  EXPECT_EQ(Query("13", "0"), "search result not found");
}

TEST_F(AclStatTest, FailuresOfTheSearch) {
  for (uint32_t id = 0; id < 60; ++id) Add(Record(208).U32(8, id), 0, 0, id);
  platform.FailAllocation(0);
  EXPECT_EQ(Query("13", "0"), "nqecli malloc fail");
  platform.FailAllocation(1);
  EXPECT_EQ(Query("13", "all"), "nqecli malloc fail");
  platform.FailWalk(kStats, 1, -12);
  EXPECT_EQ(Query("13", "all"), "stop the search,a node is deleted");
  platform.FailTable(kStats, -116);
  EXPECT_EQ(Query("13", "all"), "search not ready");
  EXPECT_EQ(Query("13", "0"), "search not ready");
}

}  // namespace
}  // namespace qdt::test
