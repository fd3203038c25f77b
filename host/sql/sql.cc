#include "host/sql/sql.h"

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/sql/fact_module.h"
#include "host/sql/functions.h"
#include "host/sql/record_module.h"
#include "host/sql/sql_columns.h"

namespace qdt::host {
namespace {

// Calls `visit` with the name of each table of records and of each of their lists, the layout, the list's
// path and what is to be said of it.
template <typename Visit>
void ForEachRecordTable(const Visit &visit) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    visit(SqlTableName(table, ""), table, std::string(), table.about);
    for (const RecordList &list : ListsOf(table))
      visit(SqlTableName(table, list.path), table, list.path, list.field->about);
  }
}

}  // namespace

int AddEngineTables(sqlite3 *connection, const std::shared_ptr<ArenaSet> &arenas) {
  if (const int code = AddFunctions(connection); code != SQLITE_OK) return code;
  int code = SQLITE_OK;
  ForEachRecordTable([&](std::string name, const TableLayout &table, std::string list, std::string_view) {
    if (code != SQLITE_OK) return;
    code = AddRecordModule(connection, {std::move(name), arenas, &table, std::move(list)});
  });
  if (code != SQLITE_OK) return code;
  for (FactTable &table : FactTables()) {
    if (const int added = AddFactModule(connection, arenas, std::move(table)); added != SQLITE_OK)
      return added;
  }
  return SQLITE_OK;
}

std::string NearestSqlTable(std::string_view name) {
  NearName near(name);
  std::string nearest;
  const auto offer = [&](const std::string &table) {
    if (near.Offer(table)) nearest = table;
  };
  ForEachRecordTable([&](const std::string &table, auto &&...) { offer(table); });
  for (const FactTable &table : FactTables()) offer(table.name);
  return nearest;
}

std::string SqlSchema(const std::string &name, bool manyArenas) {
  std::string text;
  const auto add = [&](const std::string &table, std::string_view about, const auto &declaration) {
    if (!name.empty() && table != name) return;
    text += text.empty() ? "" : "\n";
    if (!about.empty()) text += "-- " + std::string(about) + "\n";
    text += declaration() + ";\n";
  };
  ForEachRecordTable([&](const std::string &table, const TableLayout &layout, const std::string &list,
                         std::string_view about) {
    add(table, about, [&] { return SqlTable(layout, list, manyArenas).Declaration(table, true); });
  });
  for (const FactTable &table : FactTables())
    add(table.name, table.about, [&] { return table.Declaration(manyArenas, true); });
  if (text.empty())
    throw HostError("unknown table " + Quoted(name) +
                    DidYouMean(NearestSqlTable(name), "\"nqecli sql --schema\" lists them"));
  return text;
}

}  // namespace qdt::host
