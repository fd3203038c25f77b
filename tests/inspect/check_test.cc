#include "host/inspect/check.h"

#include <random>

#include "host/base/host_error.h"
#include "host/record/record_rows.h"
#include "tests/inspect/inspect_fixture.h"

namespace qdt::host {
namespace {

class CheckTest : public InspectTest {
 protected:
  // What CheckArena finds, a line each.
  static std::vector<std::string> Findings(const RecordSource &source,
                                           const std::function<void()> &wait = WaitMoment) {
    std::vector<std::string> lines;
    const uint64_t count = CheckArena(source, Collect(&lines), wait);
    EXPECT_EQ(count, lines.size());
    return lines;
  }

  static TellFinding Collect(std::vector<std::string> *lines) {
    return [lines](const Finding &finding) {
      std::string line = finding.severity == Severity::kError ? "error " : "warning ";
      line += finding.table != nullptr ? finding.table->shortName : finding.region->spec.name;
      if (finding.key != nullptr) {
        line += ' ';
        AppendNamedKey(*finding.table, finding.key, &line);
      }
      if (!finding.field.empty()) line += " " + std::string(finding.field);
      lines->push_back(line + ": " + std::string(finding.problem));
    };
  }

  using Lines = std::vector<std::string>;
};

TEST_F(CheckTest, NothingIsWrongWithNothing) {
  Fill("fwdif: []");
  EXPECT_EQ(Findings(Saved()), Lines{});
}

TEST_F(CheckTest, WhereReferencesLead) {
  Fill(R"(
nhp:
  - {index: 1}
  - {index: 2, l3_service_count: 2, l3_services: [{fwd_if_index: 7, fwdif: {if_index: 7}}, {fwd_if_index: 7, fwdif: {if_index: 8}}]}
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {index: 1}}}
  - {prefix: 25, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {stale: {index: 1}}}}
  - {prefix: 26, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {index: 2}}}
  - {prefix: 27, vpn: 0, destination: 192.0.2.0, nhp_index: 9}
  - {prefix: 28, vpn: 0, destination: 192.0.2.0, nhp_index: 1}
  - {prefix: 29, vpn: 0, destination: 192.0.2.0}
  - {prefix: 30, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: 0x1234}
  - {prefix: 31, vpn: 0, destination: 192.0.2.0, multi_next_hop: 1, nhp_index: 1, next_hop: {nhp: {index: 1}}}
fwdif: [{if_index: 7}, {if_index: 8}]
)");
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{
          "error fib prefix=25 vpn=0 destination=192.0.2.0 next_hop: stale, leads to a place of nhp where no "
          "entry is any more, should lead to nhp/1",
          "error fib prefix=26 vpn=0 destination=192.0.2.0 next_hop: leads to nhp/2, should lead to nhp/1",
          "error fib prefix=27 vpn=0 destination=192.0.2.0 next_hop: leads nowhere, should lead to nhp/9, "
          "which "
          "is not there",
          "error fib prefix=28 vpn=0 destination=192.0.2.0 next_hop: leads nowhere, should lead to nhp/1",
          "error fib prefix=30 vpn=0 destination=192.0.2.0 next_hop: leads to 0x1234, which is no place of "
          "nhp "
          "or nhp_group, should lead to nhp/1",
          "error fib prefix=31 vpn=0 destination=192.0.2.0 next_hop: leads to nhp/1, should lead to "
          "nhp_group/1, "
          "which is not there",
          "error nhp index=2 l3_services[1].fwdif: leads to fwdif/8, should lead to fwdif/7"}));
}

// What stands behind the elements that are in use is left over.
TEST_F(CheckTest, ElementsInUse) {
  Fill(R"(
nhp_group:
  - {index: 1, primary_count: 1, primary_nhp_indexes: [1, 2], primary_next_hops: [{index: 1}]}
  - {index: 2, primary_count: 2, primary_nhp_indexes: [1, 2], primary_next_hops: [{index: 1}]}
nhp:
  - {index: 1, fwdif_count: 2, fwdifs: [{if_index: 7}]}
  - {index: 2, fwdifs: [{stale: {if_index: 7}}]}
fwdif: [{if_index: 7}]
trunk:
  - {trunk_id: 1, active_ports: 2, members: [7, 8, 9]}
)");
  EXPECT_EQ(Findings(Saved()),
            (Lines{"error nhp index=1 fwdifs[1]: leads nowhere",
                   "error nhp_group index=2 primary_next_hops[1]: leads nowhere, should lead to nhp/2",
                   "error trunk trunk_id=1 members[1]: fwdif/8 is not there"}));
}

