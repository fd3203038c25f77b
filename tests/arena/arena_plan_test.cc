#include "host/arena/arena_plan.h"

#include <utility>

#include "host/arena/arena.h"
#include "tests/host/host_fixture.h"

// Plans of which no arena can be made.
namespace qdt::host {
namespace {

struct BadPlan {
  const char *name;
  void (*spoil)(ArenaPlan *plan);
  const char *said;
};

class BadPlanTest : public HostTest, public ::testing::WithParamInterface<BadPlan> {};

TEST_P(BadPlanTest, IsRefused) {
  ArenaPlan plan = TestPlan();
  GetParam().spoil(&plan);
  EXPECT_EQ(ErrorOf([&] { Arena::Create(path_, plan); }), GetParam().said);
}

INSTANTIATE_TEST_SUITE_P(
    Plans, BadPlanTest,
    ::testing::Values(
        BadPlan{"TableMissing", [](ArenaPlan *plan) { plan->tables.pop_back(); },
                "an arena has exactly 109 tables"},
        BadPlan{"TablesSwapped", [](ArenaPlan *plan) { std::swap(plan->tables[0], plan->tables[1]); },
                "table 0 (CAP_TABLE_FIB): stands in the place of table 0"},
        BadPlan{"NoKey", [](ArenaPlan *plan) { plan->tables[0].keySize = 0; },
                "table 0 (CAP_TABLE_GLOBAL): its key must have 1 to 128 bytes"},
        BadPlan{"LongKey", [](ArenaPlan *plan) { plan->tables[0].keySize = 129; },
                "table 0 (CAP_TABLE_GLOBAL): its key must have 1 to 128 bytes"},
        BadPlan{
            "NoRecord", [](ArenaPlan *plan) { plan->tables[0].recordSize = 0; },
            "table 0 (CAP_TABLE_GLOBAL): its record must have 1 to 1048576 bytes and hold its search offset"},
        BadPlan{"NoCapacity", [](ArenaPlan *plan) { plan->tables[0].capacity = 0; },
                "table 0 (CAP_TABLE_GLOBAL): its capacity must be 1 to 16777216"},
        BadPlan{"ShortRouteKey", [](ArenaPlan *plan) { plan->tables[1].keySize = 4; },
                "table 1 (CAP_TABLE_FIB): its key is too short for a route"},
        BadPlan{"RegionTwice", [](ArenaPlan *plan) { plan->regions.push_back(plan->regions[0]); },
                "two regions are named PKT_TRACE_CTX_PTR"},
        BadPlan{"RegionEmpty", [](ArenaPlan *plan) { plan->regions[0].size = 0; },
                "region \"PKT_TRACE_CTX_PTR\" needs a name of 1 to 63 characters and a size"}),
    [](const auto &plan) { return plan.param.name; });

}  // namespace
}  // namespace qdt::host
