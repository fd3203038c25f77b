#include <memory>
#include <string>

#include "qdt/oma.h"
#include "tests/unit/view_test.h"

// Views of the NAT ARP tables, and of NAT policy rules, which are asked of the engine.
namespace qdt::test {
namespace {

constexpr uint32_t kPoolSection = 23, kPoolExclude = 30, kHost = 44;

class NatTest : public ViewTest {};

Record NatArp(uint32_t count) { return Record(24).U64(0, UINT64_MAX).U32(8, count).U32(12, 91).U64(16, 92); }

TEST_F(NatTest, ArpTables) {
  struct View {
    const char *id;
    uint32_t table;
    uint32_t kind;
    TableSearch search;
    const char *line;
  };
  const View views[] = {
      {"62", kPoolSection, 0x50000, NqeTableSearchArpPoolSection, "search 23 000005000700010a"},
      {"63", kPoolExclude, 0x50000, NqeTableSearchArpPoolExclude, "search 30 000005000700010a"},
      {"64", kHost, 0x20000, NqeTableSearchArpHost, "search 44 000002000700010a"},
  };
  for (const View &view : views) {
    platform.AddEntry(view.table, Key(view.kind, uint32_t{0x0A010007}), NatArp(3000000000u).bytes());
    EXPECT_EQ(Query(view.id, "10.1.0.7", "1", "2", "3"), Framed("  IpNum       : 3000000000\n")) << view.id;
    EXPECT_EQ(Query(view.id, "7.0.1.10"), "search result not found") << view.id;
    ExpectFindsOne(view.search, view.table, NatArp(3000000000u), view.line, "10.1.0.7", 9, 9);
  }
}

TEST_F(NatTest, TextsThatAreNoAddressMeanTheLastOne) {
  platform.AddEntry(kHost, Key(uint32_t{0x20000}, UINT32_MAX), NatArp(7).bytes());
  EXPECT_EQ(Query("64", "host"), Framed("  IpNum       : 7\n"));
  EXPECT_EQ(Query("64", "255.255.255.255"), Framed("  IpNum       : 7\n"));
  EXPECT_EQ(Query("64", "0"), "search result not found");
  EXPECT_EQ(platform.searches[2], "search 44 0000020000000000");
}

TEST_F(NatTest, ArpLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatNatArp, 24);
  ExpectBoundedByRoom(NqeTableFormatNatArp, NatArp(UINT32_MAX));
}

// Policy rules.

class NatPolicyTest : public ViewTest {
 protected:
  // The engine answers `text`; `length` counts its NUL.
  void Answer(const std::string &text, int32_t length) { platform.engineReply = {length, true, text}; }
  void Answer(const std::string &text) { Answer(text, static_cast<int32_t>(text.size()) + 1); }

