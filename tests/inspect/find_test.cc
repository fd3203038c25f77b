#include "host/inspect/find.h"

#include "host/base/host_error.h"
#include "host/record/record_rows.h"
#include "tests/inspect/inspect_fixture.h"

namespace qdt::host {
namespace {

class FindTest : public InspectTest {
 protected:
  using Lines = std::vector<std::string>;

  // "TABLE KEY PATH VALUE" of each match.
  static Lines Found(const RecordSource &source, std::string_view text, size_t limit = 1000) {
    Lines lines;
    FindValue(source, SearchValue(text), [&](const Match &match) {
      if (lines.size() == limit) return false;
      std::string line;
      if (match.region != nullptr) {
        line = match.region->spec.name;
      } else {
        line = match.table->shortName;
        line += ' ';
        AppendNamedKey(*match.table, match.key, &line);
      }
      line += " " + std::string(match.path) + " ";
      if (match.ref.kind == FieldKind::kReference) {
        AppendReference(source.Resolve(match.field.targets, match.ref.Get(match.bytes)), &line);
      } else {
        AppendValue(&source, match.ref, match.bytes, &line);
      }
      lines.push_back(line);
      return true;
    });
    return lines;
  }
};

TEST_F(FindTest, KindsGoByTheForm) {
  const auto kind = [](std::string_view text) { return SearchValue(text).KindName(); };
  EXPECT_EQ(kind("192.0.2.1"), "ipv4");
  EXPECT_EQ(kind("192.0.2.0/24"), "ipv4");
  EXPECT_EQ(kind("2001:db8::"), "ipv6");
  EXPECT_EQ(kind("::/0"), "ipv6");
  EXPECT_EQ(kind("02:00:5e:30:00:01"), "mac");
  EXPECT_EQ(kind("2-0-5e-30-0-1"), "mac");
  EXPECT_EQ(kind("101"), "interface");
  EXPECT_EQ(kind("0x65"), "interface");
  EXPECT_EQ(kind("192.0.2.0/33"), "text");
  EXPECT_EQ(kind("4294967296"), "text");
  EXPECT_EQ(kind("*.example"), "text");
  EXPECT_THROW(SearchValue(""), HostError);
  EXPECT_THROW(SearchValue("a\\b"), HostError);
}

// In host and network order, in a key of several kinds, in key and record, in arrays and attached parts.
TEST_F(FindTest, Ipv4) {
  Fill(R"(
fib: [{prefix: 32, vpn: 0, destination: 192.0.2.1}]
arp: [{vpn: 7, next_hop: 192.0.2.1}, {vpn: 7, next_hop: 1.2.0.192}]
usf_macip:
  - {address: 192.0.2.1, key_type: 0}
  - {address: "c000:201::", key_type: 1}
server_map:
  - {type: 0, source: 192.0.2.1, source_port: 0, destination: 0.0.0.0, destination_port: 0, vrf: 0, protocol: 0,
     aging_time: 65535, nat: {address: 192.0.2.1}}
session:
  - {index: 3, valid: 1, positive: {source: 192.0.2.1}, iptables: {index: 3, destination: 192.0.2.1}}
  - {index: 4, valid: 1, is_ipv6: 1, positive6: {source: "102:c0::"}}
regions:
  IP_REASS_CTX_PTR: {packets: {63: {source: 192.0.2.1}}}
  PKT_TRACE_CTX_PTR: {source: 192.0.2.1}
)");
  const Lines all = {"fib prefix=32 vpn=0 destination=192.0.2.1 destination 192.0.2.1",
                     "arp vpn=7 next_hop=192.0.2.1 next_hop 192.0.2.1",
                     "usf_macip address=192.0.2.1 key_type=0 address 192.0.2.1",
                     "server_map source=192.0.2.1 destination=0.0.0.0 source_port=0 destination_port=0 vrf=0 "
                     "protocol=0 type=0 source 192.0.2.1",
                     "server_map source=192.0.2.1 destination=0.0.0.0 source_port=0 destination_port=0 vrf=0 "
                     "protocol=0 type=0 nat.address 192.0.2.1",
                     "session index=3 positive.source 192.0.2.1",
                     "session index=3 iptables.destination 192.0.2.1",
                     "PKT_TRACE_CTX_PTR source 192.0.2.1",
                     "IP_REASS_CTX_PTR packets[63].source 192.0.2.1"};
  EXPECT_EQ(Found(Saved(), "192.0.2.1"), all);
  EXPECT_EQ(Found(*source_, "192.0.2.0/24"), all);
  EXPECT_EQ(Found(Live(), "192.0.2.1"), all);
  EXPECT_EQ(Found(*source_, "192.0.2.1", 2), Lines(all.begin(), all.begin() + 2));
  EXPECT_EQ(Found(*source_, "192.0.2.2"), Lines{});
  EXPECT_EQ(Found(*source_, "192.0.2.0"), Lines{});
}

TEST_F(FindTest, Ipv6) {
  Fill(R"(
ipv6_fib: [{prefix: 32, vpn: 0, destination: "2001:db8::"}]
nd: [{vpn: 7, next_hop: "2001:db8::1"}]
usf_macip: [{address: "2001:db8::1", key_type: 1, ipv6_address: "2001:db8::1"}]
session: [{index: 3, valid: 1, is_ipv6: 1, negative6: {destination: "2001:db8::1"}}]
arp: [{vpn: 0, next_hop: 192.0.2.1}]
)");
  EXPECT_EQ(Found(Saved(), "2001:db8::1"),
            (Lines{"nd vpn=7 next_hop=2001:db8::1 next_hop 2001:db8::1",
                   "usf_macip address=2001:db8::1 key_type=1 address 2001:db8::1",
                   "usf_macip address=2001:db8::1 key_type=1 ipv6_address 2001:db8::1",
                   "session index=3 negative6.destination 2001:db8::1"}));
  EXPECT_EQ(Found(*source_, "2001:db8::/32").size(), 5u);
  EXPECT_EQ(Found(*source_, "2001:db8::/128"),
            Lines{"ipv6_fib prefix=32 vpn=0 destination=2001:db8:: destination 2001:db8::"});
  EXPECT_EQ(Found(*source_, "::ffff:192.0.2.1"), Lines{});
}

// All zeros stand for no address.
TEST_F(FindTest, NoAddress) {
  Fill(R"(
local_mng_user: [{address: 192.0.2.1, source_mac: 02:00:5e:30:00:01}]
)");
  EXPECT_EQ(Found(Saved(), "0.0.0.0/0"), (Lines{"local_mng_user address=192.0.2.1 address 192.0.2.1"}));
  // All regions are there, and empty.
  EXPECT_EQ(Found(*source_, "0.0.0.0").front(), "PKT_TRACE_CTX_PTR source 0.0.0.0");
  EXPECT_EQ(Found(*source_, "00:00:00:00:00:00").front(),
            "local_mng_user address=192.0.2.1 destination_mac 00:00:00:00:00:00");
}

TEST_F(FindTest, Mac) {
  Fill(R"(
ssw_macinfo: [{bridge_id: 1, vlan_id: 10, mac: 02:00:5e:30:00:01}]
usf_macip: [{address: 02:00:5e:30:00:01, key_type: 7}]
acl_group: [{group_type: 2, group_id: 1}, {group_type: 3, group_id: 1}]
acl_rule:
  - {group_type: 2, group_id: 1, priority: 0, l2: {key: {smac: 02:00:5e:30:00:01}}}
  - {group_type: 3, group_id: 1, priority: 0, l2_ipv4: {key: {l2: {smac: 02:00:5e:30:00:01}}}}
  - {group_type: 3, group_id: 1, priority: 1, ipv6: {key: {is_ipv6: 1, source: "0:0:2:0:100:305e:0:0"}}}
regions: {PKT_TRACE_CTX_PTR: {station_count: 1, stations: {9: 02:00:5e:30:00:01}}}
)");
  EXPECT_EQ(Found(Saved(), "02:00:5E:30:00:01"),
            (Lines{"ssw_macinfo bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01 mac 02:00:5e:30:00:01",
                   "acl_rule group_type=2 group_id=1 priority=0 l2.key.smac 02:00:5e:30:00:01",
                   "acl_rule group_type=3 group_id=1 priority=0 l2_ipv4.key.l2.smac 02:00:5e:30:00:01",
                   "usf_macip address=02:00:5e:30:00:01 key_type=7 address 02:00:5e:30:00:01",
                   "PKT_TRACE_CTX_PTR stations[9] 02:00:5e:30:00:01"}));
}

TEST_F(FindTest, Interfaces) {
  Fill(R"(
ctrlif_map_fwdif: [{ctrl_if_index: 7, fwd_if_index: 9}, {ctrl_if_index: 1007, fwd_if_index: 7}]
fwdif: [{if_index: 7, ctrl_if_index: 1007, father_if_index: 7, vlan_id: 7}, {if_index: 8}]
nhp: [{index: 7, if_index: 8, fwdif_count: 2, fwdifs: [{if_index: 8}, {if_index: 7}]}]
session: [{index: 7, valid: 1, egress: 7, https: {index: 7, fwd_if_index: 7}}]
dhcp_snooping_bind: [{mac: 02:00:5e:30:00:01, vlan_id: 7, ipv4_address: 0.0.0.7, ipv6_address: "::", fwd_if_index: -1}]
)");
  EXPECT_EQ(Found(Saved(), "7"),
            (Lines{"nhp index=7 fwdifs[1] fwdif/7", "ctrlif_map_fwdif ctrl_if_index=7 ctrl_if_index 7",
                   "ctrlif_map_fwdif ctrl_if_index=1007 fwd_if_index 7", "fwdif if_index=7 if_index 7",
                   "fwdif if_index=7 father_if_index 7", "session index=7 egress 7",
                   "session index=7 https.fwd_if_index 7"}));
  EXPECT_EQ(Found(*source_, "4294967295"),
            (Lines{"dhcp_snooping_bind mac=02:00:5e:30:00:01 vlan_id=7 ipv4_address=0.0.0.7 ipv6_address=:: "
                   "fwd_if_index -1"}));
}

TEST_F(FindTest, Texts) {
  Fill(R"(
dns_domain: [{domain: portal.example.com}, {domain: "a\x01b"}, {domain: star}]
mod_info: [{module_id: 1, name: portal}, {module_id: 2}]
)");
  EXPECT_EQ(Found(Saved(), "portal"), Lines{"mod_info module_id=1 name portal"});
  EXPECT_EQ(Found(*source_, "portal*"),
            (Lines{"mod_info module_id=1 name portal",
                   "dns_domain domain=portal.example.com domain portal.example.com"}));
  EXPECT_EQ(Found(*source_, "Portal"), Lines{});
  EXPECT_EQ(Found(*source_, "a\\x01b"), Lines{"dns_domain domain=a\\x01b domain a\\x01b"});
  EXPECT_EQ(Found(*source_, "*x01*"), Lines{"dns_domain domain=a\\x01b domain a\\x01b"});
}

// What the record says beside its key is found as well, once.
TEST_F(FindTest, TwinsThatDiffer) {
  Fill("ssw_macinfo: [{bridge_id: 1, vlan_id: 10, mac: 02:00:5e:30:00:01}]");
  Change("ssw_macinfo", 0, [](uint8_t *record) { Table("ssw_macinfo").At("out_if_index").Set(record, 3); });
  EXPECT_EQ(Found(Saved(), "02:00:5e:30:00:01").size(), 1u);
  Change("ssw_macinfo", 0, [](uint8_t *record) { record[6 + 5] = 2; });
  EXPECT_EQ(Found(Saved(), "02:00:5e:30:00:02"),
            (Lines{"ssw_macinfo bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01 record.mac 02:00:5e:30:00:02"}));
}

// A part that the pointer does not lead to is not the record's.
TEST_F(FindTest, PartsThatAreNotThere) {
  Fill("session: [{index: 3, valid: 1, positive: {source: 192.0.2.1}, negative: {source: 192.0.2.1}}]");
  Change("session", 0, [](uint8_t *record) { std::memset(record + 112, 0, 8); });
  EXPECT_EQ(Found(Saved(), "192.0.2.1"), Lines{"session index=3 negative.source 192.0.2.1"});
  Change("session", 0, [](uint8_t *record) { record[120] ^= 8; });
  EXPECT_EQ(Found(Saved(), "192.0.2.1"), Lines{});
}

}  // namespace
}  // namespace qdt::host
