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
