#include "tools/nqecli/catalog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/library/entry_points.h"
#include "tools/nqecli/query.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

constexpr TableLine kLines[] = {
    {0, "fwdif", "0 ctrl-if-Index 0 0"},
    {3, "fib", "dip prefix vpn 0"},
    {10, "global", "0 0 0 0"},
    {11, "acl_group", "0 groupType groupId 0"},
    {11, "acl_group", "all|num(eg:num5) 0 0 0"},
    {23, "ssw_macinfo", "mac br-id vlan-id 0"},
    {23, "ssw_macinfo", "all|num(eg:num5) 0 0 0"},
    {35, "cpcar_pro", "0 pro_type_id wireless 0"},
    {35, "cpcar_pro", "pro_type_name 0 wireless 0"},
    {37, "timer_stat", "0 key 0 0"},
    {50, "session", "sip:dip srcPort dstPort protocol"},
    {50, "session", "sip|dip(sip:xxx | dip:xxx) 0 0 0"},
    {74, "port_inst_state", "0 0 inst-id ctrl-if-index"},
    {86, "sac_usf_stat", "0 mac 0 0"},
};

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

  const Catalog catalog_{kLines};
};

// What the library prints, line by line: "11. acl_group    diag search nqpTable 11 0 groupType groupId 0". A
// line without a name, or one whose keys begin with another table's id, belongs to the table of that id; the
// same line counts once.
std::vector<std::string> LibraryLines() {
  const host::EntryPoint *diag = host::FindEntryPoint("diag");
  char word[] = "diag";
  char *const words[] = {word, nullptr};
  std::istringstream usage(std::string(host::RunEntryPoint(*diag, std::span(words, 1)).text));
  constexpr std::string_view kQuery = " diag search nqpTable ";
  std::map<int, std::string> names;
  std::map<int, std::vector<std::string>> keys;
  for (std::string line; std::getline(usage, line);) {
    const size_t query = line.find(kQuery);
    if (query == line.npos) continue;
    std::istringstream head(line.substr(0, query)), tail(line.substr(query + kQuery.size()));
    int id = -1;
    tail >> id;
    std::string number, name, form;
    if (head >> number >> name) names.emplace(id, name);
    std::getline(tail >> std::ws, form);
    auto &known = keys[id];
    if (std::ranges::find(known, form) == known.end()) known.push_back(form);
  }
  std::vector<std::string> lines;
  for (const auto &[id, forms] : keys) {
    for (const std::string &form : forms) lines.push_back(std::to_string(id) + " " + names[id] + " " + form);
  }
  return lines;
}

TEST(TableLinesTest, AreThoseThatTheLibraryPrints) {
  std::vector<std::string> lines;
  for (const TableLine &line : TableLines()) {
    lines.push_back(std::to_string(line.id) + " " + std::string(line.name) + " " + std::string(line.keys));
  }
  EXPECT_EQ(lines, LibraryLines());
  EXPECT_EQ(lines.size(), 99u);
}

TEST_F(CatalogTest, ATableHasItsLinesInTheirOrder) {
  const TableInfo group = *catalog_.Find("acl_group");
  EXPECT_EQ(group.id, 11u);
  ASSERT_EQ(group.syntax.size(), 2u);
  EXPECT_EQ(group.syntax[0].text, "0 groupType groupId 0");
  EXPECT_EQ(group.syntax[1].text, "all|num(eg:num5) 0 0 0");
  EXPECT_EQ(group.syntax[1].slots, (std::array<std::string_view, 4>{"all|num(eg:num5)", "0", "0", "0"}));
  EXPECT_EQ(catalog_.Find("37")->syntax.size(), 1u);
}

TEST_F(CatalogTest, ListsTheTablesById) {
  const std::vector<TableInfo> tables = catalog_.Tables();
  ASSERT_EQ(tables.size(), 10u);
  EXPECT_EQ(tables[0].name, "fwdif");
  EXPECT_EQ(tables[3].name, "acl_group");
  EXPECT_EQ(tables[3].syntax.size(), 2u);
  EXPECT_EQ(tables[5].name, "cpcar_pro");
  EXPECT_EQ(tables[9].id, 86u);
}

TEST_F(CatalogTest, AnExampleWithBlanksIsOneSlot) {
  EXPECT_EQ(catalog_.Find("session")->syntax[1].slots,
            (std::array<std::string_view, 4>{"sip|dip(sip:xxx | dip:xxx)", "0", "0", "0"}));
}

TEST_F(CatalogTest, FindsByNameOrId) {
  EXPECT_EQ(catalog_.Find("fib")->id, 3u);
  EXPECT_EQ(catalog_.Find("3")->name, "fib");
  EXPECT_FALSE(catalog_.Find("fi"));
  EXPECT_FALSE(catalog_.Find(""));
  EXPECT_FALSE(catalog_.Find("14"));
  EXPECT_FALSE(catalog_.Find("4294967299"));
  EXPECT_FALSE(catalog_.Find("-3"));
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

// A list that takes long to print is printed again only for an answer that may be it.
TEST(Usage, ItsLastLineNamesTheFamily) {
  for (const host::EntryPoint &entry : host::EntryPoints()) {
    std::string name = entry.name;
    char *const words[] = {name.data(), nullptr};
    const std::string usage(host::RunEntryPoint(entry, std::span(words, 1)).text);
    EXPECT_TRUE(MayBeUsage(entry, usage)) << usage;
    EXPECT_TRUE(MayBeUsage(entry, "no such word\n" + usage)) << usage;
  }
  const host::EntryPoint &diag = *host::FindEntryPoint("diag");
  EXPECT_FALSE(MayBeUsage(diag, ""));
  EXPECT_FALSE(MayBeUsage(diag, "  CtrlIfIdx  :  1000\n------------------------------"));
}

TEST(QueryCodes, AnErrorMessageIsTheWholeAnswer) {
  EXPECT_TRUE(IsErrorMessage("search result not found"));
  EXPECT_TRUE(IsErrorMessage("stop the search,a node is deleted"));
  EXPECT_TRUE(IsErrorMessage("Invalid error code"));
  EXPECT_FALSE(IsErrorMessage(""));
  EXPECT_FALSE(IsErrorMessage("search result not found\n"));
  EXPECT_STREQ(host::CodeMessage(-116), "search not ready");
  EXPECT_STREQ(host::CodeMessage(-13), "Invalid error code");
}

}  // namespace
}  // namespace qdt::nqecli
