// All mistakes of a scenario at once, and what may be one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

using Lines = std::vector<std::string>;

class CheckTest : public testing::Test {
 protected:
  CheckTest() : dir_(testing::TempDir() + "qdt_check_" + std::to_string(getpid())) {
    std::filesystem::create_directory(dir_);
  }
  ~CheckTest() override { std::filesystem::remove_all(dir_); }

  void Write(const std::string &name, const std::string &text) const {
    std::ofstream(dir_ + "/" + name) << text;
  }
  // The mistakes, without the directory.
  Lines Check(const std::string &text, size_t most = 20, const Layout &layout = KindsLayout()) {
    Write("s.yaml", text);
    Mistakes mistakes(most);
    try {
      Scenario::Check(dir_ + "/s.yaml", layout, &mistakes, most, &warnings_);
    } catch (const Mistakes::Enough &) {
    }
    return Shortened(mistakes.lines());
  }
  Lines Warnings() const { return Shortened(warnings_); }

  Lines Shortened(const Lines &lines) const {
    Lines shorter;
    for (const std::string &line : lines) {
      EXPECT_EQ(line.rfind(dir_ + "/", 0), 0u) << line;
      shorter.push_back(line.substr(dir_.size() + 1));
    }
    return shorter;
  }

  const std::string dir_;
  Lines warnings_;
};

TEST_F(CheckTest, AllMistakesAreTold) {
  EXPECT_EQ(Check("kinds:\n"
                  "  - {index: 1, byte: 256, flag: yes, flog: 1}\n"
                  "  - {index: x}\n"
                  "  - {index: 3, pairs: [{low: 1, lo: 2}, {low: y}]}\n"
                  "  - 5\n"
                  "othr: [{group: 1}]\n"
                  "regions:\n"
                  "  TIMES: {tpc: 1, tcp: z}\n"
                  "  TIME: {}\n"
                  "nat_policy:\n"
                  "  - {name: a, action: drop}\n"
                  "  - {name: b, egress: x, action: no-nat}\n"
                  "statistics: {arp miss: many}\n"),
            (Lines{"s.yaml:2: kinds.byte: 256 does not fit 8 bits (0 to 255)",
                   "s.yaml:2: kinds.flag: \"yes\" is not a bit (write true)",
                   "s.yaml:2: kinds.flog: no such field (did you mean flag?)",
                   "s.yaml:3: kinds.index: \"x\" is not a number (decimal or 0x...)",
                   "s.yaml:4: kinds.pairs[0].lo: no such field (did you mean low?)",
                   "s.yaml:4: kinds.pairs[1].low: \"y\" is not a number (decimal or 0x...)",
                   "s.yaml:5: kinds: an entry that is not a mapping (write {FIELD: VALUE, ...})",
                   "s.yaml:6: othr: no such table (did you mean other?)",
                   "s.yaml:8: TIMES.tpc: no such field (did you mean tcp?)",
                   "s.yaml:8: TIMES.tcp: \"z\" is not a number (decimal or 0x...)",
                   "s.yaml:9: TIME: no such region (did you mean TIMES?)",
                   "s.yaml:11: nat_policy.action: \"drop\" is no action (source-nat or no-nat)",
                   "s.yaml:12: nat_policy.egress: \"x\" is not a number (decimal or 0x...)",
                   "s.yaml:13: statistics.arp miss: \"many\" is not a number (decimal or 0x...)"}));
}

TEST_F(CheckTest, NothingFollowsFromAMistake) {
  // The entry that the second one leads to is there, but wrong; neither is its key missing.
  EXPECT_EQ(
      Check("other:\n"
            "  - {grop: 1, number: 5}\n"
            "  - {group: 1, number: 6}\n"
            "  - {group: 1, number: 6}\n"
            "kinds:\n"
            "  - {index: 1, peer: {group: 1, number: 5}}\n"
            "  - {index: 2, peers: [{stale: {index: 77}}]}\n"
            "  - {index: 3, peer: {group: 1, number: 6}}\n"),
      (Lines{
          "s.yaml:2: other.grop: no such field (did you mean group?)",
          "s.yaml:4: other: the entry of line 3 has the same key (change group, number)",
          "s.yaml:7: kinds.peers[0]: kinds has no entry {index: 77, marker: 327680} (add it, or write 0)"}));
  EXPECT_EQ(Check("other: [{repeat: 9, group: 1, number: {from: 1, step: 1}}, {group: 2, number: 1}]\n"
                  "kinds: [{index: 1, peer: {group: 1, number: 5}}]\n"),
            (Lines{"s.yaml:1: other: the table is full (it holds 4 entries)"}));
}

