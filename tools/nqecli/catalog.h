#ifndef TOOLS_NQECLI_CATALOG_H_
#define TOOLS_NQECLI_CATALOG_H_

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/library/table_lines.h"

namespace qdt::nqecli {

using host::TableLine;
using host::TableLines;

constexpr size_t kKeyCount = 4;

// One way to ask a table: four slots, "0" where nothing is to be said.
struct KeySyntax {
  std::array<std::string_view, kKeyCount> slots;
  std::string_view text;  // as the usage list has it, without the table's id
};

// A table that the diag command shows.
struct TableInfo {
  uint32_t id = 0;
  std::string_view name;
  std::vector<KeySyntax> syntax;
};

// The tables of the diag command.
class Catalog {
 public:
  // `lines` stand in order of id and outlive the catalog.
  explicit Catalog(std::span<const TableLine> lines = TableLines()) : lines_(lines) {}

  // By name or by number; nothing when there is none.
  std::optional<TableInfo> Find(std::string_view nameOrId) const;

  // In order of id.
  std::vector<TableInfo> Tables() const;

 private:
  std::span<const TableLine> lines_;
};

// The keys that a user typed, put into the four slots; the rest is "0". They fill the slots that the first
// fitting syntax line leaves open, or are taken one by one as key 1 to 4 when no line fits. Throws HostError
// when there are too many, or when one of the keys 2 to 4 is no number.
std::array<std::string, kKeyCount> PlaceKeys(const TableInfo &table, std::span<char *const> keys);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_CATALOG_H_
