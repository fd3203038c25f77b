#ifndef HOST_SQL_SQLITE_API_H_
#define HOST_SQL_SQLITE_API_H_

// SQLite's interface for both lives of this room: linked into a program with SQLite (SQLITE_CORE), or loaded
// by a program that has SQLite already, through whose table of functions all calls go then.
#include <sqlite3ext.h>

#ifndef SQLITE_CORE
SQLITE_EXTENSION_INIT3
#endif

#endif  // HOST_SQL_SQLITE_API_H_
