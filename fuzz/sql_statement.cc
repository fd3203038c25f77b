// Statements over a damaged snapshot and a whole one, a bounded number of steps each.

#include <sqlite3.h>

#include <memory>
#include <string>

#include "fuzz/damaged_arena.h"
#include "host/base/host_error.h"
#include "host/sql/sql.h"

namespace {

constexpr int kMostRows = 200;
constexpr int kMostSteps = 200;  // of a thousand of SQLite's instructions

int CountSteps(void *left) { return --*static_cast<int *>(left) < 0; }

void Run(sqlite3 *connection, const std::string &text) {
  int left = kMostSteps;
  sqlite3_progress_handler(connection, 1000, CountSteps, &left);
  const char *rest = text.c_str();
  while (*rest != '\0') {
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(connection, rest, -1, &statement, &rest) != SQLITE_OK) break;
    for (int rows = 0; rows < kMostRows && sqlite3_step(statement) == SQLITE_ROW; ++rows)
      for (int i = 0; i < sqlite3_column_count(statement); ++i) sqlite3_column_text(statement, i);
    sqlite3_finalize(statement);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  static fuzz::DamagedArena arena;
  if (size == 0) return 0;
  // The first byte says how many places are damaged; the statement follows them.
  const size_t taken = arena.Damage(data + 1, size - 1, data[0] % 8);
  const std::string text(reinterpret_cast<const char *>(data) + 1 + taken, size - 1 - taken);
  auto arenas = std::make_shared<host::ArenaSet>();
  sqlite3 *connection = nullptr;
  if (sqlite3_open(":memory:", &connection) == SQLITE_OK) {
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, 1 << 20);
    try {
      arenas->Add(host::SnapshotAt(arena.path()));
      if (host::AddEngineTables(connection, arenas) == SQLITE_OK) Run(connection, text);
    } catch (const host::HostError &) {
    }
  }
  sqlite3_close(connection);
  arena.Mend();
  return 0;
}
