#include "host/engine/filler.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/engine.h"
#include "platform/tbm.h"
#include "tests/engine/made_up_filler.h"
#include "tests/host/temp_dir.h"

// An engine knows nothing of what fills it.
namespace qdt::host {
namespace {

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

}  // namespace
}  // namespace qdt::host
