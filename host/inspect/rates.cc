#include "host/inspect/rates.h"

#include <algorithm>

namespace qdt::host {
namespace {

std::vector<Leaf> CountersOf(std::vector<Leaf> leaves) {
  std::erase_if(leaves, [](const Leaf &leaf) { return leaf.field->role != FieldRole::kCounter; });
  return leaves;
}

// Takes a reader to each of the entries whose counters are asked for, in the order of their serials, and
// calls.
using EntryWalk = std::function<void(EntryReader *reader, const std::function<void()> &found)>;

EntryWalk WalkAll(const RecordSource &source, std::vector<Condition> where) {
  return [&source, where = std::move(where)](EntryReader *reader, const std::function<void()> &found) {
    while (reader->Next()) {
      const RecordBytes record(source, *reader);
      if (std::ranges::all_of(where, [&](const Condition &wanted) { return wanted.Holds(record); })) found();
    }
  };
}

EntryWalk WalkPlaces(std::function<std::vector<tbm::Place>()> places) {
  return [places = std::move(places)](EntryReader *reader, const std::function<void()> &found) {
    std::vector<tbm::Place> all = places();
    std::ranges::sort(all, {}, &tbm::Place::serial);
    for (const tbm::Place &place : all) {
      if (reader->Again(place)) found();
    }
  };
}

// An entry that has gone and come again under its key is another one, with another serial: its counters began
// anew.
class TableRates : public CounterRates {
 public:
  TableRates(const RecordSource &source, const TableLayout &table, EntryWalk walk, std::vector<Leaf> counters)
      : source_(source), table_(table), walk_(std::move(walk)), counters_(std::move(counters)) {}

  void Read(double seconds, const std::function<void(const Rate &)> &visit) override {
    serials_.Turn();
    values_.Turn();
    EntryReader reader(source_, table_);
    // Both readings are in the order of serials.
    size_t old = 0;
    walk_(&reader, [&] {
      const uint64_t serial = reader.entry().place.serial;
      while (old < serials_.before().size() && serials_.before()[old] < serial) ++old;
      const bool known = old < serials_.before().size() && serials_.before()[old] == serial;
      serials_.Add(serial);
      for (size_t i = 0; i < counters_.size(); ++i) {
        const uint64_t value = ValueOf(counters_[i], reader);
        values_.Add(value);
        const uint64_t was = known ? values_.before()[old * counters_.size() + i] : value;
        if (value > was) Give(counters_[i], reader, static_cast<double>(value - was) / seconds, visit);
      }
    });
  }

 private:
  static uint64_t ValueOf(const Leaf &leaf, const EntryReader &reader) {
    const bool isThere = leaf.part == nullptr || reader.Has(*leaf.part);
    return isThere ? leaf.ref.Get(reader.entry().record) : 0;
  }

  void Give(const Leaf &leaf, const EntryReader &reader, double perSecond,
            const std::function<void(const Rate &)> &visit) const {
    Rate rate;
    rate.table = &table_;
    rate.key = reader.entry().key;
    rate.field = leaf.path;
    rate.perSecond = perSecond;
    visit(rate);
  }

  const RecordSource &source_;
  const TableLayout &table_;
  const EntryWalk walk_;
  const std::vector<Leaf> counters_;
  CounterColumn serials_;
  CounterColumn values_;  // of each entry all counters
};

class RegionRates : public CounterRates {
 public:
  RegionRates(const RecordSource &source, const RegionLayout &region, std::vector<Leaf> counters)
      : source_(source), region_(region), counters_(std::move(counters)) {}

  void Read(double seconds, const std::function<void(const Rate &)> &visit) override {
    const std::vector<uint8_t> bytes = source_.ReadRegion(region_);
    values_.Turn();
    if (bytes.empty()) return;
    for (size_t i = 0; i < counters_.size(); ++i) {
      const uint64_t value = counters_[i].ref.Get(bytes.data());
      values_.Add(value);
      const uint64_t was = values_.before().empty() ? value : values_.before()[i];
      if (value <= was) continue;
      Rate rate;
      rate.region = &region_;
      rate.field = counters_[i].path;
      rate.perSecond = static_cast<double>(value - was) / seconds;
      visit(rate);
    }
  }

 private:
  const RecordSource &source_;
  const RegionLayout &region_;
  const std::vector<Leaf> counters_;
  CounterColumn values_;
};

std::unique_ptr<CounterRates> MakeRates(const RecordSource &source, const TableLayout &table, EntryWalk walk,
                                        std::string_view paths) {
  std::vector<Leaf> counters = CountersOf(LeavesOf(RecordShape::Chosen(table, paths).nodes));
  if (counters.empty() || source.View(table) == nullptr) return nullptr;
  return std::make_unique<TableRates>(source, table, std::move(walk), std::move(counters));
}

}  // namespace

std::unique_ptr<CounterRates> MakeTableRates(const RecordSource &source, const TableLayout &table,
                                             std::vector<Condition> where, std::string_view paths) {
  return MakeRates(source, table, WalkAll(source, std::move(where)), paths);
}

std::unique_ptr<CounterRates> MakePlaceRates(const RecordSource &source, const TableLayout &table,
                                             std::function<std::vector<tbm::Place>()> places,
                                             std::string_view paths) {
  return MakeRates(source, table, WalkPlaces(std::move(places)), paths);
}

std::unique_ptr<CounterRates> MakeRegionRates(const RecordSource &source, const RegionLayout &region,
                                              std::string_view paths) {
  std::vector<Leaf> counters = CountersOf(LeavesOf(RecordShape::Chosen(region, paths).nodes));
  if (counters.empty()) return nullptr;
  return std::make_unique<RegionRates>(source, region, std::move(counters));
}

}  // namespace qdt::host
