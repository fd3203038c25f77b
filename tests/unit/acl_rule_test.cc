#include <string>

#include "tests/unit/acl_rule_fixture.h"

// The view of one ACL rule: how it is found, and the check of its statistics entry. What it shows of each
// kind of rule is tested in acl_rule_content_test.cc.
namespace qdt::test {
namespace {

constexpr uint32_t kGroups = 24, kStats = 25;
const std::string kStatIntact = "  AclStatEntry             :  OK\n";

class AclRuleTest : public ViewTest {
 protected:
  void *AddGroup(uint32_t type, uint32_t id) {
    return platform.AddEntry(kGroups, Key(type, id), Record(40).U32(0, type).U32(4, id).bytes(), 8);
  }
  const void *AddStat(uint32_t type, uint32_t id, uint32_t statId) {
    return platform.AddEntry(kStats, Key(type, id, statId), Bytes(208));
  }
  void AddRule(void *group, uint32_t priority, const Record &action, const Record &content) {
    platform.aclRules[{group, priority}] = {0, action.bytes(), content.bytes()};
  }
  static std::string Text(const std::string &stat) { return Golden("acl_rule_l4.txt") + kActionText + stat; }
};

TEST_F(AclRuleTest, WholeAnswer) {
  void *const group = AddGroup(0, 3001);
  AddRule(group, 17, Action(AddStat(0, 3001, 17)), Ipv4Content());
  EXPECT_EQ(Query("12", "0", "0", "3001", "17"), Framed(Text(kStatIntact)));
  // One rule, even when all or a number of them are asked for.
  EXPECT_EQ(Query("12", "all", "0", "3001", "17"), Framed(Text(kStatIntact)));
  EXPECT_EQ(Query("12", "num100", "0", "3001", "17"), Framed(Text(kStatIntact)));
  EXPECT_EQ(platform.walks, std::vector<std::string>{});

  EXPECT_EQ(Query("12", "0", "1", "3001", "17"), "search result not found");
  EXPECT_EQ(Query("12", "0", "0", "3002", "17"), "search result not found");
  EXPECT_EQ(Query("12", "0", "0", "3001", "18"), "search result not found");
}

TEST_F(AclRuleTest, AllWithoutKeysIsTheFirstRuleOfTheFirstGroup) {
  EXPECT_EQ(Query("12", "all"), "search result not found");
  AddRule(AddGroup(0, 0), 0, Action(AddStat(0, 0, 0)), Ipv4Content());
  EXPECT_EQ(Query("12", "all"), Framed(Text(kStatIntact)));
}

TEST_F(AclRuleTest, PutsTheRecordTogether) {
  void *const group = AddGroup(0x01020304, 0x05060708);
  AddRule(group, 0x090A0B0C, Action(group), Ipv4Content());
  for (const uint32_t loopNum : {0, 1, 50}) {
    const Found found = Call(NqeTableSearchAclRule, loopNum, "key", 0x01020304, 0x05060708, 0x090A0B0C);
    EXPECT_EQ(found,
              (Found{0, Rule(Action(group), Ipv4Content(), 0x01020304, 0x05060708, 0x090A0B0C).bytes()}));
  }
  EXPECT_EQ(platform.searches, std::vector<std::string>(3, "search 24 0403020108070605"));
  EXPECT_EQ(platform.allocations.back().size, 268u);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_acl");
}

TEST_F(AclRuleTest, FailuresOfTheSearch) {
  void *const group = AddGroup(0, 1);
  AddRule(group, 5, Action(nullptr), Ipv4Content());
  platform.FailAllocation(0);
  EXPECT_EQ(Query("12", "0", "0", "1", "5"), "nqecli malloc fail");
  for (const int32_t code : {-1, -12, -116, 2}) {
    platform.aclRules[{group, 5}].code = code;
    EXPECT_EQ(Call(NqeTableSearchAclRule, 0, "0", 0, 1, 5).code, code);
    platform.aclRules[{group, 5}].code = 0;
    platform.FailTable(kGroups, code);
    EXPECT_EQ(Call(NqeTableSearchAclRule, 0, "0", 0, 1, 5).code, code);
    platform.FailTable(kGroups, 0);
  }
  // A rule without an action or a content to copy.
  platform.aclRules[{group, 5}] = {0, {}, Ipv4Content().bytes()};
  EXPECT_EQ(Query("12", "0", "0", "1", "5"), "memory operation error");
  platform.aclRules[{group, 5}] = {0, Action(nullptr).bytes(), {}};
  EXPECT_EQ(Query("12", "0", "0", "1", "5"), "memory operation error");
}

TEST_F(AclRuleTest, StatisticsOfAnotherEntry) {
  const void *const entry = AddStat(0, 3001, 17);
  const void *const other = AddStat(0, 3001, 18);
  const auto text = [](const void *bound, uint32_t priority) {
    return FormatText(NqeTableFormatAclRule, Rule(Action(bound), Ipv4Content(), 0, 3001, priority));
  };
  EXPECT_EQ(text(entry, 17), Text(kStatIntact));
  EXPECT_EQ(text(other, 17), Text("  AclStatEntry             :  Error(0)\n"));
  EXPECT_EQ(text(entry, 18), Text("  AclStatEntry             :  Error(0)\n"));
  EXPECT_EQ(text(nullptr, 17), Text("  AclStatEntry             :  Error(0)\n"));
  EXPECT_EQ(text(entry, 19), Text("  AclStatEntry             :  Error(-7)\n"));
  EXPECT_EQ(text(nullptr, 19), Text("  AclStatEntry             :  Error(-7)\n"));
  for (const int32_t code : {-116, 2}) {
    platform.FailTable(kStats, code);
    EXPECT_EQ(text(entry, 17), Text("  AclStatEntry             :  Error(" + std::to_string(code) + ")\n"));
  }
}

// The keys that were asked for lead to the statistics, not the statistics id or the priority that the rule
// holds.
TEST_F(AclRuleTest, StatisticsAreLookedUpByGroupAndPriority) {
  const void *const entry = AddStat(0x01020304, 0x05060708, 0x090A0B0C);
  const Record rule = Rule(Action(entry), Ipv4Content(), 0x01020304, 0x05060708, 0x090A0B0C);
  EXPECT_EQ(FormatText(NqeTableFormatAclRule, rule), Text(kStatIntact));
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 25 04030201080706050c0b0a09"});
}

// Reads a record of its own size without touching what may stand behind it.
std::string FormatBytes(const Bytes &bytes) {
  const auto copy = std::make_unique<uint8_t[]>(bytes.size());
  std::memcpy(copy.get(), bytes.data(), bytes.size());
  char area[20000];
  const int32_t length = static_cast<int32_t>(bytes.size());
  EXPECT_GT(NqeTableFormatAclRule(area, sizeof(area), copy.get(), length), 0);
  return area;
}

TEST_F(AclRuleTest, ShowsTheFirstRecordOnly) {
  const Record rule = Rule(Action(nullptr), Ipv4Content());
  Bytes two = rule.bytes();
  two.resize(2 * two.size(), 0xFF);
  EXPECT_EQ(FormatBytes(two), FormatText(NqeTableFormatAclRule, rule));
  // What is missing of a short one is zero.
  const Bytes whole = rule.bytes();
  for (const size_t length : {size_t{1}, size_t{60}, size_t{75}, size_t{140}, size_t{267}}) {
    Bytes zeroed(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    const std::string text = FormatBytes(zeroed);
    zeroed.resize(268);
    EXPECT_EQ(text, FormatBytes(zeroed)) << length;
  }
}

TEST_F(AclRuleTest, NoRecord) {
  const Record rule = Rule(Action(nullptr), Ipv4Content());
  char out[20000] = "#";
  for (const int32_t length : {0, -1, -268, INT32_MIN}) {
    EXPECT_EQ(NqeTableFormatAclRule(out, sizeof(out), rule.data(), length), -119) << length;
  }
  EXPECT_EQ(NqeTableFormatAclRule(out, sizeof(out), nullptr, 268), -119);
  EXPECT_EQ(out[0], '#');
}

TEST_F(AclRuleTest, BoundedByRoom) {
  ExpectBoundedByRoom(NqeTableFormatAclRule, Rule(Action(nullptr), Ipv4Content()));
  Record ipv6 = Content(1);
  PutIpv6(ipv6);
  ExpectBoundedByRoom(NqeTableFormatAclRule, Rule(Action(nullptr), ipv6));
  Record l2l4 = Content(3);
  PutL2(l2l4, 16, 64);
  PutIpv4(l2l4, 40, 88);
  ExpectBoundedByRoom(NqeTableFormatAclRule, Rule(Action(AddStat(0, 0, 0)), l2l4));
}

}  // namespace
}  // namespace qdt::test
