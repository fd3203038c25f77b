#ifndef TESTS_LAYOUT_TEST_LAYOUT_H_
#define TESTS_LAYOUT_TEST_LAYOUT_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/layout/layout_files.h"
#include "tests/host/error_of.h"

namespace qdt::host {

// Ids from `first` on, as tables that are not defined: a layout needs all 109.
inline std::string FillerTables(uint32_t first) {
  std::string text = "tables:\n";
  for (uint32_t id = first; id < kTableCount; ++id) {
    const std::string number = std::to_string(id);
    text += "  filler_" + number + ": {id: " + number + ", name: CAP_TABLE_FILLER_" + number + "}\n";
  }
  return text;
}

// Tables 1 to 4 of a layout: one that refers to its table 0, several entries a key, routes, one without
// fields.
inline std::string PlainTables(const std::string &first) {
  return R"(  other:
    id: 1
    name: CAP_TABLE_OTHER
    key_size: 8
    record_size: 40
    search_offset: 8
    capacity: 4
    key: {group: 0 u32, number: 4 u32}
    fields: {group: 0 u32, number: 4 u32, back: 16 ref )" +
         first + R"(}
  list:
    id: 2
    name: CAP_TABLE_LIST
    key_size: 4
    record_size: 8
    lookup: many
    capacity: 16
    key: {owner: 0 u32}
    fields: {value: 0 u64}
  route: {id: 3, name: CAP_TABLE_ROUTE, key_size: 8, record_size: 16, lookup: prefix4, capacity: 8, key: {length: 0 u16, vpn: 2 u16, destination: 4 ipv4_net}, fields: {next: 8 ref other}}
  bare: {id: 4, name: CAP_TABLE_BARE, key_size: 4, record_size: 8, capacity: 8}
)";
}

// One table with a field of every kind, and two that refer to each other.
inline Layout KindsLayout() {
  static const std::string filler = FillerTables(5);
  return ReadLayouts({{"kinds.yaml", R"(
tables:
  kinds:
    id: 0
    name: CAP_TABLE_KINDS
    key_size: 8
    record_size: 160
    capacity: 300
    key: {marker: 0 u32 = 0x50000, index: 4 u32}
    fields:
      index: 0 u32
      byte: 4 u8
      half: 6 u16
      word: 8 u32
      long: 16 u64
      signed_byte: 24 i8
      signed_half: 26 i16
      signed_word: 28 i32
      signed_long: 32 i64
      ip: 40 ipv4
      ip_net: 44 ipv4_net
      ip6: 48 ipv6
      ip6_words: 64 ipv6_words
      mac: 80 mac
      flag: 86 u16 bit 15
      some_bits: 86 u16 bits 3-6
      name: 88 text 8
      numbers: 96 u16 x 3 every 4
      pairs: {at: 108, count: 2, stride: 8, fields: {low: 0 u32, flag: 4 u32 bit 31, ports: 5 u8 x 2}}
      inner: {at: 124, fields: {value: 0 u32}}
      peer: 128 ref other
      peers: 136 ref kinds x 3
)" + PlainTables("kinds") + R"(regions:
  TIMES: {size: 12, fields: {tcp: 0 u16, apps: {at: 2, count: 2, stride: 4, fields: {ttl: 2 u16}}}}
  PLAIN: {size: 4}
)"},
                      {"filler.yaml", filler}});
}

// The bytes in hexadecimal, in groups of four.
template <typename Bytes>
std::string Hex(const Bytes &bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % 4 == 0) text += ' ';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

}  // namespace qdt::host

#endif  // TESTS_LAYOUT_TEST_LAYOUT_H_
