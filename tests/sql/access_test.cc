#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

// Each way to rows has to give what a walk gives: unary plus takes the ways away.
class AccessTest : public CampusSqlTest {};

TEST_F(AccessTest, LookupsFindWhatWalksFind) {
  EXPECT_EQ(Ask("SELECT dmac FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11'"), "02:00:5e:30:00:01\n");
  EXPECT_EQ(Ask("SELECT dmac FROM arp WHERE +vpn = 0 AND +next_hop = '192.0.2.11'"), "02:00:5e:30:00:01\n");
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE vpn = 0 AND next_hop IN ('192.0.2.12', '192.0.2.11', "
                "'192.0.2.250', "
                "'192.0.2.12') ORDER BY 1"),
            "192.0.2.11\n192.0.2.12\n");
  EXPECT_EQ(
      Ask("SELECT count(*) FROM arp a WHERE (SELECT count(*) FROM arp b WHERE b.vpn = a.vpn AND b.next_hop = "
          "a.next_hop AND b._address = a._address) = 1"),
      "44\n");
  EXPECT_EQ(Ask("SELECT priority FROM acl_rule WHERE group_type = 0 AND group_id = 3002 ORDER BY 1"),
            Ask("SELECT priority FROM acl_rule WHERE +group_type = 0 AND +group_id = 3002 ORDER BY 1"));
  EXPECT_EQ(Ask("SELECT count(*) > 1 FROM acl_rule WHERE group_type = 0 AND group_id = 3002"), "1\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM acl_rule r WHERE (SELECT count(*) FROM acl_rule s WHERE s.group_type = "
                "r.group_type AND s.group_id = r.group_id AND s.priority = r.priority AND s._address = "
                "r._address) = "
                "(SELECT 1)"),
            Ask("SELECT count(*) FROM acl_rule"));
}

TEST_F(AccessTest, ValuesOfOtherTypesAreComparedAsSqliteDoes) {
  for (const char *value :
       {"1", "'1'", "1.0", "' 1 '", "'1.0'", "'1e0'", "CAST('1' AS BLOB)", "1.5", "'1x'", "'0x1'", "NULL",
        "-1", "4294967297", "18446744073709551617", "''", "x''", "1e300"}) {
    for (const char *column : {"if_index", "enable"}) {
      const std::string name(column);
      EXPECT_EQ(Ask("SELECT count(*) FROM fwdif WHERE " + name + " = " + value),
                Ask("SELECT count(*) FROM fwdif WHERE CAST(" + name + " AS INTEGER) = " + value))
          << name << " = " << value;
    }
  }
  EXPECT_EQ(Ask("SELECT if_index FROM fwdif WHERE if_index = '1'"), "1\n");
  EXPECT_EQ(Ask("SELECT if_index FROM fwdif WHERE if_index = 1.0"), "1\n");
  EXPECT_EQ(Ask("SELECT if_index FROM fwdif WHERE if_index = '1x'"), "");
  EXPECT_EQ(Ask("SELECT if_index FROM fwdif WHERE if_index = NULL"), "");
  EXPECT_EQ(Ask("SELECT f.if_index FROM fwdif f JOIN (SELECT '1.0' AS text) t ON f.if_index = t.text"),
            "1\n");
  EXPECT_EQ(Ask("SELECT n.\"index\" FROM nhp n WHERE _address = 1.0 * (SELECT _address FROM nhp WHERE "
                "\"index\" = 10)"),
            "10\n");
  for (const char *value :
       {"'192.0.2.11'", "'192.0.2.011'", "' 192.0.2.11'", "3221225995", "NULL", "x'00'", "''"}) {
    EXPECT_EQ(Ask(std::string("SELECT dmac FROM arp WHERE vpn = 0 AND next_hop = ") + value),
              Ask(std::string("SELECT dmac FROM arp WHERE +vpn = 0 AND next_hop || '' = ") + value))
        << value;
  }
}

TEST_F(AccessTest, OtherSpellingsAreOtherTexts) {
  EXPECT_EQ(Ask("SELECT count(*) FROM usf_user WHERE mac = '02:00:5E:30:00:01'"), "0\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM usf_user WHERE mac = mac('0200.5E30.0001')"), "1\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM usf_user WHERE mac = '02:00:5E:30:00:01' COLLATE NOCASE"), "1\n");
}

