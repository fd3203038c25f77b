#include "host/inspect/diff.h"

#include <algorithm>
#include <cstring>
#include <deque>

#include "host/base/host_error.h"
#include "host/base/near_name.h"

namespace qdt::host {
namespace {

// The slots of a table whose entry has been met.
class SlotSet {
 public:
  explicit SlotSet(const tbm::TableView *view)
      : bits_(view == nullptr ? 0 : view->shape().capacity / 64 + 1) {}

  void Add(uint32_t ref) { bits_[ref / 64] |= uint64_t{1} << ref % 64; }
  bool Has(uint32_t ref) const { return (bits_[ref / 64] >> ref % 64 & 1) != 0; }

 private:
  std::vector<uint64_t> bits_;
};

class Diff {
 public:
  Diff(const RecordSource &from, const RecordSource &to, const DiffRequest &request, DiffSink *sink)
      : from_(from), to_(to), request_(request), sink_(sink) {}

  DiffResult Run() {
    // What cannot be compared is said before anything else.
    for (const TableLayout *table : request_.tables) Check(*table);
    for (const RegionLayout *region : request_.regions) Check(*region);
    sink_->Begin();
    try {
      for (const TableLayout *table : request_.tables) Table(*table);
      for (const RegionLayout *region : request_.regions) Region(*region);
    } catch (const HostError &) {
      sink_->Fail();
      throw;
    }
    sink_->End(result_.count);
    return std::move(result_);
  }

 private:
  static bool Has(const RecordSource &source, const TableLayout &table) {
    return source.View(table) != nullptr;
  }

  static bool Has(const RecordSource &source, const RegionLayout &region) {
    uint32_t size = 0;
    if (source.arena().FindRegion(region.spec.name, &size) == nullptr) return false;
    if (size == region.spec.size) return true;
    throw HostError("the region " + std::string(region.spec.name) + " of " + source.arena().path() +
                    " was made with another layout (its engine has nqed --layout)");
  }

  static std::string_view NameOf(const TableLayout &table) { return table.shortName; }
  static std::string_view NameOf(const RegionLayout &region) { return region.spec.name; }

  template <typename Part>
  void Check(const Part &part) {
    const bool first = Has(from_, part);
    const bool second = Has(to_, part);
    if (first == second) return;
    result_.aside += (first ? to_ : from_).arena().path() + " has no " + std::string(NameOf(part)) +
                     "; all that the other has is a difference\n";
  }

  void Table(const TableLayout &table) {
    if (from_.View(table) == nullptr && to_.View(table) == nullptr) return;
    if (from_.View(table) == nullptr) return All(to_, table, Change::kAdded);
    if (to_.View(table) == nullptr) return All(from_, table, Change::kRemoved);
    EntryReader a(from_, table);
    EntryReader b(to_, table);
    // Most tables of most engines are empty.
    if (a.IsUnused() && b.IsUnused()) return;
    RecordComparison comparison(from_.layout(), table, request_.volatiles);
    if (table.spec.lookup == Lookup::kMany) {
      WithSharedKeys(&a, &b, &comparison);
    } else {
      WithOwnKeys(&a, &b, &comparison);
    }
  }

  void All(const RecordSource &source, const TableLayout &table, Change change) {
    EntryReader reader(source, table);
    while (reader.Next()) One(change, reader, source);
  }

  void WithOwnKeys(EntryReader *a, EntryReader *b, RecordComparison *comparison) {
    SlotSet met(to_.View(b->table()));
    while (a->Next()) {
      if (!b->FindNear(a->entry().key, a->entry().place.ref)) {
        One(Change::kRemoved, *a, from_);
        continue;
      }
      met.Add(b->entry().place.ref);
      Both(*a, *b, comparison);
    }
    // An entry that has come to a slot since was not there when the reader was made.
    tbm::Place place;
    while (b->NextPlace(&place)) {
      if (met.Has(place.ref) || !b->Again(place)) continue;
      // A live engine may have moved it meanwhile.
      if (!a->Find(b->entry().key)) One(Change::kAdded, *b, to_);
    }
  }

  // The entries of a key are taken together, when the first of them is met.
  void WithSharedKeys(EntryReader *a, EntryReader *b, RecordComparison *comparison) {
    EntryReader first(from_, a->table());
    while (a->Next()) {
      if (first.Find(a->entry().key) && first.entry().place.serial == a->entry().place.serial)
        OfOneKey(a->entry().key, comparison);
    }
    EntryReader firstThere(to_, b->table());
    while (b->Next()) {
      if (!firstThere.Find(b->entry().key) || firstThere.entry().place.serial != b->entry().place.serial)
        continue;
      if (!first.Find(b->entry().key)) OfOneKey(b->entry().key, comparison);
    }
  }

  // One side of a key's entries: those that have found no equal so far, in their order.
  struct Waiting {
    Waiting(const RecordSource &source, const TableLayout &table) : reader(source, table) {}

    // Some are enough to find equals that an insertion or removal has moved apart.
    static constexpr size_t kMost = 64;

    void Fill(const uint8_t *key) {
      while (!ended && places.size() < kMost) {
        ended = !reader.NextOfKey(key);
        if (!ended) places.push_back(reader.entry().place);
      }
    }

    EntryReader reader;
    std::deque<tbm::Place> places;
    bool ended = false;
  };

