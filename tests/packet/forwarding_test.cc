#include "host/packet/forwarding.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "host/packet/pipeline.h"
#include "platform/engine.h"
#include "qdt/stats.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

using std::chrono_literals::operator""ms;
using End = PacketFate::End;
using Direction = CapturePoint::Direction;

// A router with a bridge (10) of two ports (11, 12), two routed interfaces (21, 22), one that is down (23),
// and one without a MAC address (24).
constexpr char kSite[] = R"(
fwdif:
  - {if_index: 10, enable: 1, source_mac: "02:00:5e:00:01:10"}
  - {if_index: 11, enable: 1, source_mac: "02:00:5e:00:01:11", bridge_id: 10, pvid: 5}
  - {if_index: 12, enable: 1, source_mac: "02:00:5e:00:01:12", bridge_id: 10, pvid: 5}
  - {if_index: 21, enable: 1, source_mac: "02:00:5e:00:01:21"}
  - {if_index: 22, enable: 1, source_mac: "02:00:5e:00:01:22", vpn: 7, ipv6_vpn: 7}
  - {if_index: 23, enable: 1, down: 1, source_mac: "02:00:5e:00:01:23"}
  - {if_index: 24, enable: 1}
ssw_macinfo:
  - {bridge_id: 10, vlan_id: 5, mac: "02:00:5e:00:02:01", out_if_index: 12}
  - {bridge_id: 10, vlan_id: 0, mac: "02:00:5e:00:02:02", out_if_index: 12}
  - {bridge_id: 10, vlan_id: 5, mac: "02:00:5e:00:02:03", drop: 1, out_if_index: 12}
portip_head:
  - {fwd_if_index: 10, list_id: 1}
  - {fwd_if_index: 21, list_id: 2}
portip:
  - {list_id: 1, address: 192.0.2.1, mask: 255.255.255.0}
  - {list_id: 2, address: 198.51.100.1, mask: 255.255.255.0}
ipv6_portip_head: [{fwd_if_index: 21, list_id: 3}]
ipv6_portip: [{list_id: 3, address: "2001:db8::1", prefix: 64}]
fib:
  - {prefix: 24, vpn: 0, destination: 198.51.100.0, direct: 1, nhp_index: 1}
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, direct: 1, nhp_index: 6}
  - {prefix: 24, vpn: 0, destination: 203.0.113.0, nhp_index: 2}
  - {prefix: 32, vpn: 0, destination: 203.0.113.66, nhp_index: 3}
  - {prefix: 32, vpn: 0, destination: 203.0.113.67, nhp_index: 4}
  - {prefix: 32, vpn: 0, destination: 203.0.113.68, nhp_index: 0}
  - {prefix: 32, vpn: 0, destination: 203.0.113.69, nhp_index: 99}
  - {prefix: 32, vpn: 0, destination: 203.0.113.70, multi_next_hop: 1, nhp_index: 1}
  - {prefix: 32, vpn: 0, destination: 203.0.113.71, multi_next_hop: 1, nhp_index: 2}
  - {prefix: 32, vpn: 0, destination: 203.0.113.72, direct: 1, nhp_index: 5}
  - {prefix: 24, vpn: 7, destination: 203.0.113.0, nhp_index: 7}
nhp:
  - {index: 1, if_index: 21}
  - {index: 2, if_index: 22, next_hop: 198.51.100.2}
  - {index: 3, if_index: 22, next_hop: 198.51.100.3, arp_miss: 1}
  - {index: 4, if_index: 23, next_hop: 198.51.100.4}
  - {index: 5, if_index: 24}
  - {index: 6, if_index: 10}
  - {index: 7, if_index: 10, next_hop: 192.0.2.7}
nhp_group:
  - {index: 1, primary_count: 2, primary_nhp_indexes: [2, 2]}
  - {index: 2}
arp:
  - {vpn: 0, next_hop: 198.51.100.7, valid: 1, fwd_if_index: 21}
  - {vpn: 0, next_hop: 198.51.100.8, valid: 0, fwd_if_index: 21}
  - {vpn: 0, next_hop: 192.0.2.11, valid: 1, fwd_if_index: 11}
