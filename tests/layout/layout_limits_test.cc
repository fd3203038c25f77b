#include <gtest/gtest.h>

#include <string>

#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

// A layout at a limit, which is taken, and one past it.
struct Limit {
  const char *name;
  std::string at;
  std::string past;
  const char *error;
};

std::string Table(const std::string &properties) {
  return "tables:\n  t:\n    id: 0\n    name: CAP_TABLE_T\n" + properties;
}

// A table of 8-byte records but for what is given, which stands in line 5.
std::string Shape(const std::string &property, const std::string &rest = "record_size: 8\n    key_size: 4") {
  const bool hasCapacity = property.starts_with("capacity");
  return Table("    " + property + "\n    " + rest + (hasCapacity ? "\n" : "\n    capacity: 1\n"));
}

// A region of 65,535 bytes with the field, which stands in line 5.
std::string FieldOf(const std::string &field) {
  return "regions:\n  R:\n    size: 65535\n    fields:\n      " + field + "\n";
}

std::string Regions(int count) {
  std::string text = "regions:\n";
  for (int i = 0; i < count; ++i) text += "  R" + std::to_string(i) + ": {size: 1}\n";
  return text;
}

const std::string kName(63, 'n');
const std::string kLongName(64, 'n');
const std::string kTail(53, 'T');  // behind CAP_TABLE_

class LayoutLimitTest : public testing::TestWithParam<Limit> {
 protected:
  static std::string ErrorIn(const std::string &text) {
    static const std::string filler = FillerTables(1);
    return ErrorOf([&] { ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}}); });
  }
};

TEST_P(LayoutLimitTest, IsTakenAtTheLimit) {
  const bool hasTable = GetParam().at.starts_with("tables");
  EXPECT_EQ(ErrorIn(hasTable ? GetParam().at : GetParam().at + Table("")), "no error");
}

TEST_P(LayoutLimitTest, IsRefusedPastTheLimit) {
  const bool hasTable = GetParam().past.starts_with("tables");
  EXPECT_EQ(ErrorIn(hasTable ? GetParam().past : GetParam().past + Table("")), GetParam().error);
}

const std::string kRecordAndKey = "record_size: 8\n    key_size: 4";

