#include "host/scenario/scenario.h"

#include <gtest/gtest.h>

#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

class ScenarioTest : public testing::Test {
 protected:
  Scenario Read(const std::string &text) { return Scenario::FromText("s.yaml", text, layout_); }

  const Layout layout_ = KindsLayout();
};

TEST_F(ScenarioTest, WritesEveryKind) {
  const Scenario scenario = Read(R"(
kinds:
  - index: 7
    byte: 0x12
    half: 513
    word: 0xdeadbeef
    long: 0x1122334455667788
    signed_byte: -1
    signed_half: -2
    signed_word: -3
    signed_long: -4
    ip: 192.0.2.1
    ip_net: 192.0.2.1
    ip6: 2001:db8::1
    ip6_words: 2001:db8::1
    mac: 02:00:5e:00:53:01
    flag: true
    some_bits: 0xa
    name: "hello"
    numbers: [1, 2, 0x303]
    pairs: [{low: 1, flag: 1, ports: [5, 6]}, {low: 2}]
    inner: {value: 9}
    peer: 0x7000
    peers: [0, 0x10, 0]
)");
  ASSERT_EQ(scenario.tables().size(), 1u);
  const PlannedTable &table = scenario.tables()[0];
  ASSERT_EQ(table.count(), 1u);
  EXPECT_EQ(Hex(table.key(0)), "00000500 07000000");
  EXPECT_EQ(Hex(table.record(0)),
            "07000000 12000102 efbeadde 00000000 88776655 44332211 "  // 0: numbers
            "ff00feff fdffffff fcffffff ffffffff "                    // 24: signed
            "010200c0 c0000201 "                                      // 40: IPv4
            "20010db8 00000000 00000000 00000001 "                    // 48: IPv6
            "b80d0120 00000000 00000000 01000000 "                    // 64: IPv6 as words
            "02005e00 53015080 "                                      // 80: MAC, bits
            "68656c6c 6f000000 "                                      // 88: text
            "01000000 02000000 03030000 "                             // 96: array
            "01000000 00050680 02000000 00000000 "                    // 108: structures
            "09000000 00700000 00000000 "                             // 124
            "00000000 00000000 10000000 00000000 00000000 00000000");
  EXPECT_TRUE(table.references.empty());
}

TEST_F(ScenarioTest, FieldsLeftOutAreZero) {
  const Scenario scenario = Read("other: [{group: 1, number: 2}]");
  EXPECT_EQ(Hex(scenario.tables()[0].key(0)), "01000000 02000000");
  EXPECT_EQ(Hex(scenario.tables()[0].record(0)), "01000000 02000000 " + Hex(std::string(32, '\0')));
}

TEST_F(ScenarioTest, EmptyTablesAreTables) {
  const Scenario scenario = Read("kinds:\nlist: []\nregions:\n");
  ASSERT_EQ(scenario.tables().size(), 2u);
  EXPECT_EQ(scenario.tables()[0].count(), 0u);
  EXPECT_EQ(scenario.FindTable(2)->count(), 0u);
  EXPECT_EQ(scenario.FindTable(1), nullptr);
}

TEST_F(ScenarioTest, TablesWithSeveralEntriesAKeyKeepTheirOrder) {
  const Scenario scenario = Read("list: [{owner: 1, value: 5}, {owner: 2, value: 6}, {owner: 1, value: 5}]");
  const PlannedTable &table = scenario.tables()[0];
  EXPECT_EQ(Hex(table.keys), "01000000 02000000 01000000");
  EXPECT_EQ(Hex(table.records), "05000000 00000000 06000000 00000000 05000000 00000000");
}

