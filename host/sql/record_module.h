#ifndef HOST_SQL_RECORD_MODULE_H_
#define HOST_SQL_RECORD_MODULE_H_

#include <memory>
#include <string>

#include "host/sql/arena_set.h"
#include "host/sql/sql_columns.h"
#include "host/sql/sqlite_api.h"

namespace qdt::host {

// What one table's module has for as long as its connection lives.
struct RecordModule {
  std::string name;
  std::shared_ptr<ArenaSet> arenas;
  const TableLayout *layout;
  std::string list;  // path of the list whose elements are the rows, if any
};

// Registers the table as `module.name`.
int AddRecordModule(sqlite3 *connection, RecordModule module);

}  // namespace qdt::host

#endif  // HOST_SQL_RECORD_MODULE_H_
