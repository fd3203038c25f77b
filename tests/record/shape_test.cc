#include "host/record/record_shape.h"

#include "tests/record/things.h"

namespace qdt::host {
namespace {

const TableLayout &Things() { return *ThingsLayout().FindTable("things"); }

std::string Paths(const std::vector<Leaf> &leaves) {
  std::string paths;
  for (const Leaf &leaf : leaves) paths += (paths.empty() ? "" : " ") + leaf.path;
  return paths;
}

std::string PathsAt(std::string_view path) { return Paths(LeavesAt(Things(), path)); }
std::string Refusal(std::string_view paths) {
  return ErrorOf([&] { RecordShape::Select(Things(), paths); });
}

TEST(ShapeTest, AllValuesOfARecord) {
  EXPECT_EQ(
      Paths(LeavesOf(Things())),
      "marker index byte signed_byte flag some_bits word signed_word long signed_long ip ip_net ip6 "
      "ip6_words mac "
      "count name numbers[0] numbers[1] numbers[2] pairs[0].low pairs[0].on pairs[0].ports[0] "
      "pairs[0].ports[1] "
      "pairs[1].low pairs[1].on pairs[1].ports[0] pairs[1].ports[1] inner.value peer next peers[0] peers[1] "
      "peers[2] seen made part.a part.ip part6.b tail.c");
  EXPECT_EQ(Paths(LeavesOf(*ThingsLayout().FindRegion("TIMES"))),
            "tcp used apps[0].ttl apps[1].ttl apps[2].ttl");
}

TEST(ShapeTest, EveryBuiltInValueHasItsPlaceAndPath) {
  uint32_t leaves = 0;
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    for (const Leaf &leaf : LeavesOf(table)) {
      ++leaves;
      if (leaf.inKey) continue;
      const FieldRef found = table.At(leaf.path);
      EXPECT_EQ(found.offset, leaf.ref.offset) << table.shortName << " " << leaf.path;
      EXPECT_EQ(found.shift, leaf.ref.shift) << table.shortName << " " << leaf.path;
      EXPECT_LE(leaf.ref.offset + leaf.ref.size, table.spec.StoredSize())
          << table.shortName << " " << leaf.path;
      const std::vector<Leaf> again = LeavesAt(table, leaf.path);
      ASSERT_EQ(again.size(), 1u) << table.shortName << " " << leaf.path;
      EXPECT_EQ(again[0].path, leaf.path);
      EXPECT_EQ(again[0].ref.offset, leaf.ref.offset) << table.shortName << " " << leaf.path;
    }
  }
  EXPECT_GT(leaves, 2000u);
}

TEST(ShapeTest, Paths) {
  EXPECT_EQ(PathsAt("index"), "index");
  EXPECT_TRUE(LeavesAt(Things(), "index")[0].inKey);
  EXPECT_EQ(PathsAt("numbers"), "numbers[0] numbers[1] numbers[2]");
  EXPECT_EQ(PathsAt("numbers[2]"), "numbers[2]");
  EXPECT_EQ(LeavesAt(Things(), "numbers[2]")[0].ref.offset, 96u);
  EXPECT_EQ(PathsAt("pairs.low"), "pairs[0].low pairs[1].low");
  EXPECT_EQ(PathsAt("pairs[1].ports[0]"), "pairs[1].ports[0]");
  EXPECT_EQ(LeavesAt(Things(), "pairs[1].ports[0]")[0].ref.offset, 112u);
  EXPECT_EQ(PathsAt("pairs.ports[1]"), "pairs[0].ports[1] pairs[1].ports[1]");
  EXPECT_EQ(PathsAt("inner"), "inner.value");
  const std::vector<Leaf> part = LeavesAt(Things(), "part.ip");
  EXPECT_EQ(part.at(0).ref.offset, 196u);
  ASSERT_NE(part[0].part, nullptr);
  EXPECT_EQ(part[0].part->name, "part");
}

TEST(ShapeTest, ChosenFieldsKeepTheirOrderAndStandOnce) {
  const auto chosen = [](std::string_view paths) {
    std::string names;
    for (const ShapeNode &node : RecordShape::Select(Things(), paths).nodes) {
      names += (names.empty() ? "" : " ") + node.name;
      for (const ShapeNode &inner : node.inner) names += "." + inner.name;
    }
    return names;
  };
  EXPECT_EQ(chosen("word,index"), "word index");
  EXPECT_EQ(chosen("word,index,word"), "word index");
  EXPECT_EQ(chosen("pairs.ports,word,pairs.low"), "pairs.ports.low word");
  EXPECT_EQ(chosen("pairs.low,pairs"), "pairs.low.on.ports");
  EXPECT_EQ(chosen("pairs,pairs.low"), "pairs.low.on.ports");
  EXPECT_EQ(chosen("pairs[1].low,pairs[0],pairs[1].on"), "pairs[1].low.on pairs[0].low.on.ports");
  EXPECT_EQ(chosen("numbers[0],numbers"), "numbers[0] numbers");
  EXPECT_EQ(chosen("marker"), "marker");
}

TEST(ShapeTest, WhatThereIsNot) {
  EXPECT_EQ(Refusal("wrod"), R"(things has no field "wrod" (did you mean word?))");
  EXPECT_EQ(Refusal("word,indx"), R"(things has no field "indx" (did you mean index?))");
  EXPECT_EQ(Refusal("temperature"),
            R"(things has no field "temperature" ("nqecli fields things" lists them))");
  EXPECT_EQ(Refusal("pairs.lwo"), R"(things has no field "lwo" (did you mean low?))");
  EXPECT_EQ(Refusal("word,,index"), R"(things has no field "" ("nqecli fields things" lists them))");
  EXPECT_EQ(Refusal("word.low"), "things.word.low has no fields of its own (it is one value)");
  EXPECT_EQ(Refusal("word[0]"), "things.word[0] is no array (leave [0] out)");
  for (const char *path : {"numbers[3]", "numbers[]", "numbers[", "numbers[-1]", "numbers[1", "numbers[1]x",
                           "numbers[4294967296]", "numbers[x]", "numbers[ 1]", "numbers[+1]"}) {
    EXPECT_EQ(Refusal(path), "things." + std::string(path) + " has the elements [0] to [2]");
  }
}

}  // namespace
}  // namespace qdt::host
