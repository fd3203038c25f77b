#include <gtest/gtest.h>

#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"

// What layouts say of a whole record: structures that its key selects, an owner, counters that can be
// cleared.
namespace qdt::host {
namespace {

Layout RecordLayout(const std::string &parts = "") {
  static const std::string filler = FillerTables(2);
  const std::string text = R"(
tables:
  owner:
    id: 0
    name: CAP_TABLE_OWNER
    key_size: 8
    record_size: 8
    capacity: 8
    key: {kind: 0 u32, number: 4 u32}
    fields: {kind: 0 u32, number: 4 u32}
  part:
    id: 1
    name: CAP_TABLE_PART
    key_size: 12
    record_size: 32
    part_of: owner
    capacity: 300
    key: {kind: 0 u32, number: 4 u32, place: 8 u32}
    fields:
      kind: 2 u16
      counter: 4 u32 cleared_by cpcar
      counters: 8 u16 x 2 every 4 cleared_by cpcar
)" + (parts.empty() ? R"(
      near:
        at: 16
        variant: kind 0
        fields: {low: 0 u32, high: 4 u64}
      far:
        at: 20
        variant: kind 1 3
        fields: {key: &far {at: 0, fields: {a: 0 u16, b: 2 u8}}, mask: {at: 4, fields: {a: 0 u16}}}
      both:
        at: 20
        variant: kind 3
        fields: {a: 0 u32, name: 4 text 4, rest: 8 i16}
)"
                    : parts);
  return ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}});
}

std::string PartOf(const std::string &scenario) {
  static const Layout layout = RecordLayout();
  const Scenario read = Scenario::FromText(
      "s.yaml", "owner: [{kind: 0, number: 7}, {kind: 1, number: 7}, {kind: 3, number: 7}]\n" + scenario,
      layout);
  return Hex(read.FindTable(1)->record(0).subspan(16));
}

TEST(VariantTest, StandInTheSameBytes) {
  EXPECT_EQ(
      PartOf("part: [{kind: 0, number: 7, place: 1, near: {low: 0x11223344, high: 0x5566778899aabbcc}}]"),
      "44332211 ccbbaa99 88776655 00000000");
  EXPECT_EQ(
      PartOf("part: [{kind: 1, number: 7, place: 1, far: {key: {a: 0x1122, b: 0x33}, mask: {a: 0x4455}}}]"),
      "00000000 22113300 55440000 00000000");
  EXPECT_EQ(PartOf("part: [{kind: 3, number: 7, place: 1, far: {key: {b: 0x33}}}]"),
            "00000000 00003300 00000000 00000000");
  EXPECT_EQ(PartOf("part: [{kind: 0, number: 7, place: 1}]"), "00000000 00000000 00000000 00000000");
}

TEST(VariantTest, OfZerosIsAVariant) {
  EXPECT_EQ(PartOf("part: [{kind: 0, number: 7, place: 1, near: {}}]"),
            "00000000 00000000 00000000 00000000");
}

// A key can select two structures, which are two views of the same bytes.
TEST(VariantTest, OfOneKeyMayStandBesideEachOtherWhereTheyAgree) {
  EXPECT_EQ(
      PartOf("part: [{kind: 3, number: 7, place: 1, far: {key: {a: 0x1122, b: 0x33}, mask: {a: 0x4241}},"
             " both: {a: 0x44331122, name: AB, rest: -2}}]"),
      "00000000 22113344 41420000 feff0000");
}

TEST(VariantTest, AreFoundByPath) {
  const Layout layout = RecordLayout();
  EXPECT_EQ(layout.Table(1).At("near.high").offset, 20u);
  EXPECT_EQ(layout.Table(1).At("far.mask.a").offset, 24u);
}

TEST(OwnerTest, GivesTheSizeOfItsKey) {
  const Layout layout = RecordLayout();
  EXPECT_EQ(layout.Plan("/run/s").tables[1].groupKeySize, 8);
  EXPECT_EQ(layout.Plan("/run/s").tables[0].groupKeySize, 0);
}

TEST(ClearedByTest, NamesEachValue) {
  const Layout layout = RecordLayout();
  std::vector<uint32_t> offsets;
  for (const FieldRef &field : layout.Table(1).ClearedBy("cpcar")) offsets.push_back(field.offset);
  EXPECT_EQ(offsets, (std::vector<uint32_t>{4, 8, 12}));
  EXPECT_TRUE(layout.Table(0).ClearedBy("cpcar").empty());
}

