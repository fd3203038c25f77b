#ifndef HOST_SQL_SQL_H_
#define HOST_SQL_SQL_H_

#include <memory>
#include <string>
#include <string_view>

#include "host/sql/arena_set.h"

struct sqlite3;

namespace qdt::host {

// Gives a connection of SQLite the tables of the layouts, to be read only, with those that tell of the arenas
// themselves, and the functions that go with them. docs/sql.md describes all of them. The tables are there by
// name without having been created, and cost nothing before a statement names them. `arenas` may be empty at
// first and grow between two statements. Returns an SQLite result code.
int AddEngineTables(sqlite3 *connection, const std::shared_ptr<ArenaSet> &arenas);

// The table whose name is nearest to a mistyped one; empty when none is near.
std::string NearestSqlTable(std::string_view name);

// The tables as CREATE TABLE statements with what their columns mean; of `name` alone unless that is empty.
// Throws HostError when there is no such table.
std::string SqlSchema(const std::string &name, bool manyArenas);

}  // namespace qdt::host

#endif  // HOST_SQL_SQL_H_
