#include "host/sql/sql.h"

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/sql/fact_module.h"
#include "host/sql/functions.h"
#include "host/sql/record_module.h"
#include "host/sql/sql_columns.h"

namespace qdt::host {
namespace {

// Calls `visit` with each table of records and each of their lists, until it returns something else than 0.
template <typename Visit>
int ForEachRecordTable(const Visit &visit) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    const auto shape = std::make_shared<const RecordShape>(RecordShape::Whole(table));
    if (const int code = visit(std::string(table.shortName), table, shape, std::optional<RowColumn>());
        code != 0)
      return code;
    for (const RowColumn &list : ListsOf(table, *shape)) {
      if (const int code = visit(ListTableName(table, list), table, shape, std::optional(list)); code != 0)
        return code;
    }
  }
  return 0;
}

}  // namespace

int AddEngineTables(sqlite3 *connection, const std::shared_ptr<ArenaSet> &arenas) {
  if (const int code = AddFunctions(connection); code != SQLITE_OK) return code;
  const int code = ForEachRecordTable([&](std::string name, const TableLayout &table,
                                          const std::shared_ptr<const RecordShape> &shape,
                                          const std::optional<RowColumn> &list) {
    return AddRecordModule(connection, {std::move(name), arenas, &table, shape, list});
  });
  if (code != SQLITE_OK) return code;
  for (FactTable &table : FactTables()) {
    if (const int added = AddFactModule(connection, arenas, std::move(table)); added != SQLITE_OK)
      return added;
  }
  return SQLITE_OK;
}

std::string SqlSchema(const std::string &name, bool manyArenas) {
  std::string text;
  NearName near(name);
  std::string nearest;
  const auto add = [&](const std::string &table, std::string_view about, const auto &declaration) {
    if (near.Offer(table)) nearest = table;
    if (!name.empty() && table != name) return;
    text += text.empty() ? "" : "\n";
    if (!about.empty()) text += "-- " + std::string(about) + "\n";
    text += declaration() + ";\n";
  };
  ForEachRecordTable([&](const std::string &table, const TableLayout &layout,
                         const std::shared_ptr<const RecordShape> &, const std::optional<RowColumn> &list) {
    add(table, list ? list->node->field->about : layout.about,
        [&] { return SqlTable(layout, list ? &*list : nullptr, manyArenas).Declaration(table, true); });
    return 0;
  });
  for (const FactTable &table : FactTables())
    add(table.name, table.about, [&] { return table.Declaration(manyArenas, true); });
  if (text.empty())
    throw HostError("unknown table " + Quoted(name) +
                    DidYouMean(nearest, "\"nqecli sql --schema\" lists them"));
  return text;
}

}  // namespace qdt::host