TEST(ClearedByTest, BuiltInCountersAreThoseOfTheProtocols) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    EXPECT_EQ(table.ClearedBy("cpcar").size(), table.shortName == "cpcar_pro" ? 2u : 0u) << table.shortName;
  }
}

struct Wrong {
  const char *text;
  const char *error;
};

class WrongPartTest : public testing::TestWithParam<Wrong> {};

TEST_P(WrongPartTest, IsRefusedWithOneLine) {
  EXPECT_EQ(ErrorOf([] { PartOf(GetParam().text); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongPartTest,
    testing::Values(
        Wrong{"part:\n  - {kind: 1, number: 7, place: 1, near: {low: 1}}",
              "s.yaml:3: part.near: is for kind 0"},
        Wrong{"part:\n  - kind: 0\n    number: 7\n    place: 1\n    far: {key: {a: 1}}",
              "s.yaml:6: part.far: is for kind 1 or 3"},
        Wrong{"part:\n  - {kind: 0, number: 7, place: 1, near: {low: 1}, far: {key: {a: 1}}}",
              "s.yaml:3: part.far: stands in the same bytes as near (remove one)"},
        Wrong{"part:\n  - {kind: 3, number: 7, place: 1, far: {key: {a: 1}}, both: {a: 2}}",
              "s.yaml:3: part.far.key.a: another value stands in the same bytes (remove one)"},
        Wrong{"part:\n  - {kind: 3, number: 7, place: 1, far: {mask: {a: 1}}, both: {name: x}}",
              "s.yaml:3: part.far.mask.a: another value stands in the same bytes (remove one)"},
        Wrong{"part:\n  - {kind: 1, number: 7, place: 1, far: {key: {a: 1}}, both: {a: 1}}",
              "s.yaml:3: part.both: is for kind 3"},
        Wrong{"part:\n  - {repeat: 1, kind: 3, number: 7, place: 1, far: {key: {a: 1}}, both: {a: 1}}",
              "s.yaml:3: part.both: stands in the same bytes as far (remove one)"},
        Wrong{"part:\n  - {repeat: 2, kind: {from: 0, step: 1}, number: 7, place: 1, near: {low: 1}}",
              "s.yaml:3: part.near: is for kind 0"},
        Wrong{"part:\n  - {kind: 0, number: 7, place: 1}\n  - {kind: 0, number: 8, place: 1}",
              "s.yaml:4: part: owner has no entry {kind: 0, number: 8} (add it)"},
        Wrong{"part:\n  - {repeat: 3, kind: 1, number: {from: 7, step: 1}, place: 1}",
              "s.yaml:3: part: owner has no entry {kind: 1, number: 8} (add it)"},
        Wrong{"part:\n  - {kind: 0, number: 7, place: 1}\n  - {kind: 0, number: 7, place: 1}",
              "s.yaml:4: part: the entry of line 3 has the same key (change kind, number, place)"}));

TEST(OwnerTest, TableWithoutEntriesOwnsNone) {
  const Layout layout = RecordLayout();
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", "part: [{kind: 0, number: 7, place: 1}]", layout); }),
            "s.yaml:1: part: owner has no entry {kind: 0, number: 7} (add it)");
}

class WrongRecordTest : public testing::TestWithParam<Wrong> {};

TEST_P(WrongRecordTest, IsRefusedWithOneLine) {
  EXPECT_EQ(ErrorOf([] { RecordLayout(GetParam().text); }), GetParam().error);
}

// The parts start at line 23.
INSTANTIATE_TEST_SUITE_P(
    All, WrongRecordTest,
    testing::Values(
        Wrong{"      x: {at: 16, variant: kind, fields: {a: 0 u8}}",
              "a.yaml:23: part.x.variant: not a choice (write KEYFIELD VALUE, with one value or several)"},
        Wrong{"      x: {at: 16, variant: kind 1 two, fields: {a: 0 u8}}",
              "a.yaml:23: part.x.variant: not a choice (write KEYFIELD VALUE, with one value or several)"},
        Wrong{"      x: {at: 16, variant: counter 1, fields: {a: 0 u8}}",
              "a.yaml:23: part.x: \"counter\" is not a field of the key that could select a variant"},
        Wrong{"      x: {at: 16, fields: {y: {at: 0, variant: kind 1, fields: {a: 0 u8}}}}",
              "a.yaml:23: part.x.y: variant and cleared_by are not for fields inside a structure"},
        Wrong{"      x: {at: 16, fields: {y: 0 u8 cleared_by cpcar}}",
              "a.yaml:23: part.x.y: variant and cleared_by are not for fields inside a structure"},
        Wrong{"      x: 16 u8 cleared_by reset", "a.yaml:23: part.x: \"reset\" clears nothing (cpcar does)"},
        // Variants share bytes with other variants of their key field only.
        Wrong{"      x: {at: 16, variant: kind 1, fields: {a: 0 u8}}\n      y: 16 u8",
              "a.yaml:24: part.y: shares bits with a field before it"},
        Wrong{"      y: 16 u8\n      x: {at: 16, variant: kind 1, fields: {a: 0 u8}}",
              "a.yaml:24: part.x: shares bits with a field before it"},
        Wrong{"      x: {at: 16, variant: kind 1, fields: {a: 0 u8}}\n"
              "      y: {at: 16, variant: place 1, fields: {a: 0 u8}}",
              "a.yaml:24: part.y: shares bits with a field before it"},
        Wrong{"      x: {at: 16, variant: kind 1, fields: {a: 0 u8, b: 0 u8}}",
              "a.yaml:23: part.x.b: shares bits with a field before it"},
        Wrong{"      x: {at: 31, variant: kind 1, fields: {a: 0 u16}}",
              "a.yaml:23: part.x: lies outside its 32 bytes"}));

struct WrongOwner {
  const char *part;  // properties of the table
  const char *key;
  const char *error;
};

class WrongOwnerTest : public testing::TestWithParam<WrongOwner> {};

TEST_P(WrongOwnerTest, IsRefused) {
  static const std::string filler = FillerTables(3);
  const std::string text = std::string(R"(
tables:
  owner: {id: 0, name: CAP_TABLE_OWNER, key_size: 8, record_size: 8, capacity: 8, key: {a: 0 u32, b: 4 u32}, fields: {a: 0 u32}}
  small: {id: 1, name: CAP_TABLE_SMALL, key_size: 4, record_size: 8, capacity: 8, key: {a: 0 u32}, fields: {a: 0 u32}}
  part: {id: 2, name: CAP_TABLE_PART, record_size: 8, capacity: 8, fields: {z: 0 u32}, )") +
                           GetParam().part + ", key: " + GetParam().key + "}\n";
  EXPECT_EQ(ErrorOf([&] { ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}}); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongOwnerTest,
    testing::Values(
        WrongOwner{"key_size: 12, part_of: onwer", "{a: 0 u32, b: 4 u32}",
                   "a.yaml:5: part.part_of: \"onwer\" is not a table with one entry a key"},
        WrongOwner{"key_size: 12, part_of: filler_9", "{a: 0 u32, b: 4 u32}",
                   "a.yaml:5: part.part_of: \"filler_9\" is not a table with one entry a key"},
        WrongOwner{"key_size: 12, part_of: small", "{a: 0 u32}",
                   "a.yaml:5: part.part_of: \"small\" has a key that cannot begin this table's (8 "
                   "bytes or a multiple, and "
                   "shorter)"},
        WrongOwner{"key_size: 8, part_of: owner", "{a: 0 u32, b: 4 u32}",
                   "a.yaml:5: part.part_of: \"owner\" has a key that cannot begin this table's (8 "
                   "bytes or a multiple, and "
                   "shorter)"},
        WrongOwner{"key_size: 12, part_of: owner", "{a: 0 u32, c: 4 u32}",
                   "a.yaml:5: part.part_of: \"owner\" has the key field b, which this table's key "
                   "must have in the same "
                   "place"},
        WrongOwner{"key_size: 12, part_of: owner", "{a: 0 u32, b: 8 u32}",
                   "a.yaml:5: part.part_of: \"owner\" has the key field b, which this table's key "
                   "must have in the same "
                   "place"},
        WrongOwner{"key_size: 12, part_of: owner", "{a: 0 u32, b: 4 u16}",
                   "a.yaml:5: part.part_of: \"owner\" has the key field b, which this table's key "
                   "must have in the same "
                   "place"}));

}  // namespace
}  // namespace qdt::host
