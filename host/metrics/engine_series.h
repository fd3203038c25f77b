#ifndef HOST_METRICS_ENGINE_SERIES_H_
#define HOST_METRICS_ENGINE_SERIES_H_

#include <cstdint>

#include "host/metrics/metric_set.h"
#include "host/record/record_source.h"

namespace qdt::host {

// Who the engine is and since when, and how many cores it has.
void AddIdentity(const RecordSource &source, MetricSet *set);

// Whether the table can be read: false when it was made with another layout.
bool CanOpen(const RecordSource &source, const TableLayout &table);

// How full each table is. Returns how many tables cannot be read, CanOpen being false.
uint64_t AddTableUsage(const RecordSource &source, MetricSet *set);

// The engine's statistics by what they count, summed over all cores: those that have counted, and the sum of
// what was discarded and refused, which is always there.
void AddStatistics(const RecordSource &source, MetricSet *set);

// The most series that they add.
uint64_t MaxEngineSeries();

}  // namespace qdt::host

#endif  // HOST_METRICS_ENGINE_SERIES_H_
