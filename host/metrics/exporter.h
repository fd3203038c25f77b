#ifndef HOST_METRICS_EXPORTER_H_
#define HOST_METRICS_EXPORTER_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/metrics/metric_set.h"
#include "host/metrics/survey.h"
#include "host/metrics/table_counters.h"
#include "host/metrics/target.h"

namespace qdt::host {

// Answers the scrapes of a metrics server. Each answer opens the arena anew, so that an engine that has ended
// and come back needs no care. Any thread may ask.
class MetricsExporter {
 public:
  static constexpr char kContentType[] = "text/plain; version=0.0.4; charset=utf-8";

  // Names of targets are unique. `layout` outlives it.
  MetricsExporter(std::vector<MetricsTarget> targets, const Layout &layout, ReadGuard guard = {},
                  Surveyor::Pace pace = {});

  // The exporter itself, and of a single target all that Probe gives. Of several targets only whether they
  // can be read, under the label target.
  std::string Metrics() const;

  // One target's series; nothing when no target bears the name. Of an engine that is gone, damaged or of
  // another version nqe_up, which is 0, is all.
  std::optional<std::string> Probe(std::string_view name) const;

  // The most series that Probe answers with.
  uint64_t MaxSeries() const;

  const std::vector<MetricsTarget> &targets() const { return targets_; }

 private:
  // Whether the target can be read, and `read` of it has come to its end.
  bool Read(const MetricsTarget &target, const std::function<void(const RecordSource &source)> &read) const;
  void AddTarget(size_t target, MetricSet *set) const;
  void AddEngine(const RecordSource &source, size_t target, MetricSet *set) const;
  void AddCountedTables(const RecordSource &source, MetricSet *set) const;
  void AddSurvey(const RecordSource &source, size_t target, MetricSet *set) const;

  const std::vector<MetricsTarget> targets_;
  const Layout &layout_;
  const ReadGuard guard_;
  std::vector<TableCounters> counted_;
  mutable Surveyor surveyor_;  // has a lock of its own
};

}  // namespace qdt::host

#endif  // HOST_METRICS_EXPORTER_H_
