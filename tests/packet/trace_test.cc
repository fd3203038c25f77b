#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host/layout/layout.h"
#include "host/packet/packet_trace.h"
#include "host/packet/trace_match.h"
#include "host/packet/trace_print.h"

namespace qdt::host {
namespace {

using std::chrono_literals::operator""s;
using End = PacketFate::End;

// TCP from 192.0.2.11 port 50000 to 198.51.100.7 port 443, forwarded from interface 11 to 12.
Packet Tcp() {
  Packet packet;
  PacketHeaders &headers = packet.headers;
  headers.sourceMac = {0x02, 0x00, 0x5e, 0x90, 0x00, 0x01};
  headers.destinationMac = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  headers.etherType = 0x0800;
  headers.vlan = 10;
  headers.source = {192, 0, 2, 11};
  headers.destination = {198, 51, 100, 7};
  headers.protocol = 6;
  headers.sourcePort = 50000;
  headers.destinationPort = 443;
  headers.tcpFlags = 0x18;
  packet.length = 1460;
  packet.sourceFwdIf = 11;
  packet.destinationFwdIf = 12;
  packet.core = 2;
  return packet;
}

Packet With(const std::function<void(Packet &)> &change) {
  Packet packet = Tcp();
  change(packet);
  return packet;
}

Packet Udp() {
  return With([](Packet &p) { p.headers.protocol = 17; });
}

Packet Tcp6() {
  return With([](Packet &p) {
    p.headers.etherType = 0x86dd;
    p.headers.source = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0x0b};
    p.headers.destination = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0x99, 0, 0, 0, 0, 0, 0, 0, 0x07};
  });
}

Packet Arp() {
  return With([](Packet &p) { p.headers = {.etherType = 0x0806, .vlan = 10}; });
}

Packet Icmp(uint8_t type) {
  return With([type](Packet &p) {
    p.headers.protocol = 1;
    p.headers.icmpType = type;
  });
}

Packet Fragment(uint16_t offset, bool more) {
  return With([&](Packet &p) {
    p.headers.fragmentOffset = offset;
    p.headers.moreFragments = more;
  });
}

Packet Dropped(uint16_t reason) {
  return With([reason](Packet &p) { p.fate = {End::kDiscarded, PathStage::kLookup, reason}; });
}

Packet OfKind(PacketKind kind) {
  return With([kind](Packet &p) { p.kind = kind; });
}

Packet Channel(uint16_t port) {
  Packet packet = Udp();
  packet.headers.sourcePort = packet.headers.destinationPort = port;
  return packet;
}

struct Condition {
  const char *name;
  uint8_t bit;
  void (*set)(TraceBlock &block);
  std::vector<Packet> matching;
  std::vector<Packet> others;
};

void PrintTo(const Condition &condition, std::ostream *out) { *out << condition.name; }

class ConditionTest : public testing::TestWithParam<Condition> {};

TEST_P(ConditionTest, MatchesItsPacketsAlone) {
  TraceBlock block{};
  GetParam().set(block);
  // A value whose bit is not set is no condition.
  for (const Packet &packet : GetParam().others) EXPECT_TRUE(MatchesTrace(block, packet));
  block.mask = uint64_t{1} << GetParam().bit;
  for (const Packet &packet : GetParam().matching)
    EXPECT_TRUE(MatchesTrace(block, packet)) << DescribePacket(packet);
  for (const Packet &packet : GetParam().others)
    EXPECT_FALSE(MatchesTrace(block, packet)) << DescribePacket(packet);
  block.flags |= kTraceNot;
  for (const Packet &packet : GetParam().matching) EXPECT_FALSE(MatchesTrace(block, packet));
  for (const Packet &packet : GetParam().others) EXPECT_TRUE(MatchesTrace(block, packet));
}