TEST_F(CheckTest, RepetitionsThatCountTooFarAreTakenBack) {
  EXPECT_EQ(Check("kinds:\n"
                  "  - {repeat: 290, index: {from: 1, step: 1}, byte: {from: 0, step: 1}}\n"
                  "  - {repeat: 290, index: {from: 1, step: 1}}\n"
                  "  - {index: 5}\n"),
            (Lines{"s.yaml:2: kinds.byte: repetition 257 counts past 8 bits",
                   "s.yaml:4: kinds: the entry of line 3 has the same key (change marker, index)"}));
}

TEST_F(CheckTest, FilesAreReadOn) {
  Write("good.yaml", "other: [{group: 1, number: 1}]\n");
  Write("bad.yaml", "regions: {TIMES: {tcp: x}}\n");
  Write("worse.yaml", "kinds: [{index: 1}\n");
  EXPECT_EQ(
      Check("include: [missing.yaml, bad.yaml, worse.yaml, good.yaml, good.yaml]\nothr: []\n"),
      (Lines{"s.yaml:1: include: " + dir_ + "/missing.yaml: No such file or directory (name a readable file)",
             "bad.yaml:1: TIMES.tcp: \"x\" is not a number (decimal or 0x...)",
             "worse.yaml:2: YAML syntax: end of sequence flow not found (indent with blanks, close every "
             "bracket "
             "and quote)",
             "s.yaml:1: include: \"good.yaml\" is part of the scenario already (name each file once)",
             "s.yaml:2: othr: no such table (did you mean other?)"}));
}

TEST_F(CheckTest, ThereIsAnEndToIt) {
  std::string text = "kinds:\n";
  for (int i = 0; i < 50; ++i) text += "  - {index: " + std::to_string(i) + ", byte: x}\n";
  EXPECT_EQ(Check(text).size(), 20u);
  EXPECT_EQ(Check(text, 3).back(), "s.yaml:4: kinds.byte: \"x\" is not a number (decimal or 0x...)");
}

TEST_F(CheckTest, MapsThatLeadNowhereAreWarnedOf) {
  EXPECT_EQ(Check("fwdif: [{if_index: 1}, {repeat: 2, if_index: {from: 10, step: 1}}]\n"
                  "ctrlif_map_fwdif:\n"
                  "  - {ctrl_if_index: 1001, fwd_if_index: 1}\n"
                  "  - {ctrl_if_index: 1002, fwd_if_index: 2}\n"
                  "  - {ctrl_if_index: 1003, fwd_if_index: 0}\n"
                  "  - {ctrl_if_index: 1004, fwd_if_index: 0xffffffff}\n"
                  "  - {repeat: 3, ctrl_if_index: {from: 1, step: 1}, fwd_if_index: {from: 10, step: 1}}\n"
                  "usf_map_fwdif: [{user_id: 1, fwd_if_index: 9}]\n",
                  20, Layout::BuiltIn()),
            Lines{});
  EXPECT_EQ(Warnings(),
            (Lines{"s.yaml:4: warning: ctrlif_map_fwdif.fwd_if_index: fwdif has no entry {if_index: 2}",
                   "s.yaml:7: warning: ctrlif_map_fwdif.fwd_if_index: fwdif has no entry {if_index: 12}",
                   "s.yaml:8: warning: usf_map_fwdif.fwd_if_index: fwdif has no entry {if_index: 9}"}));
}

