#include <time.h>

#include <algorithm>
#include <set>
#include <vector>

#include "tests/scenario/fill_fixture.h"

// What a record leads to and what is stored with it, and times that are written as seconds ago.
namespace qdt::host {
namespace {

constexpr uint32_t kSession = 65;

uint32_t Seconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

uint32_t WordAt(const uint8_t *at) {
  uint32_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

std::string Bytes(const uint8_t *at, size_t size) { return Hex(std::vector<uint8_t>(at, at + size)); }

class AttachedTest : public FillTest {
 protected:
  void FillSessions(const std::string &text) { Fill(Layout::BuiltIn(), "session:\n" + text); }
  // The line that the scenario is refused with.
  static std::string Refusal(const std::string &text) {
    return ErrorOf([&] { Scenario::FromText("s.yaml", "session:\n" + text, Layout::BuiltIn()); });
  }
};

TEST_F(AttachedTest, SessionLeadsToItsParts) {
  FillSessions(R"(
  - {index: 7, valid: 1, aging_time: 600,
     positive: {source: 192.0.2.11, source_port: 51000, destination: 198.51.100.80, destination_port: 443, protocol: 6,
                vpn: 5},
     negative: {source: 198.51.100.80, source_port: 443, destination: 203.0.113.11, destination_port: 20011},
     https: {index: 3, fwd_if_index: 4, source_mac: 02:00:5e:00:53:01, destination_mac: 02:00:5e:00:53:02, vlan: 20,
             ether_type: 0x0800},
     iptables: {index: 5, destination: 192.0.2.1, destination_port: 6, reserved: 7},
     sac: {app_id: 1, class_id: 2, protocol_id: 3},
     tcp: {cwnd: 1, rwnd: 2, rwnd_min: 3, ack: 4, seq: 5, up: 15, action: 1, wscale: 6, brake_count: 7, acc_count: 8,
           hold_count: 9}}
)");
  const uint8_t *session = Find(kSession, {7});
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(Bytes(session, 4), "07000000");
  EXPECT_EQ(Bytes(session + 8, 4), "20005802");
  EXPECT_EQ(Bytes(Pointer(session + 112), 16), "0b0200c0 506433c6 38c7bb01 06000500");
  EXPECT_EQ(Bytes(Pointer(session + 120), 16), "506433c6 0b7100cb bb012b4e 00000000");
  EXPECT_EQ(Bytes(Pointer(session + 152), 24), "03000000 04000000 02005e00 53010200 5e005302 14000008");
  EXPECT_EQ(Bytes(Pointer(session + 160), 12), "05000000 010200c0 06000700");
  EXPECT_EQ(Bytes(Pointer(session + 168), 20), "00000000 00000000 01000000 02000000 03000000");
  EXPECT_EQ(Bytes(Pointer(session + 176), 36),
            "00000000 01000000 02000000 03000000 04000000 05000000 f8000600 00000700 08000900");
  for (const int pointer : {112, 120, 152, 160, 168, 176}) {
    EXPECT_TRUE(arena_->Contains(Pointer(session + pointer), 40));
  }
}

TEST_F(AttachedTest, PartsThatAreLeftOutAreNull) {
  FillSessions("  - {index: 1, valid: 1}\n  - {index: 2, negative: {}}\n");
  for (const int pointer : {112, 120, 152, 160, 168, 176}) {
    EXPECT_EQ(Pointer(Find(kSession, {1}) + pointer), nullptr) << pointer;
  }
  EXPECT_EQ(Pointer(Find(kSession, {2}) + 112), nullptr);
  EXPECT_NE(Pointer(Find(kSession, {2}) + 120), nullptr);
}

TEST_F(AttachedTest, StrayedPointersHoldTheAddress) {
  FillSessions(
      "  - {index: 1, positive: {stale: 0x7f0000001000}, tcp: {cwnd: 1}, is_ipv6: 1}\n"
      "  - {index: 2, sac: {stale: 0}}\n");
  const uint8_t *session = Find(kSession, {1});
  EXPECT_EQ(Bytes(session + 112, 8), "00100000 007f0000");
  EXPECT_EQ(Bytes(Pointer(session + 176), 8), "00000000 01000000");
  EXPECT_EQ(Pointer(Find(kSession, {2}) + 168), nullptr);
}

TEST_F(AttachedTest, PartsOfZeros) {
  FillSessions("  - {index: 1, positive: {}, tcp: {}}\n");
  EXPECT_EQ(Bytes(Pointer(Find(kSession, {1}) + 112), 16), "00000000 00000000 00000000 00000000");
  EXPECT_EQ(Bytes(Pointer(Find(kSession, {1}) + 176), 8), "00000000 00000000");
}

TEST_F(AttachedTest, KeysOfIpv6) {
  FillSessions(R"(
  - {index: 1, is_ipv6: 1, positive6: {source: "2001:db8::1:2", source_port: 1, destination: "2001:db8:5::", destination_port: 2,
     protocol: 58, vpn: 3}}
)");
  EXPECT_EQ(Bytes(Pointer(Find(kSession, {1}) + 112), 40),
            "b80d0120 00000000 00000000 02000100 b80d0120 00000500 00000000 00000000 01000200 3a000300");
}

TEST_F(AttachedTest, EachRepetitionHasItsOwn) {
  FillSessions(R"(
  - {repeat: 1000, index: {from: 1, step: 1}, positive: {source: {from: 10.0.0.1, step: 1}, protocol: 6}}
)");
  std::set<const uint8_t *> keys;
  for (uint32_t index = 1; index <= 1000; ++index) {
    const uint8_t *key = Pointer(Find(kSession, {index}) + 112);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(WordAt(key), 0x0a000000 + index);
    keys.insert(key);
  }
  EXPECT_EQ(keys.size(), 1000u);
  EXPECT_EQ(g_tbmGlobalInfo->flowPartition->nodes[999], Find(kSession, {1000}));
}

TEST_F(AttachedTest, TimesAreSecondsAgo) {
  const uint32_t uptime = Seconds(CLOCK_MONOTONIC);
  const uint32_t today = Seconds(CLOCK_REALTIME);
  FillSessions(
      "  - {index: 1}\n  - {index: 2, refreshed: 5, created: 3600}\n"
      "  - {repeat: 2, index: {from: 3, step: 1}, created: {from: 10, step: 100}}\n"
      "  - {index: 9, refreshed: 4294967295}\n");
  const auto close = [](uint32_t is, uint32_t wanted) { return is >= wanted && is <= wanted + 5; };
  EXPECT_TRUE(close(WordAt(Find(kSession, {1}) + 4), uptime));  // left out: now
  EXPECT_TRUE(close(WordAt(Find(kSession, {1}) + 128), today));
  EXPECT_TRUE(close(WordAt(Find(kSession, {2}) + 4), uptime - std::min(uptime, 5u)));
  EXPECT_TRUE(close(WordAt(Find(kSession, {2}) + 128), today - 3600));
  EXPECT_TRUE(close(WordAt(Find(kSession, {4}) + 128), today - 110));
  EXPECT_EQ(WordAt(Find(kSession, {9}) + 4), 0u);  // nothing is older than the clock
}

TEST_F(AttachedTest, ServerMapsAreTheHashMapsNodes) {
  Fill(Layout::BuiltIn(), R"(
server_map:
  - {type: 14, source: 192.0.2.1, source_port: 80, destination: 0.0.0.0, destination_port: 0x102, vrf: 7, protocol: 6, zone: 9,
     flag: 0x11223344, aging_time: 60, nat: {address: 203.0.113.80, port: 8080, hits: 48}}
  - {type: 2, source: 0.0.0.0, source_port: 0, destination: 0.0.0.0, destination_port: 0, vrf: 0, protocol: 0,
     aspf: {first: 10.0.0.1, second: 10.0.0.2}}
  - {type: 15, source: 0.0.0.0, source_port: 0, destination: 0.0.0.0, destination_port: 0, vrf: 0, protocol: 0,
     no_pat: {first: 10.0.0.3, second: 10.0.0.4}}
)");
  std::vector<const uint8_t *> nodes(22);
  uint32_t next = 0;
  const auto visit = [](void *node, void *context) -> int32_t {
    const auto *bytes = static_cast<const uint8_t *>(node);
    static_cast<std::vector<const uint8_t *> *>(context)->at(bytes[18]) = bytes;
    return -9;
  };
  ASSERT_EQ(TbmHashMapTravBuckets(g_tbmGlobalInfo->serverMaps, visit, &nodes, 0, 1024, &next, 1), 0);
  ASSERT_TRUE(nodes[14] != nullptr && nodes[2] != nullptr && nodes[15] != nullptr);
  EXPECT_EQ(Bytes(nodes[14], 28), "010200c0 00000000 50000201 07000600 09000e00 44332211 3c000000");
  EXPECT_EQ(Bytes(nodes[14] + 44, 16), "507100cb 901f0000 30000000 00000000");
  EXPECT_EQ(Bytes(nodes[2] + 44, 16), "0100000a 0200000a 00000000 00000000");
  EXPECT_EQ(Bytes(nodes[15] + 44, 16), "00000000 00000000 0300000a 0400000a");
}

TEST_F(AttachedTest, WrongSessions) {
  EXPECT_EQ(Refusal("  - {index: 1, positive: {protocol: 6}, positive6: {protocol: 6}}\n"),
            "s.yaml:2: session.positive6: the entry has the other kind of it already (remove one)");
  EXPECT_EQ(Refusal("  - {index: 1, positive: {protocol: 6}, positive6: {stale: 5}}\n"),
            "s.yaml:2: session.positive6: the entry has the other kind of it already (remove one)");
  EXPECT_EQ(Refusal("  - {index: 1, positive: {stale: 5, protocol: 6}}\n"),
            "s.yaml:2: session.positive: not a stale pointer (write {stale: ADDRESS})");
  EXPECT_EQ(Refusal("  - {index: 1, positive: {stale: {}}}\n"),
            "s.yaml:2: session.positive.stale: not a value (write one, or {from: VALUE, step: NUMBER})");
  EXPECT_EQ(Refusal("  - {index: 1, positive: {port: 6}}\n"),
            "s.yaml:2: session.positive.port: no such field (nqecli fields session lists them)");
  EXPECT_EQ(Refusal("  - {valid: 1}\n"), "s.yaml:2: session.index: missing (it is part of the entry's key)");
  EXPECT_EQ(Refusal("  - {index: 1, created: -1}\n"),
            "s.yaml:2: session.created: -1 does not fit 32 bits (0 to 4294967295)");
  EXPECT_EQ(Refusal("  - {index: 1, created: yesterday}\n"),
            "s.yaml:2: session.created: \"yesterday\" is not a number (decimal or 0x...)");
  EXPECT_EQ(Refusal("  - {index: 1, tcp: 5}\n"),
            "s.yaml:2: session.tcp: not a mapping (write {FIELD: VALUE, ...})");
}

// The line that a layout with these fields is refused with; they begin in line 10.
std::string LayoutRefusal(const std::string &fields, const std::string &recordSize = "32") {
  static const std::string filler = FillerTables(1);
  return ErrorOf([&] {
    ReadLayouts({{"a.yaml",
                  "tables:\n  flow:\n    id: 0\n    name: CAP_TABLE_FLOW\n    key_size: 4\n"
                  "    record_size: " +
                      recordSize +
                      "\n    attached_size: 16\n    capacity: 4\n    key: {n: 0 u32}\n"
                      "    fields: {" +
                      fields + "}\n"},
                 {"filler.yaml", filler}});
  });
}

TEST(AttachedLayoutTest, Mistakes) {
  constexpr char kPart[] = "fields: {x: 0 u32}";
  const std::string part = kPart;
  EXPECT_EQ(LayoutRefusal("a: {at: 32, pointer: 8, " + part + "}, b: {at: 32, pointer: 8, " + part + "}"),
            "no error");
  EXPECT_EQ(LayoutRefusal("a: {at: 32, pointer: 8, " + part + "}, b: {at: 32, pointer: 16, " + part + "}"),
            "a.yaml:10: flow.b: shares bits with a field before it");
  EXPECT_EQ(LayoutRefusal("b: 12 u32, a: {at: 32, pointer: 8, " + part + "}"),
            "a.yaml:10: flow.a: shares bits with a field before it");
  EXPECT_EQ(LayoutRefusal("a: {at: 48, pointer: 8, " + part + "}"),
            "a.yaml:10: flow.a: lies outside its 48 bytes");
  EXPECT_EQ(LayoutRefusal("a: {at: 32, pointer: 0, " + part + "}"),
            "a.yaml:10: flow.a.pointer: not a number from 1 to 65535");
  EXPECT_EQ(LayoutRefusal("a: {at: 36, pointer: 8, " + part + "}"),
            "a.yaml:10: flow.a.pointer: pointer and structure must stand at multiples of 8 bytes");
  EXPECT_EQ(LayoutRefusal("a: {at: 32, pointer: 8, count: 2, stride: 8, " + part + "}"),
            "a.yaml:10: flow.a.pointer: not for arrays and variants");
  EXPECT_EQ(LayoutRefusal("a: {at: 0, fields: {b: {at: 8, pointer: 16, " + part + "}}}"),
            "a.yaml:10: flow.a.b: pointer, uptime_ago and time_ago are not for fields inside a structure");
  EXPECT_EQ(LayoutRefusal("a: {at: 0, fields: {b: 0 time_ago}}"),
            "a.yaml:10: flow.a.b: pointer, uptime_ago and time_ago are not for fields inside a structure");
  EXPECT_EQ(LayoutRefusal("n: 0 u32", "30"),
            "a.yaml:7: flow.attached_size: for records of whole 8 bytes only");
}

}  // namespace
}  // namespace qdt::host
