#include "host/metrics/metric_set.h"

#include <prometheus/text_serializer.h>

#include <algorithm>

namespace qdt::host {
namespace {

// The serializer writes help as it is. A line of it ends where the text says.
std::string HelpText(std::string_view help) {
  std::string text;
  for (const char c : help) {
    if (c == '\\') text += '\\';
    if (c == '\n') text += '\\';
    text += c == '\n' ? 'n' : c;
  }
  return text;
}

}  // namespace

MetricSeries::MetricSeries(std::string_view name, std::string_view help, prometheus::MetricType type) {
  family_.name = name;
  family_.help = HelpText(help);
  family_.type = type;
}

double *MetricSeries::ValueOf(prometheus::ClientMetric *metric) const {
  return family_.type == prometheus::MetricType::Counter ? &metric->counter.value : &metric->gauge.value;
}

void MetricSeries::Add(MetricLabels labels, double value) {
  prometheus::ClientMetric &metric = family_.metric.emplace_back();
  metric.label = std::move(labels);
  *ValueOf(&metric) = value;
}

void MetricSeries::Sum(MetricLabels labels, double value) {
  const auto known = std::ranges::find(family_.metric, labels, &prometheus::ClientMetric::label);
  if (known == family_.metric.end()) return Add(std::move(labels), value);
  *ValueOf(&*known) += value;
}

MetricSeries &MetricSet::Counter(std::string_view name, std::string_view help) {
  return families_.emplace_back(name, help, prometheus::MetricType::Counter);
}

MetricSeries &MetricSet::Gauge(std::string_view name, std::string_view help) {
  return families_.emplace_back(name, help, prometheus::MetricType::Gauge);
}

void MetricSet::Take(MetricSet other) {
  for (MetricSeries &series : other.families_) families_.push_back(std::move(series));
}

size_t MetricSet::SeriesCount() const {
  size_t count = 0;
  for (const MetricSeries &series : families_) count += series.size();
  return count;
}

std::string MetricSet::TakeText() {
  std::vector<prometheus::MetricFamily> families;
  for (MetricSeries &series : families_) {
    if (series.size() != 0) families.push_back(std::move(series.family_));
  }
  families_.clear();
  return prometheus::TextSerializer().Serialize(families);
}

}  // namespace qdt::host
