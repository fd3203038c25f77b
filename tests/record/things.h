#ifndef TESTS_RECORD_THINGS_H_
#define TESTS_RECORD_THINGS_H_

#include "host/record/record_sinks.h"
#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"
#include "tests/record/record_fixture.h"

namespace qdt::host {

// Tables that have of everything one: kinds of values, arrays, structures, variants, attached parts,
// references to one table and to several, owners, lists and routes.
inline const Layout &ThingsLayout() {
  static const std::string filler = FillerTables(8);
  static const Layout layout = ReadLayouts({{"things.yaml", R"(
tables:
  things:
    id: 0
    name: CAP_TABLE_THINGS
    key_size: 8
    record_size: 192
    attached_size: 32
    capacity: 300
    key: {marker: 0 u32 = 0x50000, index: 4 u32}
    fields:
      index: 0 u32
      byte: 4 u8
      signed_byte: 5 i8
      flag: 6 u16 bit 15
      some_bits: 6 u16 bits 3-6
      word: 8 u32
      signed_word: 12 i32
      long: 16 u64
      signed_long: 24 i64
      ip: 32 ipv4
      ip_net: 36 ipv4_net
      ip6: 40 ipv6
      ip6_words: 56 ipv6_words
      mac: 72 mac
      count: 78 u16 counts numbers
      name: 80 text 8
      numbers: 88 u16 x 3 every 4
      pairs: {at: 100, count: 2, stride: 8, fields: {low: 0 u32, on: 4 u32 bit 31, ports: 4 u8 x 2}}
      inner: {at: 116, fields: {value: 0 u32}}
      peer: 120 ref other
      next: 128 ref other|things
      peers: 136 ref things x 3
      seen: 160 uptime_ago
      made: 164 time_ago
      part: {at: 192, pointer: 168, chosen_by: flag 0, fields: {a: 0 u32, ip: 4 ipv4}}
      part6: {at: 192, pointer: 168, chosen_by: flag 1, fields: {b: 0 u64}}
      tail: {at: 208, pointer: 176, fields: {c: 0 u32}}
)" + PlainTables("things") + R"(  named:
    id: 5
    name: CAP_TABLE_NAMED
    key_size: 24
    record_size: 8
    capacity: 8
    key: {name: 0 text 8, where: 8 address}
    fields: {value: 0 u64}
  owner: {id: 6, name: CAP_TABLE_OWNER, key_size: 8, record_size: 8, capacity: 8, key: {kind: 0 u32, number: 4 u32}, fields: {kind: 0 u32, number: 4 u32}}
  owned:
    id: 7
    name: CAP_TABLE_OWNED
    key_size: 12
    record_size: 32
    part_of: owner
    capacity: 300
    key: {kind: 0 u32, number: 4 u32, place: 8 u32}
    fields:
      kind: 0 u16
      word: 4 u32
      near: {at: 16, variant: kind 0, fields: {low: 0 u32, high: 4 u64}}
      far: {at: 20, variant: kind 1 3, fields: {a: 0 u16, b: 2 u8}}
      both: {at: 20, variant: kind 3, fields: {a: 0 u32, rest: 4 u32}}
regions:
  TIMES: {size: 16, fields: {tcp: 0 u16, used: 2 u16 counts apps, apps: {at: 4, count: 3, stride: 4, fields: {ttl: 2 u16}}}}
)"},
                                            {"filler.yaml", filler}});
  return layout;
}

// An arena of those tables, filled by a scenario.
class ThingsTest : public testing::Test {
 protected:
  void Load(const std::string &scenario) {
    Scenario::FromText("s.yaml", scenario, ThingsLayout()).Fill(&arena_.arena(), &arena_.writer());
  }

  // The conditions, for `table`.
  static ListRequest Request(std::string_view table, std::initializer_list<std::string_view> where) {
    ListRequest request;
    request.table = ThingsLayout().FindTable(table);
    for (const std::string_view condition : where) request.where.emplace_back(*request.table, condition);
    return request;
  }

  // A list in one form, "!LINE" behind it when it failed.
  std::string List(RecordFormat format, const ListRequest &request, std::string_view fields = "",
                   uint32_t width = 0, std::string *aside = nullptr) const {
    const RecordShape shape =
        fields.empty() ? RecordShape::Whole(*request.table) : RecordShape::Select(*request.table, fields);
    StringOut out;
    const auto sink = MakeSink(format, &out, {"table", request.table->shortName, request.table->spec.id},
                               shape, request.table->fields, width, aside);
    const auto source = arena_.Source();
    try {
      RunList(*source, request, sink.get());
    } catch (const HostError &error) {
      return out.Take() + "!" + error.what();
    }
    return out.Take();
  }

  // The values of one field of those that fit, with a blank between them.
  std::string Values(std::string_view table, std::initializer_list<std::string_view> where,
                     std::string_view field = "index") const {
    std::string lines = List(RecordFormat::kCsv, Request(table, where), field);
    lines.erase(0, lines.find('\n') + 1);
    std::string values;
    for (const char c : lines) {
      if (c == '\n') values += values.empty() ? "" : " ";
      if (c != '\n' && c != '\r') values += c;
    }
    while (values.ends_with(' ')) values.pop_back();
    return values;
  }

  // The line that a condition is refused with.
  static std::string Refusal(std::string_view condition, std::string_view table = "things") {
    return ErrorOf([&] { Condition(*ThingsLayout().FindTable(table), condition); });
  }

  void *Address(uint32_t table, std::initializer_list<uint32_t> key) const {
    const auto source = arena_.Source();
    EntryReader reader(*source, ThingsLayout().Table(table));
    if (!reader.Find(reinterpret_cast<const uint8_t *>(std::data(key)))) return nullptr;
    return reinterpret_cast<void *>(reader.entry().address + ThingsLayout().Table(table).spec.searchOffset);
  }

  TestDirectory directory_;
  TestArena arena_{directory_.File("arena"), ThingsLayout()};
};

}  // namespace qdt::host

#endif  // TESTS_RECORD_THINGS_H_
