#ifndef HOST_RECORD_RECORD_SOURCE_H_
#define HOST_RECORD_RECORD_SOURCE_H_

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/tbm/walk.h"

namespace qdt::host {

// Where a reference, the address of another table's entry, leads to.
struct Reference {
  enum class Kind : uint8_t {
    kNone,   // null
    kEntry,  // to a living entry of `table`
    kStale,  // to a place of `table` where no entry is any more
    kWild,   // to no place of a table that the field can lead to
  };
  Kind kind = Kind::kNone;
  const TableLayout *table = nullptr;
  uint64_t address = 0;
  uint8_t key[tbm::kMaxKeySize];  // of a living entry
};

// An engine's arena, or a saved one, whose records are read by their layouts. Maps it anywhere, so that one
// process may have several. For one thread.
class RecordSource {
 public:
  // Both throw HostError as Arena::Look does. `layout` outlives the source.
  static std::unique_ptr<RecordSource> OfEngine(const std::string &arena, const Layout &layout);
  static std::unique_ptr<RecordSource> OfSnapshot(const std::string &file, const Layout &layout);

  const Layout &layout() const { return layout_; }
  const Arena &arena() const { return *arena_; }
  bool IsLive() const { return live_; }

  // Null when this engine does not have the table. Throws HostError when it was made with another layout, so
  // that the fields would not fit.
  const tbm::TableView *View(const TableLayout &table) const;

  // The region's bytes copied out; nothing when this engine does not have it or it has another size.
  std::vector<uint8_t> ReadRegion(const RegionLayout &region) const;

  // Where the address in a field of a record leads to. `targets` are those of the field, whose tables are
  // looked up once.
  Reference Resolve(std::span<const std::string_view> targets, uint64_t address) const;
  // The same for who has looked the targets up.
  Reference Resolve(std::span<const TableLayout *const> targets, uint64_t address) const;

  // Takes this moment for the one that a view of a running engine shows, which is else that of its making.
  void LookNow();

  // What people see of a time: the seconds that have passed since, at the moment that the source shows; 0 for
  // one to come.
  WideValue SecondsAgo(const FieldRef &field, WideValue stored) const;

  // TimerMilliseconds at that moment.
  uint64_t Timer() const { return timer_; }

  // Address in the engine of a byte of this process's mapping.
  uint64_t EngineAddress(const void *here) const {
    return reinterpret_cast<uint64_t>(here) - static_cast<uint64_t>(arena_->Shift());
  }
  const void *Here(uint64_t engineAddress) const {
    return reinterpret_cast<const void *>(engineAddress + static_cast<uint64_t>(arena_->Shift()));
  }

 private:
  RecordSource(std::unique_ptr<Arena> arena, const Layout &layout, bool live);
  bool ResolveIn(const TableLayout &table, Reference *reference) const;
  std::span<const TableLayout *const> TablesOf(std::span<const std::string_view> targets) const;

  std::unique_ptr<Arena> arena_;
  const Layout &layout_;
  bool live_;
  uint64_t uptime_ = 0;  // seconds of both clocks at the moment that the source shows
  uint64_t now_ = 0;
  uint64_t timer_ = 0;
  mutable std::array<tbm::TableView, kTableCount> views_;
  enum class Opened : uint8_t { kNotYet, kYes, kMissing };
  mutable std::array<Opened, kTableCount> opened_{};
  // The tables of the fields' targets so far, which stand in the layout and are known by their place there.
  struct Targets {
    std::span<const std::string_view> names;
    std::vector<const TableLayout *> tables;
  };
  mutable std::deque<Targets> targets_;
};

// One entry, copied out whole.
struct Entry {
  tbm::Place place;
  uint64_t address = 0;  // of the record in the engine
  const uint8_t *key = nullptr;
  const uint8_t *record = nullptr;  // with what is attached to it
};

// Reads the entries of one table, one at a time. What it returns is good until it is asked for the next one.
class EntryReader {
 public:
  EntryReader(const RecordSource &source, const TableLayout &table);

  const TableLayout &table() const { return table_; }
  const Entry &entry() const { return entry_; }
  // Entries that the table holds right now.
  uint32_t Count() const;
  // Whether the table had never held any when the reader was made.
  bool IsUnused() const { return endSerial_ == 0; }

  // The next entry in order of insertion; false behind the last one that the table held when the reader was
  // made. Throws HostError when a live engine changes the table faster than it can be followed, and where a
  // saved one's order is damaged.
  bool Next();
  // The same without a look at the entry: only its place, for Again.
  bool NextPlace(tbm::Place *place);
  // Next goes on behind the entry of this serial, whether it is still there or not.
  void GoBehind(uint64_t serial) {
    place_ = {serial, 0, 0, 0, 0, 0};
    isPart_ = true;
  }
  // The same as Next among the entries that share a key, and in a table with groups among those of the key's
  // group; to begin anew, Rewind.
  bool NextOfKey(const uint8_t *key);
  bool NextOfGroup(const uint8_t *key);
  void Rewind() {
    place_ = {};
    walked_ = 0;
    isPart_ = false;
  }

  // The entry of a key; false when there is none.
  bool Find(const uint8_t *key);
  // Of a table of routes, the one with the longest prefix that holds the key's destination, in its VPN.
  bool Match(const uint8_t *key);
  // The same, looking first at slot `guess`, where the entry stands in an arena that was filled alike. For
  // tables with one entry a key.
  bool FindNear(const uint8_t *key, uint32_t guess);
  // The entry at the address that references to it hold; false when none lives there.
  bool At(uint64_t address);
  // An entry seen before, as it is now; false when it has gone.
  bool Again(const tbm::Place &place);

  // Whether the entry has the structure: of variants the one that its key selects, of attached ones the one
  // that its pointer leads to. Other fields are always there.
  bool Has(const Field &field) const;
  // Whether a pointer of the record leads elsewhere than to what is attached to the entry.
  bool IsStrayed(const Field &field) const;
  uint64_t PointerTo(const Field &field) const;

 private:
  template <typename Order>
  bool NextIn(Order *order);
  void CheckWalked() const;
  template <typename Search>
  bool TakeFound(const Search &search);
  bool Take(const tbm::Place &place);
  [[noreturn]] void FailRestless() const;

  const RecordSource &source_;
  const TableLayout &table_;
  const tbm::TableView *view_;
  tbm::Place place_;  // of the walk
  tbm::TableRun run_;
  uint64_t endSerial_ = 0;
  uint64_t walked_ = 0;          // entries that Next and NextPlace have given
  bool isPart_ = false;          // not all that stand before are
  std::vector<uint64_t> words_;  // key, then record
  Entry entry_;
};

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_SOURCE_H_
