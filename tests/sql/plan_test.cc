#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

class PlanTest : public CampusSqlTest {};

TEST_F(PlanTest, WholeKeysAreLookups) {
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11'"), "arp: vpn,next_hop\n");
  EXPECT_EQ(Plan("SELECT * FROM fib WHERE destination = '192.0.2.0' AND prefix = 26 AND vpn = 0"),
            "fib: prefix,vpn,destination\n");
  EXPECT_EQ(Plan("SELECT * FROM fwdif WHERE if_index = 1"), "fwdif: if_index\n");
}

TEST_F(PlanTest, SoIsEachKeyOfAList) {
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE vpn = 0 AND next_hop IN ('192.0.2.11', '192.0.2.12')"),
            "arp: vpn,next_hop\n");
  EXPECT_EQ(Plan("SELECT * FROM fwdif WHERE if_index IN (1, 2, 3)"), "fwdif: if_index\n");
  EXPECT_EQ(Plan("SELECT * FROM fwdif WHERE if_index IN (SELECT fwd_if_index FROM arp)"),
            "fwdif: if_index\nLIST SUBQUERY 1\narp: walk\n");
}

TEST_F(PlanTest, GroupKeysWalkTheGroup) {
  EXPECT_EQ(Plan("SELECT * FROM acl_rule WHERE group_type = 0 AND group_id = 3002"),
            "acl_rule: group group_type,group_id\n");
  EXPECT_EQ(Plan("SELECT * FROM acl_rule WHERE group_type = 0 AND group_id = 3002 AND priority = 1"),
            "acl_rule: group_type,group_id,priority\n");
  EXPECT_EQ(
      Plan("SELECT 1 FROM acl_group g LEFT JOIN acl_rule r ON r.group_type = g.group_type AND r.group_id = "
           "g.group_id"),
      "g: walk\nr: group group_type,group_id LEFT-JOIN\n");
}

TEST_F(PlanTest, AddressesAreDirect) {
  EXPECT_EQ(Plan("SELECT * FROM nhp WHERE _address = 4096"), "nhp: _address\n");
  EXPECT_EQ(Plan("SELECT * FROM nhp_l1_services WHERE _address = 4096"), "nhp_l1_services: _address\n");
}

TEST_F(PlanTest, MatchIsALookup) {
  EXPECT_EQ(Plan("SELECT * FROM fib WHERE match = '192.0.2.9'"), "fib: match\n");
  EXPECT_EQ(Plan("SELECT * FROM fib WHERE match = '192.0.2.9' AND vpn = 1"), "fib: match\n");
  EXPECT_EQ(Plan("SELECT * FROM ipv6_fib WHERE match = '2001:db8::1'"), "ipv6_fib: match\n");
  EXPECT_EQ(Plan("SELECT * FROM fib WHERE match IN ('192.0.2.9', '192.0.2.70')"), "fib: match\n");
}

TEST_F(PlanTest, OtherColumnsGetAnIndexOfAllThatAreAsked) {
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE dmac = '02:00:5e:30:00:01'"), "arp: index on dmac\n");
  EXPECT_EQ(Plan("SELECT 1 FROM arp a JOIN arp b ON a.vpn = b.vpn AND a.dmac = b.dmac"),
            "a: walk\nb: index on vpn,dmac\n");
  EXPECT_EQ(Plan("SELECT 1 FROM usf_user u WHERE NOT EXISTS (SELECT 1 FROM usf_macip m WHERE m.mac = u.mac)"),
            "u: walk\nCORRELATED SCALAR SUBQUERY 1\nm: index on mac\n");
}

TEST_F(PlanTest, EverythingElseIsAWalk) {
  EXPECT_EQ(Plan("SELECT count(*) FROM arp"), "arp: walk\n");
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE vpn > 0"), "arp: walk\n");
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE dmac LIKE '02:%'"), "arp: walk\n");
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE dmac IS NULL"), "arp: walk\n");
}

