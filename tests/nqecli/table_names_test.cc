#include "tools/nqecli/table_names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace qdt::nqecli {
namespace {

constexpr NamedTable kTables[] = {
    {"arp", "IPv4 neighbours and their MAC addresses", 6, kUseShow | kUseList},
    {"acl_group", "Access lists (ACLs), each a group of rules", 11, kUseShow | kUseList},
    {"acl_stat", "What ACL rules have counted", 13, kUseShow | kUseList},
    {"fwdif", "Forwarding interfaces, that is ports, VAPs and tunnels", 0, kUseShow | kUseList},
    {"car", "Rate limits", 31, kUseShow | kUseList},
    {"usf_user", "Wireless stations with their sign-in", 28, kUseShow | kUseList},
    {"vap_to_sta", "Stations of a VAP and VLAN", 55, kUseShow | kUseList},
};

using Names = std::vector<std::string_view>;

Names Meant(std::string_view name) { return MeantBy(name, kTables); }

TEST(TableNamesTest, ASlipOfTheKeysIsFoundBySpelling) {
  EXPECT_EQ(Meant("fwfid"), Names{"fwdif"});
  EXPECT_EQ(Meant("acl-grop"), Names{"acl_group"});
  EXPECT_EQ(Meant("ARP"), Names{"arp"});
  EXPECT_EQ(Meant("arpp"), Names{"arp"});
}

TEST(TableNamesTest, AWordOfTheNameComesBeforeOneOfTheMeaning) {
  // "vap" is two edits from "car", which says nothing.
  EXPECT_EQ(Meant("vap"), (Names{"vap_to_sta", "fwdif"}));
  EXPECT_EQ(Meant("stat"), (Names{"acl_stat", "usf_user", "vap_to_sta"}));
  EXPECT_EQ(Meant("Neighbour"), Names{"arp"});
  EXPECT_EQ(Meant("acls"), Names{"acl_group"});
}

TEST(TableNamesTest, NothingIsOfferedForNonsense) {
  EXPECT_EQ(Meant(""), Names{});
  EXPECT_EQ(Meant("something else"), Names{});
  EXPECT_EQ(Meant("of"), Names{});
  EXPECT_EQ(Meant(std::string(1 << 20, 'f')), Names{});
}

TEST(TableNamesTest, TheHintNamesFourAtMostAndOnlyWhatIsGoodForTheUse) {
  EXPECT_EQ(TableHint("fwdfi", kUseShow, "none"), " (did you mean fwdif?)");
  EXPECT_EQ(TableHint("spacecraft", kUseShow, "none"), " (none)");
  EXPECT_EQ(
      TableHint("stat", kUseShow, "none"),
      " (did you mean acl_stat, usf_stat, buf_cache_stat or timer_stat? \"nqecli tables stat\" lists all)");
  for (const char *longer : {"stats", "statss"}) {
    EXPECT_EQ(
        TableHint(longer, kUseShow, "none"),
        " (did you mean acl_stat, usf_stat, buf_cache_stat or timer_stat? \"nqecli tables stat\" lists all)");
  }
  EXPECT_EQ(TableHint("servermap", kUseShow, "none"), " (none)");
  EXPECT_EQ(TableHint("servermap", kUseList, "none"), " (did you mean server_map?)");
  EXPECT_EQ(TableHint("server_map", kUseShow, "none"), " (none)");
  EXPECT_EQ(TableHint("IPP_SESSION_AGING_TIM", kUseList, "none"), " (none)");
  EXPECT_EQ(TableHint("IPP_SESSION_AGING_TIM", kUseList | kUseRegion, "none"),
            " (did you mean IPP_SESSION_AGING_TIME?)");
}

TEST(TableNamesTest, EveryTableAndViewIsNamedOnceWithWhatItHolds) {
  const std::vector<NamedTable> tables = NamedTables();
  // 109 tables, and the 7 views that show none.
  EXPECT_EQ(tables.size(), 116u);
  std::vector<std::string_view> names;
  for (const NamedTable &table : tables) {
    EXPECT_FALSE(table.about.empty()) << table.name;
    names.push_back(table.name);
  }
  std::ranges::sort(names);
  EXPECT_EQ(std::ranges::adjacent_find(names), names.end());
}

TEST(TableNamesTest, AllWordsOfASearchHaveToFit) {
  const auto holds = [](const NamedTable &table, std::vector<std::string> words) {
    return HoldsWords(table, words);
  };
  EXPECT_TRUE(holds(kTables[0], {}));
  EXPECT_TRUE(holds(kTables[0], {"ARP"}));
  EXPECT_TRUE(holds(kTables[0], {"mac", "ipv4"}));
  EXPECT_FALSE(holds(kTables[0], {"mac", "ipv6"}));
}

}  // namespace
}  // namespace qdt::nqecli
