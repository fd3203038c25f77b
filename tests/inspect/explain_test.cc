#include "host/inspect/explain.h"

#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"
#include "tests/inspect/inspect_fixture.h"

namespace qdt::host {
namespace {

class ExplainTest : public InspectTest {
 protected:
  using Lines = std::vector<std::string>;

  // "  STEP TABLE FIELD=VALUE: KEY [NOTE]" of each step that has found something or has a note.
  static Lines Explained(const RecordSource &source, std::string_view address, uint32_t vpn = 0,
                         uint64_t limit = 10) {
    Lines lines;
    uint64_t found = 0;
    const ExplainRequest request{SearchValue(address), vpn, limit};
    const uint64_t count = ExplainAddress(source, request, [&](const ExplainStep &step) {
      found += step.found != nullptr;
      if (step.found == nullptr && step.note.empty()) return;
      std::string line(2 * step.depth, ' ');
      line += std::string(step.step) + " " + std::string(step.table->shortName);
      for (const ExplainStep::Asked &asked : step.asked)
        line += " " + std::string(asked.field) + "=" + ValueText(asked.ref, asked.value);
      line += ": ";
      if (step.found != nullptr) {
        AppendNamedKey(*step.table, step.found->key, &line);
      } else {
        line += "nothing";
      }
      if (!step.note.empty()) line += " [" + step.note + "]";
      lines.push_back(line);
    });
    EXPECT_EQ(count, found);
    return lines;
  }