  void OfOneKey(const uint8_t *bytes, RecordComparison *comparison) {
    const TableLayout &table = comparison->table();
    const std::vector<uint8_t> key(bytes, bytes + table.spec.keySize);
    Waiting a(from_, table);
    Waiting b(to_, table);
    for (;;) {
      a.Fill(key.data());
      b.Fill(key.data());
      if (a.places.empty() && b.places.empty()) return;
      if (DropEquals(&a, &b, comparison)) continue;
      // The later ones may yet find an equal among those that follow.
      for (size_t i = 0; i < Waiting::kMost / 2; ++i) Pair(&a, &b, comparison);
    }
  }

  // Takes out what has an equal on the other side; whether there was any.
  bool DropEquals(Waiting *a, Waiting *b, RecordComparison *comparison) {
    const size_t before = a->places.size();
    std::erase_if(a->places, [&](const tbm::Place &place) {
      if (!a->reader.Again(place)) return true;
      const auto equal = std::ranges::find_if(b->places, [&](const tbm::Place &other) {
        return b->reader.Again(other) &&
               comparison->Equal(RecordBytes(from_, a->reader), RecordBytes(to_, b->reader));
      });
      if (equal == b->places.end()) return false;
      b->places.erase(equal);
      return true;
    });
    return a->places.size() != before;
  }

  // The first of each side, no two of which are equal.
  void Pair(Waiting *a, Waiting *b, RecordComparison *comparison) {
    const auto take = [](Waiting *side) {
      if (side->places.empty()) return false;
      const bool isThere = side->reader.Again(side->places.front());
      side->places.pop_front();
      return isThere;
    };
    const bool isInA = take(a);
    const bool isInB = take(b);
    if (isInA && isInB) {
      Both(a->reader, b->reader, comparison);
    } else if (isInA) {
      One(Change::kRemoved, a->reader, from_);
    } else if (isInB) {
      One(Change::kAdded, b->reader, to_);
    }
  }

  void One(Change change, const EntryReader &reader, const RecordSource &source) {
    const RecordBytes record(source, reader);
    Difference difference;
    difference.change = change;
    difference.table = &reader.table();
    (change == Change::kAdded ? difference.to : difference.from) = &record;
    Give(difference);
  }

  void Both(const EntryReader &a, const EntryReader &b, RecordComparison *comparison) {
    const RecordBytes from(from_, a);
    const RecordBytes to(to_, b);
    if (comparison->Equal(from, to)) return;
    Difference difference;
    difference.table = &a.table();
    difference.from = &from;
    difference.to = &to;
    difference.values = comparison->changes();
    Give(difference);
  }

  void Region(const RegionLayout &region) {
    const std::vector<uint8_t> a = from_.ReadRegion(region);
    const std::vector<uint8_t> b = to_.ReadRegion(region);
    if (a.empty() && b.empty()) return;
    const RecordBytes from(from_, a.data());
    const RecordBytes to(to_, b.data());
    std::vector<ValueChange> changes;
    Difference difference;
    difference.region = &region;
    if (!a.empty()) difference.from = &from;
    if (!b.empty()) difference.to = &to;
    if (a.empty() || b.empty()) {
      difference.change = a.empty() ? Change::kAdded : Change::kRemoved;
    } else {
      CompareRegions(region, from, to, request_.volatiles, &changes);
      if (changes.empty()) return;
      difference.values = changes;
    }
    Give(difference);
  }

  void Give(const Difference &difference) {
    ++result_.count;
    sink_->Take(difference);
  }

  const RecordSource &from_;
  const RecordSource &to_;
  const DiffRequest &request_;
  DiffSink *const sink_;
  DiffResult result_;
};

}  // namespace

DiffRequest DiffRequest::Whole(const Layout &layout) {
  DiffRequest request;
  for (const TableLayout &table : layout.tables()) {
    if (!table.fields.empty()) request.tables.push_back(&table);
  }
  for (const RegionLayout &region : layout.regions()) {
    if (!region.fields.empty()) request.regions.push_back(&region);
  }
  return request;
}

void DiffRequest::Add(const Layout &layout, std::string_view name) {
  const TableLayout *table = layout.FindTable(name);
  const RegionLayout *region = layout.FindRegion(name);
  if (table != nullptr && !table->fields.empty()) {
    tables.push_back(table);
  } else if (region != nullptr && !region->fields.empty()) {
    regions.push_back(region);
  } else if (table != nullptr || region != nullptr) {
    throw HostError("nothing is known of the fields of " + std::string(name) +
                    ", so that it cannot be compared");
  } else {
    NearName near(name);
    std::string_view nearest;
    const DiffRequest all = Whole(layout);
    for (const TableLayout *other : all.tables) {
      if (near.Offer(other->shortName)) nearest = other->shortName;
    }
    for (const RegionLayout *other : all.regions) {
      if (near.Offer(other->spec.name)) nearest = other->spec.name;
    }
    throw HostError("unknown table " + Quoted(name) + DidYouMean(nearest, "\"nqecli usage\" lists them"));
  }
}

DiffResult RunDiff(const RecordSource &from, const RecordSource &to, const DiffRequest &request,
                   DiffSink *sink) {
  return Diff(from, to, request, sink).Run();
}

}  // namespace qdt::host
