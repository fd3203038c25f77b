#include "tools/nqecli/catalog.h"

#include <gtest/gtest.h>

#include "host/base/host_error.h"
#include "tools/nqecli/query.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

constexpr char kUsage[] =
    "diag clear cpcar status\n"
    " 0. fwdif                    diag search nqpTable 0 0 ctrl-if-Index 0 0\n"
    " 3. fib                      diag search nqpTable 3 dip prefix vpn 0\n"
    "10. global                   diag search nqpTable 10 0 0 0 0\n"
    "11. acl_group                diag search nqpTable 11 0 groupType groupId 0\n"
    "                             diag search nqpTable 11 all|num(eg:num5) 0 0 0\n"
    "23. ssw_macinfo              diag search nqpTable 23 mac br-id vlan-id 0\n"
    "                             diag search nqpTable 23 all|num(eg:num5) 0 0 0\n"
    "37. timer_stat               diag search nqpTable 37 0 key 0 0\n"
    "                             diag search nqpTable 23 all|num(eg:num5) 0 0 0\n"
    "35. cpcar_pro                diag search nqpTable 35 0 pro_type_id wireless 0\n"
    "                             diag search nqpTable 35 pro_type_name 0 wireless 0\n"
    "50. session                  diag search nqpTable 50 sip:dip srcPort dstPort protocol\n"
    "                             diag search nqpTable 50 sip|dip(sip:xxx | dip:xxx) 0 0 0\n"
    "74. port_inst_state          diag search nqpTable 74 0 0 inst-id ctrl-if-index\n"
    "86. sac_usf_stat             diag search nqpTable 86 0 mac 0 0\n";

class CatalogTest : public testing::Test {
 protected:
  // The four keys that "show TABLE KEYS..." asks for, with a blank between two; or what is wrong.
  std::string Keys(const std::string &table, std::vector<std::string> keys) {
    std::vector<char *> pointers;
    for (std::string &key : keys) pointers.push_back(key.data());
    std::string text;
    try {
      for (const std::string &key : PlaceKeys(*catalog_.Find(table), pointers)) text += key + " ";
    } catch (const HostError &error) {
      return error.what();
    }
    text.pop_back();
    return text;
  }

  const Catalog catalog_ = Catalog::FromUsage(kUsage);
};

TEST_F(CatalogTest, ReadsTheUsageList) {
  ASSERT_EQ(catalog_.tables().size(), 10u);
  const TableInfo &group = *catalog_.Find("acl_group");
  EXPECT_EQ(group.id, 11u);
  ASSERT_EQ(group.syntax.size(), 2u);
  EXPECT_EQ(group.syntax[0].text, "0 groupType groupId 0");
  EXPECT_EQ(group.syntax[1].text, "all|num(eg:num5) 0 0 0");
  EXPECT_EQ(group.syntax[1].slots, (std::array<std::string, 4>{"all|num(eg:num5)", "0", "0", "0"}));
}

TEST_F(CatalogTest, ALineBelongsToTheTableOfItsKeysAndCountsOnce) {
  ASSERT_EQ(catalog_.Find("23")->syntax.size(), 2u);
  EXPECT_EQ(catalog_.Find("23")->syntax[1].text, "all|num(eg:num5) 0 0 0");
  EXPECT_EQ(catalog_.Find("37")->syntax.size(), 1u);
  // Also when it is the table's first line.
  EXPECT_EQ(Catalog::FromUsage("7. a diag search nqpTable 7 0 0 0 0\n  diag search nqpTable 8 x 0 0 0\n"
                               "8. b diag search nqpTable 8 0 y 0 0\n")
                .Find("b")
                ->syntax.size(),
            2u);
  // Tables come by id, whatever the order of the lines.
  EXPECT_EQ(catalog_.tables()[5].name, "cpcar_pro");
  EXPECT_EQ(catalog_.tables()[6].name, "timer_stat");
}

TEST_F(CatalogTest, AnExampleWithBlanksIsOneSlot) {
  EXPECT_EQ(catalog_.Find("session")->syntax[1].slots,
            (std::array<std::string, 4>{"sip|dip(sip:xxx | dip:xxx)", "0", "0", "0"}));
}

TEST_F(CatalogTest, PassesOverOtherText) {
  EXPECT_TRUE(Catalog::FromUsage("").tables().empty());
  EXPECT_TRUE(
      Catalog::FromUsage("\n\nno list diag search nqpTable\n x diag search nqpTable y 0").tables().empty());
}

TEST_F(CatalogTest, FindsByNameOrId) {
  EXPECT_EQ(catalog_.Find("fib")->id, 3u);
  EXPECT_EQ(catalog_.Find("3")->name, "fib");
  EXPECT_EQ(catalog_.Find("fi"), nullptr);
  EXPECT_EQ(catalog_.Find(""), nullptr);
  EXPECT_EQ(catalog_.Find("14"), nullptr);
  EXPECT_EQ(catalog_.Find("4294967299"), nullptr);
  EXPECT_EQ(catalog_.Find("-3"), nullptr);
}

