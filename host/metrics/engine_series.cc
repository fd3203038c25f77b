#include "host/metrics/engine_series.h"

#include <algorithm>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/query/statistics.h"
#include "host/regions/statistics.h"
#include "platform/engine.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

// A range of the statistics: the name of its series, and the label that tells its counters apart.
struct StatisticsRange {
  uint32_t first;
  uint32_t count;
  const char *name;
  const char *help;
  const char *label;
  // Of the sum over the range; null where some of its counters are sums of others.
  const char *sumName = nullptr;
  const char *sumHelp = nullptr;
};

constexpr StatisticsRange kRanges[] = {
    {QDT_STAT_NORMAL, QDT_STAT_NORMAL_COUNT, "nqe_events_total", "Normal events", "event"},
    {QDT_STAT_ERROR, QDT_STAT_ERROR_COUNT, "nqe_failures_total", "Internal operations that failed",
     "operation"},
    {QDT_STAT_DISCARD, QDT_STAT_DISCARD_COUNT, "nqe_discarded_packets_by_reason_total",
     "Packets that the engine has discarded, by reason", "reason", "nqe_discarded_packets_total",
     "Packets that the engine has discarded, for all reasons"},
    {QDT_STAT_RECEIVED, QDT_STAT_RECEIVED_COUNT, "nqe_received_packets_by_class_total",
     "Packets received and protocol events, by class; some classes contain others", "class"},
    {QDT_STAT_TRANSMITTED, QDT_STAT_TRANSMITTED_COUNT, "nqe_sent_packets_by_class_total",
     "Packets sent, by class; some classes contain others", "class"},
    {QDT_STAT_CAR, QDT_STAT_CAR_COUNT, "nqe_refused_packets_by_protocol_total",
     "Packets to the control plane that a rate limit has refused, by protocol", "protocol",
     "nqe_refused_packets_total",
     "Packets to the control plane that a rate limit has refused, of all protocols"},
};

// Counters without a name go by their number among all statistics, as everywhere.
std::string LabelOf(const StatisticsRange &range, const Counter &counter) {
  if (counter.name.empty()) return std::to_string(counter.number);
  return range.first == QDT_STAT_CAR ? QdtGetNameByProId(counter.number - QDT_STAT_CAR) : counter.name;
}

constexpr double kNanoseconds = 1e-9;

}  // namespace

void AddIdentity(const RecordSource &source, MetricSet *set) {
  const ArenaHeader &header = *source.arena().header();
  // Whatever bytes a file has there, a label is text.
  std::string version;
  AppendEscaped(header.program, &version);
  set->Gauge("nqe_info", "The program that made the arena, the arena's format, and what is read")
      .Add({{"version", version},
            {"arena_version", std::to_string(header.version)},
            {"source", source.IsLive() ? "engine" : "snapshot"}},
           1);
  set->Gauge("nqe_start_time_seconds", "When the engine was started, since 1970")
      .Add({}, static_cast<double>(header.startTime) * kNanoseconds);
  if (header.savedTime != 0) {
    set->Gauge("nqe_snapshot_time_seconds", "When the snapshot was taken, since 1970")
        .Add({}, static_cast<double>(header.savedTime) * kNanoseconds);
  }
}

bool CanOpen(const RecordSource &source, const TableLayout &table) {
  try {
    source.View(table);
    return true;
  } catch (const HostError &) {
    return false;
  }
}

uint64_t AddTableUsage(const RecordSource &source, MetricSet *set) {
  MetricSeries &entries = set->Gauge("nqe_table_entries", "Entries that the table holds");
  MetricSeries &capacity = set->Gauge("nqe_table_capacity", "Entries that the table has room for");
  uint64_t unreadable = 0;
  for (const TableLayout &table : source.layout().tables()) {
    if (!CanOpen(source, table)) {
      ++unreadable;
      continue;
    }
    const tbm::TableView *view = source.View(table);
    if (view == nullptr) continue;
    const std::string name(table.shortName);
    entries.Add({{"table", name}}, view->EntryNum());
    capacity.Add({{"table", name}}, view->shape().capacity);
  }
  return unreadable;
}

void AddStatistics(const RecordSource &source, MetricSet *set) {
  uint32_t size = 0;
  source.arena().FindRegion(kStatisticsRegion, &size);
  if (size < QDT_STAT_COUNTERS * sizeof(uint64_t)) return;
  const CounterList list = ReadCounters(source, "");
  set->Gauge("nqe_cores", "Forwarding cores whose counters are summed").Add({}, list.cores);
  for (const StatisticsRange &range : kRanges) {
    MetricSeries &series = set->Counter(range.name, range.help);
    double sum = 0;
    for (const Counter &counter : list.counters) {
      if (counter.number - range.first >= range.count || counter.sum == 0) continue;
      // Two reasons have one name.
      series.Sum({{range.label, LabelOf(range, counter)}}, static_cast<double>(counter.sum));
      sum += static_cast<double>(counter.sum);
    }
    if (range.sumName != nullptr) set->Counter(range.sumName, range.sumHelp).Add({}, sum);
  }
}

uint64_t MaxEngineSeries() {
  constexpr uint64_t kIdentity = 3;
  constexpr uint64_t kCores = 1;
  const auto sums =
      std::ranges::count_if(kRanges, [](const StatisticsRange &range) { return range.sumName != nullptr; });
  return kIdentity + 2 * kTableCount + kCores + QDT_STAT_COUNTERS + static_cast<uint64_t>(sums);
}

}  // namespace qdt::host