// "<<" brings the names of other mappings, of which the own ones and the first win.
TEST_F(CheckTest, MappingsAreMerged) {
  const Layout layout = KindsLayout();
  const Scenario scenario = Scenario::FromText("s.yaml",
                                               "kinds:\n"
                                               "  - &base {index: 1, byte: 7, half: 8, inner: {}}\n"
                                               "  - {<<: *base, index: 2}\n"
                                               "  - &other {index: 3, byte: 9, word: 010}\n"
                                               "  - {index: 4, half: 5, <<: [*other, *base]}\n",
                                               layout);
  const PlannedTable &table = scenario.tables()[0];
  const auto value = [&](const char *field, uint32_t entry) {
    return layout.Table(0).At(field).Get(table.record(entry).data());
  };
  ASSERT_EQ(table.count(), 4u);
  EXPECT_EQ(value("index", 1), 2u);
  EXPECT_EQ(value("byte", 1), 7u);
  EXPECT_EQ(value("half", 1), 8u);
  EXPECT_EQ(value("index", 3), 4u);
  EXPECT_EQ(value("byte", 3), 9u);
  EXPECT_EQ(value("half", 3), 5u);
  EXPECT_EQ(value("word", 3), 8u);  // octal, as in queries
  for (const char *wrong : {"5", "[5]", "[[]]", ""})
    EXPECT_EQ(
        ErrorOf([&] { Scenario::FromText("s.yaml", "kinds: [{<<: " + std::string(wrong) + "}]", layout); }),
        "s.yaml:1: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])");
}

// A mistake within one mapping hides none behind it, and nothing is said of what may follow from it.
TEST_F(CheckTest, MistakesWithinAMappingHideNone) {
  EXPECT_EQ(Check("kinds:\n"
                  "  - {<<: 5, byte: 256}\n"
                  "  - &bad {<<: [{byte: 1}, [], 7], word: w}\n"
                  "  - {<<: *bad, half: h}\n"
                  "  - {index: 5, byte: 1, byte: 2, flag: maybe}\n"
                  "  - {index: 6, [a]: 2, flag: maybe}\n"
                  "  - {index: 7, peer: {group: 9, <<: x}}\n"
                  "  - {index: 8, peer: {group: 5, number: 5}}\n"
                  "  - {index: 9, repeat: 0, byte: 300}\n"
                  "other:\n"
                  "  - {group: 5, <<: }\n"
                  "nat_policy:\n"
                  "  - {nam: a, action: drop, egress: x}\n"
                  "  - {name: b, <<: 5, hits: x}\n"
                  "regions: {TIMES: {<<: 1, tcp: z}, TIMES: {}}\n",
                  40),
            (Lines{"s.yaml:2: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:3: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:5: \"byte\" stands twice in one mapping (remove one)",
                   "s.yaml:6: a key that is not a plain name (write NAME: VALUE, and close every bracket)",
                   "s.yaml:7: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:11: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:14: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:15: \"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])",
                   "s.yaml:15: \"TIMES\" stands twice in one mapping (remove one)",
                   "s.yaml:2: kinds.byte: 256 does not fit 8 bits (0 to 255)",
                   "s.yaml:3: kinds.word: \"w\" is not a number (decimal or 0x...)",
                   "s.yaml:4: kinds.half: \"h\" is not a number (decimal or 0x...)",
                   "s.yaml:5: kinds.flag: \"maybe\" is not a bit (true, false, 1 or 0)",
                   "s.yaml:6: kinds.flag: \"maybe\" is not a bit (true, false, 1 or 0)",
                   "s.yaml:9: kinds.repeat: \"0\" is not a number of entries (1 or more)",
                   "s.yaml:9: kinds.byte: 300 does not fit 8 bits (0 to 255)",
                   "s.yaml:13: nat_policy.nam: no such property (did you mean name?)",
                   "s.yaml:13: nat_policy.egress: \"x\" is not a number (decimal or 0x...)",
                   "s.yaml:13: nat_policy.action: \"drop\" is no action (source-nat or no-nat)",
                   "s.yaml:14: nat_policy.hits: \"x\" is not a number (decimal or 0x...)",
                   "s.yaml:15: TIMES.tcp: \"z\" is not a number (decimal or 0x...)"}));
}

TEST_F(CheckTest, MergedMappingsCountAsValues) {
  std::string text = "kinds:\n  - &m {";
  for (int i = 0; i < 4000; ++i) text += "f" + std::to_string(i) + ": 1, ";
  text += "}\n";
  for (int i = 0; i < 2000; ++i) text += "  - {<<: *m}\n";
  EXPECT_EQ(ErrorOf([&] { Scenario::FromText("s.yaml", text, KindsLayout()); }),
            "s.yaml:502: more than 8000000 values with all aliases followed (use repeat for many entries)");
}

}  // namespace
}  // namespace qdt::host
