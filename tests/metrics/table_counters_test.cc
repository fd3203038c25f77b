#include "host/metrics/table_counters.h"

#include <gtest/gtest.h>

#include "tests/inspect/inspect_fixture.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

// Tables of a layout of their own: units, parts, arrays in use and keys of every sort.
const Layout &OwnLayout() {
  static const std::string filler = FillerTables(1);
  static const Layout layout = ReadLayouts({{"own.yaml", R"(
tables:
  own:
    id: 0
    name: CAP_TABLE_OWN
    about: Things
    key_size: 8
    record_size: 96
    capacity: 300
    key: {marker: 0 u32 = 0x50000, kind: 4 u16, number: 6 u16}
    fields:
      waited: 0 u32 counter unit ms -- time waited
      worked: 4 u32 counter unit s -- time worked
      bytes: 8 u32 counter unit bytes -- all bytes
      turns: 12 u32 counter unit ticks -- turns of the wheel
      falls: 16 i64 counter -- what may be damaged
      used: 24 u32 counts slots -- slots in use
      slots:
        at: 32
        count: 4
        stride: 16
        fields:
          hits: 0 u32 counter -- uses of the slot
)"},
                                            {"filler.yaml", filler}});
  return layout;
}

class TableCountersTest : public testing::Test {
 protected:
  TableCountersTest() : path_(testing::TempDir() + "qdt_counters_" + std::to_string(getpid())) {}

  std::string Text(const CountedTable &row, const std::string &scenario, uint64_t *cut = nullptr) {
    const auto arena = Arena::Create(path_, OwnLayout().Plan("/nowhere"));
    TableWriter writer(arena.get());
    Scenario::FromText("s.yaml", scenario, OwnLayout()).Fill(arena.get(), &writer);
    arena->Publish();
    const auto source = RecordSource::OfEngine(path_, OwnLayout());
    MetricSet set;
    const TableLayout *table = TableCounters::TableOf(OwnLayout(), row);
    EXPECT_NE(table, nullptr);
    const uint64_t left = TableCounters(*table, row).AddTo(*source, &set);
    if (cut != nullptr) *cut = left;
    arena->Retire();
    return set.TakeText();
  }

  const std::string path_;
};

const char *NameOf(uint32_t number) { return number == 2 ? "two \"quoted\"" : nullptr; }

TEST_F(TableCountersTest, UnitsNamesAndSums) {
  EXPECT_EQ(Text({"own", 10, "kind", NameOf}, R"(
own:
  - {kind: 2, number: 9, waited: 1500, worked: 3, bytes: 7, turns: 8, falls: -1, used: 3,
     slots: [{hits: 1}, {hits: 2}, {hits: 3}, {hits: 100}]}
  - {kind: 3, number: 9, falls: 6}
)"),
            R"(# HELP nqe_own_waited_seconds_total Things: time waited
# TYPE nqe_own_waited_seconds_total counter
nqe_own_waited_seconds_total{kind="two \"quoted\"",number="9"} 1.5
# HELP nqe_own_worked_seconds_total Things: time worked
# TYPE nqe_own_worked_seconds_total counter
nqe_own_worked_seconds_total{kind="two \"quoted\"",number="9"} 3
# HELP nqe_own_bytes_total Things: all bytes
# TYPE nqe_own_bytes_total counter
nqe_own_bytes_total{kind="two \"quoted\"",number="9"} 7
# HELP nqe_own_turns_total Things: turns of the wheel
# TYPE nqe_own_turns_total counter
nqe_own_turns_total{kind="two \"quoted\"",number="9"} 8
# HELP nqe_own_falls_total Things: what may be damaged
# TYPE nqe_own_falls_total counter
nqe_own_falls_total{kind="3",number="9"} 6
# HELP nqe_own_hits_total Things: uses of the slot
# TYPE nqe_own_hits_total counter
nqe_own_hits_total{kind="two \"quoted\"",number="9"} 6
)");
}

TEST_F(TableCountersTest, WhatIsCut) {
  uint64_t cut = 0;
  const std::string scenario = "own: [{repeat: 5, kind: 1, number: {from: 1, step: 1}, bytes: 1}]";
  EXPECT_EQ(Text({"own", 2}, scenario, &cut), R"(# HELP nqe_own_bytes_total Things: all bytes
# TYPE nqe_own_bytes_total counter
nqe_own_bytes_total{kind="1",number="1"} 1
nqe_own_bytes_total{kind="1",number="2"} 1
)");
  EXPECT_EQ(cut, 18u);  // three entries of six counters
  Text({"own", 5}, scenario, &cut);
  EXPECT_EQ(cut, 0u);
}

TEST_F(TableCountersTest, TablesWithoutCounters) {
  EXPECT_EQ(TableCounters::TableOf(OwnLayout(), {"filler_5", 10}), nullptr);
  EXPECT_EQ(TableCounters::TableOf(OwnLayout(), {"nothing", 10}), nullptr);
}

}  // namespace
}  // namespace qdt::host
