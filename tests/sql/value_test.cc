#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

class ValueTest : public CampusSqlTest {
 protected:
  // A database on a scenario of the test's own.
  std::unique_ptr<Database> Open(const std::string &scenario) {
    const std::string file = dir_.File(std::to_string(++files_) + ".snapshot");
    SaveText(scenario, file);
    auto database = std::make_unique<Database>();
    database->arenas->Add(SnapshotAt(file));
    return database;
  }

  TempDir dir_;
  int files_ = 0;
};

TEST_F(ValueTest, Sessions) {
  EXPECT_EQ(
      Ask("SELECT positive_source, positive_destination_port, negative_destination, new_source, nat_source, "
          "sac_app_id, tcp_cwnd FROM session WHERE \"index\" = 1"),
      "192.0.2.11|443|203.0.113.11|203.0.113.11|1|1003|14600\n");
  // What a record lacks is NULL.
  EXPECT_EQ(
      Ask("SELECT positive6_source, https_vlan, sac_app_id IS NULL FROM session WHERE \"index\" IN (1, 2)"),
      "NULL|NULL|0\nNULL|20|1\n");
  EXPECT_EQ(Ask("SELECT positive_source, positive_vpn, positive6_source FROM session WHERE \"index\" = 201"),
            "NULL|NULL|2001:db8:0:10::a1\n");
  EXPECT_EQ(Ask("SELECT count(*), count(positive_source), count(positive6_source) FROM session"),
            "36|33|3\n");
}

TEST_F(ValueTest, References) {
  EXPECT_EQ(
      Ask("SELECT destination, prefix, next_hop FROM fib WHERE prefix > 0 AND NOT direct ORDER BY prefix"),
      "203.0.113.0|24|nhp_group/2\n203.0.113.128|25|nhp/stale\n192.0.2.208|28|NULL\n");
  // A stale one leads nowhere, in whichever table its entry was, and so does one that holds nothing.
  EXPECT_EQ(Ask("SELECT f.prefix, n.\"index\", g.\"index\" FROM fib f LEFT JOIN nhp n ON n._address = "
                "f.next_hop_address LEFT JOIN nhp_group g ON g._address = f.next_hop_address WHERE f.prefix "
                "> 0 AND NOT f.direct "
                "ORDER BY 1"),
            "24|NULL|2\n25|NULL|NULL\n28|NULL|NULL\n");
  EXPECT_EQ(Ask("SELECT prefix, next_hop_address > 0 FROM fib WHERE prefix > 24 AND NOT direct ORDER BY 1"),
            "25|1\n28|0\n");
}

TEST_F(ValueTest, Lists) {
  EXPECT_EQ(Ask("SELECT element, type, acl_group_id, acl_group FROM nhp_l1_services WHERE \"index\" = 1"),
            "0|1|4002|acl_group/2/4002\n1|2|3002|acl_group/0/3002\n2|17|0|NULL\n");
  EXPECT_EQ(Ask("SELECT s.element, s.acl_group, g.group_id FROM nhp_l1_services s LEFT JOIN acl_group g ON "
                "g._address = s.acl_group_address WHERE s.\"index\" = 2"),
            "0|acl_group/stale|NULL\n1|acl_group/2/4001|4001\n");
  EXPECT_EQ(
      Ask("SELECT reference, f.if_index FROM nhp_fwdifs l JOIN fwdif f ON f._address = l.reference_address "
          "WHERE l.\"index\" = 1"),
      "fwdif/2|2\nfwdif/3|3\n");
  // The same as JSON.
  EXPECT_EQ(
      Ask("SELECT n.fwdifs, json_extract(e.value, '$.if_index') FROM nhp n, json_each(n.fwdifs) e WHERE "
          "n.\"index\" = 1"),
      "[{\"if_index\":2},{\"if_index\":3}]|2\n[{\"if_index\":2},{\"if_index\":3}]|3\n");
  EXPECT_EQ(Ask("SELECT count(*), sum(json_array_length(l1_services)) = (SELECT count(*) FROM "
                "nhp_l1_services) FROM "
                "nhp"),
            "11|1\n");
}

TEST_F(ValueTest, NumbersBeyond63BitsAreTexts) {
  const auto database = Open(R"(
acl_stat:
  - {group_type: 0, group_id: 1, stat_id: 0, counters: [{pass_bytes: 9223372036854775807, filter_bytes: 9223372036854775808},
                                               {pass_bytes: 18446744073709551615}]}
)");
  EXPECT_EQ(
      database->Ask("SELECT element, pass_bytes, typeof(pass_bytes), filter_bytes, typeof(filter_bytes) FROM "
                    "acl_stat_counters ORDER BY element LIMIT 2"),
      "0|9223372036854775807|integer|9223372036854775808|text\n"
      "1|18446744073709551615|text|0|integer\n");
  EXPECT_EQ(database->Ask("SELECT element FROM acl_stat_counters WHERE pass_bytes = '18446744073709551615'"),
            "1\n");
  EXPECT_EQ(database->Ask("SELECT element FROM acl_stat_counters WHERE pass_bytes = 9223372036854775807"),
            "0\n");
}

TEST_F(ValueTest, TextsAreEscaped) {
  const auto database = Open(R"(dns_domain: [{domain: "a|b\"'\x1b\xe9", match_type: 1, domain_id: 7}])");
  EXPECT_EQ(database->Ask("SELECT domain, length(domain) FROM dns_domain"), "a|b\"'\\x1bé|10\n");
  EXPECT_EQ(database->Ask(R"(SELECT domain_id FROM dns_domain WHERE domain = 'a|b"''\x1bé')"), "7\n");
  EXPECT_EQ(
      database->Ask(R"(SELECT domain_id FROM dns_domain WHERE domain = 'a|b"''\x1bé' AND match_type = 1)"),
      "7\n");
  // The same bytes, spelled otherwise, are another text to SQLite.
  EXPECT_EQ(
      database->Ask(R"(SELECT domain_id FROM dns_domain WHERE domain = '\x61|b"''\x1bé' AND match_type = 1)"),
      "");
}

TEST_F(ValueTest, Regions) {
  EXPECT_EQ(Ask("SELECT * FROM IPP_SESSION_AGING_TIME"), "600|0|0\n");
  EXPECT_EQ(Ask("SELECT station_count, stations FROM PKT_TRACE_CTX_PTR"),
            "2|[\"02:00:5e:30:00:15\",\"02:00:5e:30:00:28\"]\n");
}

TEST_F(ValueTest, Facts) {
  EXPECT_EQ(Ask("SELECT name, entries FROM usage WHERE name IN ('fib', 'arp') ORDER BY name"),
            "arp|44\nfib|13\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM usage u JOIN nqe_tables t USING (name) WHERE u.id = t.id"),
            Ask("SELECT count(*) FROM usage"));
  EXPECT_EQ(Ask("SELECT about FROM nqe_tables WHERE name = 'fib'"),
            "IPv4 routes, found by the longest prefix\n");
}

}  // namespace
}  // namespace qdt::host
