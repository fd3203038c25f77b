#include "host/engine/filler.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/base/text_file.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "host/layout/layout_files.h"
#include "platform/engine.h"
#include "platform/tbm.h"
#include "tests/engine/made_up_filler.h"
#include "tests/host/temp_dir.h"

// An engine knows nothing of what fills it.
namespace qdt::host {
namespace {

// The layouts that the programs are built with, as files.
std::vector<std::string> SourceLayoutTexts() {
  std::vector<std::string> texts;
  for (const auto &entry : std::filesystem::directory_iterator(QDT_SOURCE_DIR "/host/layout")) {
    if (entry.path().extension() == ".yaml") texts.push_back(ReadTextFile(entry.path(), 1 << 20));
  }
  return texts;
}

class FillerTest : public testing::Test {
 protected:
  std::unique_ptr<Engine> Start() {
    return std::make_unique<Engine>(EngineOptions{directory_.File("arena"), directory_.File("socket"), 2},
                                    Layout::BuiltIn(), &filler_);
  }

  // The first word of the entry of `key`; 0 when there is none.
  static uint32_t Number(uint32_t key) {
    void *entry = nullptr;
    return TbmTblSearch(0, MadeUpFiller::kTable, &key, &entry) == 0 ? *static_cast<uint32_t *>(entry) : 0;
  }

  TempDir directory_;
  MadeUpFiller filler_;
};

TEST_F(FillerTest, FillsTablesStatisticsAndRulesBeforeOthersSeeThem) {
  const auto engine = Start();
  EXPECT_FALSE(std::filesystem::exists(directory_.File("arena")));
  EXPECT_EQ(Number(1), 1u);
  EXPECT_EQ(CountEntries().entries, 1u);
  EXPECT_EQ(QdtSysStatGetRuncStat(1)[7], 40u);
  ASSERT_EQ(engine->natPolicy().size(), 1u);
  EXPECT_EQ(engine->natPolicy()[0].name, "rule_one");
  EXPECT_EQ(engine->source().kind, "numbers");
  EXPECT_EQ(engine->source().name, "one by one");
}

TEST_F(FillerTest, FollowsWhatChanges) {
  const auto engine = Start();
  engine->Publish();
  EXPECT_EQ(engine->changes(), filler_.changes());
  engine->Follow();
  EXPECT_EQ(CountEntries().entries, 1u);  // nothing had changed
  filler_.Change(2);
  engine->Follow();
  EXPECT_EQ(CountEntries().entries, 3u);
  EXPECT_EQ(Number(3), 3u);
}

TEST_F(FillerTest, ThatRefusesLeavesNothingBehind) {
  filler_.Refuse();
  try {
    Start();
    FAIL() << "filled";
  } catch (const HostError &error) {
    EXPECT_STREQ(error.what(), "there are no numbers (try letters)");
  }
  EXPECT_TRUE(std::filesystem::is_empty(directory_.File("")));
}

TEST_F(FillerTest, AScenarioFillsOnce) {
  ScenarioFiller filler("/lab/two.yaml", Scenario::FromText("two.yaml", R"(
ctrlif_map_fwdif: [{ctrl_if_index: 8, fwd_if_index: 9}]
statistics: {7: 3}
nat_policy: [{name: rule_two, action: no-nat}]
)",
                                                            Layout::BuiltIn()));
  Engine engine({directory_.File("arena"), directory_.File("socket"), 2}, Layout::BuiltIn(), &filler);
  EXPECT_EQ(Number(8), 8u);
  EXPECT_EQ(QdtSysStatGetRuncStat(0)[7], 3u);
  ASSERT_EQ(engine.natPolicy().size(), 1u);
  EXPECT_EQ(engine.natPolicy()[0].name, "rule_two");
  EXPECT_EQ(engine.source().kind, "scenario");
  EXPECT_EQ(engine.source().name, "/lab/two.yaml");
  EXPECT_EQ(engine.changes(), -1);
  engine.Follow();
  EXPECT_EQ(CountEntries().entries, 1u);
}

// A large scenario takes as much memory again as the tables that it fills.
TEST_F(FillerTest, AScenarioIsFreedWhenItHasFilled) {
  ScenarioFiller filler("two.yaml", Scenario::FromText("two.yaml", R"(
ctrlif_map_fwdif: [{ctrl_if_index: 8, fwd_if_index: 9}]
)",
                                                       Layout::BuiltIn()));
  const EngineOptions first{directory_.File("arena"), directory_.File("socket"), 2};
  const EngineOptions second{directory_.File("other"), directory_.File("socket2"), 2};
  {
    Engine engine(first, Layout::BuiltIn(), &filler);
    EXPECT_EQ(CountEntries().entries, 1u);
  }
  Engine engine(second, Layout::BuiltIn(), &filler);
  EXPECT_EQ(CountEntries().entries, 0u);
}

// What an engine cannot work with is refused by the line where it stands.
TEST_F(FillerTest, LayoutsThatTheEngineCannotUseAreRefused) {
  const auto errorOf = [&](const std::vector<LayoutText> &files) -> std::string {
    const Layout layout = ReadLayouts(files);
    try {
      Engine engine({directory_.File("arena"), directory_.File("socket"), 2}, layout, &filler_);
    } catch (const HostError &error) {
      return error.what();
    }
    return "no error";
  };
  const std::vector<std::string> texts = SourceLayoutTexts();
  std::vector<LayoutText> files;
  for (const std::string &text : texts) files.push_back({"source.yaml", text});
  files.push_back({"own.yaml", "regions:\n  NQE_RUNC_STAT: {size: 8}\n"});
  EXPECT_EQ(errorOf(files),
            "own.yaml:2: NQE_RUNC_STAT: the engine has a region of this name itself (rename it)");

  std::string tables = "tables:\n";
  for (uint32_t id = 0; id < kTableCount; ++id) {
    const std::string number = std::to_string(id);
    tables += "  t" + number + ": {id: " + number + ", name: CAP_TABLE_T" + number + "}\n";
  }
  const auto packetsError = [&](const std::string &packets) {
    const std::string text =
        "regions:\n  IP_REASS_CTX_PTR: {size: 200, fields: {packets: " + packets + "}}\n";
    return errorOf({{"tables.yaml", tables}, {"own.yaml", text}});
  };
  EXPECT_EQ(packetsError("{at: 40, count: 5, stride: 32, fields: {waited: 0 u32}}"), "no error");
  for (const char *packets : {"0 u8", "{at: 40, fields: {waited: 0 u32}}",
                              "{at: 39, count: 5, stride: 32, fields: {waited: 0 u32}}",
                              "{at: 44, count: 4, stride: 32, fields: {waited: 0 u32}}",
                              "{at: 40, count: 5, stride: 31, fields: {waited: 0 u32}}",
                              "{at: 40, count: 4, stride: 36, fields: {waited: 0 u32}}",
                              "{at: 40, count: 5, stride: 32, fields: {came: 0 u32}}"}) {
    EXPECT_EQ(packetsError(packets),
              "own.yaml:2: IP_REASS_CTX_PTR.packets: the engine cannot link them (write an array at a "
              "multiple of 8 "
              "bytes from 40 on, of packets of 32 bytes or a greater multiple of 8, with the field waited)")
        << packets;
  }
}

}  // namespace
}  // namespace qdt::host