TEST_F(ScenarioTest, RepeatCountsUpEveryKindOfNumber) {
  const Scenario scenario = Read(R"(
kinds:
  - repeat: 300
    index: {from: 10, step: 2}
    signed_word: {from: 5, step: -3}
    ip: {from: 10.0.0.250, step: 1}
    ip_net: {from: 10.0.0.250, step: 1}
    ip6: {from: "2001:db8::fffe", step: 1}
    ip6_words: {from: "2001:db8::ffff:ffff:ffff:fffe", step: 1}
    mac: {from: 02:00:5e:00:ff:fe, step: 1}
    word: 77
    numbers: [{from: 1, step: 1}, 5]
)");
  const PlannedTable &table = scenario.tables()[0];
  ASSERT_EQ(table.count(), 300u);
  EXPECT_EQ(Hex(table.key(299)), "00000500 60020000");  // 10 + 2 * 299 = 0x260
  const auto part = [&](uint32_t entry, size_t offset, size_t size) {
    return Hex(table.record(entry).subspan(offset, size));
  };
  EXPECT_EQ(part(299, 0, 4), "60020000");
  EXPECT_EQ(part(3, 28, 4), "fcffffff");                              // 5 - 9
  EXPECT_EQ(part(10, 40, 8), "0401000a 0a000104");                    // 10.0.1.4
  EXPECT_EQ(part(3, 48, 16), "20010db8 00000000 00000000 00010001");  // carries
  EXPECT_EQ(part(3, 64, 16), "b80d0120 01000000 00000000 01000000");  // carries past 64 bits
  EXPECT_EQ(part(2, 80, 6), "02005e01 0000");
  EXPECT_EQ(part(299, 8, 4), "4d000000");
  EXPECT_EQ(part(299, 96, 8), "2c010000 05000000");
}

TEST_F(ScenarioTest, ArraysTakeSingleElementsByNumber) {
  const Scenario scenario = Read("kinds: [{index: 1, numbers: {2: 7}, pairs: {1: {low: 3}}}]");
  const std::span<const uint8_t> record = scenario.tables()[0].record(0);
  EXPECT_EQ(Hex(record.subspan(96, 12)), "00000000 00000000 07000000");
  EXPECT_EQ(Hex(record.subspan(108, 16)), "00000000 00000000 03000000 00000000");
}

TEST_F(ScenarioTest, ReferencesNameEntriesBeforeAndAfter) {
  const Scenario scenario = Read(R"(
kinds:
  - {index: 1, peer: {group: 1, number: 2}, peers: [0, {index: 1}, {stale: {index: 2}}]}
  - {repeat: 2, index: {from: 2, step: 1}, peer: {group: 1, number: {from: 2, step: 1}}}
other:
  - {group: 1, number: 2, back: {index: 3}}
  - {group: 1, number: 3}
)");
  const std::vector<PlannedReference> &from = scenario.tables()[0].references;
  ASSERT_EQ(from.size(), 5u);
  const auto is = [](const PlannedReference &r, uint32_t entry, uint32_t offset, uint32_t table,
                     uint32_t target, bool stale) {
    EXPECT_EQ(r.entry, entry);
    EXPECT_EQ(r.field.offset, offset);
    EXPECT_EQ(r.table, table);
    EXPECT_EQ(r.target, target);
    EXPECT_EQ(r.stale, stale);
  };
  is(from[0], 0, 128, 1, 0, false);
  is(from[1], 0, 144, 0, 0, false);
  is(from[2], 0, 152, 0, 1, true);
  is(from[3], 1, 128, 1, 0, false);
  is(from[4], 2, 128, 1, 1, false);
  ASSERT_EQ(scenario.tables()[1].references.size(), 1u);
  is(scenario.tables()[1].references[0], 0, 16, 0, 2, false);
}

TEST_F(ScenarioTest, RegionsAreFilledByField) {
  const Scenario scenario = Read("regions:\n  TIMES: {tcp: 600, apps: {1: {ttl: 0x102}}}\n");
  ASSERT_EQ(scenario.regions().size(), 1u);
  EXPECT_EQ(scenario.regions()[0].layout->spec.name, "TIMES");
  EXPECT_EQ(Hex(scenario.regions()[0].bytes), "58020000 00000000 02010000");
}

TEST_F(ScenarioTest, AnchorsSaveTyping) {
  const Scenario scenario =
      Read("kinds:\n  - {index: 1, numbers: &n [1, 2, 3]}\n  - {index: 2, numbers: *n}\n");
  EXPECT_EQ(Hex(scenario.tables()[0].record(1).subspan(96, 12)), "01000000 02000000 03000000");
}

}  // namespace
}  // namespace qdt::host
