#ifndef HOST_INSPECT_RATES_H_
#define HOST_INSPECT_RATES_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/filter.h"
#include "host/record/record_source.h"
#include "host/tbm/table_view.h"

namespace qdt::host {

// A counter that has risen since it was read before: of a table's entry, of a region, or one of the
// statistics.
struct Rate {
  const TableLayout *table = nullptr;  // whose entry has the key
  const uint8_t *key = nullptr;
  const RegionLayout *region = nullptr;
  uint32_t number = 0;     // of the statistics
  std::string_view field;  // empty for one of the statistics without a name
  double perSecond = 0;
};

// Counters that are read again and again.
class CounterRates {
 public:
  virtual ~CounterRates() = default;

  // Reads all of them. Gives each that has risen since the last time, `seconds` ago, to `visit`; the first
  // time none. What has fallen was cleared, or has no more bits: nobody knows how far it came in between.
  // Throws HostError as EntryReader does.
  virtual void Read(double seconds, const std::function<void(const Rate &)> &visit) = 0;
};

// The counters of those entries of a table for which the conditions hold; `paths` as RecordShape::Select
// takes them, empty for all. Null where there are none. Keeps 8 bytes for each counter.
std::unique_ptr<CounterRates> MakeTableRates(const RecordSource &source, const TableLayout &table,
                                             std::vector<Condition> where, std::string_view paths);
// The same of the entries at those places that `places` names at each reading.
std::unique_ptr<CounterRates> MakePlaceRates(const RecordSource &source, const TableLayout &table,
                                             std::function<std::vector<tbm::Place>()> places,
                                             std::string_view paths);
// The counters of a region, by such paths.
std::unique_ptr<CounterRates> MakeRegionRates(const RecordSource &source, const RegionLayout &region,
                                              std::string_view paths);

// Counters by number, side by side, as CounterRates keeps them: what was read and what was read before.
class CounterColumn {
 public:
  // Begins the next reading.
  void Turn() {
    before_.swap(now_);
    now_.clear();
  }
  void Add(uint64_t value) { now_.push_back(value); }

  const std::vector<uint64_t> &now() const { return now_; }
  const std::vector<uint64_t> &before() const { return before_; }

 private:
  std::vector<uint64_t> now_;
  std::vector<uint64_t> before_;
};

}  // namespace qdt::host

#endif  // HOST_INSPECT_RATES_H_
