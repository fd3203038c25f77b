#include "tests/scenario/fill_fixture.h"

namespace qdt::host {
namespace {

constexpr uint32_t kMarker = 0x50000;

TEST_F(FillTest, ReferencesInACircleHoldTheEntriesAddresses) {
  Fill(KindsLayout(), R"(
kinds:
  - {index: 1, peer: {group: 1, number: 2}, peers: [{index: 2}, {index: 1}, 0x77]}
  - {index: 2, peers: [{index: 1}]}
other:
  - {group: 1, number: 2, back: {index: 1}}
)");
  const uint8_t *one = Find(0, {kMarker, 1});
  const uint8_t *two = Find(0, {kMarker, 2});
  const uint8_t *other = Find(1, {1, 2});
  ASSERT_TRUE(one != nullptr && two != nullptr && other != nullptr);
  EXPECT_EQ(Pointer(one + 128), other);
  EXPECT_EQ(Pointer(one + 136), two);
  EXPECT_EQ(Pointer(one + 144), one);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(Pointer(one + 152)), 0x77u);
  EXPECT_EQ(Pointer(two + 136), one);
  EXPECT_EQ(Pointer(other + 8), one);  // delivered addresses of this table point 8 bytes into the record
}

TEST_F(FillTest, StaleReferencesHoldAnAddressThatNoEntryHas) {
  Fill(KindsLayout(), R"(
kinds:
  - {index: 1, peer: {stale: {group: 1, number: 2}}}
  - {index: 2, peer: {group: 1, number: 2}}
  - {index: 3, peer: {stale: {group: 1, number: 2}}}
other:
  - {group: 1, number: 1}
  - {group: 1, number: 2}
  - {group: 1, number: 3}
)");
  const uint8_t *stale = Pointer(Find(0, {kMarker, 1}) + 128);
  EXPECT_NE(stale, nullptr);
  EXPECT_EQ(Pointer(Find(0, {kMarker, 3}) + 128), stale);
  EXPECT_EQ(Pointer(Find(0, {kMarker, 2}) + 128), Find(1, {1, 2}));
  for (uint32_t number = 1; number <= 3; ++number) EXPECT_NE(Find(1, {1, number}), stale) << number;
  EXPECT_TRUE(arena_->Contains(stale, 1));
  uint32_t entries = 0;
  EXPECT_EQ(TbmTblEntryNum(0, 1, &entries), 0);
  EXPECT_EQ(entries, 3u);
}

TEST_F(FillTest, StaleReferencesNeedOneFreePlace) {
  EXPECT_EQ(ErrorOf([&] {
              Fill(KindsLayout(), R"(
kinds: [{index: 1, peer: {stale: {group: 1, number: 1}}}]
other: [{repeat: 4, group: 1, number: {from: 1, step: 1}}]
)");
            }),
            "other: the table is full (a stale reference needs one free place)");
}

TEST_F(FillTest, StaleReferencesWithoutAKeyLeadToAPlaceWithoutAnEntry) {
  Fill(KindsLayout(), R"(
kinds:
  - {index: 1, peer: {stale: {}}, peers: [{stale: {}}, {stale: {index: 1}}, {index: 1}]}
  - {repeat: 2, index: {from: 2, step: 1}, peer: {stale: {}}}
other:
  - {repeat: 3, group: 1, number: {from: 1, step: 1}}
)");
  const uint8_t *one = Find(0, {kMarker, 1});
  const uint8_t *peer = Pointer(one + 128);
  EXPECT_TRUE(arena_->Contains(peer, 1));
  for (uint32_t number = 1; number <= 3; ++number) EXPECT_NE(Find(1, {1, number}), peer) << number;
  for (uint32_t index : {2, 3}) EXPECT_EQ(Pointer(Find(0, {kMarker, index}) + 128), peer) << index;
  const uint8_t *self = Pointer(one + 136);
  EXPECT_TRUE(arena_->Contains(self, 1));
  for (uint32_t index = 1; index <= 3; ++index) EXPECT_NE(Find(0, {kMarker, index}), self) << index;
  EXPECT_NE(Pointer(one + 144), self);
  EXPECT_EQ(Pointer(one + 152), one);
  uint32_t entries = 0;
  EXPECT_EQ(TbmTblEntryNum(0, 1, &entries), 0);
  EXPECT_EQ(entries, 3u);
}

TEST_F(FillTest, StaleReferencesWithoutAKeyNeedNoEntry) {
  for (const char *others : {"", "other: []\n"}) {
    Fill(KindsLayout(), std::string(others) + "kinds: [{index: 1, peer: {stale: {}}}]");
    EXPECT_TRUE(arena_->Contains(Pointer(Find(0, {kMarker, 1}) + 128), 1)) << others;
    uint32_t entries = 1;
    EXPECT_EQ(TbmTblEntryNum(0, 1, &entries), 0);
    EXPECT_EQ(entries, 0u);
  }
}

TEST_F(FillTest, StaleReferencesWithoutAKeyNeedOneFreePlace) {
  EXPECT_EQ(ErrorOf([&] {
              Fill(KindsLayout(), R"(
kinds: [{index: 1, peer: {stale: {}}}]
other: [{repeat: 4, group: 1, number: {from: 1, step: 1}}]
)");
            }),
            "other: the table is full (a stale reference needs one free place)");
}

TEST_F(FillTest, StaleRoutesWithoutAKeyNameTheirTable) {
  Fill(Layout::BuiltIn(), R"(
fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp_group: {stale: {}}}}]
capwap_tunnel: [{tunnel_id: 1, route: {stale: {}}}]
)");
  const uint8_t key[8] = {24, 0, 0, 0, 192, 0, 2, 0};
  void *entry = nullptr;
  ASSERT_EQ(TbmTblSearch(0, Layout::BuiltIn().FindTable("fib")->spec.id, key, &entry), 0);
  const FieldRef next = Layout::BuiltIn().FindTable("fib")->At("next_hop");
  const auto *place = reinterpret_cast<const void *>(next.Get(entry));
  EXPECT_TRUE(arena_->Contains(place, 1));
  const FieldRef route = Layout::BuiltIn().FindTable("capwap_tunnel")->At("route");
  const uint8_t *tunnel = Find(Layout::BuiltIn().FindTable("capwap_tunnel")->spec.id, {1});
  ASSERT_NE(tunnel, nullptr);
  EXPECT_TRUE(arena_->Contains(reinterpret_cast<const void *>(route.Get(tunnel)), 1));
  EXPECT_NE(reinterpret_cast<const void *>(route.Get(tunnel)), entry);
}