const Condition kConditions[] = {
    {"length range",
     1,
     [](TraceBlock &b) { b.minLength = 100, b.maxLength = 200; },
     {With([](Packet &p) { p.length = 100; }), With([](Packet &p) { p.length = 200; })},
     {With([](Packet &p) { p.length = 99; }), With([](Packet &p) { p.length = 201; })}},
    {"shortest length",
     1,
     [](TraceBlock &b) { b.minLength = 100; },
     {With([](Packet &p) { p.length = 100; }), With([](Packet &p) { p.length = 65535; })},
     {With([](Packet &p) { p.length = 99; })}},
    {"source interface", 2, [](TraceBlock &b) { b.sourceFwdIf = 11; }, {Tcp()}, {With([](Packet &p) {
       p.sourceFwdIf = 12;
     })}},
    {"destination interface as the command writes it",
     3,
     [](TraceBlock &b) { b.sourceFwdIf = 12; },
     {Tcp()},
     {With([](Packet &p) { p.destinationFwdIf = 11; })}},
    {"destination interface",
     3,
     [](TraceBlock &b) { b.sourceFwdIf = 11, b.destinationFwdIf = 12; },
     {Tcp()},
     {With([](Packet &p) { p.destinationFwdIf = 11; })}},
    {"from the control plane",
     4,
     [](TraceBlock &b) { b.flags = 4; },
     {With([](Packet &p) { p.fromControlPlane = true; })},
     {Tcp()}},
    {"not from the control plane", 4, [](TraceBlock &) {}, {Tcp()}, {With([](Packet &p) {
       p.fromControlPlane = true;
     })}},
    {"discard type", 5, [](TraceBlock &b) { b.discardType = 16; }, {Dropped(16)}, {Dropped(1), Tcp()}},
    {"any discard type", 5, [](TraceBlock &b) { b.discardType = 274; }, {Dropped(16), Dropped(1)}, {Tcp()}},
    {"VLAN", 6, [](TraceBlock &b) { b.vlan = 10; }, {Tcp()}, {With([](Packet &p) { p.headers.vlan = 11; })}},
    {"source MAC",
     7,
     [](TraceBlock &b) { std::memcpy(b.sourceMac, "\x02\x00\x5e\x90\x00\x01", 6); },
     {Tcp()},
     {With([](Packet &p) { p.headers.sourceMac[5] = 2; })}},
    {"destination MAC",
     8,
     [](TraceBlock &b) { std::memcpy(b.destinationMac, "\x02\x00\x5e\x10\x00\x01", 6); },
     {Tcp()},
     {With([](Packet &p) { p.headers.destinationMac[0] = 6; })}},
    {"Ethernet type", 9, [](TraceBlock &b) { b.etherType = 0x0806; }, {Arp()}, {Tcp(), Tcp6()}},
    {"EAP key",
     10,
     [](TraceBlock &b) { b.flags = 8; },
     {OfKind(PacketKind::kEapKey)},
     {Tcp(), OfKind(PacketKind::kPppoeKeepalive)}},
    {"source IPv4",
     11,
     [](TraceBlock &b) { std::memcpy(b.sourceIpv4, "\xc0\x00\x02\x0b", 4); },
     {Tcp(), Udp()},
     {With([](Packet &p) { p.headers.source[3] = 12; }), Tcp6(), Arp()}},
    {"destination IPv4",
     12,
     [](TraceBlock &b) { std::memcpy(b.destinationIpv4, "\xc6\x33\x64\x07", 4); },
     {Tcp()},
     {With([](Packet &p) { p.headers.destination[0] = 192; }), Tcp6()}},
    {"IP protocol", 13, [](TraceBlock &b) { b.protocol = 17; }, {Udp()}, {Tcp(), Icmp(8)}},
    {"IP protocol 0",
     13,
     [](TraceBlock &) {},
     {With([](Packet &p) { p.headers.protocol = 0; })},
     {Arp(), Tcp()}},
    {"CAPWAP keepalive",
     14,
     [](TraceBlock &b) { b.flags = 16; },
     {OfKind(PacketKind::kCapwapKeepalive)},
     {OfKind(PacketKind::kCapwapFragment), Channel(5246), Tcp()}},
    {"CAPWAP fragment",
     14,
     [](TraceBlock &b) { b.flags = 64; },
     {OfKind(PacketKind::kCapwapFragment)},
     {OfKind(PacketKind::kCapwapKeepalive), Channel(5247)}},
    {"CAPWAP control channel",
     14,
     [](TraceBlock &b) { b.sourcePort = b.destinationPort = 5246; },
     {Channel(5246)},
     {Channel(5247), Tcp()}},
    {"CAPWAP data channel",
     14,
     [](TraceBlock &b) { b.sourcePort = b.destinationPort = 5247; },
     {Channel(5247)},
     {Channel(5246), Tcp()}},
    {"source port",
     17,
     [](TraceBlock &b) { b.sourcePort = 50000; },
     {Tcp(), Udp(), Tcp6()},
     {With([](Packet &p) { p.headers.sourcePort = 50001; }), Arp(), Icmp(8)}},
    {"destination port",
     18,
     [](TraceBlock &b) { b.destinationPort = 443; },
     {Tcp(), Fragment(0, true)},
     {With([](Packet &p) { p.headers.destinationPort = 80; }), Fragment(1480, true)}},
    {"IP fragment",
     19,
     [](TraceBlock &) {},
     {Fragment(0, true), Fragment(8, true), Fragment(8, false)},
     {Tcp(), Arp()}},
    {"802.11 fragment", 20, [](TraceBlock &) {}, {}, {Tcp(), Fragment(0, true)}},
    {"not fragmented",
     21,
     [](TraceBlock &) {},
     {Tcp()},
     {Fragment(0, true), Fragment(8, false), Tcp6(), Arp()}},
    {"first fragment",
     22,
     [](TraceBlock &) {},
     {Fragment(0, true)},
     {Tcp(), Fragment(8, true), Fragment(8, false)}},
    {"not the first fragment",
     23,
     [](TraceBlock &) {},
     {Fragment(8, true), Fragment(8, false)},
     {Tcp(), Fragment(0, true)}},
    {"last fragment",
     24,
     [](TraceBlock &) {},
     {Fragment(8, false)},
     {Tcp(), Fragment(0, true), Fragment(8, true)}},
    {"TCP flags",
     25,
     [](TraceBlock &b) { b.tcpFlags = 0x10; },
     {Tcp(), With([](Packet &p) { p.headers.tcpFlags = 0x10; })},
     {With([](Packet &p) { p.headers.tcpFlags = 0x08; }), Udp(), Fragment(8, true)}},
    {"no TCP flags",
     25,
     [](TraceBlock &) {},
     {With([](Packet &p) { p.headers.tcpFlags = 0; })},
     {Tcp(), Udp()}},
    {"source IPv6",
     26,
     [](TraceBlock &b) { std::memcpy(b.sourceIpv6, "\x20\x01\x0d\xb8\0\0\0\x10\0\0\0\0\0\0\0\x0b", 16); },
     {Tcp6()},
     {Tcp(), With([](Packet &p) { p = Tcp6(), p.headers.source[15] = 12; })}},
    {"destination IPv6",
     27,
     [](TraceBlock &b) {
       std::memcpy(b.destinationIpv6, "\x20\x01\x0d\xb8\0\0\0\x99\0\0\0\0\0\0\0\x07", 16);
     },
     {Tcp6()},
     {Tcp(), With([](Packet &p) { p = Tcp6(), p.headers.destination[1] = 2; })}},
    {"IPv4", 28, [](TraceBlock &) {}, {Tcp(), Udp()}, {Tcp6(), Arp()}},
    {"IPv6", 28, [](TraceBlock &b) { b.ipType = 1; }, {Tcp6()}, {Tcp(), Arp()}},
    {"ICMP type", 29, [](TraceBlock &b) { b.icmpType = 8; }, {Icmp(8)}, {Icmp(0), Tcp()}},
    {"ICMP type 0", 29, [](TraceBlock &) {}, {Icmp(0)}, {Icmp(8), Tcp()}},
    {"PPPoE keepalive",
     30,
     [](TraceBlock &b) { b.flags = 32; },
     {OfKind(PacketKind::kPppoeKeepalive)},
     {Tcp()}},
    {"cause", 31, [](TraceBlock &b) { b.causeId = 12; }, {With([](Packet &p) { p.causeId = 12; })}, {Tcp()}},
};

