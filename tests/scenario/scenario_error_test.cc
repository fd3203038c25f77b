#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

struct Wrong {
  const char *text;
  const char *error;
};

class WrongScenarioTest : public testing::TestWithParam<Wrong> {};

TEST_P(WrongScenarioTest, IsRefusedWithOneLine) {
  static const Layout layout = KindsLayout();
  EXPECT_EQ(ErrorOf([] { Scenario::FromText("s.yaml", GetParam().text, layout); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Names, WrongScenarioTest,
    testing::Values(
        Wrong{"kinds:\n  - {index: 1}\nothr:\n  - {group: 1}",
              "s.yaml:3: othr: no such table (did you mean other?)"},
        Wrong{"aggregates: []", "s.yaml:1: aggregates: no such table (nqecli tables lists them)"},
        Wrong{"\"a\\0\\e[2J\\nb\": []", "s.yaml:1: a??[2J?b: no such table (nqecli tables lists them)"},
        Wrong{"kinds: [{index: 1, \"a\\0b\": 1}]",
              "s.yaml:1: kinds.a?b: no such field (nqecli fields kinds lists them)"},
        Wrong{"region: {}", "s.yaml:1: region: no such table (did you mean regions?)"},
        Wrong{"bare: [{a: 1}]", "s.yaml:1: bare: this table has no fields yet (leave it out)"},
        Wrong{"filler_9: []", "s.yaml:1: filler_9: this table has no fields yet (leave it out)"},
        Wrong{"kinds:\n  - index: 1\n    flog: 1",
              "s.yaml:3: kinds.flog: no such field (did you mean flag?)"},
        Wrong{"kinds:\n  - index: 1\n    temperature: 1",
              "s.yaml:3: kinds.temperature: no such field (nqecli fields kinds lists them)"},
        Wrong{"kinds:\n  - index: 1\n    pairs: [{lo: 1}]",
              "s.yaml:3: kinds.pairs[0].lo: no such field (did you mean low?)"},
        Wrong{"kinds:\n  - {index: 1, marker: 3}", "s.yaml:2: kinds.marker: always 327680 (leave it out)"},
        Wrong{"kinds: [{index: 1, inner: {repeat: 2}}]",
              "s.yaml:1: kinds.inner.repeat: no such field (nqecli fields kinds lists them)"},
        Wrong{"regions: {TIMES: {repeat: 2}}",
              "s.yaml:1: TIMES.repeat: no such field (nqecli fields TIMES lists them)"},
        Wrong{"kinds: [{repeat: 1, index: 1, peer: {group: 1, number: 1, repeat: 2}}]",
              "s.yaml:1: kinds.peer.repeat: no such field (nqecli fields other lists them)"},
        Wrong{"regions: {TIME: {tcp: 1}}", "s.yaml:1: TIME: no such region (did you mean TIMES?)"},
        Wrong{"regions: {ELSEWHERE: {tcp: 1}}", "s.yaml:1: ELSEWHERE: no such region (remove it)"},
        Wrong{"regions: {PLAIN: {tcp: 1}}", "s.yaml:1: PLAIN: this region has no fields yet (leave it out)"},
        Wrong{"regions: {TIMES: {tpc: 1}}", "s.yaml:1: TIMES.tpc: no such field (did you mean tcp?)"}));

INSTANTIATE_TEST_SUITE_P(
    Values, WrongScenarioTest,
    testing::Values(
        Wrong{"other:\n  - {group: 1}", "s.yaml:2: other.number: missing (it is part of the entry's key)"},
        Wrong{"kinds: [{index: 1, byte: 256}]", "s.yaml:1: kinds.byte: 256 does not fit 8 bits (0 to 255)"},
        Wrong{"kinds: [{index: 1, some_bits: 16}]",
              "s.yaml:1: kinds.some_bits: 16 does not fit 4 bits (0 to 15)"},
        Wrong{"kinds: [{index: -1}]", "s.yaml:1: kinds.index: -1 does not fit 32 bits (0 to 4294967295)"},
        Wrong{"kinds: [{index: 1, byte: yes}]",
              "s.yaml:1: kinds.byte: \"yes\" is not a number (decimal or 0x...)"},
        Wrong{"kinds: [{index: 1, flag: yes}]", "s.yaml:1: kinds.flag: \"yes\" is not a bit (write true)"},
        Wrong{"kinds: [{index: 1, flag: Off}]", "s.yaml:1: kinds.flag: \"Off\" is not a bit (write false)"},
        Wrong{"kinds: [{index: 1, flag: maybe}]",
              "s.yaml:1: kinds.flag: \"maybe\" is not a bit (true, false, 1 or 0)"},
        Wrong{"kinds: [{index: 1, byte: 08}]",
              "s.yaml:1: kinds.byte: \"08\" is not a number (a leading 0 makes it octal; leave it out)"},
        Wrong{"kinds: [{index: 1, low: 3}]", "s.yaml:1: kinds.low: no such field (it stands in pairs)"},
        Wrong{"kinds:\n  - index: 1\n\n    ip: 10.1.0.7.1",
              "s.yaml:4: kinds.ip: \"10.1.0.7.1\" is not an IPv4 address (such as 192.0.2.1)"},
        Wrong{"kinds: [{index: 1, mac: 7}]",
              "s.yaml:1: kinds.mac: \"7\" is not a MAC address (such as 02:00:5e:00:53:01)"},
        Wrong{"kinds: [{index: 1, name: ninechars}]",
              "s.yaml:1: kinds.name: 9 bytes are too many (the field holds 8)"},
        Wrong{
            R"(kinds: [{index: 1, name: 'a\b'}])",
            R"(s.yaml:1: kinds.name: "a\b" has a backslash before something else (write \\ for one, or \x1b for a byte))"},
        Wrong{
            R"(kinds: [{index: 1, name: 'a\x1'}])",
            R"(s.yaml:1: kinds.name: "a\x1" has a backslash before something else (write \\ for one, or \x1b for a byte))"},
        Wrong{
            R"(kinds: [{index: 1, name: '\'}])",
            R"(s.yaml:1: kinds.name: "\" has a backslash before something else (write \\ for one, or \x1b for a byte))"},
        Wrong{R"(kinds: [{index: 1, name: '\x00\x01\x02\x03\x04\x05\x06\x07\x08'}])",
              "s.yaml:1: kinds.name: 9 bytes are too many (the field holds 8)"},
        Wrong{"kinds: [{index: 1, byte: }]",
              "s.yaml:1: kinds.byte: no value (write one, or leave the field out)"},
        Wrong{"kinds: [{index: 1, byte: [1]}]", "s.yaml:1: kinds.byte: not a single value"},
        Wrong{"kinds: [{index: 1, byte: {value: 1}}]",
              "s.yaml:1: kinds.byte: not a value (write one, or {from: VALUE, step: NUMBER})"},
        Wrong{"kinds: [{index: 1, name: {from: a, step: 1}}]", "s.yaml:1: kinds.name: not a single value"},
        Wrong{"kinds: [{index: 1, numbers: [1, 2, 3, 4]}]",
              "s.yaml:1: kinds.numbers: 4 elements are too many (the array holds 3)"},
        Wrong{"kinds: [{index: 1, numbers: 5}]",
              "s.yaml:1: kinds.numbers: not a list (write [VALUE, ...] or {NUMBER: VALUE, ...})"},
        Wrong{"kinds: [{index: 1, numbers: {3: 1}}]",
              "s.yaml:1: kinds.numbers: \"3\" is not the number of an element (the array holds 3)"},
        Wrong{"kinds: [{index: 1, numbers: [1, x]}]",
              "s.yaml:1: kinds.numbers[1]: \"x\" is not a number (decimal or 0x...)"},
        Wrong{"kinds: [{index: 1, inner: 5}]",
              "s.yaml:1: kinds.inner: not a mapping (write {FIELD: VALUE, ...})"},
        Wrong{"kinds: [{index: {from: 1, step: 1}}]",
              "s.yaml:1: kinds.index: counts up in an entry that is not repeated (add repeat: NUMBER)"},
        Wrong{"kinds:\n  - repeat: 300\n    index: {from: 1, step: 1}\n    byte: {from: 1, step: 1}",
              "s.yaml:4: kinds.byte: repetition 256 counts past 8 bits"},
        Wrong{"kinds: [{repeat: 2, index: {from: 1, step: 1}, word: {from: 0, step: -1}}]",
              "s.yaml:1: kinds.word: repetition 2 counts past 32 bits"},
        Wrong{"kinds: [{repeat: 2, index: {from: 1, step: x}}]",
              "s.yaml:1: kinds.index.step: \"x\" is not a number (decimal or 0x...)"},
        Wrong{"kinds: [{repeat: 0, index: 1}]",
              "s.yaml:1: kinds.repeat: \"0\" is not a number of entries (1 or more)"},
        Wrong{"kinds: [{repeat: many, index: 1}]",
              "s.yaml:1: kinds.repeat: \"many\" is not a number of entries (1 or more)"}));

INSTANTIATE_TEST_SUITE_P(
    Entries, WrongScenarioTest,
    testing::Values(
        Wrong{"kinds: {index: 1}", "s.yaml:1: kinds: not a list of entries (write - {FIELD: VALUE, ...})"},
        Wrong{"kinds: [5]", "s.yaml:1: kinds: an entry that is not a mapping (write {FIELD: VALUE, ...})"},
        Wrong{"other:\n  - {group: 1, number: 2}\n  - {group: 1, number: 3}\n  - {number: 2, group: 1}",
              "s.yaml:4: other: the entry of line 2 has the same key (change group, number)"},
        Wrong{
            "other: [{repeat: 2, group: 1, number: 2}]",
            "s.yaml:1: other: its 2 repetitions have the same key (let group or number count: {from: VALUE, "
            "step: 1})"},
        Wrong{
            "other: [{repeat: 3, group: 1, number: {from: 5, step: 0}}]",
            "s.yaml:1: other: its 3 repetitions have the same key, since number counts by a step of 0 (write "
            "another step)"},
        Wrong{"kinds:\n  - {index: 90}\n  - {repeat: 40, index: {from: 1, step: 1}}\n"
              "  - {repeat: 40, index: {from: 79, step: -1}}",
              "s.yaml:4: kinds: the entry of line 3 has the same key (change marker, index)"},
        Wrong{"other:\n  - {repeat: 4, group: 1, number: {from: 1, step: 1}}\n  - {group: 2, number: 1}",
              "s.yaml:3: other: the table is full (it holds 4 entries)"},
        Wrong{"other:\n  - {repeat: 4000000000, group: 1, number: {from: 1, step: 1}}",
              "s.yaml:2: other: the table is full (it holds 4 entries)"},
        Wrong{"kinds:\n  - {index: 1}\n  - {index: 2, peer: {group: 1, number: 5}}",
              "s.yaml:3: kinds.peer: other has no entry {group: 1, number: 5} (add it, or write 0)"},
        Wrong{"kinds:\n  - {index: 2, peers: [0, {stale: {index: 3}}]}",
              "s.yaml:2: kinds.peers[1]: kinds has no entry {index: 3, marker: 327680} (add it, or write 0)"},
        Wrong{"route: [{length: 24, vpn: 0, destination: 192.0.2.0, next: {group: 1}}]",
              "s.yaml:1: route.next.number: missing (it is part of the entry's key)"},
        Wrong{"route: [{length: 24, vpn: 0, destination: 192.0.2.0, next: {group: 1, number: 1, extra: 1}}]",
              "s.yaml:1: route.next.extra: no such field (nqecli fields other lists them)"},
        Wrong{"kinds: [{index: 1, peer: {stale: 5}}]",
              "s.yaml:1: kinds.peer: not a stale reference (write {stale: {KEY FIELD: VALUE, ...}})"},
        Wrong{"kinds: [{index: 1, peer: {stale: {}, group: 1}}]",
              "s.yaml:1: kinds.peer: not a stale reference (write {stale: {KEY FIELD: VALUE, ...}})"},
        Wrong{"kinds: [{index: 1, record: 5}]",
              "s.yaml:1: kinds.record: not a mapping (write {FIELD: VALUE, ...})"},
        Wrong{"kinds:\n  - index: 1\n    record: {byte: 5}",
              "s.yaml:3: kinds.record.byte: no field that key and record both have (write it outside of "
              "record)"},
        Wrong{"kinds: [{index: 1, record: {marker: 5}}]",
              "s.yaml:1: kinds.record.marker: no field that key and record both have (write it outside of "
              "record)"},
        Wrong{"kinds: [{index: 1, record: {index: x}}]",
              "s.yaml:1: kinds.record.index: \"x\" is not a number (decimal or 0x...)"},
        Wrong{"regions: {TIMES: {record: {tcp: 1}}}",
              "s.yaml:1: TIMES.record: no such field (nqecli fields TIMES lists them)"},
        Wrong{"kinds: [{index: 1, peer: somewhere}]",
              "s.yaml:1: kinds.peer: \"somewhere\" is not a number (decimal or 0x...)"},
        Wrong{"regions: [TIMES]", "s.yaml:1: regions: not a mapping (write REGION: {FIELD: VALUE, ...})"},
        Wrong{"regions: {TIMES: 5}", "s.yaml:1: TIMES: not a mapping (write {FIELD: VALUE, ...})"}));

INSTANTIATE_TEST_SUITE_P(
    Yaml, WrongScenarioTest,
    testing::Values(
        Wrong{"", "s.yaml: the file is empty (it needs at least one mapping)"},
        Wrong{"# nothing but a comment\n", "s.yaml: the file is empty (it needs at least one mapping)"},
        Wrong{"~", "s.yaml: the file is empty (it needs at least one mapping)"},
        Wrong{"\n\njust words", "s.yaml:3: not a mapping (write NAME: at the start of a line)"},
        Wrong{"- a\n- b", "s.yaml:1: not a mapping (write NAME: at the start of a line)"},
        Wrong{"kinds: [{index: 1}",
              "s.yaml:1: a key that is not a plain name (write NAME: VALUE, and close every bracket)"},
        Wrong{"kinds:\n  - {index: 1\n  - {index: 2}",
              "s.yaml:3: YAML syntax: end of map flow not found (indent with blanks, close every bracket and "
              "quote)"},
        Wrong{
            "kinds:\n\t- {index: 1}",
            "s.yaml:2: YAML syntax: illegal block entry (indent with blanks, close every bracket and quote)"},
        Wrong{"kinds: [*nobody]",
              "s.yaml:1: YAML syntax: the referenced anchor is not defined (indent with blanks, close every "
              "bracket and quote)"},
        Wrong{"kinds: []\nkinds: []", "s.yaml:2: \"kinds\" stands twice in one mapping (remove one)"},
        Wrong{"kinds:\n  - index: 1\n    word: 2\n    index: 3",
              "s.yaml:4: \"index\" stands twice in one mapping (remove one)"},
        Wrong{"[a, b]: 5",
              "s.yaml:1: a key that is not a plain name (write NAME: VALUE, and close every bracket)"},
        Wrong{"kinds: []\n---\nother: []",
              "s.yaml:2: a second document begins here (a file holds one; remove the \"---\")"},
        Wrong{"kinds: [{index: 1, numbers: &a [*a]}]",
              "s.yaml:1: an alias stands inside its own anchor (write the value out)"},
        Wrong{"kinds: []\nother: \x04[]",
              "s.yaml:2: a control character, byte 4 (the file must be UTF-8 text)"},
        Wrong{"kinds: [[[[[[[[[[[[[[[[[[1]]]]]]]]]]]]]]]]]]",
              "s.yaml:1: nested too deeply (16 levels are the limit)"}));

TEST(ScenarioBoundsTest, AliasBombIsRefused) {
  std::string text = "a0: &a0 [1, 1, 1, 1, 1, 1, 1, 1, 1, 1]\n";
  for (int i = 1; i < 9; ++i) {
    const std::string inner = "*a" + std::to_string(i - 1);
    text += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [";
    for (int j = 0; j < 10; ++j) text += inner + (j < 9 ? ", " : " ]\n");
  }
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", text, KindsLayout()); }),
            "s.yaml:7: more than 8000000 values with all aliases followed (use repeat for many entries)");
}

TEST(ScenarioBoundsTest, ManyValuesAreRefused) {
  // A list of 7,999 values is 8,000 with itself; the document's are 11 more.
  std::string text = "a: &a [";
  for (int i = 0; i < 7999; ++i) text += "1,";
  text += "]\nkinds: [";
  for (int i = 0; i < 998; ++i) text += "*a ,";
  const auto errorWith = [&](int more) {
    std::string whole = text;
    for (int i = 0; i < more; ++i) whole += "1,";
    return ErrorOf([&] { Scenario::FromText("s.yaml", whole + "]\n", KindsLayout()); });
  };
  EXPECT_EQ(errorWith(7996), "s.yaml:1: a: no such table (nqecli tables lists them)");
  EXPECT_EQ(errorWith(7997),
            "s.yaml:2: more than 8000000 values with all aliases followed (use repeat for many entries)");
}

// As many as a table holds, each with a line of its own.
TEST(ScenarioBoundsTest, EntriesMayBeListedByTheHundredThousand) {
  constexpr int kEntries = 120'000;
  static const std::string filler = FillerTables(1);
  const Layout layout = ReadLayouts({{"wide.yaml", R"(
tables:
  wide:
    id: 0
    name: CAP_TABLE_WIDE
    key_size: 4
    record_size: 24
    capacity: 120000
    key: {index: 0 u32}
    fields: {index: 0 u32, a: 4 u32, b: 8 u32, c: 12 u32, d: 16 ipv4}
)"},
                                     {"filler.yaml", filler}});
  std::string text = "wide:\n";
  for (int i = 0; i < kEntries; ++i) {
    text += "  - {index: " + std::to_string(i) + ", a: 1, b: 2, c: 3, d: 192.0.2.1}\n";
  }
  const Scenario scenario = Scenario::FromText("s.yaml", text, layout);
  ASSERT_EQ(scenario.tables()[0].count(), uint32_t{kEntries});
  EXPECT_EQ(layout.Table(0).At("index").Get(scenario.tables()[0].record(kEntries - 1).data()), 119'999u);
  const std::string full = "wide:\n  - {repeat: 120000, index: {from: 0, step: 1}}\n";
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", full + "  - {index: 5}\n", layout); }),
            "s.yaml:3: wide: the table is full (it holds 120000 entries)");
}

TEST(ScenarioBoundsTest, DeepNestingEndsAtOnce) {
  for (const std::string piece : {"[", "{", "[1,", "{a: [ "}) {
    std::string text = "kinds: ";
    while (text.size() < (16u << 20)) text += piece;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", text, KindsLayout()); }),
              "s.yaml:1: nested too deeply (16 levels are the limit)");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << piece;
  }
}

TEST(ScenarioBoundsTest, LongNamesAreCutInTheLine) {
  const std::string name(900, 'x');
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", "\"" + name + "\": []", KindsLayout()); }),
            "s.yaml:1: " + name.substr(0, 64) + ": no such table (nqecli tables lists them)");
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", "kinds: [{index: " + name + "}]", KindsLayout()); }),
            "s.yaml:1: kinds.index: \"" + name.substr(0, 40) + "...\" is not a number (decimal or 0x...)");
}