  // The steps that found nothing, "STEP TABLE".
  static Lines Nothing(const RecordSource &source, std::string_view address) {
    Lines lines;
    ExplainAddress(source, {SearchValue(address)}, [&](const ExplainStep &step) {
      if (step.found == nullptr)
        lines.push_back(std::string(step.step) + " " + std::string(step.table->shortName));
    });
    return lines;
  }
};

TEST_F(ExplainTest, SaysWhereItLookedInVain) {
  Fill("fwdif: []");
  EXPECT_EQ(Nothing(Saved(), "192.0.2.1"), (Lines{"station usf_user", "binding usf_macip", "neighbour arp",
                                                  "DHCP binding dhcp_snooping_bind", "route fib",
                                                  "session session", "server map server_map"}));
  EXPECT_EQ(Nothing(*source_, "2001:db8::1"),
            (Lines{"binding usf_macip", "neighbour nd", "DHCP binding dhcp_snooping_bind", "route ipv6_fib",
                   "session session"}));
  EXPECT_EQ(Nothing(*source_, "02:00:5e:30:00:01"),
            (Lines{"station usf_user", "binding usf_macip", "MAC entry ssw_macinfo", "neighbour arp",
                   "neighbour nd", "DHCP binding dhcp_snooping_bind"}));
  EXPECT_EQ(Explained(*source_, "192.0.2.1"), Lines{});
}

TEST_F(ExplainTest, FromAddressToInterface) {
  Fill(R"(
usf_user: [{mac: 02:00:5e:30:00:01, ipv4_address: 192.0.2.1, peer_id: 5}, {mac: 02:00:5e:30:00:02}]
usf_map_fwdif: [{user_id: 5, fwd_if_index: 101}]
ssw_macinfo: [{bridge_id: 1, vlan_id: 10, mac: 02:00:5e:30:00:01, out_if_index: 101}]
arp: [{vpn: 0, next_hop: 192.0.2.1, valid: 1, dmac: 02:00:5e:30:00:01, fwd_if_index: 101}]
fwdif: [{if_index: 101, enable: 1, ctrl_if_index: 2001}]
ctrlif_map_fwdif: [{ctrl_if_index: 2001, fwd_if_index: 101}]
)");
  EXPECT_EQ(
      Explained(Saved(), "192.0.2.1"),
      (Lines{"station usf_user ipv4_address=192.0.2.1: mac=02:00:5e:30:00:01",
             "  MAC entry ssw_macinfo mac=02:00:5e:30:00:01: bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01",
             "    interface fwdif if_index=101: if_index=101",
             "      control interface ctrlif_map_fwdif ctrl_if_index=2001: ctrl_if_index=2001",
             "  user map usf_map_fwdif user_id=5: user_id=5",
             "neighbour arp vpn=0 next_hop=192.0.2.1: vpn=0 next_hop=192.0.2.1"}));
  EXPECT_EQ(Explained(Live(), "192.0.2.1").size(), 6u);
  EXPECT_EQ(
      Explained(*source_, "02:00:5e:30:00:01"),
      (Lines{"station usf_user mac=02:00:5e:30:00:01: mac=02:00:5e:30:00:01",
             "  user map usf_map_fwdif user_id=5: user_id=5",
             "    interface fwdif if_index=101: if_index=101",
             "      control interface ctrlif_map_fwdif ctrl_if_index=2001: ctrl_if_index=2001",
             "  neighbour arp vpn=0 next_hop=192.0.2.1: vpn=0 next_hop=192.0.2.1",
             "MAC entry ssw_macinfo mac=02:00:5e:30:00:01: bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01"}));
}

// Tables that disagree about whose an address is, and where.
TEST_F(ExplainTest, Disagreement) {
  Fill(R"(
usf_user: [{mac: 02:00:5e:30:00:01, ipv4_address: 192.0.2.1, deny_all: 1}]
ssw_macinfo: [{bridge_id: 1, vlan_id: 10, mac: 02:00:5e:30:00:01, drop: 1, out_if_index: 101}]
arp: [{vpn: 0, next_hop: 192.0.2.1, dmac: 02:00:5e:30:00:02, fwd_if_index: 102}]
dhcp_snooping_bind: [{mac: 02:00:5e:30:00:01, vlan_id: 10, ipv4_address: 192.0.2.1, ipv6_address: "::", fwd_if_index: -1}]
fwdif: [{if_index: 101, down: 1}]
)");
  EXPECT_EQ(Explained(Saved(), "192.0.2.1"),
            (Lines{"station usf_user ipv4_address=192.0.2.1: mac=02:00:5e:30:00:01 [everything is denied]",
                   "  MAC entry ssw_macinfo mac=02:00:5e:30:00:01: bridge_id=1 vlan_id=10 "
                   "mac=02:00:5e:30:00:01 [packets of "
                   "the address are dropped]",
                   "    interface fwdif if_index=101: if_index=101 [not enabled; down]",
                   "neighbour arp vpn=0 next_hop=192.0.2.1: vpn=0 next_hop=192.0.2.1 [not resolved; another "
                   "MAC address than "
                   "usf_user says, 02:00:5e:30:00:01; another interface than ssw_macinfo says, 101; "
                   "fwd_if_index: fwdif/102 "
                   "is not there]",
                   "  interface fwdif if_index=102: nothing [missing]",
                   "DHCP binding dhcp_snooping_bind ipv4_address=192.0.2.1: mac=02:00:5e:30:00:01 vlan_id=10 "
                   "ipv4_address=192.0.2.1 ipv6_address=::"}));
}

TEST_F(ExplainTest, RoutesAndNextHops) {
  Fill(R"(
fib:
  - {prefix: 0, vpn: 0, destination: 0.0.0.0, default: 1, multi_next_hop: 1, nhp_index: 1, next_hop: {nhp_group: {index: 1}}}
  - {prefix: 25, vpn: 0, destination: 192.0.2.128, nhp_index: 1, next_hop: {nhp: {stale: {index: 1}}}}
  - {prefix: 32, vpn: 7, destination: 192.0.2.1, nhp_index: 1, next_hop: {nhp: {index: 1}}}
nhp_group:
  - {index: 1, primary_count: 2, primary_nhp_indexes: [1, 3], primary_next_hops: [{index: 1}, {stale: {index: 1}}]}
nhp: [{index: 1, if_index: 9, next_hop: 198.51.100.1, fwdif_count: 1, fwdifs: [{if_index: 8}, {if_index: 8}]}]
arp: [{vpn: 0, next_hop: 198.51.100.1, valid: 1, fwd_if_index: 8}]
fwdif: [{if_index: 8, enable: 1}]
)");
  const std::string staleMember =
      "[primary_next_hops[1]: stale, leads to a place of nhp where no entry is any more, should lead to "
      "nhp/3, which "
      "is not there]";
  EXPECT_EQ(Explained(Saved(), "192.0.2.1"),
            (Lines{"route fib vpn=0 destination=192.0.2.1: prefix=0 vpn=0 destination=0.0.0.0",
                   "  next-hop group nhp_group index=1: index=1 " + staleMember,
                   "    next hop nhp index=1: index=1",
                   "      router arp vpn=0 next_hop=198.51.100.1: vpn=0 next_hop=198.51.100.1",
                   "        interface fwdif if_index=8: if_index=8",
                   "      interface fwdif if_index=9: nothing [not there]"}));
  EXPECT_EQ(
      Explained(*source_, "192.0.2.200"),
      (Lines{"route fib vpn=0 destination=192.0.2.200: prefix=25 vpn=0 destination=192.0.2.128 [next_hop: "
             "stale, leads to a place of nhp where no entry is any more, should lead to nhp/1]"}));
  // In another VPN the same next hop has another neighbour, or none.
  EXPECT_EQ(Explained(*source_, "192.0.2.1", 7),
            (Lines{"route fib vpn=7 destination=192.0.2.1: prefix=32 vpn=7 destination=192.0.2.1",
                   "  next hop nhp index=1: index=1", "    interface fwdif if_index=9: nothing [not there]",
                   "    interface fwdif if_index=8: if_index=8"}));
  EXPECT_EQ(Explained(*source_, "192.0.2.2", 7), Lines{});
}

TEST_F(ExplainTest, Ipv6) {
  Fill(R"(
ipv6_fib:
  - {prefix: 64, vpn: 0, destination: "2001:db8::", nhp_index: 1, next_hop: {ipv6_nhp: {index: 1}}}
  - {prefix: 0, vpn: 0, destination: "::"}
ipv6_nhp: [{index: 1, next_hop: "2001:db8:9::1"}]
nd: [{vpn: 0, next_hop: "2001:db8:9::1", fake: 1}]
session: [{index: 1, valid: 1, is_ipv6: 1, negative6: {source: "2001:db8::7"}}]
)");
  EXPECT_EQ(
      Explained(Saved(), "2001:db8::7"),
      (Lines{
          "route ipv6_fib vpn=0 destination=2001:db8::7: prefix=64 vpn=0 destination=2001:db8::",
          "  next hop ipv6_nhp index=1: index=1",
          "    router nd vpn=0 next_hop=2001:db8:9::1: vpn=0 next_hop=2001:db8:9::1 [not resolved; a fake]",
          "session session negative6.source=2001:db8::7: index=1"}));
  EXPECT_EQ(Explained(*source_, "ffff::"),
            (Lines{"route ipv6_fib vpn=0 destination=ffff::: prefix=0 vpn=0 destination=::"}));
}

// Each field that has the address is named; what is more than the limit is counted.
TEST_F(ExplainTest, SessionsAndServerMaps) {
  Fill(R"(
session:
  - {repeat: 5, index: {from: 1, step: 1}, valid: 1, new_source: 192.0.2.1, positive: {source: 10.0.0.1, destination: 192.0.2.1}}
  - {index: 9, new_destination: 192.0.2.1}
server_map:
  - {type: 1, source: 192.0.2.1, source_port: 0, destination: 0.0.0.0, destination_port: 0, vrf: 0, protocol: 0,
     aging_time: 0xffffffff, no_pat: {second: 192.0.2.1}}
  - {type: 2, source: 0.0.0.0, source_port: 0, destination: 0.0.0.0, destination_port: 0, vrf: 0, protocol: 0,
     aging_time: 0xffffffff, aspf: {first: 192.0.2.2}}
)");
  EXPECT_EQ(Explained(Saved(), "192.0.2.1", 0, 1),
            (Lines{"session session positive.destination=192.0.2.1 new_source=192.0.2.1: index=1",
                   "session session positive.source=192.0.2.1 positive.destination=192.0.2.1 "
                   "negative.source=192.0.2.1 "
                   "negative.destination=192.0.2.1 new_source=192.0.2.1 new_destination=192.0.2.1 "
                   "reply_new_source=192.0.2.1 reply_new_destination=192.0.2.1 "
                   "iptables.destination=192.0.2.1: nothing "
                   "[5 more (--limit)]",
                   "server map server_map source=192.0.2.1 no_pat.second=192.0.2.1: source=192.0.2.1 "
                   "destination=0.0.0.0 source_port=0 destination_port=0 vrf=0 protocol=0 type=1"}));
  EXPECT_EQ(Explained(*source_, "192.0.2.1", 0, 6)[5],
            "session session new_destination=192.0.2.1: index=9 [not in use]");
}

TEST_F(ExplainTest, TheEnginesOwnAddresses) {
  Fill(R"(
portip: [{list_id: 5, address: 192.0.2.1}, {list_id: 5, address: 192.0.2.2}]
portip_head: [{fwd_if_index: 7, list_id: 5}]
fwdif: [{if_index: 7, enable: 1}]
)");
  EXPECT_EQ(Explained(Saved(), "192.0.2.2"),
            (Lines{"own address portip address=192.0.2.2: list_id=5",
                   "  list of addresses portip_head list_id=5: fwd_if_index=7",
                   "    interface fwdif if_index=7: if_index=7"}));
}

}  // namespace
}  // namespace qdt::host
