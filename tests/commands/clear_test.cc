#include <gtest/gtest.h>

#include "host/commands/commands.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/tbm.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

constexpr uint32_t kCarTable = 54;
constexpr uint32_t kCpcarTable = 62;

class ClearTest : public testing::Test {
 protected:
  static constexpr char kScenario[] = R"(
cpcar_pro:
  - {protocol: 1, wireless: 2, car_id: 3, priority: 4, pass_packets: 5, drop_packets: 6}
  - {repeat: 200, protocol: {from: 10, step: 1}, wireless: 0, pass_packets: {from: 7, step: 1}, drop_packets: 1}
car:
  - {car_id: 3, cbs: 8, pass_packets: 9, drop_bytes: 10}
)";

  // The value of a field of the entry at `key`.
  static uint64_t Value(uint32_t table, const void *key, const char *field) {
    void *entry = nullptr;
    EXPECT_EQ(TbmTblSearch(0, table, key, &entry), 0);
    return Layout::BuiltIn().Table(table).At(field).Get(entry);
  }

  TempDir directory_;
  ScenarioFiller filler_{"test", Scenario::FromText("test", kScenario, Layout::BuiltIn())};
  Engine engine_{{directory_.File("arena"), directory_.File("socket")}, Layout::BuiltIn(), &filler_};
};

TEST_F(ClearTest, SetsTheMarkedCountersToZeroAndNothingElse) {
  const uint16_t key[2] = {1, 2};
  const uint16_t last[2] = {209, 0};
  const uint32_t car = 3;
  void *before = nullptr;
  ASSERT_EQ(TbmTblSearch(0, kCpcarTable, key, &before), 0);
  EXPECT_EQ(Value(kCpcarTable, key, "pass_packets"), 5u);
  EXPECT_EQ(Value(kCpcarTable, last, "pass_packets"), 206u);

  const EngineReply reply = RunCommandLine(engine_, "clear cpcar");
  EXPECT_EQ(reply.status, 0);
  EXPECT_EQ(reply.text, "cpcar statistics cleared: 201 entries\n");

  EXPECT_EQ(Value(kCpcarTable, key, "pass_packets"), 0u);
  EXPECT_EQ(Value(kCpcarTable, key, "drop_packets"), 0u);
  EXPECT_EQ(Value(kCpcarTable, last, "pass_packets"), 0u);
  EXPECT_EQ(Value(kCpcarTable, last, "drop_packets"), 0u);
  EXPECT_EQ(Value(kCpcarTable, key, "protocol"), 1u);
  EXPECT_EQ(Value(kCpcarTable, key, "wireless"), 2u);
  EXPECT_EQ(Value(kCpcarTable, key, "car_id"), 3u);
  EXPECT_EQ(Value(kCpcarTable, key, "priority"), 4u);
  EXPECT_EQ(Value(kCarTable, &car, "pass_packets"), 9u);
  EXPECT_EQ(Value(kCarTable, &car, "drop_bytes"), 10u);
  void *after = nullptr;
  ASSERT_EQ(TbmTblSearch(0, kCpcarTable, key, &after), 0);
  EXPECT_EQ(after, before);  // the entries are the same ones
}

TEST_F(ClearTest, RefusesOtherWords) {
  for (const char *line : {"clear", "clear car", "clear cpcar now", "clear CPCAR"}) {
    EXPECT_THROW(RunCommandLine(engine_, line), HostError) << line;
  }
  const uint16_t key[2] = {1, 2};
  EXPECT_EQ(Value(kCpcarTable, key, "pass_packets"), 5u);
}

}  // namespace
}  // namespace qdt::host
