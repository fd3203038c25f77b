#include <string>

#include "tests/unit/view_test.h"

// The view of ACL groups.
namespace qdt::test {
namespace {

constexpr uint32_t kGroups = 24;

constexpr char kWithRules[] =
    "  KeyGroupType         :  3\n"
    "  KeyGroupId           :  4000000001\n"
    "  DataInstanceId       :  4000000002\n"
    "  DataGroupType        :  4000000004\n"
    "  DataGroupId          :  4000000003\n"
    "  RuleNum              :  20\n"
    "  PriorityBegin        :  0\n"
    "  PriorityEnd          :  19\n\n";

constexpr char kWithoutRules[] =
    "  KeyGroupType         :  3\n"
    "  KeyGroupId           :  4000000001\n"
    "  DataInstanceId       :  4000000002\n"
    "  DataGroupType        :  4000000004\n"
    "  DataGroupId          :  4000000003\n"
    "  RuleNum              :  0\n\n";

class AclGroupTest : public ViewTest {
 protected:
  // A group with a value of its own in every field, and in those that are never shown.
  static Record Group(uint32_t type = 3, uint32_t id = 4000000001u) {
    Record group(40);
    group.U32(0, type).U32(4, id).U64(8, ~uint64_t{0}).U64(16, ~uint64_t{1});
    return group.U32(24, 4000000002u).U32(28, 4000000003u).U32(32, 4000000004u).U32(36, ~2u);
  }

  static Record Two(const Record &a, const Record &b) {
    Record two(80);
    return two.Copy(0, View(a)).Copy(40, View(b));
  }

  void Add(const Record &group, uint32_t type, uint32_t id) {
    platform.AddEntry(kGroups, Key(type, id), group.bytes(), 8);
  }

