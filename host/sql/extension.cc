// libnqe_sql.so: the engine's tables in any program that has SQLite.
//
//   .load .../libnqe_sql
//   SELECT nqe_attach('/run/nqe/arena');
//   SELECT * FROM fib;

#include <string>

#include "host/base/host_error.h"
#include "host/sql/sql.h"
#include "host/sql/sql_value.h"

SQLITE_EXTENSION_INIT1

namespace qdt::host {
namespace {

// nqe_attach(PATH [, 'frozen']): from here on the tables of this connection show that arena as well: a
// running engine's, or a saved one. Returns how many there are.
void Attach(sqlite3_context *context, int count, sqlite3_value **values) {
  const auto &arenas = *static_cast<std::shared_ptr<ArenaSet> *>(sqlite3_user_data(context));
  try {
    const std::string path(TextOf(values[0]));
    const std::string_view how = count > 1 ? TextOf(values[1]) : "live";
    if (how != "live" && how != "frozen")
      throw HostError("nqe_attach: " + Quoted(how) + " is not a way to look (write 'live' or 'frozen')");
    arenas->Add(MemberAt(path, how == "frozen"));
    sqlite3_result_int64(context, static_cast<sqlite3_int64>(arenas->size()));
  } catch (const std::exception &error) {
    sqlite3_result_error(context, error.what(), -1);
  }
}

}  // namespace
}  // namespace qdt::host

extern "C" __attribute__((visibility("default"))) int sqlite3_nqesql_init(sqlite3 *connection, char **,
                                                                          const sqlite3_api_routines *api) {
  using namespace qdt::host;
  SQLITE_EXTENSION_INIT2(api);
  auto *arenas = new std::shared_ptr<ArenaSet>(std::make_shared<ArenaSet>());
  const int code = AddEngineTables(connection, *arenas);
  const int flags = SQLITE_UTF8 | SQLITE_DIRECTONLY;
  const auto drop = [](void *data) { delete static_cast<std::shared_ptr<ArenaSet> *>(data); };
  if (code != SQLITE_OK) return drop(arenas), code;
  auto *second = new std::shared_ptr<ArenaSet>(*arenas);
  const int one =
      sqlite3_create_function_v2(connection, "nqe_attach", 1, flags, arenas, Attach, nullptr, nullptr, drop);
  const int two =
      sqlite3_create_function_v2(connection, "nqe_attach", 2, flags, second, Attach, nullptr, nullptr, drop);
  return one != SQLITE_OK ? one : two;
}