TEST_F(CheckTest, NumbersThatHaveToLeadToEntries) {
  Fill(R"(
ctrlif_map_fwdif:
  - {ctrl_if_index: 1001, fwd_if_index: 7}
  - {ctrl_if_index: 1002, fwd_if_index: 8}
  - {ctrl_if_index: 1003, fwd_if_index: 0}
  - {ctrl_if_index: 1004, fwd_if_index: 0xffffffff}
arp:
  - {vpn: 3, next_hop: 192.0.2.1, ctrl_if_index: 99, fwd_if_index: 7, l3_fwd_if_index: 9}
fwdif:
  - {if_index: 7, ctrl_if_index: 1001, sac_id: 5}
)");
  EXPECT_EQ(Findings(Saved()),
            (Lines{"error arp vpn=3 next_hop=192.0.2.1 l3_fwd_if_index: fwdif/9 is not there",
                   "error ctrlif_map_fwdif ctrl_if_index=1002 fwd_if_index: fwdif/8 is not there"}));
}

TEST_F(CheckTest, CountsBeyondArrays) {
  Fill(R"(
nhp: [{index: 1, encap_size: 64}, {index: 2, encap_size: 65, fwdif_count: -1}]
nhp_group: [{index: 1, backup_count: 33}]
regions: {PKT_TRACE_CTX_PTR: {station_count: 11}}
)");
  EXPECT_EQ(Findings(Saved()),
            (Lines{"error nhp index=2 encap_size: 65, but encap_data has 64 places",
                   "error nhp index=2 fwdif_count: -1, but fwdifs has 4 places",
                   "error nhp_group index=1 backup_count: 33, but nhp_indexes has 32 places",
                   "error PKT_TRACE_CTX_PTR station_count: 11, but stations has 10 places"}));
}

TEST_F(CheckTest, RecordsThatSayAnotherThingThanTheirKey) {
  Fill(R"(
ssw_macinfo: [{bridge_id: 1, vlan_id: 10, mac: 02:00:5e:30:00:01}]
dns_domain: [{domain: a.example}]
acl_group: [{group_type: 0, group_id: 3001, data_group_id: 3002}]
)");
  Change("ssw_macinfo", 0, [](uint8_t *record) { Table("ssw_macinfo").At("vlan_id").Set(record, 11); });
  Change("dns_domain", 0,
         [](uint8_t *record) { Table("dns_domain").At("domain").SetText(record, "b\n.example"); });
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{"error acl_group group_type=0 group_id=3001 data_group_id: 3002, but group_id says 3001",
             "error ssw_macinfo bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01 record.vlan_id: 11, but the key "
             "says 10",
             "error dns_domain domain=a.example record.domain: b\\x0a.example, but the key says a.example"}));
}

TEST_F(CheckTest, PointersThatStray) {
  Fill("session: [{index: 5, valid: 1, https: {index: 6}, positive: {protocol: 6}}]");
  Change("session", 0, [](uint8_t *record) { record[112] ^= 8; });
  const std::vector<std::string> found = Findings(Saved());
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].substr(0, 55), "error session index=5 positive: its pointer leads to 0x");
  EXPECT_EQ(found[0].substr(found[0].find(',')), ", which is not the entry's own place for it");
  EXPECT_EQ(found[1], "error session index=5 https.index: 6, but index says 5");
}

TEST_F(CheckTest, ServicesTakeGroupsOfTheirKind) {
  Fill(R"(
acl_group: [{group_type: 2, group_id: 1, data_group_id: 1, data_group_type: 2}, {group_type: 0, group_id: 1, data_group_id: 1}]
fwdif:
  - {if_index: 7, l1_service_count: 6, l1_services: [
       {type: 2, acl_group_type: 2, acl_group_id: 1, acl_group: {group_type: 2, group_id: 1}},
       {type: 2, acl_group_type: 0, acl_group_id: 1, acl_group: {group_type: 0, group_id: 1}},
       {type: 3}, {type: 26}, {type: 25}]}
nhp:
  - {index: 1, l1_service_count: 2, l1_services: [
       {type: 16, acl_group_type: 2, acl_group_id: 1, acl_group: {group_type: 2, group_id: 1}}, {type: 17}]}
)");
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{
          "error nhp index=1 l1_services[0]: service 16 takes an ACL group of type 0, has one of type 2",
          "error fwdif if_index=7 l1_services[1]: service 2 takes an ACL group of type 2, has one of type 0",
          "error fwdif if_index=7 l1_services[2]: service 3 takes an ACL group of type 0, has none",
          "error fwdif if_index=7 l1_services[3]: service 26 is none of 1 to 25",
          "error fwdif if_index=7 l1_services[5]: service 0 is none of 1 to 25"}));
}