class ScenarioFileTest : public testing::Test {
 protected:
  ScenarioFileTest() : path_(testing::TempDir() + "qdt_scenario_" + std::to_string(getpid()) + ".yaml") {}
  ~ScenarioFileTest() override { std::filesystem::remove_all(path_); }

  std::string LoadError() {
    return ErrorOf([this] { Scenario::Load(path_, layout_); });
  }

  const std::string path_;
  const Layout layout_ = KindsLayout();
};

TEST_F(ScenarioFileTest, Missing) {
  EXPECT_EQ(LoadError(), path_ + ": No such file or directory (name a readable file)");
}

TEST_F(ScenarioFileTest, Directory) {
  std::filesystem::create_directory(path_);
  EXPECT_EQ(LoadError(), path_ + ": not a regular file (name a YAML file)");
}

TEST_F(ScenarioFileTest, PipeIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(LoadError(), path_ + ": not a regular file (name a YAML file)");
}

TEST_F(ScenarioFileTest, WithoutPermission) {
  if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
  std::ofstream(path_) << "kinds: []\n";
  ASSERT_EQ(chmod(path_.c_str(), 0), 0);
  EXPECT_EQ(LoadError(), path_ + ": Permission denied (name a readable file)");
}

TEST_F(ScenarioFileTest, TooLargeIsRefusedUnread) {
  std::ofstream(path_) << "kinds: []\n";
  std::filesystem::resize_file(path_, (128u << 20) + 1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(LoadError(),
            path_ + ": 134217729 bytes are too many (the limit is 134217728; use repeat for many entries)");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

TEST_F(ScenarioFileTest, Binary) {
  std::ofstream(path_) << std::string(
      "\x7f"
      "ELF\x02\x01\x01\x00",
      8);
  EXPECT_EQ(LoadError(), path_ + ":1: a control character, byte 127 (the file must be UTF-8 text)");
}

TEST_F(ScenarioFileTest, Good) {
  std::ofstream(path_) << "other: [{group: 1, number: 2}]\n";
  EXPECT_EQ(Scenario::Load(path_, layout_).tables()[0].count(), 1u);
}

}  // namespace
}  // namespace qdt::host