ipv6_fib: [{prefix: 64, vpn: 0, destination: "2001:db8::", direct: 1, nhp_index: 1}]
ipv6_nhp: [{index: 1, if_index: 21}]
nd: [{vpn: 0, next_hop: "2001:db8::7", valid: 1, fwd_if_index: 21}]
session:
  # 192.0.2.11 goes out as 198.51.100.1.
  - {index: 17, valid: 1, aging_time: 65535, ingress: 10, egress: 21, nat_source: 1, nat_source_port: 1,
     new_source: 198.51.100.1, new_destination: 198.51.100.7, new_source_port: 20000, new_destination_port: 443,
     reply_new_source: 198.51.100.7, reply_new_destination: 192.0.2.11, reply_new_source_port: 443,
     reply_new_destination_port: 50000,
     positive: {source: 192.0.2.11, source_port: 50000, destination: 198.51.100.7, destination_port: 443, protocol: 6},
     negative: {source: 198.51.100.7, source_port: 443, destination: 198.51.100.1, destination_port: 20000,
                protocol: 6}}
  - {index: 18, valid: 1, aging_time: 65535, ingress: 10, egress: 21,
     positive: {source: 192.0.2.11, source_port: 7, destination: 198.51.100.7, destination_port: 2048, protocol: 1},
     negative: {source: 198.51.100.7, source_port: 7, destination: 192.0.2.11, destination_port: 0, protocol: 1}}
)";

PacketAddress Address(const char *text) {
  PacketAddress address{};
  EXPECT_EQ(inet_pton(std::strchr(text, ':') != nullptr ? AF_INET6 : AF_INET, text, address.data()), 1)
      << text;
  return address;
}

PacketMac Mac(uint8_t group, uint8_t number) { return {0x02, 0x00, 0x5e, 0x00, group, number}; }

ParsedPacket Ip(const char *source, const char *destination, uint8_t protocol) {
  ParsedPacket parsed;
  PacketHeaders &headers = parsed.headers;
  headers.sourceMac = Mac(9, 9);
  headers.destinationMac = Mac(1, 0x21);
  headers.etherType = std::strchr(source, ':') != nullptr ? 0x86dd : 0x0800;
  headers.source = Address(source);
  headers.destination = Address(destination);
  headers.protocol = protocol;
  return parsed;
}

ParsedPacket Tcp(const char *source, uint16_t sourcePort, const char *destination, uint16_t destinationPort) {
  ParsedPacket parsed = Ip(source, destination, 6);
  parsed.headers.sourcePort = sourcePort;
  parsed.headers.destinationPort = destinationPort;
  return parsed;
}

ParsedPacket To(const char *destination) { return Tcp("192.0.2.99", 40000, destination, 80); }

class ForwardingTest : public testing::Test {
 protected:
  ForwardingTest() { forwarding_.Refresh(std::chrono::steady_clock::now()); }

  Packet At(uint32_t fwdIf, const ParsedPacket &parsed, Direction direction = Direction::kIn) const {
    Packet packet = forwarding_.Decide(parsed, {fwdIf, direction}, 100);
    if (packet.lookup != nullptr) packet.lookup->LookUp(&packet);
    return packet;
  }

  // "sent to 22", "control plane, cause 1", "discarded 16 at 4"
  static std::string Fate(const Packet &packet) {
    switch (packet.fate.end) {
      case End::kForwarded:
        return "sent to " + std::to_string(packet.destinationFwdIf);
      case End::kToControlPlane:
        return "control plane, cause " + std::to_string(packet.causeId);
      case End::kDiscarded:
        break;
    }
    return "discarded " + std::to_string(packet.fate.discardReason) + " at " +
           std::to_string(static_cast<int>(packet.fate.stage));
  }
  std::string FateAt(uint32_t fwdIf, const ParsedPacket &parsed) const { return Fate(At(fwdIf, parsed)); }

  TempDir directory_;
  ScenarioFiller filler_{"test", Scenario::FromText("test", kSite, Layout::BuiltIn())};
  Engine engine_{{directory_.File("arena"), directory_.File("socket"), 4}, Layout::BuiltIn(), &filler_};
  Forwarding forwarding_{Layout::BuiltIn(), 4};
};

TEST_F(ForwardingTest, FollowsRoutes) {
  EXPECT_EQ(FateAt(21, To("198.51.100.7")), "sent to 21");
  EXPECT_EQ(FateAt(21, To("203.0.113.1")), "sent to 22");
  EXPECT_EQ(FateAt(21, To("203.0.113.70")), "sent to 22");  // by the group
  EXPECT_EQ(FateAt(21, To("203.0.113.72")), "sent to 24");  // without neighbours
  EXPECT_EQ(FateAt(22, To("203.0.113.1")), "sent to 10");   // in VPN 7
  EXPECT_EQ(FateAt(21, Ip("2001:db8::9", "2001:db8::7", 6)), "sent to 21");
}