TEST_F(CatalogTest, NamesTheNearest) {
  EXPECT_EQ(catalog_.Nearest("fwfid")->name, "fwdif");
  EXPECT_EQ(catalog_.Nearest("acl-grop")->name, "acl_group");
  EXPECT_EQ(catalog_.Nearest("SESSION")->name, "session");
  EXPECT_EQ(catalog_.Nearest("something else"), nullptr);
  EXPECT_EQ(catalog_.Nearest(""), nullptr);
  EXPECT_EQ(catalog_.Nearest(std::string(1 << 20, 'f')), nullptr);
}

TEST_F(CatalogTest, KeysFillTheOpenSlots) {
  EXPECT_EQ(Keys("fwdif", {"5"}), "0 5 0 0");
  EXPECT_EQ(Keys("fwdif", {}), "0 0 0 0");
  EXPECT_EQ(Keys("fib", {"10.0.0.0", "8"}), "10.0.0.0 8 0 0");
  EXPECT_EQ(Keys("fib", {"10.0.0.0", "8", "0x2"}), "10.0.0.0 8 0x2 0");
  EXPECT_EQ(Keys("acl_group", {"1", "2"}), "0 1 2 0");
  EXPECT_EQ(Keys("acl_group", {"all"}), "all 0 0 0");
  EXPECT_EQ(Keys("acl_group", {"num5"}), "num5 0 0 0");
  EXPECT_EQ(Keys("ssw_macinfo", {"all"}), "all 0 0 0");
  EXPECT_EQ(Keys("ssw_macinfo", {"02:00:5e:00:53:01", "1", "10"}), "02:00:5e:00:53:01 1 10 0");
  EXPECT_EQ(Keys("cpcar_pro", {"3", "1"}), "0 3 1 0");
  EXPECT_EQ(Keys("cpcar_pro", {"arp-request", "1"}), "arp-request 0 1 0");
  EXPECT_EQ(Keys("port_inst_state", {"3", "7"}), "0 0 3 7");
}

TEST_F(CatalogTest, AMacAddressIsTheFirstKeyWhateverTheListShows) {
  EXPECT_EQ(Keys("sac_usf_stat", {"02:00:5e:00:53:01"}), "02:00:5e:00:53:01 0 0 0");
  EXPECT_EQ(Keys("sac_usf_stat", {"0"}), "0 0 0 0");
  EXPECT_EQ(catalog_.Find("sac_usf_stat")->syntax[0].text, "0 mac 0 0");
}

TEST_F(CatalogTest, KeysThatFitNoLineAreTakenOneByOne) {
  EXPECT_EQ(Keys("fwdif", {"0", "5"}), "0 5 0 0");
  EXPECT_EQ(Keys("fwdif", {"all"}), "all 0 0 0");
  EXPECT_EQ(Keys("port_inst_state", {"all"}), "all 0 0 0");
  EXPECT_EQ(Keys("port_inst_state", {"num5", "1"}), "num5 1 0 0");
  EXPECT_EQ(Keys("acl_group", {"0", "1", "2"}), "0 1 2 0");
  EXPECT_EQ(Keys("global", {"0", "0", "0", "0"}), "0 0 0 0");
  EXPECT_EQ(Keys("session", {"a:b", "1", "2", "6"}), "a:b 1 2 6");
}

TEST_F(CatalogTest, RefusesWhatIsNoKey) {
  EXPECT_EQ(Keys("fwdif", {"gigabit"}),
            "key 1 of table fwdif is \"gigabit\" but has to be a number from 0 to 4294967295");
  EXPECT_EQ(Keys("fib", {"10.0.0.0", "eight"}),
            "key 2 of table fib is \"eight\" but has to be a number from 0 to 4294967295");
  EXPECT_EQ(Keys("acl_group", {"1", "4294967296"}),
            "key 2 of table acl_group is \"4294967296\" but has to be a number from 0 to 4294967295");
  EXPECT_EQ(Keys("fib", {"1", "2", "3", "4", "5"}), "a table has at most 4 keys, these are 5");
}

TEST(QueryCodes, AnErrorMessageIsTheWholeAnswer) {
  EXPECT_TRUE(IsErrorMessage("search result not found"));
  EXPECT_TRUE(IsErrorMessage("stop the search,a node is deleted"));
  EXPECT_TRUE(IsErrorMessage("Invalid error code"));
  EXPECT_FALSE(IsErrorMessage(""));
  EXPECT_FALSE(IsErrorMessage("search result not found\n"));
  EXPECT_STREQ(CodeMessage(-116), "search not ready");
  EXPECT_STREQ(CodeMessage(-13), "Invalid error code");
}

}  // namespace
}  // namespace qdt::nqecli