  static Bytes WithNul(const std::string &text) { return {text.c_str(), text.c_str() + text.size() + 1}; }
};

TEST_F(NatPolicyTest, WholeAnswer) {
  Answer("rule web\n  action nat 100%s");
  EXPECT_EQ(Query("67", "web", "1", "2", "3"), Framed("rule web\n  action nat 100%s\n"));
  EXPECT_EQ(platform.engineLines, std::vector<std::string>{"nat query-nat-policy ruleName web"});
  EXPECT_EQ(Query("67", "a rule"), Framed("rule web\n  action nat 100%s\n"));
  EXPECT_EQ(Query("67", ""), Framed("rule web\n  action nat 100%s\n"));
  EXPECT_EQ(platform.engineLines[1], "nat query-nat-policy ruleName a rule");
  EXPECT_EQ(platform.engineLines[2], "nat query-nat-policy ruleName ");
  Answer("rule web\n");
  EXPECT_EQ(Query("67", "web"), Framed("rule web\n\n"));  // its own end of line and the view's
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(NatPolicyTest, SearchDeliversTheReplyWithItsNul) {
  Answer("rule web");
  for (const uint32_t loopNum : {0, 50}) {
    platform.allocations.clear();
    EXPECT_EQ(Call(NqeTableSearchNatPolicy, loopNum, "web"), (Found{0, WithNul("rule web")}));
    ASSERT_EQ(platform.allocations.size(), 2u);
    EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_nat_policy");
    EXPECT_EQ(platform.allocations[0].size, 20480u);
    EXPECT_EQ(platform.allocations[1].path, "src/om/nqe_cli/nqe_cli_tbl_query_nat");
    EXPECT_EQ(platform.allocations[1].size, 9u);
  }
  Answer("");
  EXPECT_EQ(Query("67", "web"), Framed("\n"));
}

TEST_F(NatPolicyTest, NoReply) {
  platform.engineReply = {5, false, ""};
  EXPECT_EQ(Query("67", "web"), "search fail");
  platform.engineReply = {0, false, ""};
  EXPECT_EQ(Query("67", "web"), "search fail");
  platform.engineReply = {-7, false, ""};  // the engine's own code is not shown
  EXPECT_EQ(Query("67", "web"), "search fail");
  Answer("half a reply", -1);  // the fixture sees to it that it is released
  EXPECT_EQ(Query("67", "web"), "search fail");
  EXPECT_EQ(platform.engineLines.size(), 4u);
}

TEST_F(NatPolicyTest, AReplyOfNoLengthCannotBeCopied) {
  Answer("rule web", 0);
  EXPECT_EQ(Query("67", "web"), "memory operation error");
  EXPECT_EQ(Call(NqeTableSearchNatPolicy, 0, "web").code, QDT_TBL_MEMORY);
}

TEST_F(NatPolicyTest, AllocationFailures) {
  Answer("rule web");
  platform.FailAllocation(0);
  EXPECT_EQ(Query("67", "web"), "search fail");
  EXPECT_TRUE(platform.engineLines.empty());
  platform.FailAllocation(1);
  EXPECT_EQ(Query("67", "web"), "nqecli malloc fail");
  EXPECT_EQ(platform.engineLines.size(), 1u);
}

TEST_F(NatPolicyTest, ANameThatTheLineHasNoRoomFor) {
  Answer("rule");
  // 20480 bytes hold "nat query-nat-policy ruleName " of 30 characters, the name and the NUL.
  const std::string longest(20449, 'r');
  EXPECT_EQ(Query("67", longest), Framed("rule\n"));
  EXPECT_EQ(platform.engineLines, std::vector<std::string>{"nat query-nat-policy ruleName " + longest});
  EXPECT_EQ(Query("67", longest + "r"), "search fail");
  EXPECT_EQ(Query("67", std::string(1 << 20, 'r')), "search fail");
  EXPECT_EQ(platform.engineLines.size(), 1u);
}

TEST_F(NatPolicyTest, LookupByName) {
  Answer("rule web");
  char untouched[] = "x";
  char *reply = untouched;
  int32_t length = 77;
  EXPECT_EQ(PolicyRuleDataSearchByName("web", &reply, &length), 0);
  EXPECT_STREQ(reply, "rule web");
  EXPECT_EQ(length, 9);
  free_ex(g_mallocHandle, reply);

  Answer("what is left", -5);
  EXPECT_EQ(PolicyRuleDataSearchByName("web", &reply, &length), -1);
  EXPECT_STREQ(reply, "what is left");
  EXPECT_EQ(length, -5);
  free_ex(g_mallocHandle, reply);

  // What a caller releases is never what it had there before.
  reply = untouched;
  platform.engineReply = {12, false, ""};
  EXPECT_EQ(PolicyRuleDataSearchByName("web", &reply, &length), -1);
  EXPECT_EQ(reply, nullptr);
  EXPECT_EQ(length, 12);
  reply = untouched;
  platform.FailAllocation(0);
  EXPECT_EQ(PolicyRuleDataSearchByName("web", &reply, &length), -1);
  EXPECT_EQ(reply, nullptr);
}

TEST_F(NatPolicyTest, FormatTakesAnyLength) {
  const auto text = [](int32_t length) {
    char area[32] = "#";
    const int32_t written = NqeTableFormatNatPolicy(area, sizeof(area), "rule web", length);
    return std::to_string(written) + " " + area;
  };
  for (const int32_t length : {INT32_MIN, -1, 0, 8, 9, 1000})
    EXPECT_EQ(text(length), "9 rule web\n") << length;
  EXPECT_EQ(text(4), "5 rule\n");  // what the record holds
  char area[4] = "#";
  EXPECT_EQ(NqeTableFormatNatPolicy(area, sizeof(area), nullptr, 9), QDT_TBL_DATA_SIZE);
}

TEST_F(NatPolicyTest, ATextWithoutNulEndsWithItsRecord) {
  const auto record = std::make_unique<char[]>(4);
  std::memcpy(record.get(), "rule", 4);
  char area[32];
  EXPECT_EQ(NqeTableFormatNatPolicy(area, sizeof(area), record.get(), 4), 5);
  EXPECT_STREQ(area, "rule\n");
}

TEST_F(NatPolicyTest, Room) {
  ExpectBoundedByRoom(NqeTableFormatNatPolicy, Record(10).Copy(0, "rule web"));
  Answer(std::string(QDT_OUTPUT_CAPACITY, 'r'));
  EXPECT_EQ(Query("67", "web"), "parse data format fail");
}

}  // namespace
}  // namespace qdt::test