  static std::string_view View(const Record &r) {
    return {static_cast<const char *>(r.data()), r.bytes().size()};
  }
};

TEST_F(AclGroupTest, WithAndWithoutRules) {
  EXPECT_EQ(FormatText(NqeTableFormatAclGroup, Group()), kWithoutRules);
  platform.activeRules[{3, 4000000001u}] = {0, 20};
  EXPECT_EQ(FormatText(NqeTableFormatAclGroup, Group()), kWithRules);
}

// The range counts the rules: it ends below their number, whatever priorities they have.
TEST_F(AclGroupTest, PriorityRange) {
  const auto lines = [this](uint32_t rules) {
    platform.activeRules[{3, 4000000001u}] = {0, rules};
    const std::string text = FormatText(NqeTableFormatAclGroup, Group());
    return text.substr(text.find("  RuleNum"));
  };
  EXPECT_EQ(lines(1),
            "  RuleNum              :  1\n  PriorityBegin        :  0\n  PriorityEnd          :  0\n\n");
  EXPECT_EQ(lines(2),
            "  RuleNum              :  2\n  PriorityBegin        :  0\n  PriorityEnd          :  1\n\n");
  EXPECT_EQ(lines(4294967295u),
            "  RuleNum              :  4294967295\n  PriorityBegin        :  0\n"
            "  PriorityEnd          :  4294967294\n\n");
}

// The rules of the key's group count, not those of the group that the data names.
TEST_F(AclGroupTest, EachGroupHasItsOwnRules) {
  platform.activeRules[{3, 4000000001u}] = {0, 20};
  platform.activeRules[{4000000004u, 4000000003u}] = {0, 99};
  EXPECT_EQ(FormatText(NqeTableFormatAclGroup, Two(Group(), Group(0, 9))),
            std::string(kWithRules) +
                "  KeyGroupType         :  0\n"
                "  KeyGroupId           :  9\n"
                "  DataInstanceId       :  4000000002\n"
                "  DataGroupType        :  4000000004\n"
                "  DataGroupId          :  4000000003\n"
                "  RuleNum              :  0\n\n");
}

TEST_F(AclGroupTest, LengthMustBeWholeRecords) {
  const Record groups(160);
  char out[4000] = "#";
  for (const int32_t length : {INT32_MIN, -80, -40, -1, 0, 1, 39, 41, 79, 81, 119, INT32_MAX}) {
    EXPECT_EQ(NqeTableFormatAclGroup(out, sizeof(out), groups.data(), length), -119) << length;
  }
  EXPECT_EQ(NqeTableFormatAclGroup(out, sizeof(out), nullptr, 40), -119);
  EXPECT_EQ(out[0], '#');
}

TEST_F(AclGroupTest, BoundedByRoom) {
  platform.activeRules[{3, 4000000001u}] = {0, 20};
  ExpectBoundedByRoom(NqeTableFormatAclGroup, Two(Group(), Group(0, 9)));
}

TEST_F(AclGroupTest, AFailedCountEndsTheView) {
  const Record groups = Two(Group(), Group(0, 9));
  for (const int32_t code : {-7, -6, -116, 1, 2}) {
    platform.activeRules = {};
    platform.activeRules[{0, 9}] = {code, 20};
    char out[4000];
    EXPECT_EQ(NqeTableFormatAclGroup(out, sizeof(out), groups.data(), groups.size()), code);
    platform.activeRules[{3, 4000000001u}] = {-12, 20};
    EXPECT_EQ(NqeTableFormatAclGroup(out, sizeof(out), groups.data(), groups.size()), -12);
  }
}

TEST_F(AclGroupTest, WholeAnswer) {
  Add(Group(), 3, 4000000001u);
  EXPECT_EQ(Query("11", "0", "3", "4000000001"), Framed(kWithoutRules));
  platform.activeRules[{3, 4000000001u}] = {0, 20};
  EXPECT_EQ(Query("11", "0", "3", "4000000001"), Framed(kWithRules));
  EXPECT_EQ(Query("11", "all"), Framed(kWithRules));
  EXPECT_EQ(Query("11", "num1"), Framed(kWithRules));
  EXPECT_EQ(Query("11", "0", "4", "4000000001"), "search result not found");
  EXPECT_EQ(Query("11", "0", "3", "4000000002"), "search result not found");
  platform.activeRules[{3, 4000000001u}] = {-4, 20};
  EXPECT_EQ(Query("11", "0", "3", "4000000001"), "search result is empty");
}

// A search finds the data alone: the record's key is the one that was asked for.
TEST_F(AclGroupTest, FindsByTypeAndId) {
  Add(Group(77, 78), 0x01020304, 0x05060708);
  EXPECT_EQ(Call(NqeTableSearchAclGroup, 0, "key", 0x01020304, 0x05060708, 5),
            (Found{0, Group(0x01020304, 0x05060708).bytes()}));
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 24 0403020108070605"});
  EXPECT_EQ(platform.allocations.back().size, 40u);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_acl");
}

TEST_F(AclGroupTest, WalksInBatches) {
  for (uint32_t id = 0; id < 120; ++id) Add(Group(id % 5, id), id % 5, id);
  std::string all;
  for (const char *const word : {"all", "num70", "num5"}) {
    platform.walks.clear();
    const std::string answer = Query("11", word);
    size_t groups = 0;
    for (size_t at = 0; (at = answer.find("  KeyGroupId           :  ", at)) != std::string::npos; ++at) {
      EXPECT_EQ(std::stoul(answer.substr(at + 26)), groups++);
    }
    all += std::to_string(groups) + " groups:";
    for (const std::string &walk : platform.walks) all += " " + walk + ";";
  }
  EXPECT_EQ(all,
            "120 groups: next 24 2000; next 24 2000; next 24 2000;"
            "70 groups: next 24 2000; next 24 800;"
            "5 groups: next 24 200;");
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(AclGroupTest, NoGroups) {
  EXPECT_EQ(Query("11", "all"), "datasize empty or invalid");
  EXPECT_EQ(Query("11", "num5"), "datasize empty or invalid");
  EXPECT_EQ(Query("11", "0"), "search result not found");
}

TEST_F(AclGroupTest, FailuresOfTheSearch) {
  for (uint32_t id = 0; id < 60; ++id) Add(Group(0, id), 0, id);
  platform.FailAllocation(0);
  EXPECT_EQ(Query("11", "0"), "nqecli malloc fail");
  platform.FailAllocation(1);
  EXPECT_EQ(Query("11", "all"), "nqecli malloc fail");
  platform.FailWalk(kGroups, 1, -11);
  EXPECT_EQ(Query("11", "all"), "the search continues,a node is deleted");
  platform.FailTable(kGroups, 2);
  EXPECT_EQ(Query("11", "all"), "Invalid error code");
  EXPECT_EQ(Query("11", "0"), "Invalid error code");
}

// Nothing is cut off: an answer that does not fit is none.
TEST_F(AclGroupTest, AnAnswerThatDoesNotFit) {
  for (uint32_t id = 0; id < 8000; ++id) Add(Group(0, id), 0, id);
  EXPECT_EQ(Query("11", "all"), "parse data format fail");
}

}  // namespace
}  // namespace qdt::test
