#ifndef HOST_SQL_FUNCTIONS_H_
#define HOST_SQL_FUNCTIONS_H_

struct sqlite3;

namespace qdt::host {

// in_prefix(address, prefix), prefix_length(prefix or mask), mac(text), ip(text), ago(seconds). What is no
// address is NULL. Returns an SQLite result code.
int AddFunctions(sqlite3 *connection);

}  // namespace qdt::host

#endif  // HOST_SQL_FUNCTIONS_H_