INSTANTIATE_TEST_SUITE_P(All, ConditionTest, testing::ValuesIn(kConditions));

TEST(TraceBlock, StandsWhereTheRegionsFieldsAre) {
  const RegionLayout *region = Layout::BuiltIn().FindRegion(kTraceRegion);
  ASSERT_NE(region, nullptr);
  EXPECT_EQ(region->spec.size, sizeof(TraceBlock));
  const struct {
    const char *field;
    size_t offset;
  } fields[] = {{"condition", offsetof(TraceBlock, mask)},
                {"min_length", offsetof(TraceBlock, minLength)},
                {"not", offsetof(TraceBlock, flags)},
                {"tcp_flags", offsetof(TraceBlock, tcpFlags)},
                {"vlan_id", offsetof(TraceBlock, vlan)},
                {"dst_fwd_if_index", offsetof(TraceBlock, destinationFwdIf)},
                {"timeout", offsetof(TraceBlock, timeout)},
                {"destination", offsetof(TraceBlock, destinationIpv4)},
                {"dmac", offsetof(TraceBlock, destinationMac)},
                {"protocol", offsetof(TraceBlock, protocol)},
                {"eth_type", offsetof(TraceBlock, etherType)},
                {"destination_ipv6", offsetof(TraceBlock, destinationIpv6)},
                {"dst_port", offsetof(TraceBlock, destinationPort)},
                {"discard_type", offsetof(TraceBlock, discardType)},
                {"cause_id", offsetof(TraceBlock, causeId)},
                {"icmp_type", offsetof(TraceBlock, icmpType)},
                {"print_console", offsetof(TraceBlock, printConsole)},
                {"print_to_log", offsetof(TraceBlock, printLog)},
                {"left_prints", offsetof(TraceBlock, leftPrints)},
                {"from_driver", offsetof(TraceBlock, fromDriver)},
                {"from_slow_path", offsetof(TraceBlock, fromSlowPath)},
                {"trace_packets", offsetof(TraceBlock, switches)}};
  for (const auto &field : fields) EXPECT_EQ(region->At(field.field).offset, field.offset) << field.field;
}

