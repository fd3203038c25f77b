// libnqe_sql.so: the engine's tables in any program that has SQLite.
//
//   .load .../libnqe_sql
//   SELECT nqe_attach('/run/nqe/arena');
//   SELECT * FROM fib;

#include <string>

#include "host/base/c_callback.h"
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
  } catch (const std::bad_alloc &) {
    sqlite3_result_error_nomem(context);
  } catch (const std::exception &error) {
    sqlite3_result_error(context, error.what(), -1);
  }
}

using SharedArenas = std::shared_ptr<ArenaSet>;

int AddAttach(sqlite3 *connection, int arguments, const SharedArenas &arenas) {
  const auto drop = [](void *data) { delete static_cast<SharedArenas *>(data); };
  return sqlite3_create_function_v2(connection, "nqe_attach", arguments, SQLITE_UTF8 | SQLITE_DIRECTONLY,
                                    new SharedArenas(arenas), Attach, nullptr, nullptr, drop);
}

}  // namespace
}  // namespace qdt::host

extern "C" __attribute__((visibility("default"))) int sqlite3_nqesql_init(sqlite3 *connection, char **,
                                                                          const sqlite3_api_routines *api) {
  using namespace qdt::host;
  SQLITE_EXTENSION_INIT2(api);
  return UnlessShort<int>(SQLITE_NOMEM, [connection] {
    const auto arenas = std::make_shared<ArenaSet>();
    int code = AddEngineTables(connection, arenas);
    for (int arguments = 1; arguments <= 2 && code == SQLITE_OK; ++arguments)
      code = AddAttach(connection, arguments, arenas);
    return code;
  });
}