TEST_F(CheckTest, RulesCountUnderTheirOwnPriority) {
  Fill(R"(
acl_group: [{group_type: 0, group_id: 1, data_group_id: 1}]
acl_rule:
  - {group_type: 0, group_id: 1, priority: 0, action: {stat: 1, stat_entry: {group_type: 0, group_id: 1, stat_id: 0}}}
  - {group_type: 0, group_id: 1, priority: 1, action: {stat_entry: {group_type: 0, group_id: 1, stat_id: 0}}}
  - {group_type: 0, group_id: 1, priority: 2, action: {stat: 1}}
  - {group_type: 0, group_id: 1, priority: 3}
acl_stat: [{group_type: 0, group_id: 1, stat_id: 0}]
)");
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{"error acl_rule group_type=0 group_id=1 priority=1 action.stat_entry: leads to acl_stat/0/1/0, "
             "should lead to acl_stat/0/1/1, which is not there",
             "error acl_rule group_type=0 group_id=1 priority=2 action.stat_entry: leads nowhere, should "
             "lead to "
             "acl_stat/0/1/2, which is not there"}));
}

TEST_F(CheckTest, GroupsAndTheirRules) {
  Fill(R"(
acl_group: [{group_type: 0, group_id: 1, data_group_id: 1}, {group_type: 0, group_id: 2, data_group_id: 2}]
acl_rule:
  - {repeat: 3, group_type: 0, group_id: 1, priority: {from: 0, step: 1}}
  - {group_type: 0, group_id: 2, priority: 0}
)");
  EXPECT_EQ(Findings(Saved()), Lines{});
  // A group leaves, a rule falls out of its chain.
  const uint32_t key[] = {0, 2};
  EXPECT_EQ(writer_->Remove(Table("acl_group").spec.id, key), 0);
  tbm::TableView rules;
  ASSERT_EQ(tbm::TableView::Open(arena_.get(), Table("acl_rule").spec.id, &rules), 0);
  rules.HeadAt(2)->chainNext = 0;
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{
          "error acl_group group_type=0 group_id=1: 2 entries of acl_rule by its chain, but 3 by the table's "
          "order",
          "error acl_rule group_type=0 group_id=2 priority=0: acl_group/0/2, which it belongs to, is not "
          "there"}));
}

TEST_F(CheckTest, ListsAndTheirHeads) {
  Fill(R"(
fwdif: [{if_index: 7}]
portip_head: [{fwd_if_index: 7, list_id: 1}, {fwd_if_index: 8, list_id: 2}, {fwd_if_index: 9}]
portip:
  - {list_id: 1, address: 192.0.2.1}
  - {list_id: 3, address: 192.0.2.2}
  - {list_id: 3, address: 192.0.2.3}
ipv6_portip: [{list_id: 4, address: "2001:db8::1"}]
)");
  EXPECT_EQ(Findings(Saved()),
            (Lines{"warning portip_head fwd_if_index=8 list_id: portip/2 has no entries",
                   "error portip list_id=3 list_id: no entry of portip_head leads to the list",
                   "error ipv6_portip list_id=4 list_id: no entry of ipv6_portip_head leads to the list"}));
}

TEST_F(CheckTest, RoutesInForce) {
  Fill(R"(
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0}
  - {prefix: 25, vpn: 0, destination: 192.0.2.128}
  - {prefix: 32, vpn: 1, destination: 192.0.2.1}
capwap_tunnel:
  - {tunnel_id: 1, destination: 192.0.2.1, route: {prefix: 24, vpn: 0, destination: 192.0.2.0}}
  - {tunnel_id: 2, destination: 192.0.2.129, route: {prefix: 24, vpn: 0, destination: 192.0.2.0}}
  - {tunnel_id: 3, destination: 192.0.2.1}
  - {tunnel_id: 4, destination: 198.51.100.1}
  - {tunnel_id: 5, destination: 198.51.100.1, route: {prefix: 24, vpn: 0, destination: 192.0.2.0}}
)");
  EXPECT_EQ(
      Findings(Saved()),
      (Lines{"error capwap_tunnel tunnel_id=2 route: leads to fib/24/0/192.0.2.0, should lead to "
             "fib/25/0/192.0.2.128",
             "error capwap_tunnel tunnel_id=3 route: leads nowhere, should lead to fib/24/0/192.0.2.0",
             "error capwap_tunnel tunnel_id=5 route: leads to fib/24/0/192.0.2.0, but there is no route to "
             "198.51.100.1"}));
}

