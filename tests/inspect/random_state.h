#ifndef TESTS_INSPECT_RANDOM_STATE_H_
#define TESTS_INSPECT_RANDOM_STATE_H_

#include <time.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "host/base/time_text.h"
#include "host/record/record_shape.h"
#include "host/regions/reassembly_regions.h"
#include "host/tbm/route_key.h"
#include "tests/record/record_fixture.h"

namespace qdt::host {

// Fills an arena with what no sound engine has: random bytes in every record, references to entries, to
// places that have been left and to anywhere, parts of the entry's own and pointers that lead astray.
class RandomState {
 public:
  RandomState(TestArena *arena, uint32_t seed) : arena_(*arena), random_(seed) {}

  // `entries` of each table, as far as it holds them.
  void Fill(uint32_t entries) {
    for (const TableLayout &table : arena_.layout().tables()) {
      if (!table.fields.empty()) FillTable(table, entries);
    }
    for (auto &[id, places] : places_) {
      for (void *place : places) PointRecord(arena_.layout().Table(id), place);
    }
    for (const RegionLayout &region : arena_.layout().regions()) FillRegion(region);
    FillStatistics();
  }

 private:
  uint64_t Below(uint64_t limit) { return random_() % limit; }

  WideValue Value() { return WideValue{random_()} << 64 | random_(); }

  void FillTable(const TableLayout &table, uint32_t entries) {
    const bool isMany = table.spec.lookup == Lookup::kMany;
    std::set<std::vector<uint8_t>> keys;
    std::vector<void *> &places = places_[table.spec.id];
    const uint32_t count = std::min(entries, table.spec.capacity);
    // One place is left again, for what is out of date.
    for (uint32_t i = 0; i < count; ++i) {
      std::vector<uint8_t> key = Key(table);
      for (int tries = 0; !isMany && !keys.insert(key).second && tries < 20; ++tries) key = Key(table);
      std::vector<uint8_t> record(table.spec.StoredSize());
      for (uint8_t &byte : record) byte = static_cast<uint8_t>(random_());
      if (Below(8) == 0) std::ranges::fill(record, 0);
      AgreeWithKey(table, key.data(), record.data());
      void *place = nullptr;
      const int32_t status = arena_.writer().Insert(table.spec.id, key.data(), record.data(), &place);
      if (status != 0) continue;  // a key of few bits that is there already
      places.push_back(place);
      records_[place] = std::move(record);
      keys_[table.spec.id].push_back(key);
    }
    if (places.size() < 2) return;
    left_[table.spec.id] = places.back();
    ASSERT_EQ(arena_.writer().RemoveEntry(table.spec.id, places.back()), 0) << table.shortName;
    places.pop_back();
    keys_[table.spec.id].pop_back();
  }

  std::vector<uint8_t> Key(const TableLayout &table) {
    std::vector<uint8_t> key(table.spec.keySize);
    for (const Field &field : table.key.all()) {
      if (field.constant) {
        field.ref.Write(key.data(), *field.constant);
      } else if (field.ref.kind == FieldKind::kText) {
        std::string text(Below(field.ref.size + 1u), 'x');
        for (char &c : text) c = static_cast<char>(1 + Below(255));
        field.ref.SetText(key.data(), text);
      } else {
        field.ref.Write(key.data(), Value());
      }
      Narrow(field, key.data());
    }
    SelectVariant(table, key.data());
    for (const TableLayout &part : arena_.layout().tables()) {
      if (part.partOf == table.shortName) SelectVariant(part, key.data());
    }
    if (!table.partOf.empty()) {
      const auto &owners = keys_[arena_.layout().FindTable(table.partOf)->spec.id];
      const auto &owner = owners.at(Below(owners.size()));
      std::ranges::copy(owner, key.begin());
    }
    if (const uint32_t size = PrefixAddressSize(table.spec.lookup); size != 0) {
      const auto length = static_cast<uint16_t>(Below(size * 8 + 1));
      std::memcpy(key.data(), &length, sizeof length);
      KeepPrefix(key.data() + kPrefixAddressOffset, size, length);
    }
    return key;
  }