TEST_F(PlanTest, OtherCollationsTakeNoLookup) {
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11' COLLATE NOCASE"),
            "arp: index on vpn\n");
  EXPECT_EQ(Plan("SELECT * FROM arp WHERE dmac = '02:00:5E:30:00:01' COLLATE NOCASE"), "arp: walk\n");
}

// Whichever order the statement names the tables in.
TEST_F(PlanTest, JoinsGoTheWayThatKeysAndAddressesLead) {
  const std::string byAddress = "f: walk\nn: _address\n";
  EXPECT_EQ(Plan("SELECT 1 FROM fib f JOIN nhp n ON f.next_hop_address = n._address"), byAddress);
  EXPECT_EQ(Plan("SELECT 1 FROM nhp n JOIN fib f ON f.next_hop_address = n._address"), byAddress);
  EXPECT_EQ(Plan("SELECT 1 FROM nhp n JOIN fib f ON n._address = f.next_hop_address"), byAddress);
  const std::string byKey = "s: walk\na: vpn,next_hop\n";
  EXPECT_EQ(
      Plan("SELECT 1 FROM session s JOIN arp a ON a.vpn = s.positive_vpn AND a.next_hop = s.positive_source"),
      byKey);
  EXPECT_EQ(
      Plan("SELECT 1 FROM arp a JOIN session s ON a.vpn = s.positive_vpn AND a.next_hop = s.positive_source"),
      byKey);
  EXPECT_EQ(Plan("SELECT 1 FROM fib f JOIN session s ON f.match = s.positive_destination AND f.vpn = "
                 "s.positive_vpn"),
            "s: walk\nf: match\n");
}

TEST_F(PlanTest, ThreeTablesInEachOrder) {
  const char *tables[] = {"fib f", "nhp n", "arp a"};
  std::sort(std::begin(tables), std::end(tables), [](auto a, auto b) { return std::string(a) < b; });
  int orders = 0;
  do {
    ++orders;
    EXPECT_EQ(Plan(std::string("SELECT 1 FROM ") + tables[0] + ", " + tables[1] + ", " + tables[2] +
                   " WHERE f.next_hop_address = n._address AND a.vpn = f.vpn AND a.next_hop = n.next_hop"),
              "f: walk\nn: _address\na: vpn,next_hop\n");
  } while (std::next_permutation(std::begin(tables), std::end(tables),
                                 [](auto a, auto b) { return std::string(a) < b; }));
  EXPECT_EQ(orders, 6);
}

TEST_F(PlanTest, OuterJoins) {
  EXPECT_EQ(Plan("SELECT 1 FROM fib f LEFT JOIN nhp n ON n._address = f.next_hop_address"),
            "f: walk\nn: _address LEFT-JOIN\n");
  EXPECT_EQ(Plan("SELECT 1 FROM nhp n LEFT JOIN nhp_l1_services s ON s.\"index\" = n.\"index\""),
            "n: walk\ns: index LEFT-JOIN\n");
}

TEST_F(PlanTest, ListsByTheirOwnersKeyOrAddress) {
  EXPECT_EQ(Plan("SELECT 1 FROM nhp_l1_services s WHERE s.\"index\" = 1"), "s: index\n");
  EXPECT_EQ(Plan("SELECT 1 FROM fwdif f JOIN fwdif_l1_services s ON s._address = f._address"),
            "f: walk\ns: _address\n");
  EXPECT_EQ(Plan("SELECT 1 FROM fwdif_l1_services s JOIN acl_group g ON g._address = s.acl_group_address"),
            "s: walk\ng: _address\n");
}

// The VPN says in which routes to look: it has to be known first.
TEST_F(PlanTest, AMatchWaitsForItsVpn) {
  const std::string plan =
      Plan("SELECT 1 FROM fib f, arp a, nhp n WHERE f.match = a.next_hop AND f.vpn = n.vlan_id");
  EXPECT_TRUE(plan.ends_with(": walk\nf: match\n")) << plan;
}

}  // namespace
}  // namespace qdt::host