TEST_F(ForwardingTest, SaysWhyAPacketGoesNowhere) {
  EXPECT_EQ(FateAt(99, To("198.51.100.7")), "discarded 70 at 0");   // no such interface
  EXPECT_EQ(FateAt(23, To("198.51.100.7")), "discarded 73 at 0");   // it is down
  EXPECT_EQ(FateAt(21, To("100.64.0.1")), "discarded 16 at 4");     // no route
  EXPECT_EQ(FateAt(22, To("198.51.100.7")), "discarded 16 at 4");   // not in this VPN
  EXPECT_EQ(FateAt(21, To("198.51.100.9")), "discarded 1 at 4");    // no neighbour
  EXPECT_EQ(FateAt(21, To("198.51.100.8")), "discarded 1 at 4");    // not resolved
  EXPECT_EQ(FateAt(21, To("203.0.113.66")), "discarded 1 at 4");    // nor that of the next hop
  EXPECT_EQ(FateAt(21, To("203.0.113.67")), "discarded 195 at 6");  // out by an interface that is down
  EXPECT_EQ(FateAt(21, To("203.0.113.68")), "discarded 108 at 4");  // a blackhole
  EXPECT_EQ(FateAt(21, To("203.0.113.69")), "discarded 226 at 4");  // no such next hop
  EXPECT_EQ(FateAt(21, To("203.0.113.71")), "discarded 227 at 4");  // nobody in the group
  EXPECT_EQ(FateAt(21, Ip("2001:db8::9", "2001:db8:1::7", 6)), "discarded 17 at 4");
  EXPECT_EQ(FateAt(21, Ip("2001:db8::9", "2001:db8::8", 6)), "discarded 6 at 4");
  ParsedPacket parsed = To("203.0.113.1");
  parsed.headers.hopLimit = 1;
  EXPECT_EQ(FateAt(21, parsed), "discarded 67 at 5");
  parsed.headers.etherType = 0x9999;
  EXPECT_EQ(FateAt(21, parsed), "discarded 224 at 4");
}

TEST_F(ForwardingTest, FaultsAreReasons) {
  const struct {
    ParseFault fault;
    const char *fate;
  } cases[] = {
      {ParseFault::kLink, "discarded 134 at 1"},    {ParseFault::kArp, "discarded 4 at 1"},
      {ParseFault::kIpv4, "discarded 74 at 1"},     {ParseFault::kIpv6, "discarded 245 at 1"},
      {ParseFault::kVersion, "discarded 238 at 1"}, {ParseFault::kLayer4, "discarded 134 at 1"},
      {ParseFault::kPppoe, "discarded 156 at 1"},   {ParseFault::kCapwap, "sent to 22"},
  };
  for (const auto &expected : cases) {
    ParsedPacket parsed = To("203.0.113.1");
    parsed.fault = expected.fault;
    EXPECT_EQ(FateAt(21, parsed), expected.fate);
  }
  ParsedPacket tunnel = To("198.51.100.1");
  tunnel.fault = ParseFault::kCapwap;
  EXPECT_EQ(FateAt(21, tunnel), "discarded 93 at 1");
}

TEST_F(ForwardingTest, WhatEndsHereGoesToTheControlPlane) {
  EXPECT_EQ(FateAt(21, To("198.51.100.1")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, To("192.0.2.1")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, To("198.51.100.255")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, To("127.0.0.1")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, To("224.0.0.5")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, To("255.255.255.255")), "control plane, cause 0");
  EXPECT_EQ(FateAt(21, Ip("2001:db8::9", "2001:db8::1", 6)), "control plane, cause 0");
  ParsedPacket parsed = Ip("2001:db8::9", "ff02::1:ff00:1", 58);
  parsed.headers.icmpType = 135;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 2");
  parsed = Ip("192.0.2.99", "198.51.100.1", 17);
  parsed.headers.destinationPort = 5246;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 12");
  parsed.headers.etherType = 0x0806;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 1");
  parsed.headers.etherType = 0x888e;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 8");
  parsed.headers.etherType = 0x8863;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 15");
  parsed.headers.etherType = 0x0026;
  parsed.headers.destinationMac = {0x01, 0x80, 0xc2};
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 0");
}

TEST_F(ForwardingTest, PppoeLeadsToThePacketInside) {
  ParsedPacket parsed;
  parsed.headers.etherType = 0x8864;
  EXPECT_EQ(FateAt(21, parsed), "control plane, cause 15");
  parsed.inner = To("203.0.113.1").headers;
  EXPECT_EQ(FateAt(21, parsed), "sent to 22");
}