TEST_F(FillTest, RecordsMaySayAnotherThingThanTheirKeys) {
  Fill(KindsLayout(), R"(
kinds:
  - {index: 7, record: {index: 9}}
  - {repeat: 2, index: {from: 20, step: 1}, record: {index: {from: 5, step: -5}}}
  - {repeat: 2, index: {from: 30, step: 1}, record: {index: 3}}
  - {record: {}, index: 8}
other: [{group: 1, number: 2, record: {number: 0}}]
)");
  const auto word = [&](uint32_t index) { return Hex(std::span(Find(0, {kMarker, index}), 4)); };
  EXPECT_EQ(word(7), "09000000");
  EXPECT_EQ(word(20), "05000000");
  EXPECT_EQ(word(21), "00000000");
  EXPECT_EQ(word(30), "03000000");
  EXPECT_EQ(word(31), "03000000");
  EXPECT_EQ(word(8), "08000000");
  EXPECT_EQ(Hex(std::span(Find(1, {1, 2}) - 8, 8)), "01000000 00000000");
}

// A value of the key that is too large for the record's field stands in the key alone.
TEST_F(FillTest, WideKeysOfNarrowRecords) {
  Fill(Layout::BuiltIn(), R"(
acl_group: [{group_type: 70000, group_id: 1}]
acl_rule: [{group_type: 70000, group_id: 1, priority: 1024, record: {group_type: 4464, priority: 5}}]
)");
  const uint8_t *rule = Find(Layout::BuiltIn().FindTable("acl_rule")->spec.id, {70000, 1, 1024});
  ASSERT_NE(rule, nullptr);
  EXPECT_EQ(Hex(std::span(rule + 56, 4)), "05007011");
}

