#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// The view of the whole device's ACL capacity.
namespace qdt::test {
namespace {

constexpr char kFull[] =
    "AclTbmRule:\n"
    "  AclGroupSpec         :  4000000001\n"
    "  AclGroupNum          :  4000000002\n"
    "  AclGroupRuleSpec     :  4000000003\n"
    "  AclRuleNum           :  4000000004\n";

class AclCapacityTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    g_tbmGlobalInfo = &info_;
    platform.aclUse = {0, 4000000002u, 4000000004u};
  }
  void TearDown() override {
    g_tbmGlobalInfo = nullptr;
    ViewTest::TearDown();
  }

  static TbmTableDesc Desc(const char *name, uint32_t spec, uint32_t groupRuleSpec) {
    TbmTableDesc desc{};
    desc.name = name;
    desc.spec = spec;
    desc.groupRuleSpec = groupRuleSpec;
    return desc;
  }

  // As many tables as the table manager has, most of them without a name; a sanitizer sees a look beyond.
  std::vector<TbmTableDesc> tables_ = [] {
    std::vector<TbmTableDesc> tables(109);
    tables[0] = Desc("CAP_TABLE_ACL_GROU", 1, 2);
    tables[1] = Desc("CAP_TABLE_ACL_GROUPS", 3, 4);
    tables[2] = Desc("cap_table_acl_group", 5, 6);
    tables[3] = Desc("", 7, 8);
    tables[24] = Desc("CAP_TABLE_ACL_GROUP", 4000000001u, 4000000003u);
    return tables;
  }();
  TbmGlobalInfo info_ = {109, 0, tables_.data(), nullptr, nullptr};
};

TEST_F(AclCapacityTest, WholeAnswer) {
  for (const char *const word : {"0", "all", "num5", "x"}) {
    EXPECT_EQ(Query("59", word), Framed(kFull)) << word;
    EXPECT_EQ(Query("59", word, "1", "2", "3"), Framed(kFull)) << word;
  }
}

TEST_F(AclCapacityTest, EmptyTables) {
  platform.aclUse = {};
  tables_[24].spec = tables_[24].groupRuleSpec = 0;
  EXPECT_EQ(Query("59", "0"),
            "------------------------------\n"
            "AclTbmRule:\n"
            "  AclGroupSpec         :  0\n"
            "  AclGroupNum          :  0\n"
            "  AclGroupRuleSpec     :  0\n"
            "  AclRuleNum           :  0\n"
            "------------------------------");
}

// The record does not matter, nor does its length.
TEST_F(AclCapacityTest, NeedsNoRecord) {
  char out[200];
  for (const int32_t length : {INT32_MIN, -1, 0, 1, 40, INT32_MAX}) {
    EXPECT_EQ(NqeTableFormatAclTbmRule(out, sizeof(out), nullptr, length), 160);
    EXPECT_STREQ(out, kFull);
  }
  ExpectBoundedByRoom(NqeTableFormatAclTbmRule, Record(1));
}

TEST_F(AclCapacityTest, TheSearchDeliversNothing) {
  for (const uint32_t loopNum : {0, 1, 50}) {
    void *record = this;
    uint32_t length = 12345;
    EXPECT_EQ(NqeTableSearchAclTbmRule(&record, &length, &context, loopNum, "all", 1, 2, 3), 0);
    EXPECT_EQ(record, this);
    EXPECT_EQ(length, 12345u);
  }
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_TRUE(platform.searches.empty());
  EXPECT_TRUE(platform.allocations.empty());
}

TEST_F(AclCapacityTest, TheFirstTableOfTheNameCounts) {
  for (const size_t id : {108, 50, 25}) {
    tables_[24].name = nullptr;
    tables_[id] = Desc("CAP_TABLE_ACL_GROUP", 4000000001u, 4000000003u);
    EXPECT_EQ(FormatText(NqeTableFormatAclTbmRule, Record(1)), kFull) << id;
  }
  tables_[50].spec = tables_[108].spec = 1;
  EXPECT_EQ(FormatText(NqeTableFormatAclTbmRule, Record(1)), kFull);
}

TEST_F(AclCapacityTest, NeedsTheTableListThatItKnows) {
  for (const uint32_t count : {0u, 1u, 24u, 108u, 110u, 4294967295u}) {
    info_.tableCount = count;
    EXPECT_EQ(Query("59", "0"), "search is not supported") << count;
  }
  info_.tableCount = 109;
  EXPECT_EQ(Query("59", "0"), Framed(kFull));
  tables_[24].name = "CAP_TABLE_ACL";
  EXPECT_EQ(Query("59", "0"), "search is not supported");
  info_.tables = nullptr;
  EXPECT_EQ(Query("59", "0"), "search is not supported");
  g_tbmGlobalInfo = nullptr;
  EXPECT_EQ(Query("59", "0"), "search is not supported");
}

TEST_F(AclCapacityTest, AFailedCountIsNotSupported) {
  for (const int32_t code : {-1, -7, -116, 1, 2}) {
    platform.aclUse.code = code;
    EXPECT_EQ(FormatText(NqeTableFormatAclTbmRule, Record(1)), "code -6") << code;
  }
}

}  // namespace
}  // namespace qdt::test