TEST_F(AccessTest, Match) {
  EXPECT_EQ(Ask("SELECT match, prefix, destination FROM fib WHERE match = '192.0.2.9'"),
            "192.0.2.9|26|192.0.2.0\n");
  EXPECT_EQ(Ask("SELECT prefix FROM fib WHERE match = '8.8.8.8'"), "0\n");
  EXPECT_EQ(Ask("SELECT prefix, destination FROM fib WHERE match = '203.0.113.200' AND vpn = 0"),
            "25|203.0.113.128\n");
  EXPECT_EQ(Ask("SELECT prefix FROM fib WHERE match = '203.0.113.200' AND vpn = 7"), "");
  EXPECT_EQ(Ask("SELECT vpn, prefix FROM fib WHERE match = '203.0.113.200' AND vpn IN (0, 1, 7) ORDER BY 1"),
            "0|25\n1|0\n");
  EXPECT_EQ(Ask("SELECT prefix FROM fib WHERE match IN ('192.0.2.70', '8.8.8.8', '192.0.2.9') ORDER BY 1"),
            "0\n26\n26\n");
  EXPECT_EQ(Ask("SELECT prefix FROM fib WHERE match = '192.0.2.9' OR match = '8.8.8.8' ORDER BY 1"),
            "0\n26\n");
  EXPECT_EQ(Ask("SELECT prefix, destination FROM ipv6_fib WHERE match = '2001:db8:0:10::a1'"),
            "64|2001:db8:0:10::\n");
  for (const char *value : {"NULL", "'x'", "''", "5", "'2001:db8::1'", "'192.0.2.0/24'"})
    EXPECT_EQ(Ask(std::string("SELECT * FROM fib WHERE match = ") + value), "") << value;
  // For each session its route, found as the engine finds it.
  EXPECT_EQ(Ask("SELECT count(*), count(DISTINCT f.destination) FROM session s JOIN fib f ON f.match = "
                "s.positive_destination AND f.vpn = s.positive_vpn"),
            "32|4\n");
}

// Where the statement's order leaves nothing to look up, there is no answer that looks like one.
TEST_F(AccessTest, MatchNeedsAValueThatIsKnownBefore) {
  const std::string refused =
      "error: match of fib has to be compared by = with a value that is known before (name its table first)";
  for (const char *from : {"fib f CROSS JOIN session s WHERE f.match = s.positive_destination",
                           "fib f RIGHT JOIN session s ON f.match = s.positive_destination",
                           "fib f FULL JOIN session s ON f.match = s.positive_destination",
                           "fib f WHERE f.match > '1'", "fib f WHERE f.match IS '192.0.2.9'",
                           "fib f WHERE f.match LIKE '192.%'", "fib f WHERE f.match IS NULL"})
    EXPECT_EQ(Ask(std::string("SELECT count(*) FROM ") + from), refused) << from;
  EXPECT_EQ(Ask("SELECT match FROM fib"), refused);
  EXPECT_EQ(Ask("SELECT count(*), count(f.prefix) FROM session s LEFT JOIN fib f ON f.match = "
                "s.positive_destination"),
            "36|33\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM fib WHERE match = '192.0.2.9' OR match = '192.0.2.150'"), "2\n");
}

TEST_F(AccessTest, MatchFindsTheLongestOfAllPrefixesThatHoldTheAddress) {
  EXPECT_EQ(
      Ask("SELECT count(*) FROM session s WHERE s.positive_source IS NOT NULL AND (SELECT prefix FROM fib "
          "WHERE "
          "match = s.positive_source AND vpn = s.positive_vpn) IS (SELECT max(prefix) FROM fib WHERE vpn = "
          "s.positive_vpn AND in_prefix(s.positive_source, destination || '/' || prefix))"),
      Ask("SELECT count(positive_source) FROM session"));
}