INSTANTIATE_TEST_SUITE_P(
    Tables, LayoutLimitTest,
    testing::Values(
        Limit{"ShortestKey", Shape("key_size: 4", "record_size: 8"), Shape("key_size: 3", "record_size: 8"),
              "a.yaml:5: t.key_size: not a number from 4 to 128"},
        Limit{"LongestKey", Shape("key_size: 128", "record_size: 8"),
              Shape("key_size: 129", "record_size: 8"), "a.yaml:5: t.key_size: not a number from 4 to 128"},
        Limit{"SmallestRecord", Shape("record_size: 1", "key_size: 4"),
              Shape("record_size: 0", "key_size: 4"),
              "a.yaml:5: t.record_size: not a number from 1 to 65535"},
        Limit{"LargestRecord", Shape("record_size: 65535", "key_size: 4"),
              Shape("record_size: 65536", "key_size: 4"),
              "a.yaml:5: t.record_size: not a number from 1 to 65535"},
        Limit{"LeastCapacity", Shape("capacity: 1"), Shape("capacity: 0"),
              "a.yaml:5: t.capacity: not a number from 1 to 16777216"},
        Limit{"GreatestCapacity", Shape("capacity: 16777216"), Shape("capacity: 16777217"),
              "a.yaml:5: t.capacity: not a number from 1 to 16777216"},
        Limit{"NumberOfManyDigits", Shape("capacity: 0016777216"), Shape("capacity: 99999999999999999999"),
              "a.yaml:5: t.capacity: not a number from 1 to 16777216"},
        Limit{"LeastData", Shape("data_size: 1"), Shape("data_size: 0"),
              "a.yaml:5: t.data_size: not a number from 1 to 8"},
        Limit{"MostData", Shape("data_size: 8"), Shape("data_size: 9"),
              "a.yaml:5: t.data_size: not a number from 1 to 8"},
        Limit{"SearchOffset", Shape("search_offset: 7"), Shape("search_offset: 8"),
              "a.yaml:5: t.search_offset: not a number from 0 to 7"},
        Limit{"GroupRules", Shape("group_rules: 16777216"), Shape("group_rules: 16777217"),
              "a.yaml:5: t.group_rules: not a number from 0 to 16777216"},
        Limit{"Attached", Shape("attached_size: 65535"), Shape("attached_size: 65536"),
              "a.yaml:5: t.attached_size: not a number from 0 to 65535"},
        Limit{"AttachedToWholeWords", Shape("attached_size: 8"),
              Shape("attached_size: 8", "record_size: 9\n    key_size: 4"),
              "a.yaml:5: t.attached_size: for records of whole 8 bytes only"},
        // 64 GiB together.
        Limit{"ArenaSize", Shape("capacity: 16777216", "record_size: 3900\n    key_size: 4"),
              Shape("capacity: 16777216", "record_size: 4096\n    key_size: 4"),
              "a.yaml:2: t: the tables together are too large for an arena (make it smaller, or leave it "
              "out)"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Names, LayoutLimitTest,
    testing::Values(
        Limit{"ShortName", "tables:\n  " + kName + ": {id: 0, name: CAP_TABLE_T}",
              "tables:\n  " + kLongName + ": {id: 0, name: CAP_TABLE_T}",
              "a.yaml:2: nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn: "
              "\"nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn...\" is not a name (1 to 63 letters, digits and "
              "underlines)"},
        Limit{"FullName", "tables:\n  t: {id: 0, name: CAP_TABLE_" + kTail + "}",
              "tables:\n  t: {id: 0, name: CAP_TABLE_" + kTail + "T}",
              "a.yaml:2: t.name: \"CAP_TABLE_TTTTTTTTTTTTTTTTTTTTTTTTTTTTTT...\" is not a name (1 to 63 "
              "letters, "
              "digits and underlines)"},
        Limit{"FullNameAgain", "tables:\n  t: {id: 0, name: CAP_TABLE_FILLER_0}",
              "tables:\n  t: {id: 0, name: CAP_TABLE_FILLER_5}",
              "filler.yaml:6: filler_5.name: CAP_TABLE_FILLER_5 is t already (rename one)"},
        Limit{"NoName", "tables:\n  t: {id: 0, name: CAP_TABLE_T}",
              "tables:\n  \"\": {id: 0, name: CAP_TABLE_T}",
              "a.yaml:2: : \"\" is not a name (1 to 63 letters, digits and underlines)"},
        Limit{"NameWithNul", "tables:\n  t: {id: 0, name: CAP_TABLE_T}",
              "tables:\n  t: {id: 0, name: \"CAP_TABLE_\\0\"}",
              "a.yaml:2: t.name: \"CAP_TABLE_?\" is not a name (1 to 63 letters, digits and underlines)"},
        Limit{"Region", "regions:\n  " + kName + ": {size: 1}\n",
              "regions:\n  " + kLongName + ": {size: 1}\n",
              "a.yaml:2: nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn: "
              "\"nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn...\" is not a name (1 to 63 letters, digits and "
              "underlines)"},
        Limit{"RegionAgain", "regions:\n  R: {size: 1}\n", "regions:\n  R: {size: 1}\n  R: {size: 1}\n",
              "a.yaml:3: \"R\" stands twice in one mapping (remove one)"},
        Limit{"Field", FieldOf(kName + ": 0 u8"), FieldOf("\"a.b\": 0 u8"),
              "a.yaml:5: R.a.b: \"a.b\" is not a name (1 to 63 letters, digits and underlines)"},
        Limit{"LongField", FieldOf(kName + ": 0 u8"), FieldOf(kLongName + ": 0 u8"),
              "a.yaml:5: R.nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn: "
              "\"nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn...\" is not a name (1 to 63 letters, digits and "
              "underlines)"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Fields, LayoutLimitTest,
    testing::Values(
        Limit{"RegionSize", "regions:\n  R: {size: 16777216, fields: {a: 0 u8}}\n",
              "regions:\n  R: {size: 16777217, fields: {a: 0 u8}}\n",
              "a.yaml:2: R.size: not a number from 1 to 16777216"},
        Limit{"NumberOfRegions", Regions(1000), Regions(1001),
              "a.yaml:1002: R1000: more than 1000 regions (leave some out)"},
        Limit{"LastByte", FieldOf("a: 65534 u8"), FieldOf("a: 65535 u8"),
              "a.yaml:5: R.a: lies outside its 65535 bytes"},
        Limit{"Offset", FieldOf("a: 65534 u8"), FieldOf("a: 65536 u8"),
              "a.yaml:5: R.a: \"65536\" stands where the offset in bytes belongs (a number below 65536)"},
        Limit{"Text", FieldOf("a: 0 text 65535"), FieldOf("a: 0 text 65536"),
              "a.yaml:5: R.a: \"65536\" stands where the text's length belongs (a number below 65536)"},
        Limit{"Count", FieldOf("a: 0 u8 x 65535"), FieldOf("a: 0 u8 x 65536"),
              "a.yaml:5: R.a: \"65536\" stands where the number of elements belongs (a number below 65536)"},
        Limit{
            "Stride", FieldOf("a: 0 u8 x 2 every 65534"), FieldOf("a: 0 u8 x 2 every 65536"),
            "a.yaml:5: R.a: \"65536\" stands where the bytes from one element to the next belongs (a number "
            "below 65536)"},
        Limit{"LastElement", FieldOf("a: 0 u8 x 2 every 65534"), FieldOf("a: 0 u8 x 2 every 65535"),
              "a.yaml:5: R.a: lies outside its 65535 bytes"},
        Limit{"Bits", FieldOf("a: 0 u64 bits 0-63"), FieldOf("a: 0 u64 bits 0-64"),
              "a.yaml:5: R.a: bits outside their word (0 to 63, the lower first)"},
        Limit{"StructureElements", FieldOf("a: {at: 0, count: 65535, stride: 1, fields: {b: 0 u8}}"),
              FieldOf("a: {at: 0, count: 16777217, stride: 1, fields: {b: 0 u8}}"),
              "a.yaml:5: R.a.count: not a number from 1 to 16777216"},
        Limit{"StructureBytes", FieldOf("a: {at: 0, count: 2, stride: 32767, fields: {b: 0 u8}}"),
              FieldOf("a: {at: 0, count: 16777216, stride: 2, fields: {b: 0 u8}}"),
              "a.yaml:5: R.a.count: an array that no record holds"}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qdt::host
