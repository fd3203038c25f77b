#ifndef HOST_SQL_VIRTUAL_TABLE_H_
#define HOST_SQL_VIRTUAL_TABLE_H_

#include <exception>
#include <memory>
#include <string>

#include "host/sql/sql_value.h"
#include "host/sql/sqlite_api.h"

namespace qdt::host {

// What SQLite's virtual tables that can only be read have in common, of a Table (an sqlite3_vtab that is made
// from its Module, and tells its Declaration()) and a Cursor (an sqlite3_vtab_cursor that is made from its
// Table).
template <typename Module, typename Table, typename Cursor>
struct VirtualTable {
  static int Connect(sqlite3 *connection, void *data, int, const char *const *, sqlite3_vtab **result,
                     char **message) {
    try {
      auto table = std::make_unique<Table>(*static_cast<const Module *>(data));
      const int code = sqlite3_declare_vtab(connection, table->Declaration().c_str());
      if (code != SQLITE_OK) return code;
      *result = table.release();
      return SQLITE_OK;
    } catch (const std::exception &error) {
      return Told(error, message);
    }
  }

  static int Disconnect(sqlite3_vtab *table) {
    delete static_cast<Table *>(table);
    return SQLITE_OK;
  }

  static int Open(sqlite3_vtab *table, sqlite3_vtab_cursor **cursor) {
    return Guarded(table, [&] {
      *cursor = new Cursor(*static_cast<Table *>(table));
      return SQLITE_OK;
    });
  }

  static int Close(sqlite3_vtab_cursor *cursor) {
    delete static_cast<Cursor *>(cursor);
    return SQLITE_OK;
  }

  // Without xCreate a table is there under its module's name; without xUpdate it is to be read only.
  static constexpr sqlite3_module Callbacks(decltype(sqlite3_module::xBestIndex) bestIndex,
                                            decltype(sqlite3_module::xFilter) filter,
                                            decltype(sqlite3_module::xNext) next,
                                            decltype(sqlite3_module::xEof) eof,
                                            decltype(sqlite3_module::xColumn) column,
                                            decltype(sqlite3_module::xRowid) rowid) {
    sqlite3_module module{};
    module.iVersion = 2;
    module.xConnect = Connect;
    module.xBestIndex = bestIndex;
    module.xDisconnect = Disconnect;
    module.xDestroy = Disconnect;
    module.xOpen = Open;
    module.xClose = Close;
    module.xFilter = filter;
    module.xNext = next;
    module.xEof = eof;
    module.xColumn = column;
    module.xRowid = rowid;
    return module;
  }

  // Registers the module, which is kept for as long as the connection lives, under the name.
  static int Register(sqlite3 *connection, const std::string &name, const sqlite3_module *callbacks,
                      Module module) {
    return sqlite3_create_module_v2(connection, name.c_str(), callbacks, new Module(std::move(module)),
                                    [](void *data) { delete static_cast<Module *>(data); });
  }
};

}  // namespace qdt::host

#endif  // HOST_SQL_VIRTUAL_TABLE_H_