TEST(TraceMatch, WithoutConditionsEveryPacketMatches) {
  TraceBlock block{};
  for (const Packet &packet : {Tcp(), Arp(), Dropped(1), Fragment(8, false)})
    EXPECT_TRUE(MatchesTrace(block, packet));
  // Bits that stand for nothing are no conditions.
  block.mask = 0xffffffff00000000 | 1u << 0 | 1u << 15 | 1u << 16;
  EXPECT_TRUE(MatchesTrace(block, Tcp()));
  block.flags = kTraceNot;
  EXPECT_FALSE(MatchesTrace(block, Tcp()));
}

TEST(TraceMatch, AllConditionsHoldTogether) {
  TraceBlock block{};
  block.mask = 1u << 2 | 1u << 13;
  block.sourceFwdIf = 11;
  block.protocol = 6;
  EXPECT_TRUE(MatchesTrace(block, Tcp()));
  EXPECT_FALSE(MatchesTrace(block, Udp()));
  EXPECT_FALSE(MatchesTrace(block, With([](Packet &p) { p.sourceFwdIf = 12; })));
}

TEST(TraceMatch, TheInnerFlagLooksIntoTunnels) {
  TraceBlock block{};
  block.mask = 1u << 18;
  block.destinationPort = 443;
  Packet tunnel = Channel(5247);
  tunnel.inner = Tcp().headers;
  EXPECT_FALSE(MatchesTrace(block, tunnel));
  block.flags = kTraceInner;
  EXPECT_TRUE(MatchesTrace(block, tunnel));
  EXPECT_TRUE(MatchesTrace(block, Tcp()));  // a packet without a tunnel has only one set of headers
  block.destinationPort = 5247;
  EXPECT_FALSE(MatchesTrace(block, tunnel));
}

