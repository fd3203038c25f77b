#include "host/inspect/parts.h"

#include <string_view>

namespace qdt::host {
namespace {

// Two structures that one and the same key selects: a flag tells which of them the bytes are.
struct Reading {
  std::string_view table;
  std::string_view flag;
  std::string_view ifSet;
  std::string_view ifClear;
};
constexpr Reading kReadings[] = {
    // Rules of layers 2 and 4 match IPv6 where they are marked so.
    {"acl_rule", "ipv6.key.is_ipv6", "ipv6", "l2_ipv4"},
};

bool IsReadAs(const RecordBytes &record, const Field &part) {
  const TableLayout &table = record.entry->table();
  for (const Reading &reading : kReadings) {
    if (reading.table != table.shortName || (part.name != reading.ifSet && part.name != reading.ifClear))
      continue;
    const Field *other = table.fields.Find(part.name == reading.ifSet ? reading.ifClear : reading.ifSet);
    if (!record.entry->Has(*other)) return true;
    return (table.At(reading.flag).Get(record.record) != 0) == (part.name == reading.ifSet);
  }
  return true;
}

}  // namespace

bool HasPart(const RecordBytes &record, const Field &part) {
  if (record.entry == nullptr) return true;
  if (!record.entry->Has(part) || (part.pointer != 0 && record.entry->IsStrayed(part))) return false;
  return part.selector.empty() || IsReadAs(record, part);
}

}  // namespace qdt::host
