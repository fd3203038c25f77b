#include "tools/nqecli/records/view_query.h"

#include <span>

#include "host/base/host_error.h"
#include "qdt/cli.h"
#include "tools/nqecli/table_names.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

TableInfo FindView(const std::vector<std::string> &words) {
  if (words.empty()) throw HostError("show what? Name a table; " + std::string(kTablesHelp));
  const std::string &name = words.front();
  if (auto table = Catalog().Find(name)) return *table;
  throw HostError("unknown table " + host::Quoted(name) + TableHint(name, kUseShow, kTablesHelp));
}

std::array<std::string, kKeyCount> KeysOf(const TableInfo &view, const std::vector<std::string> &words) {
  std::vector<char *> given;
  for (const std::string &word : std::span(words).subspan(1))
    given.push_back(const_cast<char *>(word.c_str()));
  return PlaceKeys(view, given);
}

}  // namespace

ViewQuery::ViewQuery(const std::vector<std::string> &words)
    : view_(FindView(words)), keys_(KeysOf(view_, words)) {}

host::TableQuery ViewQuery::Ask() const {
  uint8_t ok = 0;
  return {view_.id, keys_[0].c_str(), QdtCliParseUint(keys_[1].c_str(), &ok),
          QdtCliParseUint(keys_[2].c_str(), &ok), QdtCliParseUint(keys_[3].c_str(), &ok)};
}

}  // namespace qdt::nqecli