  // An address of several kinds is one of them.
  void Narrow(const Field &field, uint8_t *key) {
    if (field.ref.kind != FieldKind::kAddress) return;
    const uint32_t sizes[] = {4, 6, 16};
    const uint32_t size = sizes[Below(3)];
    std::memset(key + field.ref.offset + size, 0, field.ref.size - size);
  }

  void SelectVariant(const TableLayout &table, uint8_t *key) {
    for (const Field &field : table.fields.all()) {
      if (field.selector.empty() || Below(2) != 0) continue;
      table.key.Find(field.selector)->ref.Set(key, field.selectedBy[Below(field.selectedBy.size())]);
    }
  }

  // Mostly the record says what its key says.
  void AgreeWithKey(const TableLayout &table, const uint8_t *key, uint8_t *record) {
    for (const Field &field : table.key.all()) {
      const Field *twin = table.fields.Find(field.name);
      if (twin == nullptr || Below(4) == 0) continue;
      if (field.ref.kind == FieldKind::kText) {
        twin->ref.SetText(record, field.ref.GetText(key));
      } else {
        twin->ref.Write(record, field.ref.Read(key));
      }
    }
  }

  void PointRecord(const TableLayout &table, void *place) {
    std::vector<uint8_t> &record = records_[place];
    for (const Leaf &leaf : LeavesOf(table)) {
      if (leaf.inKey) continue;
      if (leaf.ref.kind == FieldKind::kReference) leaf.ref.Set(record.data(), Address(*leaf.field));
      if (IsTimeAgo(leaf.ref.kind)) leaf.ref.Set(record.data(), Time(leaf.ref.kind));
    }
    const auto start = reinterpret_cast<uint64_t>(place) - table.spec.searchOffset;
    for (const Field &field : table.fields.all()) {
      if (field.pointer == 0) continue;
      const uint64_t pointers[] = {0, random_(), start + field.ref.offset, start + field.ref.offset, start};
      const uint64_t pointer = pointers[Below(5)];
      std::memcpy(record.data() + field.pointer, &pointer, sizeof pointer);
    }
    ASSERT_EQ(arena_.writer().Update(table.spec.id, place, record.data()), 0) << table.shortName;
  }

  uint64_t Address(const Field &field) {
    const TableLayout *target = arena_.layout().FindTable(field.targets[Below(field.targets.size())]);
    const auto &places = places_[target->spec.id];
    switch (Below(5)) {
      case 0:
        return 0;
      case 1:
        return random_();
      case 2:
        return left_.contains(target->spec.id) ? reinterpret_cast<uint64_t>(left_[target->spec.id]) : 0;
      default:
        return places.empty() ? 0 : reinterpret_cast<uint64_t>(places[Below(places.size())]);
    }
  }

  uint32_t Time(FieldKind kind) {
    timespec now = {};
    clock_gettime(kind == FieldKind::kUptimeAgo ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
    return Below(4) == 0 ? 0 : static_cast<uint32_t>(Below(static_cast<uint64_t>(now.tv_sec)));
  }

  void FillRegion(const RegionLayout &region) {
    if (region.fields.empty()) return;
    auto *bytes = static_cast<uint8_t *>(arena_.arena().FindRegion(region.spec.name, nullptr));
    ASSERT_NE(bytes, nullptr);
    for (uint32_t i = 0; i < region.spec.size; ++i) bytes[i] = static_cast<uint8_t>(random_());
    for (const Leaf &leaf : LeavesOf(region)) {
      if (leaf.field->name == kReassemblyArrival) leaf.ref.Set(bytes, TimerMilliseconds() - Below(50'000));
    }
  }

  void FillStatistics() {
    Statistics statistics(arena_.arena());
    for (int i = 0; i < 100; ++i)
      statistics.Add(static_cast<uint32_t>(Below(TestArena::kCores)), static_cast<uint32_t>(Below(831)),
                     random_());
  }

  TestArena &arena_;
  std::mt19937_64 random_;
  std::map<uint32_t, std::vector<void *>> places_;
  std::map<uint32_t, void *> left_;  // a place without an entry
  std::map<uint32_t, std::vector<std::vector<uint8_t>>> keys_;
  std::map<void *, std::vector<uint8_t>> records_;
};

}  // namespace qdt::host

#endif  // TESTS_INSPECT_RANDOM_STATE_H_
