#include <array>
#include <string>

#include "host/base/host_error.h"
#include "qdt/cli.h"
#include "tools/nqecli/catalog.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/query.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;
using host::TableQuery;

TableInfo FindView(std::string_view name) {
  const Catalog catalog;
  if (auto table = catalog.Find(name)) return *table;
  const auto near = catalog.Nearest(name);
  throw HostError(
      "unknown table " + Quoted(name) +
      (near ? "; did you mean " + std::string(near->name) + "?" : "; \"nqecli tables\" lists them"));
}

// `keys` outlive the query.
TableQuery QueryOf(const TableInfo &table, const std::array<std::string, kKeyCount> &keys) {
  uint8_t ok = 0;
  return {table.id, keys[0].c_str(), QdtCliParseUint(keys[1].c_str(), &ok),
          QdtCliParseUint(keys[2].c_str(), &ok), QdtCliParseUint(keys[3].c_str(), &ok)};
}

void SayKeys(const TableInfo &table) {
  std::string hint = "the keys of table " + std::string(table.name) + " are:";
  for (const KeySyntax &syntax : table.syntax) hint += "\n  " + std::string(syntax.text);
  WriteError(hint);
}

}  // namespace

ExitCode Show(const Place &place, std::span<char *const> words) {
  if (words.empty()) throw HostError("show what? Name a table; \"nqecli tables\" lists them");
  const TableInfo table = FindView(words[0]);
  const std::array<std::string, kKeyCount> keys = PlaceKeys(table, words.subspan(1));
  Attach(place);
  const ExitCode code = RunTableQuery(QueryOf(table, keys));
  if (code == kFailed) SayKeys(table);
  return code;
}

}  // namespace qdt::nqecli
