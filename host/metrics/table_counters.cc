#include "host/metrics/table_counters.h"

#include <algorithm>

namespace qdt::host {
namespace {

// What metrics say for the units of the layouts: base units, whole words.
struct MetricUnit {
  std::string_view unit;
  std::string_view suffix;
  double scale;
};
constexpr MetricUnit kUnits[] = {
    {"bytes", "_bytes", 1},
    {"packets", "_packets", 1},
    {"s", "_seconds", 1},
    {"ms", "_seconds", 1e-3},
};

bool IsCounter(const Field &field) { return field.role == FieldRole::kCounter; }

// "counters.in_bytes" of "counters[2].in_bytes".
std::string WithoutElements(std::string_view path) {
  std::string plain;
  bool isElement = false;
  for (const char c : path) {
    isElement = isElement || c == '[';
    if (!isElement) plain += c;
    isElement = isElement && c != ']';
  }
  return plain;
}

}  // namespace

const TableLayout *TableCounters::TableOf(const Layout &layout, const CountedTable &row) {
  const TableLayout *table = layout.FindTable(row.table);
  return table != nullptr && !LeavesOf(*table, IsCounter).empty() ? table : nullptr;
}

TableCounters::TableCounters(const TableLayout &table, const CountedTable &row) : table_(table), row_(row) {
  for (Leaf &leaf : LeavesOf(table, IsCounter)) {
    if (!leaf.inKey) AddPart(std::move(leaf));
  }
  // The key of the only entry tells nothing, nor does what is the same in all keys.
  if (table.spec.capacity == 1) return;
  for (const Field &field : table.key.all())
    if (!field.constant) labels_.push_back({std::string(field.name), field.ref, field.name == row.named});
}

TableCounters::Counter TableCounters::CounterOf(const Field &field, std::string path) const {
  Counter counter;
  counter.path = std::move(path);
  counter.name = "nqe_" + std::string(table_.shortName) + "_" + std::string(field.name);
  const auto *unit = std::ranges::find(kUnits, field.unit, &MetricUnit::unit);
  if (unit != std::end(kUnits)) {
    counter.scale = unit->scale;
    if (!counter.name.ends_with(unit->suffix)) counter.name += unit->suffix;
  }
  counter.name += "_total";
  counter.help = std::string(table_.about) + ": " + std::string(field.about);
  return counter;
}

void TableCounters::AddPart(Leaf leaf) {
  std::string path = WithoutElements(leaf.path);
  auto counter = std::ranges::find(counters_, path, &Counter::path);
  if (counter == counters_.end())
    counter = counters_.insert(counter, CounterOf(*leaf.field, std::move(path)));
  counter->parts.push_back(std::move(leaf));
}

uint64_t TableCounters::MaxSeries() const {
  return uint64_t{std::min(row_.maxEntries, table_.spec.capacity)} * counters_.size();
}

MetricLabels TableCounters::LabelsOf(const uint8_t *key) const {
  MetricLabels labels;
  for (const Label &label : labels_) {
    const uint64_t number = label.ref.Get(key);
    const char *name = label.isNamed ? row_.nameOf(static_cast<uint32_t>(number)) : nullptr;
    labels.push_back({label.name, name != nullptr ? name : std::to_string(number)});
  }
  return labels;
}

double TableCounters::ValueOf(const Counter &counter, const EntryReader &reader) {
  double sum = 0;
  for (const Leaf &leaf : counter.parts) {
    if (leaf.part != nullptr && !reader.Has(*leaf.part)) continue;
    const uint8_t *record = reader.entry().record;
    if (!leaf.IsInUse(record)) continue;
    const uint64_t value = leaf.ref.Get(record);
    sum += leaf.ref.kind == FieldKind::kSigned ? static_cast<double>(static_cast<int64_t>(value))
                                               : static_cast<double>(value);
  }
  return sum * counter.scale;
}

uint64_t TableCounters::AddTo(const RecordSource &source, MetricSet *set) const {
  if (source.View(table_) == nullptr) return 0;
  EntryReader reader(source, table_);
  std::vector<MetricSeries *> series;
  for (const Counter &counter : counters_) series.push_back(&set->Counter(counter.name, counter.help));
  uint32_t entries = 0;
  while (entries < row_.maxEntries && reader.Next()) {
    ++entries;
    const MetricLabels labels = LabelsOf(reader.entry().key);
    for (size_t i = 0; i < counters_.size(); ++i) {
      const double value = ValueOf(counters_[i], reader);
      if (value > 0) series[i]->Add(labels, value);
    }
  }
  if (entries < row_.maxEntries) return 0;
  const uint32_t all = reader.Count();
  return all <= entries ? 0 : uint64_t{all - entries} * counters_.size();
}

}  // namespace qdt::host
