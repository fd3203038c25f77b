#include "tools/nqecli/watch/watch_rates.h"

#include <atomic>

#include "host/base/host_error.h"
#include "host/regions/statistics.h"
#include "platform/engine.h"
#include "qdt/stats.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::CounterRates;
using host::Rate;

// The engine's statistics by name, the sum of all cores. `pattern` is a part of the name, with * for any
// characters.
class StatisticsRates : public CounterRates {
 public:
  StatisticsRates(const host::RecordSource &source, std::string pattern)
      : source_(source), pattern_("*" + std::move(pattern) + "*") {}

  void Read(double seconds, const std::function<void(const Rate &)> &visit) override {
    uint32_t size = 0;
    auto *counters = static_cast<uint64_t *>(source_.arena().FindRegion(host::kStatisticsRegion, &size));
    const size_t cores = counters == nullptr ? 0 : size / (QDT_STAT_COUNTERS * sizeof(uint64_t));
    sums_.Turn();
    for (uint32_t number = 0; number < QDT_STAT_COUNTERS; ++number) {
      uint64_t sum = 0;
      for (size_t core = 0; core < cores; ++core) {
        sum += std::atomic_ref<uint64_t>(counters[core * QDT_STAT_COUNTERS + number])
                   .load(std::memory_order_relaxed);
      }
      sums_.Add(sum);
      const uint64_t was = sums_.before().empty() ? sum : sums_.before()[number];
      if (sum > was) Give(number, static_cast<double>(sum - was) / seconds, visit);
    }
  }

 private:
  static std::string NameOf(uint32_t number) {
    const char *name =
        number < QDT_STAT_NAMES ? QdtOmaSysStatDescGet()[number] : QdtGetNameByProId(number - QDT_STAT_CAR);
    return name == nullptr ? std::to_string(number < QDT_STAT_NAMES ? number : number - QDT_STAT_CAR) : name;
  }

  void Give(uint32_t number, double perSecond, const std::function<void(const Rate &)> &visit) const {
    const std::string name = NameOf(number);
    if (!host::Matches(pattern_, name)) return;
    Rate rate;
    rate.number = number;
    rate.field = name;
    rate.perSecond = perSecond;
    visit(rate);
  }

  const host::RecordSource &source_;
  const std::string pattern_;
  host::CounterColumn sums_;
};

std::unique_ptr<CounterRates> RatesOfList(const host::RecordSource &source, const DataWords &words) {
  const host::TableLayout &table = TableOf(words.words.at(0));
  std::vector<host::Condition> where;
  for (size_t i = 1; i < words.words.size(); ++i) where.emplace_back(table, words.words[i]);
  return host::MakeTableRates(source, table, std::move(where), words.fields);
}

}  // namespace

std::unique_ptr<CounterRates> RatesOf(const host::RecordSource &source,
                                      const std::vector<std::string> &command) {
  std::vector<char *> rest;
  for (size_t i = 1; i < command.size(); ++i) rest.push_back(const_cast<char *>(command[i].c_str()));
  const std::string &name = command.front();
  try {
    if (name == "list") return RatesOfList(source, DataWords({}, rest, kListOptions));
    if (name != "regions" && name != "statistics") return nullptr;
    const DataWords words({}, rest, kOptionForms);
    const std::string what = words.words.empty() ? "" : words.words.front();
    if (name == "statistics") return std::make_unique<StatisticsRates>(source, what);
    const host::RegionLayout *region = source.layout().FindRegion(what);
    return region == nullptr ? nullptr : host::MakeRegionRates(source, *region);
  } catch (const host::HostError &) {
    // The command has other options than are known here: it is shown all the same.
    return nullptr;
  }
}

}  // namespace qdt::nqecli