class TraceTest : public testing::Test {
 protected:
  void Tick(std::chrono::seconds at) { trace_.BeginTick(PacketTrace::Time{} + 1000s + at); }

  TraceBlock block_{};
  std::vector<std::string> console_, log_;
  PacketTrace trace_{&block_,
                     {[this](const std::string &line) { console_.push_back(line); },
                      [this](const std::string &line) { log_.push_back(line); }}};
};

TEST_F(TraceTest, NothingHappensWhileItIsOff) {
  block_.leftPrints = 3;
  Tick(0s);
  trace_.Observe(Tcp());
  EXPECT_EQ(block_.fromDriver, 0u);
  EXPECT_EQ(block_.leftPrints, 3u);
  EXPECT_TRUE(console_.empty());
}

TEST_F(TraceTest, CountsMatchingPacketsByTheirWay) {
  block_.switches = 1;
  block_.mask = 1u << 6;
  block_.vlan = 10;
  Tick(0s);
  trace_.Observe(Tcp());
  trace_.Observe(Dropped(1));
  trace_.Observe(With([](Packet &p) { p.fate.end = End::kToControlPlane; }));
  trace_.Observe(With([](Packet &p) { p.fromControlPlane = true; }));
  trace_.Observe(With([](Packet &p) { p.fromControlPlane = true; }));
  trace_.Observe(With([](Packet &p) { p.headers.vlan = 11; }));
  EXPECT_EQ(block_.fromDriver, 3u);
  EXPECT_EQ(block_.fromSlowPath, 2u);
  EXPECT_EQ(block_.toDriver, 3u);
  EXPECT_EQ(block_.toSlowPath, 1u);
  EXPECT_TRUE(console_.empty() && log_.empty());  // no prints left
}

TEST_F(TraceTest, PrintsAsManyAsAreLeft) {
  block_.switches = 1;
  block_.leftPrints = 2;
  Tick(0s);
  for (int i = 0; i < 5; ++i) trace_.Observe(Tcp());
  EXPECT_EQ(block_.leftPrints, 0u);
  EXPECT_EQ(console_.size(), 2u);
  EXPECT_EQ(block_.fromDriver, 5u);  // counting goes on
  EXPECT_EQ(block_.switches, 1);
}

TEST_F(TraceTest, ATickHasAnEndOfLines) {
  block_.switches = 1;
  block_.leftPrints = 1000;
  Tick(0s);
  for (int i = 0; i < 200; ++i) trace_.Observe(Tcp());
  EXPECT_EQ(console_.size(), 64u);
  EXPECT_EQ(block_.leftPrints, 936u);
  Tick(1s);
  trace_.Observe(Tcp());
  EXPECT_EQ(console_.size(), 65u);
}

TEST_F(TraceTest, PrintsWhereItIsTold) {
  block_.switches = 1;
  block_.leftPrints = 100;
  const struct {
    uint8_t console, log;
    size_t consoleLines, logLines;
  } cases[] = {{0, 0, 1, 0}, {1, 0, 1, 0}, {0, 1, 0, 1}, {1, 1, 1, 1}};
  for (const auto &expected : cases) {
    block_.printConsole = expected.console;
    block_.printLog = expected.log;
    console_.clear();
    log_.clear();
    Tick(0s);
    trace_.Observe(Tcp());
    EXPECT_EQ(console_.size(), expected.consoleLines);
    EXPECT_EQ(log_.size(), expected.logLines);
  }
}