TEST_F(CheckTest, EntriesThatNameEachOther) {
  Fill(R"(
usf_user: [{mac: 02:00:5e:30:00:01, stat_id: 101}, {mac: 02:00:5e:30:00:02, stat_id: 102}, {mac: 02:00:5e:30:00:03, stat_id: 103}]
usf_stat: [{stat_id: 101, mac: 02:00:5e:30:00:01}, {stat_id: 102, mac: 02:00:5e:30:00:01}]
)");
  EXPECT_EQ(Findings(Saved()),
            (Lines{"warning usf_user mac=02:00:5e:30:00:02 stat_id: usf_stat/102 names another mac, "
                   "02:00:5e:30:00:01"}));
}

TEST_F(CheckTest, NumbersOfEntries) {
  Fill("fwdif: [{if_index: 1}, {if_index: 2}]");
  tbm::TableView view;
  ASSERT_EQ(tbm::TableView::Open(arena_.get(), Table("fwdif").spec.id, &view), 0);
  view.descriptor().entryNum = 3;
  EXPECT_EQ(Findings(Saved()), Lines{"error fwdif: counts 3 entries, a walk finds 2"});
  EXPECT_EQ(Findings(Live()), Lines{"error fwdif: counts 3 entries, a walk finds 2"});
}

// What an engine is in the middle of is no fault.
TEST_F(CheckTest, OfALiveEngineOnlyWhatStays) {
  Fill(R"(
nhp: [{index: 1}]
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, nhp_index: 2}
  - {prefix: 25, vpn: 0, destination: 192.0.2.0, nhp_index: 2}
  - {prefix: 26, vpn: 0, destination: 192.0.2.0, nhp_index: 1}
)");
  int waits = 0;
  const auto engine = [&] {
    if (++waits > 1) return;
    SetField("fib", 0, "nhp_index", 0);
    const uint8_t key[] = {26, 0, 0, 0, 192, 0, 2, 0};
    EXPECT_EQ(writer_->Remove(Table("fib").spec.id, key), 0);
  };
  EXPECT_EQ(Findings(Live(), engine),
            (Lines{"error fib prefix=25 vpn=0 destination=192.0.2.0 next_hop: leads "
                   "nowhere, should lead to nhp/2, which is not there"}));
  EXPECT_EQ(waits, 1);
}

// Words of a saved arena at random: whatever stands there, the check ends, and says so in lines.
TEST_F(CheckTest, DamagedArenas) {
  Scenario scenario = Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", Layout::BuiltIn());
  Fill("fwdif: []");
  scenario.Fill(arena_.get(), writer_.get());
  Saved();
  const std::string file = path_ + ".copy";
  const int fd = open(file.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  std::mt19937_64 random(20240611);
  const off_t end = lseek(fd, 0, SEEK_END);
  uint64_t found = 0;
  for (int round = 0; round < 25; ++round) {
    for (off_t at = 64 << 10; (at = lseek(fd, at, SEEK_DATA)) >= 0 && at < end; at += 4096) {
      const uint64_t word = random() % 3 == 0 ? random() : random() % 64;
      if (random() % 8 == 0) {
        ASSERT_EQ(
            pwrite(fd, &word, sizeof word, (at & ~off_t{4095}) + static_cast<off_t>(random() % 512 * 8)), 8);
      }
    }
    try {
      const auto source = RecordSource::OfSnapshot(file, Layout::BuiltIn());
      found += CheckArena(*source, [](const Finding &finding) {
        EXPECT_EQ(finding.problem.find('\n'), std::string_view::npos);
      });
    } catch (const HostError &error) {
      EXPECT_EQ(std::string_view(error.what()).find('\n'), std::string_view::npos);
    }
  }
  close(fd);
  EXPECT_GT(found, 100u);
}

}  // namespace
}  // namespace qdt::host
