#ifndef TOOLS_NQECLI_TABLE_NAMES_H_
#define TOOLS_NQECLI_TABLE_NAMES_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::nqecli {

// What is said to who has no name.
constexpr std::string_view kTablesHelp = "\"nqecli tables\" lists them";

// What a name can be good for, each a bit.
enum NameUse : uint32_t {
  kUseShow = 1 << 0,    // the diag command shows it
  kUseList = 1 << 1,    // its records can be read field by field
  kUseRegion = 1 << 2,  // a shared region whose fields are known
};

// A table, view or region by the name that people type.
struct NamedTable {
  std::string_view name;
  std::string_view about;      // what it holds, one line without a full stop
  std::optional<uint32_t> id;  // the diag command's number
  uint32_t uses = 0;           // 0: nothing is known of its fields
};

// Views and tables of the built-in layouts: those with a view in the order of their numbers, then the others.
// With `uses` alone those that are good for one of them; regions only when they are asked for.
std::vector<NamedTable> NamedTables();
std::vector<NamedTable> NamedTables(uint32_t uses);

// Whether each of the words stands somewhere in the name or in the meaning, in capital letters or not.
bool HoldsWords(const NamedTable &table, std::span<const std::string> words);

// What may have been meant by a name that is none: first what is spelt nearly alike, then what has the word
// in its name or meaning; the likeliest first.
std::vector<std::string_view> MeantBy(std::string_view name, std::span<const NamedTable> tables);

// " (did you mean NAME, NAME or NAME?)" of what MeantBy finds among what is good for one of `uses`, or
// " (OTHERWISE)" when it finds nothing.
std::string TableHint(std::string_view name, uint32_t uses, std::string_view otherwise);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_TABLE_NAMES_H_
