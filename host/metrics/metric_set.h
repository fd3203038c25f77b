#ifndef HOST_METRICS_METRIC_SET_H_
#define HOST_METRICS_METRIC_SET_H_

#include <prometheus/metric_family.h>

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::host {

using MetricLabels = std::vector<prometheus::ClientMetric::Label>;

// All series of one name.
class MetricSeries {
 public:
  MetricSeries(std::string_view name, std::string_view help, prometheus::MetricType type);

  // `labels` are those of no other series of this name.
  void Add(MetricLabels labels, double value);
  // Adds to the series of these labels where there is one.
  void Sum(MetricLabels labels, double value);

  size_t size() const { return family_.metric.size(); }

 private:
  friend class MetricSet;
  double *ValueOf(prometheus::ClientMetric *metric) const;

  prometheus::MetricFamily family_;
};

// What one scrape is answered with. Names without a series are left out of it.
class MetricSet {
 public:
  // A counter's name ends with _total. Names are unique. What is returned stays where it is.
  MetricSeries &Counter(std::string_view name, std::string_view help);
  MetricSeries &Gauge(std::string_view name, std::string_view help);

  // Adds all of another set behind what there is.
  void Take(MetricSet other);

  size_t SeriesCount() const;

  // The text format of Prometheus, version 0.0.4. Empties the set.
  std::string TakeText();

 private:
  std::deque<MetricSeries> families_;
};

}  // namespace qdt::host

#endif  // HOST_METRICS_METRIC_SET_H_