TEST_F(TraceTest, EndsWhenItsSecondsAreOver) {
  block_.switches = 1 | 4;
  block_.leftPrints = 100;
  block_.timeout = 30;
  Tick(0s);
  Tick(29s);
  EXPECT_EQ(block_.switches, 1 | 4);
  Tick(30s);
  EXPECT_EQ(block_.switches, 4);  // the stations' trace is another
  EXPECT_EQ(block_.leftPrints, 0u);
  trace_.Observe(Tcp());
  EXPECT_EQ(block_.fromDriver, 0u);
  // Switched on again it has its whole time.
  block_.switches |= 1;
  block_.leftPrints = 1;
  Tick(40s);
  Tick(69s);
  trace_.Observe(Tcp());
  EXPECT_EQ(block_.fromDriver, 1u);
  EXPECT_EQ(console_.size(), 1u);
  Tick(70s);
  EXPECT_EQ(block_.switches, 4);
}

TEST_F(TraceTest, WithoutATimeoutItStaysOn) {
  block_.switches = 1;
  Tick(0s);
  Tick(100000s);
  EXPECT_EQ(block_.switches, 1);
}

TEST_F(TraceTest, SwitchingItOffEndsItAtOnce) {
  block_.switches = 1;
  block_.leftPrints = 10;
  Tick(0s);
  trace_.Observe(Tcp());
  block_.switches = 0;
  trace_.Observe(Tcp());
  EXPECT_EQ(block_.fromDriver, 1u);
  EXPECT_EQ(console_.size(), 1u);
}

// What follows the MAC addresses.
std::string Rest(const Packet &packet) {
  const std::string line = DescribePacket(packet);
  return line.substr(line.find(", type ") + 2);
}

TEST(TracePrint, TellsAPacketInALine) {
  EXPECT_EQ(DescribePacket(Tcp()),
            "core 2, from if 11 to if 12, vlan 10, 02:00:5e:90:00:01 > 02:00:5e:10:00:01, type 0x0800, "
            "192.0.2.11 > 198.51.100.7 TCP port 50000 > 443 flags 0x18, 1460 bytes, sent");
  EXPECT_EQ(Rest(Dropped(1)),
            "type 0x0800, 192.0.2.11 > 198.51.100.7 TCP port 50000 > 443 flags 0x18, 1460 bytes, discarded: "
            "arp miss");
  EXPECT_EQ(Rest(Dropped(121)),
            "type 0x0800, 192.0.2.11 > 198.51.100.7 TCP port 50000 > 443 flags 0x18, 1460 bytes, discarded: "
            "121");  // has no name
  EXPECT_EQ(DescribePacket(With([](Packet &p) {
              p = Tcp6();
              p.headers.protocol = 58;
              p.headers.icmpType = 135;
              p.causeId = 2;
              p.fate.end = End::kToControlPlane;
            })),
            "core 2, from if 11 to if 12, vlan 10, 02:00:5e:90:00:01 > 02:00:5e:10:00:01, type 0x86dd, "
            "2001:db8:0:10::b > 2001:db8:0:99::7 ICMPv6 type 135, cause 2, 1460 bytes, to the control plane");
  EXPECT_EQ(DescribePacket(With([](Packet &p) {
              p.headers = {.etherType = 0x888e, .vlan = 20};
              p.kind = PacketKind::kEapKey;
              p.fromControlPlane = true;
            })),
            "core 2, from the control plane to if 12, vlan 20, 00:00:00:00:00:00 > 00:00:00:00:00:00, type "
            "0x888e, EAP key, "
            "1460 bytes, sent");
  EXPECT_EQ(Rest(Fragment(1480, false)),
            "type 0x0800, 192.0.2.11 > 198.51.100.7 TCP, fragment at 1480 (the last), 1460 bytes, sent");
  Packet tunnel = Channel(5247);
  tunnel.inner = Icmp(8).headers;
  EXPECT_EQ(Rest(tunnel),
            "type 0x0800, 192.0.2.11 > 198.51.100.7 UDP port 5247 > 5247, 1460 bytes, inside: vlan 10, "
            "02:00:5e:90:00:01 > "
            "02:00:5e:10:00:01, type 0x0800, 192.0.2.11 > 198.51.100.7 ICMP type 8, sent");
}

}  // namespace
}  // namespace qdt::host
