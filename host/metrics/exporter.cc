#include "host/metrics/exporter.h"

#include <algorithm>

#include "host/arena/arena_layout.h"
#include "host/base/arguments.h"
#include "host/base/host_error.h"
#include "host/metrics/engine_series.h"

namespace qdt::host {
namespace {

MetricSeries &UpSeries(MetricSet *set) {
  return set->Gauge(
      "nqe_up", "Whether the arena can be read, 0 when the engine is gone, damaged or of another version");
}

// nqe_up and those of AddEngine, which are one each.
constexpr uint64_t kSeriesOfItsOwn = 4;
// By severity, and when and how long.
constexpr uint64_t kSurveySeries = 4;

}  // namespace

MetricsExporter::MetricsExporter(std::vector<MetricsTarget> targets, const Layout &layout, ReadGuard guard,
                                 Surveyor::Pace pace)
    : targets_(std::move(targets)),
      layout_(layout),
      guard_(std::move(guard)),
      surveyor_(targets_, layout, pace, guard_) {
  for (const CountedTable &row : kCountedTables) {
    if (const TableLayout *table = TableCounters::TableOf(layout, row)) counted_.emplace_back(*table, row);
  }
}

// What is of another layout, or changes too fast to be read, is missing; the rest goes on.
void MetricsExporter::AddEngine(const RecordSource &source, size_t target, MetricSet *set) const {
  AddIdentity(source, set);
  AddStatistics(source, set);
  uint64_t unreadable = AddTableUsage(source, set);
  uint64_t cut = 0;
  for (const TableCounters &table : counted_) {
    if (!CanOpen(source, table.table())) continue;  // counted already
    try {
      cut += table.AddTo(source, set);
    } catch (const HostError &) {
      ++unreadable;
    }
  }
  AddSurvey(source, target, set);
  set->Gauge("nqe_unreadable_tables",
             "Tables that are missing here, as they have another layout or change too fast")
      .Add({}, static_cast<double>(unreadable));
  set->Gauge("nqe_series_cut", "Series left out because tables hold more entries than get series")
      .Add({}, static_cast<double>(cut));
  set->Gauge("nqe_series", "Series of this answer, but for this one and nqe_up")
      .Add({}, static_cast<double>(set->SeriesCount()));
}

void MetricsExporter::AddSurvey(const RecordSource &source, size_t target, MetricSet *set) const {
  const std::optional<Survey> survey = surveyor_.Last(target, source.arena().header()->identity);
  if (!survey) return;
  MetricSeries &findings = set->Gauge("nqe_findings", "What check finds wrong in the arena, by severity");
  findings.Add({{"severity", "error"}}, static_cast<double>(survey->errors));
  findings.Add({{"severity", "warning"}}, static_cast<double>(survey->warnings));
  MetricSeries &stale =
      set->Gauge("nqe_stale_bindings", "References of a table's records that lead to no entry any more");
  for (const auto &[table, count] : survey->stale)
    stale.Add({{"table", std::string(table)}}, static_cast<double>(count));
  if (survey->sessions) {
    MetricSeries &sessions = set->Gauge("nqe_sessions", "Sessions in use, by IP version and protocol");
    for (size_t family = 0; family < kSessionFamilies.size(); ++family) {
      for (size_t protocol = 0; protocol < kSessionProtocols.size(); ++protocol) {
        sessions.Add({{"family", std::string(kSessionFamilies[family])},
                      {"protocol", std::string(kSessionProtocols[protocol])}},
                     static_cast<double>((*survey->sessions)[family][protocol]));
      }
    }
  }
  set->Gauge("nqe_survey_time_seconds", "When findings and sessions were counted last, since 1970")
      .Add({}, survey->finished);
  set->Gauge("nqe_survey_duration_seconds", "How long it took to count findings and sessions")
      .Add({}, survey->seconds);
}

bool MetricsExporter::Read(const MetricsTarget &target,
                           const std::function<void(const RecordSource &source)> &read) const {
  try {
    return ReadGuarded(guard_, [&] { read(*target.Open(layout_)); });
  } catch (const HostError &) {
    return false;
  }
}

void MetricsExporter::AddTarget(size_t target, MetricSet *set) const {
  MetricSet engine;
  const bool isUp =
      Read(targets_[target], [&](const RecordSource &source) { AddEngine(source, target, &engine); });
  UpSeries(set).Add({}, isUp ? 1 : 0);
  if (isUp) set->Take(std::move(engine));
}

std::optional<std::string> MetricsExporter::Probe(std::string_view name) const {
  const auto target = std::ranges::find(targets_, name, &MetricsTarget::name);
  if (target == targets_.end()) return {};
  MetricSet set;
  AddTarget(static_cast<size_t>(target - targets_.begin()), &set);
  return set.TakeText();
}

std::string MetricsExporter::Metrics() const {
  MetricSet set;
  set.Gauge("nqe_exporter_info", "The program that answers").Add({{"version", ProgramVersion()}}, 1);
  if (targets_.size() == 1) {
    AddTarget(0, &set);
    return set.TakeText();
  }
  MetricSeries &up = UpSeries(&set);
  for (const MetricsTarget &target : targets_) {
    const bool isUp = Read(target, [](const RecordSource &) {});
    up.Add({{"target", target.name}}, isUp ? 1 : 0);
  }
  return set.TakeText();
}

uint64_t MetricsExporter::MaxSeries() const {
  uint64_t most = kSeriesOfItsOwn + MaxEngineSeries() + kSurveySeries + layout_.tables().size() +
                  kSessionFamilies.size() * kSessionProtocols.size();
  for (const TableCounters &table : counted_) most += table.MaxSeries();
  return most;
}

}  // namespace qdt::host
