#ifndef HOST_SQL_FACT_MODULE_H_
#define HOST_SQL_FACT_MODULE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/sql/arena_set.h"
#include "host/sql/sqlite_api.h"

namespace qdt::host {

// A small table whose rows are made when a statement begins to read it.
struct FactTable {
  using Value = std::variant<std::monostate, int64_t, double, std::string>;
  using Row = std::vector<Value>;
  struct Column {
    std::string name;
    const char *type;
    std::string about;
  };

  std::string name;
  std::string about;
  std::vector<Column> columns;  // without that of the arena, which all tables have
  std::function<void(const RecordSource &source, std::vector<Row> *rows)> read;

  std::string Declaration(bool showArena, bool explained) const;
};

int AddFactModule(sqlite3 *connection, const std::shared_ptr<ArenaSet> &arenas, FactTable table);

// All of them: usage, the list of all tables, and each region that has fields.
std::vector<FactTable> FactTables();

}  // namespace qdt::host

#endif  // HOST_SQL_FACT_MODULE_H_
