#include "tools/nqecli/watch/watch_rates.h"

#include <memory>

#include "host/base/host_error.h"
#include "host/query/statistics.h"
#include "host/query/view_records.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/records/view_query.h"

namespace qdt::nqecli {
namespace {

using host::CounterRates;
using host::Rate;

// The engine's statistics whose names match the pattern, the sums of all cores.
class StatisticsRates : public CounterRates {
 public:
  StatisticsRates(const host::RecordSource &source, std::string pattern)
      : source_(source), pattern_(std::move(pattern)) {}

  void Read(double seconds, const std::function<void(const Rate &)> &visit) override {
    sums_.Turn();
    for (const host::Counter &counter : ReadCounters(source_, pattern_).counters) {
      const size_t at = sums_.now().size();
      const uint64_t was = sums_.before().empty() ? counter.sum : sums_.before()[at];
      sums_.Add(counter.sum);
      if (counter.sum <= was) continue;
      Rate rate;
      rate.number = counter.number;
      rate.field = counter.name;
      rate.perSecond = static_cast<double>(counter.sum - was) / seconds;
      visit(rate);
    }
  }

 private:
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

std::unique_ptr<CounterRates> RatesOfRegion(const host::RecordSource &source, std::string_view name,
                                            std::string_view fields) {
  const host::RegionLayout *region = source.layout().FindRegion(name);
  return region == nullptr ? nullptr : host::MakeRegionRates(source, *region, fields);
}

std::unique_ptr<CounterRates> RatesOfView(const Place &place, const host::RecordSource &source,
                                          const DataWords &words) {
  const auto query = std::make_shared<ViewQuery>(words.words);
  const host::ViewLayout *view = source.layout().FindView(query->view().id);
  if (view == nullptr) return nullptr;
  if (!view->region.empty()) return RatesOfRegion(source, view->region, words.fields);
  // Records of a view's own count nothing.
  if (view->table.empty()) return nullptr;
  Attach(place);
  return host::MakePlaceRates(
      source, *source.layout().FindTable(view->table),
      [query, view, &source] { return ViewPlaces(source, *view, query->Ask()); }, words.fields);
}

}  // namespace

std::unique_ptr<CounterRates> RatesOf(const Place &place, const host::RecordSource &source,
                                      const std::vector<std::string> &command) {
  std::vector<char *> rest;
  for (size_t i = 1; i < command.size(); ++i) rest.push_back(const_cast<char *>(command[i].c_str()));
  const std::string &name = command.front();
  if (name != "list" && name != "regions" && name != "statistics" && name != "show") return nullptr;
  try {
    const DataWords words({}, rest, FindCommand(name)->options);
    if (name == "list") return RatesOfList(source, words);
    if (name == "show") return RatesOfView(place, source, words);
    const std::string what = words.words.empty() ? "" : words.words.front();
    if (name == "statistics") return std::make_unique<StatisticsRates>(source, what);
    return RatesOfRegion(source, what, words.fields);
  } catch (const host::HostError &) {
    // The words are no question, as the command itself has said, or the engine has gone.
    return nullptr;
  }
}

}  // namespace qdt::nqecli