TEST_F(ForwardingTest, ABridgeAsksItsMacTable) {
  ParsedPacket parsed = To("192.0.2.12");
  const auto fate = [&](PacketMac mac, uint16_t vlan) {
    parsed.headers.destinationMac = mac;
    parsed.headers.vlan = vlan;
    return FateAt(11, parsed);
  };
  EXPECT_EQ(fate(Mac(2, 1), 0), "sent to 12");  // in the port's own VLAN
  EXPECT_EQ(fate(Mac(2, 1), 5), "sent to 12");
  EXPECT_EQ(fate(Mac(2, 1), 6), "sent to 0");  // to all ports
  EXPECT_EQ(fate(Mac(2, 2), 6), "sent to 12");
  EXPECT_EQ(fate(Mac(2, 3), 0), "discarded 107 at 4");
  parsed = To("198.51.100.7");
  EXPECT_EQ(fate(Mac(1, 0x10), 0), "sent to 21");  // the bridge's own: routed
}

TEST_F(ForwardingTest, SessionsTranslate) {
  const Packet out = At(10, Tcp("192.0.2.11", 50000, "198.51.100.7", 443));
  EXPECT_EQ(Fate(out), "sent to 21");
  EXPECT_EQ(out.session, 17u);
  // The answer is for the router's own address, and goes to the host behind it.
  const Packet back = At(21, Tcp("198.51.100.7", 443, "198.51.100.1", 20000));
  EXPECT_EQ(Fate(back), "sent to 10");
  EXPECT_EQ(back.session, 17u);
  EXPECT_FALSE(At(21, Tcp("198.51.100.7", 443, "198.51.100.1", 20001)).session);
  ParsedPacket echo = Ip("192.0.2.11", "198.51.100.7", 1);
  echo.headers.icmpType = 8;
  echo.headers.icmpId = 7;
  EXPECT_EQ(At(10, echo).session, 18u);
  echo = Ip("198.51.100.7", "192.0.2.11", 1);
  echo.headers.icmpId = 7;
  EXPECT_EQ(At(21, echo).session, 18u);
}

TEST_F(ForwardingTest, SessionsComeAndGo) {
  const TableLayout &table = *Layout::BuiltIn().FindTable("session");
  TableWriter writer(&engine_.arena());
  uint32_t key = 17;
  void *entry = nullptr;
  ASSERT_EQ(TbmTblSearch(0, table.spec.id, &key, &entry), 0);
  std::vector<uint8_t> record(table.spec.StoredSize());
  std::memcpy(record.data(), entry, record.size());
  const ParsedPacket packet = Tcp("192.0.2.11", 50000, "198.51.100.7", 443);
  ASSERT_EQ(writer.Remove(table.spec.id, &key), 0);
  EXPECT_FALSE(At(10, packet).session);
  key = 170;
  table.At("index").Set(record.data(), key);
  ASSERT_EQ(writer.Insert(table.spec.id, &key, record.data(), &entry), 0);
  forwarding_.Refresh(std::chrono::steady_clock::now());
  EXPECT_EQ(At(10, packet).session, 170u);
  // An entry that becomes another flow's.
  table.At("positive.source_port").Set(record.data(), 50001);
  ASSERT_EQ(writer.Update(table.spec.id, entry, record.data()), 0);
  EXPECT_FALSE(At(10, packet).session);
  forwarding_.Refresh(std::chrono::steady_clock::now());
  EXPECT_EQ(At(10, Tcp("192.0.2.11", 50001, "198.51.100.7", 443)).session, 170u);
  EXPECT_FALSE(At(10, packet).session);
  table.At("valid").Set(record.data(), 0);
  ASSERT_EQ(writer.Update(table.spec.id, entry, record.data()), 0);
  EXPECT_FALSE(At(10, Tcp("192.0.2.11", 50001, "198.51.100.7", 443)).session);
}

