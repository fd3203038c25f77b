#ifndef HOST_METRICS_TABLE_COUNTERS_H_
#define HOST_METRICS_TABLE_COUNTERS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/metrics/counted_tables.h"
#include "host/metrics/metric_set.h"
#include "host/record/record_shape.h"
#include "host/record/record_source.h"

namespace qdt::host {

// The counters of a table's entries, as its layout names them: names, units and help come from there, and
// what an array counts piece by piece is one sum.
class TableCounters {
 public:
  // Null when the layout does not have the table, or the table no counter.
  static const TableLayout *TableOf(const Layout &layout, const CountedTable &row);

  TableCounters(const TableLayout &table, const CountedTable &row);

  const TableLayout &table() const { return table_; }

  // Adds the counters that have counted. Returns how many are left out because they belong to entries beyond
  // those that the row has room for; each of these counts whole. Throws HostError as EntryReader does.
  uint64_t AddTo(const RecordSource &source, MetricSet *set) const;

  // The most series that AddTo adds.
  uint64_t MaxSeries() const;

 private:
  struct Counter {
    std::string path;  // of the field, without elements
    std::string name;
    std::string help;
    double scale = 1;
    std::vector<Leaf> parts;
  };
  struct Label {
    std::string name;
    FieldRef ref;
    bool isNamed = false;
  };

  void AddPart(Leaf leaf);
  Counter CounterOf(const Field &field, std::string path) const;
  MetricLabels LabelsOf(const uint8_t *key) const;
  static double ValueOf(const Counter &counter, const EntryReader &reader);

  const TableLayout &table_;
  const CountedTable &row_;
  std::vector<Counter> counters_;
  std::vector<Label> labels_;
};

}  // namespace qdt::host

#endif  // HOST_METRICS_TABLE_COUNTERS_H_
