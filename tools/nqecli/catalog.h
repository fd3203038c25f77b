#ifndef TOOLS_NQECLI_CATALOG_H_
#define TOOLS_NQECLI_CATALOG_H_

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::nqecli {

constexpr size_t kKeyCount = 4;

// One way to ask a table: four slots, "0" where nothing is to be said.
struct KeySyntax {
  std::array<std::string, kKeyCount> slots;
  std::string text;  // as the usage list has it, without the table's id
};

// A table that the diag command shows.
struct TableInfo {
  uint32_t id = 0;
  std::string name;
  std::vector<KeySyntax> syntax;
};

// The tables by id, read from the usage list that the library prints: there is no second list to keep in
// step.
class Catalog {
 public:
  // Lines that do not show a table's keys are passed over. A line belongs to the table whose id its keys
  // begin with, wherever it stands; a line that repeats another says nothing new.
  static Catalog FromUsage(std::string_view usage);

  // The library's own list.
  static Catalog Load();

  // By name or by number; null when there is none.
  const TableInfo *Find(std::string_view nameOrId) const;

  // The table whose name is nearest to a mistyped one; null when none is near.
  const TableInfo *Nearest(std::string_view name) const;

  const std::vector<TableInfo> &tables() const { return tables_; }

 private:
  TableInfo *Row(uint32_t id);

  std::vector<TableInfo> tables_;  // in order of id
};

// The keys that a user typed, put into the four slots; the rest is "0". They fill the slots that the first
// fitting syntax line leaves open, or are taken one by one as key 1 to 4 when no line fits. Throws HostError
// when there are too many, or when one of the keys 2 to 4 is no number.
std::array<std::string, kKeyCount> PlaceKeys(const TableInfo &table, std::span<char *const> keys);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_CATALOG_H_