TEST_F(AccessTest, IndexesOnColumns) {
  EXPECT_EQ(Ask("SELECT count(*) FROM arp a JOIN arp b ON a.dmac = b.dmac"),
            Ask("SELECT count(*) FROM arp a JOIN arp b ON +a.dmac = +b.dmac"));
  EXPECT_EQ(
      Ask("SELECT count(*) FROM arp a JOIN arp b ON a.vpn = b.vpn AND a.valid = b.valid AND a.dmac = b.dmac"),
      Ask("SELECT count(*) FROM arp a JOIN arp b ON +a.vpn = +b.vpn AND +a.valid = +b.valid AND +a.dmac = "
          "+b.dmac"));
  EXPECT_EQ(
      Ask("SELECT count(*) FROM nhp_l1_services a JOIN nhp_l1_services b ON a.type = b.type AND a.element = "
          "b.element"),
      Ask("SELECT count(*) FROM nhp_l1_services a JOIN nhp_l1_services b ON +a.type = +b.type AND +a.element "
          "= "
          "+b.element"));
  // Two indexes of one table in one statement.
  EXPECT_EQ(Ask("SELECT count(*) FROM arp a JOIN arp b ON a.dmac = b.dmac OR a.vlan_id = b.vlan_id"),
            Ask("SELECT count(*) FROM arp a JOIN arp b ON +a.dmac = +b.dmac OR +a.vlan_id = +b.vlan_id"));
  EXPECT_EQ(
      Ask("SELECT count(*) FROM usf_user u WHERE EXISTS (SELECT 1 FROM usf_macip m WHERE m.mac = u.mac)"),
      Ask("SELECT count(*) FROM usf_user u WHERE EXISTS (SELECT 1 FROM usf_macip m WHERE +m.mac = +u.mac)"));
  // Numbers of another table's texts, and NULL.
  EXPECT_EQ(Ask("SELECT count(*) FROM (SELECT '10' AS v UNION ALL SELECT 20.0 UNION ALL SELECT NULL UNION "
                "ALL SELECT "
                "'x') t JOIN arp a ON a.vlan_id = t.v"),
            Ask("SELECT count(*) FROM arp WHERE +vlan_id IN (10, 20)"));
}

// A row that both sides of OR find, each on its own way, is one row; two rows stay two.
TEST_F(AccessTest, EitherOfTwoWays) {
  EXPECT_EQ(Ask("SELECT fwd_if_index, list_id FROM portip_head WHERE fwd_if_index = 206 OR list_id = 506"),
            "206|506\n");
  EXPECT_EQ(Ask("SELECT fwd_if_index FROM portip_head WHERE fwd_if_index = 202 OR list_id = 503 ORDER BY 1"),
            "202\n203\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM vap_to_sta WHERE fwd_if_index = 101 OR vlan_id = 20"), "30\n");
  EXPECT_EQ(
      Ask("SELECT count(*) FROM fib f WHERE f.vpn = 0 AND f.destination = '192.0.2.128' AND f.prefix = 28 "
          "OR f.nhp_index = 30 OR f.next_hop_address = (SELECT _address FROM nhp WHERE \"index\" = 30)"),
      "1\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM acl_rule WHERE group_type = 0 AND group_id = 3002 OR priority = 0"),
            Ask("SELECT count(*) FROM acl_rule WHERE +group_type = 0 AND +group_id = 3002 OR +priority = 0"));
  EXPECT_EQ(Ask("SELECT count(*) FROM nhp_l1_services WHERE type = 2 OR element = 1 OR \"index\" = 1"),
            Ask("SELECT count(*) FROM nhp_l1_services WHERE +type = 2 OR +element = 1 OR +\"index\" = 1"));
  EXPECT_EQ(Ask("SELECT count(DISTINCT rowid) = count(*) AND count(*) > 10 FROM fwdif_counters"), "1\n");
  EXPECT_EQ(
      Ask("SELECT count(*) FROM (SELECT rowid FROM arp EXCEPT SELECT rowid FROM arp WHERE vlan_id >= 0)"),
      "0\n");
}

TEST_F(AccessTest, AddressesOfNoEntryFindNothing) {
  for (const char *value :
       {"0", "1", "-1", "9223372036854775807", "-9223372036854775808", "NULL", "'x'", "1.5",
        "(SELECT _address + 1 FROM nhp LIMIT 1)", "(SELECT _address FROM arp LIMIT 1)",
        "(SELECT next_hop_address FROM fib WHERE next_hop LIKE '%stale')"})
    EXPECT_EQ(Ask(std::string("SELECT * FROM nhp WHERE _address = ") + value), "") << value;
}

}  // namespace
}  // namespace qdt::host
