#include "host/engine/statistics_presets.h"

#include <gtest/gtest.h>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/engine.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

// The error of an engine with two cores on the statistics, or "" after `look` was called.
std::string Outcome(
    const std::string &statistics, const std::function<void()> &look = [] {}) {
  const TempDir directory;
  const EngineOptions options{directory.File("arena"), directory.File("socket"), 2};
  try {
    ScenarioFiller filler("s.yaml",
                          Scenario::FromText("s.yaml", "statistics:\n" + statistics, Layout::BuiltIn()));
    const Engine engine(options, Layout::BuiltIn(), &filler);
    look();
  } catch (const HostError &error) {
    return error.what();
  }
  return "";
}

TEST(StatisticsPresets, GoByNameOrNumber) {
  EXPECT_EQ(Outcome("  arp miss: 40\n"
                    "  Total IP packets received: [5, 7]\n"
                    "  CAR - arp-request: [0, 0xffffffffffffffff]\n"
                    "  'iptables snode null ': 3\n"
                    "  308: 6\n"
                    "  830: [1]\n",
                    [] {
                      EXPECT_EQ(QdtSysStatGetNumRuncs(), 2);
                      const uint64_t *first = QdtSysStatGetRuncStat(0), *second = QdtSysStatGetRuncStat(1);
                      EXPECT_EQ(first[188], 40u);
                      EXPECT_EQ(second[188], 0u);
                      EXPECT_EQ(first[462], 5u);
                      EXPECT_EQ(second[462], 7u);
                      EXPECT_EQ(first[577], 0u);
                      EXPECT_EQ(second[577], 0xffffffffffffffffu);
                      EXPECT_EQ(first[135], 3u);
                      EXPECT_EQ(first[308], 6u);
                      EXPECT_EQ(first[830], 1u);
                    }),
            "");
  EXPECT_EQ(Outcome(""), "");
}

TEST(StatisticsPresets, SayWhatIsWrong) {
  const struct {
    const char *statistics;
    const char *error;
  } cases[] = {
      {"  arp mis: 1", "s.yaml:2: statistics.arp mis: no such statistic (did you mean arp miss?)"},
      {"  temperature of: 1",
       "s.yaml:2: statistics.temperature of: no such statistic (write its number, 0 to 830)"},
      {"  831: 1", "s.yaml:2: statistics.831: no such statistic (0 to 830)"},
      {"  mac flapping: 1",
       "s.yaml:2: statistics.mac flapping: 2 statistics have this name (write 0 or 299)"},
      {"  arp miss: 1\n  188: 2", "s.yaml:3: statistics.188: statistic 188 is given already (remove one)"},
      {"  arp miss: [1, 2, 3]",
       "s.yaml:2: statistics.arp miss: 3 numbers are too many (the engine has 2 cores; --cores tells it)"},
      {"  arp miss: many", "s.yaml:2: statistics.arp miss: \"many\" is not a number (decimal or 0x...)"},
      {"  arp miss: -1",
       "s.yaml:2: statistics.arp miss: -1 does not fit 64 bits (0 to 18446744073709551615)"},
      {"  arp miss: [{a: 1}]",
       "s.yaml:2: statistics.arp miss: not a number (write NUMBER, or [NUMBER, ...] with "
       "one for each core)"},
      {"  - 7", "s.yaml:1: statistics: not a mapping (write NAME: NUMBER)"},
  };
  for (const auto &wrong : cases) EXPECT_EQ(Outcome(wrong.statistics), wrong.error);
}

}  // namespace
}  // namespace qdt::host
