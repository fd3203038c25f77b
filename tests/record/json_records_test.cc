#include "host/record/json_records.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "tests/record/record_fixture.h"

namespace qdt::host {
namespace {

constexpr int kRecords = 12;  // of each table and region

// The record as RapidJSON's writer has it, a member at a time.
std::string ByMember(const RecordBytes &record, const RecordShape &shape) {
  StringOut out;
  JsonWriter json(out);
  const auto key = [&json](std::string_view name) { JsonKey(&json, name); };
  json.StartObject();
  for (const ShapeNode &node : shape.nodes) {
    const Field &field = *node.field;
    if (node.inKey && field.constant && node.twin == nullptr) continue;
    if (!node.inKey && record.entry != nullptr && !record.entry->Has(field)) continue;
    key(node.name);
    if (!node.inKey && record.entry != nullptr && field.pointer != 0 && record.entry->IsStrayed(field)) {
      char hex[32];
      std::snprintf(hex, sizeof(hex), "0x%llx",
                    static_cast<unsigned long long>(record.entry->PointerTo(field)));
      json.StartObject();
      key("stale");
      JsonText(&json, hex);
      json.EndObject();
      continue;
    }
    WriteJsonNode(&json, record, node, 0, record.fields);
  }
  const auto differs = [&record](const ShapeNode &node) { return DiffersFromKey(node, record); };
  if (std::ranges::any_of(shape.nodes, differs)) {
    key("record");
    json.StartObject();
    for (const ShapeNode &node : shape.nodes) {
      if (!differs(node)) continue;
      key(node.name);
      WriteJsonValue(&json, record, *node.twin, node.twin->ref, record.record);
    }
    json.EndObject();
  }
  json.EndObject();
  return out.Take();
}

// All of it, each member alone, and the members the other way round, which begin with structures that not all
// records have.
std::vector<RecordShape> ShapesOf(const RecordShape &whole) {
  std::vector<RecordShape> shapes = {whole};
  RecordShape backwards;
  for (const ShapeNode &node : whole.nodes) {
    shapes.emplace_back().nodes = {node};
    backwards.nodes.insert(backwards.nodes.begin(), node);
  }
  shapes.push_back(backwards);
  return shapes;
}

class JsonRecordsTest : public testing::Test {
 protected:
  void Fill(std::vector<uint8_t> *bytes) {
    // Zeros, small numbers and random ones in turns.
    const uint64_t mask = std::array<uint64_t, 3>{0, 1, 255}[chance_() % 3];
    for (uint8_t &byte : *bytes) byte = static_cast<uint8_t>(chance_() & mask);
  }
  // What a record says again of its key.
  void FillTwins(const TableLayout &table, const std::vector<uint8_t> &key, std::vector<uint8_t> *record) {
    for (const Field &field : table.key.all()) {
      const Field *own = table.fields.Find(field.name);
      if (own == nullptr || own->count != 0 || chance_() % 16 == 0) continue;
      if (field.ref.kind == FieldKind::kText) {
        own->ref.SetText(record->data(), field.ref.GetText(key.data()));
      } else {
        own->ref.Write(record->data(), field.ref.Read(key.data()));
      }
    }
  }
  // The pointers of an entry at `place`: to what is attached, to nothing, or astray.
  void FillPointers(const TableLayout &table, uint64_t place, std::vector<uint8_t> *record) {
    for (const Field &field : table.fields.all()) {
      if (field.pointer == 0) continue;
      const uint64_t pointer = std::array<uint64_t, 3>{place + field.ref.offset, 0, place + 1}[chance_() % 3];
      std::memcpy(record->data() + field.pointer, &pointer, sizeof(pointer));
    }
  }

  void Compare(const RecordBytes &record, const RecordShape &whole, std::string_view name) {
    for (const RecordShape &shape : ShapesOf(whole)) {
      StringOut out;
      JsonRecords records(shape, &out);
      for (int time = 0; time < 2; ++time) {
        records.Write(record);
        ASSERT_EQ(out.Take(), ByMember(record, shape)) << name;
      }
    }
    ++compared_;
  }

  TestDirectory directory_;
  TestArena arena_{directory_.File("arena"), Layout::BuiltIn()};
  std::mt19937_64 chance_{20240611};
  int compared_ = 0;
};

TEST_F(JsonRecordsTest, TablesAsRapidJsonHasThem) {
  const auto source = arena_.Source();
  int tables = 0;
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty() || table.spec.dataSize == 0) continue;
    const int before = compared_;
    for (int i = 0; i < kRecords; ++i) {
      std::vector<uint8_t> key(table.spec.keySize), record(table.spec.StoredSize());
      Fill(&key);
      void *place = nullptr;
      if (arena_.writer().Insert(table.spec.id, key.data(), record.data(), &place) != 0) continue;
      Fill(&record);
      FillTwins(table, key, &record);
      FillPointers(table, reinterpret_cast<uint64_t>(place) - table.spec.searchOffset, &record);
      ASSERT_EQ(arena_.writer().Update(table.spec.id, place, record.data()), 0);
      EntryReader reader(*source, table);
      ASSERT_TRUE(reader.At(reinterpret_cast<uint64_t>(place)));
      Compare(RecordBytes(*source, reader), RecordShape::Whole(table), table.shortName);
    }
    EXPECT_GT(compared_, before) << table.shortName;
    ++tables;
  }
  EXPECT_GT(tables, 80);
}

TEST_F(JsonRecordsTest, RegionsAsRapidJsonHasThem) {
  const auto source = arena_.Source();
  for (const RegionLayout &region : Layout::BuiltIn().regions()) {
    for (int i = 0; i < 3; ++i) {
      std::vector<uint8_t> bytes(region.spec.size);
      Fill(&bytes);
      Compare(RecordBytes(*source, bytes.data(), region.fields), RecordShape::Whole(region),
              region.spec.name);
    }
  }
}

}  // namespace
}  // namespace qdt::host
