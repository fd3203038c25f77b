#include <array>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "host/base/host_error.h"
#include "host/scenario/scenario.h"

namespace qdt::host {
namespace {

// Writes a checked scenario into an arena. References can form circles, so every entry is put in first,
// without them; then all addresses are known.
class ScenarioFiller {
 public:
  ScenarioFiller(const std::vector<PlannedTable> &tables, TableWriter *writer)
      : tables_(tables), writer_(*writer) {
    for (uint32_t place = 0; place < tables.size(); ++place) places_[tables[place].layout->spec.id] = place;
  }

  void Fill() {
    // Stale addresses must differ from those of the entries, so their places are taken while the entries go
    // in.
    for (const PlannedTable &table : tables_) {
      for (const PlannedReference &reference : table.references) {
        if (reference.stale) InsertPlaceholder(reference);
        hasAddresses_[table.layout->spec.id] = hasAddresses_[reference.table] = true;
      }
    }
    for (const PlannedTable &table : tables_) InsertEntries(table);
    for (const PlannedTable &table : tables_) WriteReferences(table);
    for (const auto &[target, address] : placeholders_) {
      Check(*tables_[target.first].layout,
            writer_.RemoveEntry(tables_[target.first].layout->spec.id, address));
    }
  }

 private:
  using Target = std::pair<uint32_t, uint32_t>;  // place of the table, entry

  static void Check(const TableLayout &table, int32_t status) {
    constexpr int32_t kNoSpace = -3;
    constexpr int32_t kFull = -8;
    if (status == 0) return;
    std::string what = "the table manager refused an entry, code " + std::to_string(status);
    if (status == kNoSpace)
      what = "no space is left under the arena (free some, or place the arena elsewhere)";
    if (status == kFull) what = "the table is full (a stale reference needs one free place)";
    throw HostError(std::string(table.shortName) + ": " + what);
  }

  // The target's record under a key that no entry of the scenario has.
  void InsertPlaceholder(const PlannedReference &reference) {
    const Target target(places_[reference.table], reference.target);
    if (placeholders_.contains(target)) return;
    const PlannedTable &table = tables_[target.first];
    const std::string key = FreeKey(table, target.second);
    const std::vector<uint8_t> nothing(table.layout->spec.StoredSize());
    const bool hasTarget = target.second != PlannedReference::kNoTarget;
    void *address = nullptr;
    Check(*table.layout,
          writer_.Insert(reference.table, key.data(),
                         hasTarget ? table.record(target.second).data() : nothing.data(), &address));
    placeholders_.emplace(target, address);
  }

  // Varies the third and fourth byte of the key: the second half of a number, the VPN of a route.
  std::string FreeKey(const PlannedTable &table, uint32_t entry) {
    const auto bytes = [](std::span<const uint8_t> key) { return std::string(key.begin(), key.end()); };
    std::set<std::string> &taken = takenKeys_[table.layout->spec.id];
    if (taken.empty()) {
      for (uint32_t i = 0; i < table.count(); ++i) taken.insert(bytes(table.key(i)));
    }
    std::string key(table.layout->spec.keySize, '\0');
    if (entry != PlannedReference::kNoTarget) key = bytes(table.key(entry));
    for (uint32_t variant = 0xffff;; --variant) {
      key[2] = static_cast<char>(variant);
      key[3] = static_cast<char>(variant >> 8);
      if (taken.insert(key).second || variant == 0) return key;
    }
  }

  // Addresses are kept of tables that references begin or end in.
  void InsertEntries(const PlannedTable &table) {
    const TableSpec &spec = table.layout->spec;
    const bool isKept = hasAddresses_[spec.id];
    std::vector<void *> &addresses = addresses_[spec.id];
    const uint32_t count = table.count();
    if (isKept) addresses.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
      Check(*table.layout, writer_.Insert(spec.id, table.key(i).data(), table.record(i).data(),
                                          isKept ? &addresses[i] : nullptr));
    }
  }

  // The references of one entry stand side by side, so that each record is rewritten once.
  void WriteReferences(const PlannedTable &table) {
    std::vector<uint8_t> record;
    for (size_t i = 0; i < table.references.size();) {
      const uint32_t entry = table.references[i].entry;
      const std::span<const uint8_t> planned = table.record(entry);
      record.assign(planned.begin(), planned.end());
      for (; i < table.references.size() && table.references[i].entry == entry; ++i) {
        const PlannedReference &reference = table.references[i];
        reference.field.Set(record.data(), reinterpret_cast<uintptr_t>(Address(reference)));
      }
      const uint32_t id = table.layout->spec.id;
      Check(*table.layout, writer_.Update(id, addresses_[id][entry], record.data()));
    }
  }

  void *Address(const PlannedReference &reference) {
    if (reference.inside != 0) {
      const TableSpec &spec = tables_[places_[reference.table]].layout->spec;
      return static_cast<char *>(addresses_[reference.table][reference.target]) + reference.inside -
             spec.searchOffset;
    }
    if (!reference.stale) return addresses_[reference.table][reference.target];
    return placeholders_.at({places_[reference.table], reference.target});
  }

  const std::vector<PlannedTable> &tables_;
  TableWriter &writer_;
  std::array<uint32_t, kTableCount> places_{};
  std::array<bool, kTableCount> hasAddresses_{};
  std::array<std::vector<void *>, kTableCount> addresses_;
  std::array<std::set<std::string>, kTableCount> takenKeys_;
  std::map<Target, void *> placeholders_;
};

}  // namespace

void Scenario::Fill(Arena *arena, TableWriter *writer) const {
  ScenarioFiller(tables_, writer).Fill();
  for (const PlannedRegion &region : regions_) {
    uint32_t size = 0;
    void *place = arena->FindRegion(region.layout->spec.name, &size);
    if (place == nullptr || size != region.bytes.size()) {
      throw HostError(std::string(region.layout->spec.name) + ": the arena was made with another layout");
    }
    if (!arena->Reserve(place, size)) {
      throw HostError(std::string(region.layout->spec.name) +
                      ": no space is left under the arena (free some, or place the arena elsewhere)");
    }
    std::memcpy(place, region.bytes.data(), size);
  }
}

}  // namespace qdt::host
