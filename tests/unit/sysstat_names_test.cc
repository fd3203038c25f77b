#include <set>
#include <sstream>
#include <string>

#include "qdt/stats.h"
#include "tests/fake_platform/fake_platform.h"

// The names of the engine's statistics, against the list that operators know.
namespace qdt::test {
namespace {

TEST(SysStatNamesTest, EveryNameToTheCharacter) {
  const char *const *const names = QdtOmaSysStatDescGet();
  std::istringstream golden(Golden("system_stat_names.txt"));
  std::string line;
  int count = 0;
  for (; std::getline(golden, line); ++count) {
    const std::string name = names[count] == nullptr ? "(no name)" : '"' + std::string(names[count]) + '"';
    EXPECT_EQ(std::to_string(count) + " " + name, line);
  }
  EXPECT_EQ(count, 577);
}

TEST(SysStatNamesTest, TellingNames) {
  const char *const *const names = QdtOmaSysStatDescGet();
  EXPECT_STREQ(names[0], "mac flapping");
  EXPECT_STREQ(names[95], "roam ap2sta brid invaild");
  EXPECT_STREQ(names[135], "iptables snode null ");
  EXPECT_STREQ(names[166], "igmp-snooping dummy table insert exsit");
  EXPECT_STREQ(names[187], "not defined");
  EXPECT_STREQ(names[195], "CAR - FloodAtk TcpSync");
  EXPECT_STREQ(names[196], "FloodAtk UDP");
  EXPECT_STREQ(names[197], "CAR - FloodAtk ICMP");
  EXPECT_STREQ(names[206], "CAR - FloodAtk Fragment");
  EXPECT_STREQ(names[411], "The eth type of packet is not not supported");
  EXPECT_STREQ(names[511], "icmpv6  pkt send");
  EXPECT_STREQ(names[576], "Igmp-snooping pkt send to txif");
  std::set<int> unnamed;
  for (int i = 0; i < 577; ++i) {
    if (names[i] == nullptr) unnamed.insert(i);
  }
  EXPECT_EQ(unnamed, (std::set<int>{174, 308, 309, 310, 387, 420, 421, 422}));
}

}  // namespace
}  // namespace qdt::test
