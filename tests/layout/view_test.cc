// The section "views" of layout files.

#include <gtest/gtest.h>

#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

constexpr char kTables[] = R"(
tables:
  t:
    id: 0
    name: CAP_TABLE_T
    key_size: 4
    record_size: 4
    capacity: 1
    key: {k: 0 u32}
    fields: {k: 0 u32}
regions:
  R: {size: 8, fields: {a: 0 u32}}
)";

Layout WithViews(const std::string &views) {
  return ReadLayouts({{"base.yaml", kTables}, {"rest.yaml", FillerTables(1)}, {"a.yaml", views}});
}

std::string ErrorOfViews(const std::string &views) {
  return ErrorOf([&] { WithViews(views); });
}

TEST(ViewLayoutTest, AViewShowsATableARegionOrRecordsOfItsOwn) {
  const Layout layout = WithViews(
      "views:\n"
      "  own: {id: 9, about: What it is, record_size: 6, fields: {x: 0 u32, y: 4 u16}}\n"
      "  region: {id: 5, region: R}\n"
      "  table: {id: 7, table: t}\n");
  ASSERT_EQ(layout.views().size(), 3u);
  EXPECT_EQ(layout.views()[0].id, 5u);
  EXPECT_EQ(layout.views()[0].region, "R");
  EXPECT_EQ(layout.FindView(7)->table, "t");
  const ViewLayout &own = *layout.FindView(9);
  EXPECT_EQ(own.name, "own");
  EXPECT_EQ(own.about, "What it is");
  EXPECT_EQ(own.recordSize, 6u);
  EXPECT_EQ(own.At("y").offset, 4u);
  EXPECT_EQ(own.place, "a.yaml:2");
  EXPECT_EQ(layout.FindView(8), nullptr);
}

TEST(ViewLayoutTest, ALayoutMayLackWhatAViewShows) {
  const Layout layout = WithViews("views:\n  v: {id: 1, table: u}\n  w: {id: 2, region: S}\n");
  EXPECT_EQ(layout.FindTable(layout.FindView(1)->table), nullptr);
  EXPECT_EQ(layout.FindRegion(layout.FindView(2)->region), nullptr);
}

TEST(ViewLayoutTest, TheBuiltInViewsShowWhatIsThere) {
  const Layout &layout = Layout::BuiltIn();
  for (const ViewLayout &view : layout.views()) {
    const TableLayout *table = layout.FindTable(view.table);
    EXPECT_EQ(table != nullptr && !table->fields.empty(), !view.table.empty()) << view.name;
    EXPECT_EQ(layout.FindRegion(view.region) != nullptr, !view.region.empty()) << view.name;
    EXPECT_EQ(!view.fields.empty(), view.table.empty() && view.region.empty()) << view.name;
  }
}

TEST(ViewLayoutTest, KeysSayHowOneRecordIsAskedFor) {
  const Layout layout =
      WithViews("views:\n  v: {id: 1, table: t, keys: [\"\", all]}\n  w: {id: 2, region: R}\n");
  ASSERT_EQ(layout.views().size(), 2u);
  EXPECT_EQ(std::vector<std::string_view>(layout.views()[0].keys.begin(), layout.views()[0].keys.end()),
            (std::vector<std::string_view>{"", "all"}));
  EXPECT_TRUE(layout.views()[1].keys.empty());
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, keys: []}"),
            "a.yaml:2: v.keys: not a list of 1 to 4 keys");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, keys: [a, a, a, a, a]}"),
            "a.yaml:2: v.keys: not a list of 1 to 4 keys");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, keys: [[a]]}"),
            "a.yaml:2: v.keys: not the name of a field");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, region: R, keys: [a]}"),
            "a.yaml:2: v.keys: for views of tables only");
  for (const char *key : {"nothing", "\"#nothing\"", "\"@nothing\"", "\"nothing:k\""}) {
    EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, keys: [" + std::string(key) + "]}"),
              "a.yaml:2: v.keys: t has no field \"nothing\"");
  }
}

TEST(ViewLayoutTest, ALayoutNeedsNoViews) { EXPECT_TRUE(WithViews("views: {}").views().empty()); }

TEST(ViewLayoutTest, WhatIsWrongIsSaidWithItsPlace) {
  EXPECT_EQ(ErrorOfViews("views:\n  v: {table: t}"), "a.yaml:2: v.id: missing, a number from 0 to 88");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 89, table: t}"), "a.yaml:2: v.id: not a number from 0 to 88");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1}"),
            "a.yaml:2: v: what does it show? (give one of table, region, and record_size with fields)");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, region: R}"),
            "a.yaml:2: v: what does it show? (give one of table, region, and record_size with fields)");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t, record_size: 4}"),
            "a.yaml:2: v.record_size: for views with fields of their own only");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, fields: {a: 0 u32}}"),
            "a.yaml:2: v.record_size: missing, a number from 1 to 65535");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, record_size: 2, fields: {a: 0 u32}}"),
            "a.yaml:2: v.a: lies outside its 2 bytes");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, table: t}\n  w: {id: 1, table: t}"),
            "a.yaml:3: w: stands at a.yaml:2 already (remove one)");
  EXPECT_EQ(ErrorOfViews("views:\n  v: {id: 1, tabel: t}"),
            "a.yaml:2: v.tabel: no such property (did you mean table?)");
}

}  // namespace
}  // namespace qdt::host