TEST_F(ForwardingTest, WhatLeavesIsTheMachinesOwnOrSeenBefore) {
  Packet packet = At(21, Tcp("198.51.100.1", 22, "198.51.100.7", 50000), Direction::kOut);
  EXPECT_EQ(Fate(packet), "sent to 21");
  EXPECT_TRUE(packet.fromControlPlane && !packet.seenBefore);
  packet = At(21, Tcp("192.0.2.12", 22, "198.51.100.7", 50000), Direction::kOut);
  EXPECT_EQ(Fate(packet), "sent to 21");
  EXPECT_TRUE(!packet.fromControlPlane && packet.seenBefore);
  // With the router's own address, but of a host behind it.
  packet = At(21, Tcp("198.51.100.1", 20000, "198.51.100.7", 443), Direction::kOut);
  EXPECT_TRUE(!packet.fromControlPlane && packet.seenBefore);
  EXPECT_EQ(packet.session, 17u);
  EXPECT_EQ(packet.sourceFwdIf, 10u);
  // Without an address yet.
  EXPECT_TRUE(At(21, Ip("0.0.0.0", "255.255.255.255", 17), Direction::kOut).fromControlPlane);
  EXPECT_TRUE(At(21, Ip("::", "ff02::1:ff00:1", 58), Direction::kOut).fromControlPlane);
  EXPECT_TRUE(At(11, Ip("0.0.0.0", "255.255.255.255", 17), Direction::kOut).seenBefore);
  ParsedPacket arp;
  arp.headers.etherType = 0x0806;
  arp.headers.sourceMac = Mac(2, 1);
  EXPECT_TRUE(At(21, arp, Direction::kOut).fromControlPlane);
  EXPECT_TRUE(At(11, arp, Direction::kOut).seenBefore);  // of a station, by the bridge
  arp.headers.sourceMac = Mac(1, 0x10);
  EXPECT_TRUE(At(11, arp, Direction::kOut).fromControlPlane);
}

TEST_F(ForwardingTest, AddressesTellTheInterface) {
  ParsedPacket parsed = To("203.0.113.1");
  Packet packet = At(0, parsed, Direction::kUnknown);
  EXPECT_EQ(packet.sourceFwdIf, 21u);  // who has the receiver's MAC address
  parsed.headers.destinationMac = Mac(9, 8);
  packet = At(0, parsed, Direction::kUnknown);
  EXPECT_EQ(packet.sourceFwdIf, 10u);  // whose network has the sender
  parsed.headers.source = Address("100.64.0.1");
  EXPECT_EQ(Fate(At(0, parsed, Direction::kUnknown)), "discarded 70 at 0");
  parsed.headers.sourceMac = Mac(1, 0x22);
  packet = At(0, parsed, Direction::kUnknown);
  EXPECT_EQ(Fate(packet), "sent to 22");
  EXPECT_TRUE(packet.seenBefore);
  parsed.outgoing = true;
  EXPECT_EQ(Fate(At(21, parsed, Direction::kUnknown)), "sent to 21");
}

TEST_F(ForwardingTest, BothDirectionsStayOnOneCore) {
  const Packet out = At(21, Tcp("192.0.2.12", 22, "198.51.100.7", 50000));
  const Packet back = At(21, Tcp("198.51.100.7", 50000, "192.0.2.12", 22));
  EXPECT_EQ(out.core, back.core);
  EXPECT_LT(out.core, 4u);
}

// A filler that counts some things itself.
class CountingFiller : public ScenarioFiller {
 public:
  using ScenarioFiller::ScenarioFiller;
  bool CountsInterfaces() const override { return true; }
  bool CountsStatistic(uint32_t number) const override { return number == 462; }
};

TEST(PipelineTest, CountsOnceWhatIsCountedElsewhereOrSeenAgain) {
  const TempDir directory;
  CountingFiller filler{"test", Scenario::FromText("test", kSite, Layout::BuiltIn())};
  Engine engine{{directory.File("arena"), directory.File("socket"), 1}, Layout::BuiltIn(), &filler};
  Pipeline pipeline(&engine, {});
  Forwarding forwarding(Layout::BuiltIn(), 1);
  forwarding.Refresh(std::chrono::steady_clock::now());
  {
    Pipeline::Batch batch(&pipeline);
    const ParsedPacket parsed = To("198.51.100.7");
    batch.Process(forwarding.Decide(parsed, {21, Direction::kIn}, 100));
    batch.Process(forwarding.Decide(parsed, {21, Direction::kOut}, 100));
  }
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[493], 1u);  // from the driver
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[480], 1u);  // TCP
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[541], 1u);  // sent, IPv4
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[462], 0u);  // the filler's
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[482], 0u);  // no access list was asked
  const TableLayout &table = *Layout::BuiltIn().FindTable("fwdif");
  const uint32_t index = 21;
  void *entry = nullptr;
  ASSERT_EQ(TbmTblSearch(0, table.spec.id, &index, &entry), 0);
  EXPECT_EQ(table.At("counters[0].in_packets").Get(entry), 0u);
}

}  // namespace
}  // namespace qdt::host
