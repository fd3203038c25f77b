#include <fstream>

#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

// Three devices.
class ArenaSetTest : public testing::Test {
 protected:
  ArenaSetTest() {
    for (const char *name : {"a", "b", "c"}) {
      const std::string number = std::to_string(name[0] - 'a' + 1);
      SaveText("arp:\n  - {vpn: 0, next_hop: 192.0.2.1, vlan_id: " + number +
                   "0, dmac: 02:00:00:00:00:01}\n  - {vpn: 0, next_hop: 192.0.2." + number +
                   "1, dmac: 02:00:00:00:00:02}\n",
               dir_.File(name));
      database_.arenas->Add({name, SnapshotAt(dir_.File(name)).open});
    }
  }
  std::string Ask(const std::string &statement) { return database_.Ask(statement); }

  TempDir dir_;
  Database database_{true};
};

TEST_F(ArenaSetTest, ShowsAllInTheirOrder) {
  EXPECT_EQ(Ask("SELECT arena, next_hop FROM arp"),
            "a|192.0.2.1\na|192.0.2.11\nb|192.0.2.1\nb|192.0.2.21\nc|192.0.2.1\nc|192.0.2.31\n");
  EXPECT_EQ(Ask("SELECT arena, count(*) FROM arp GROUP BY arena"), "a|2\nb|2\nc|2\n");
  EXPECT_EQ(Ask("SELECT arena, entries FROM usage WHERE name = 'arp'"), "a|2\nb|2\nc|2\n");
}

TEST_F(ArenaSetTest, ShowsOne) {
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE arena = 'b'"), "192.0.2.1\n192.0.2.21\n");
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE arena = 'd'"), "");
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE arena = NULL"), "");
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE arena = 'B' COLLATE NOCASE"), "192.0.2.1\n192.0.2.21\n");
  EXPECT_EQ(Ask("SELECT arena FROM arp WHERE arena IN ('c', 'a') AND vpn = 0 AND next_hop = '192.0.2.1' "
                "ORDER BY 1"),
            "a\nc\n");
  EXPECT_EQ(Ask("SELECT entries FROM usage WHERE name = 'arp' AND arena = 'c'"), "2\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM usage WHERE arena = 'd'"), "0\n");
}

// A whole key has an entry in each of them.
TEST_F(ArenaSetTest, LookupsAskEach) {
  EXPECT_EQ(
      Ask("SELECT arena, vlan_id FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.1' ORDER BY arena DESC"),
      "c|30\nb|20\na|10\n");
  EXPECT_EQ(Ask("SELECT DISTINCT dmac FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.1'"),
            "02:00:00:00:00:01\n");
}

TEST_F(ArenaSetTest, EitherOfTwoWays) {
  EXPECT_EQ(
      Ask("SELECT arena, next_hop FROM arp WHERE arena = 'b' AND vlan_id = 0 OR arena = 'c' AND vlan_id = 0 "
          "ORDER BY 1"),
      "b|192.0.2.21\nc|192.0.2.31\n");
  EXPECT_EQ(Ask("SELECT count(DISTINCT rowid) FROM arp"), "6\n");
  EXPECT_EQ(Ask("SELECT count(DISTINCT rowid) = count(*) FROM usage"), "1\n");
}

TEST_F(ArenaSetTest, IndexesAreOfAllAndAskedForOne) {
  const std::string join =
      "SELECT x.arena, x.next_hop, y.next_hop FROM arp x JOIN arp y ON y.arena = x.arena AND y.dmac = x.dmac "
      "ORDER BY "
      "1, 2";
  EXPECT_EQ(database_.Plan(join), "x: walk\ny: index on dmac\nUSE TEMP B-TREE FOR ORDER BY\n");
  EXPECT_EQ(Ask(join),
            "a|192.0.2.1|192.0.2.1\na|192.0.2.11|192.0.2.11\nb|192.0.2.1|192.0.2.1\nb|192.0.2.21|192.0.2.21\n"
            "c|192.0.2.1|192.0.2.1\nc|192.0.2.31|192.0.2.31\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM arp x JOIN arp y ON y.dmac = x.dmac"), "18\n");
}

TEST_F(ArenaSetTest, OneOfTheSameNameTakesItsPlace) {
  SaveText("arp: [{vpn: 0, next_hop: 192.0.2.99}]", dir_.File("new"));
  database_.arenas->Add({"b", SnapshotAt(dir_.File("new")).open});
  EXPECT_EQ(Ask("SELECT arena, next_hop FROM arp WHERE vlan_id = 0"),
            "a|192.0.2.11\nb|192.0.2.99\nc|192.0.2.31\n");
  EXPECT_EQ(Ask("SELECT arena, entries FROM usage WHERE name = 'arp'"), "a|2\nb|1\nc|2\n");
}

TEST_F(ArenaSetTest, ADamagedOneEndsOnlyWhatReadsIt) {
  std::ofstream(dir_.File("d")) << "no arena";
  database_.arenas->Add(SnapshotAt(dir_.File("d")));
  const std::string all = Ask("SELECT count(*) FROM arp");
  EXPECT_TRUE(all.starts_with("error: ") && all.find(dir_.File("d")) != std::string::npos) << all;
  EXPECT_EQ(Ask("SELECT count(*) FROM arp WHERE arena = 'c'"), "2\n");
  EXPECT_EQ(Ask("SELECT entries FROM usage WHERE arena = 'c' AND name = 'arp'"), "2\n");
}

// A walk that reads no record sees it as well, alone and side by side.
TEST_F(ArenaSetTest, ATableThatLeadsAstrayEndsWhatCountsIt) {
  const std::string file = dir_.File("d");
  SaveScenario(
      Scenario::FromText("s.yaml", "arp: [{repeat: 9, vpn: {from: 0, step: 1}, next_hop: 192.0.2.1}]",
                         Layout::BuiltIn()),
      file, [](Arena *arena) {
        tbm::TableView arp;
        ASSERT_EQ(tbm::TableView::Open(arena, Layout::BuiltIn().FindTable("arp")->spec.id, &arp), 0);
        arp.descriptor().entryNum = 7;
      });
  const std::string astray = "error: the table arp of " + file + " is damaged (its order leads astray)";
  Database alone;
  alone.arenas->Add(SnapshotAt(file));
  EXPECT_EQ(alone.Ask("SELECT count(*) FROM arp"), astray);
  EXPECT_EQ(alone.Ask("SELECT count(dmac) FROM arp"), astray);
  database_.arenas->Add(SnapshotAt(file));
  EXPECT_EQ(Ask("SELECT count(*) FROM arp"), astray);
  EXPECT_EQ(Ask("SELECT count(dmac) FROM arp"), astray);
  EXPECT_EQ(Ask("SELECT count(dmac) FROM arp WHERE arena <> '" + file + "'"), astray);
  EXPECT_EQ(Ask("SELECT count(dmac) FROM arp WHERE arena = 'a'"), "2\n");
}

}  // namespace
}  // namespace qdt::host