TEST_F(FillTest, TextsAreEscapedBytes) {
  Fill(KindsLayout(), R"(
kinds:
  - {index: 1, name: 'a\\b\x1b\xff'}
  - {index: 2, name: "\\x00A\\x7F\xe4"}
  - {index: 3, name: é}
  - {index: 4, name: '\\\\\\\\\\\\\\\\'}
)");
  const auto name = [&](uint32_t index) { return Hex(std::span(Find(0, {kMarker, index}) + 88, 8)); };
  EXPECT_EQ(name(1), "615c621b ff000000");
  EXPECT_EQ(name(2), "00417fc3 a4000000");  // YAML's own \xe4 is a character
  EXPECT_EQ(name(3), "c3a90000 00000000");
  EXPECT_EQ(name(4), "5c5c5c5c 5c5c5c5c");
}

TEST_F(FillTest, WalksDeliverTheOrderOfTheFile) {
  Fill(KindsLayout(), "list: [{owner: 9, value: 3}, {owner: 8, value: 1}, {owner: 9, value: 2}]");
  uint64_t values[4] = {};
  uint32_t bytes = sizeof values;
  TbmTravContext context;
  TbmTblTravContextInit(&context);
  EXPECT_EQ(TbmTblTravNext(0, 2, &context, values, &bytes), 0);
  EXPECT_EQ(bytes, 24u);
  EXPECT_EQ(values[0], 3u);
  EXPECT_EQ(values[1], 1u);
  EXPECT_EQ(values[2], 2u);
}

TEST_F(FillTest, RoutesMatchByPrefix) {
  Fill(KindsLayout(), R"(
route:
  - {length: 0, vpn: 0, destination: 0.0.0.0, next: {stale: {group: 1, number: 1}}}
  - {length: 24, vpn: 0, destination: 192.0.2.0, next: {group: 1, number: 1}}
other: [{group: 1, number: 1}]
)");
  const uint8_t key[8] = {0, 0, 0, 0, 192, 0, 2, 77};
  void *entry = nullptr;
  ASSERT_EQ(TbmTblMatch(0, 3, key, &entry), 0);
  EXPECT_EQ(Pointer(static_cast<uint8_t *>(entry) + 8), Find(1, {1, 1}));
}

TEST_F(FillTest, RegionsHoldTheirBytes) {
  Fill(KindsLayout(), "regions: {TIMES: {tcp: 600, apps: [{ttl: 5}]}}");
  uint32_t size = 0;
  const auto *region = static_cast<const uint8_t *>(arena_->FindRegion("TIMES", &size));
  ASSERT_NE(region, nullptr);
  EXPECT_EQ(size, 12u);
  EXPECT_EQ(Hex(std::span(region, size)), "58020000 05000000 00000000");
}

TEST_F(FillTest, CampusServicesShowIntactAndBrokenGroups) {
  const Layout &layout = Layout::BuiltIn();
  Fill(layout, Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", layout));
  const uint8_t *uplink = Find(29, {1});
  ASSERT_NE(uplink, nullptr);
  EXPECT_EQ(Pointer(uplink + 1016 + 8), Find(24, {2, 4001}));
  EXPECT_EQ(Pointer(uplink + 1032 + 8), Find(24, {2, 4002}));
  EXPECT_NE(Pointer(uplink + 1048 + 8), Find(24, {0, 3002}));
  EXPECT_NE(Pointer(uplink + 1048 + 8), nullptr);
  EXPECT_EQ(Pointer(Find(29, {103}) + 1032 + 8), Find(24, {0, 3002}));
  const uint8_t *map = Find(11, {2004});
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(Hex(std::span(map, 8)), "d4070000 68000000");
}

}  // namespace
}  // namespace qdt::host
