#ifndef TESTS_SQL_SQL_FIXTURE_H_
#define TESTS_SQL_SQL_FIXTURE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/base/fd.h"
#include "host/scenario/scenario.h"
#include "host/sql/sql.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {

// The arena of a scenario, saved to `file` after `spoil` has had it.
inline void SaveScenario(
    const Scenario &scenario, const std::string &file,
    const std::function<void(Arena *)> &spoil = [](Arena *) {}) {
  const auto arena = Arena::Create(file + ".new", Layout::BuiltIn().Plan("/nowhere"));
  TableWriter writer(arena.get());
  scenario.Fill(arena.get(), &writer);
  arena->Publish();
  spoil(arena.get());
  const UniqueFd fd(open(file.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0644));
  arena->CopyTo(fd.get());
}

inline void SaveText(const std::string &text, const std::string &file) {
  SaveScenario(Scenario::FromText("s.yaml", text, Layout::BuiltIn()), file);
}

// The campus site's arena, saved once for all tests of a program.
inline const std::string &CampusSnapshot() {
  static const TempDir dir;
  static const std::string file = [] {
    const std::string name = dir.File("campus.snapshot");
    SaveScenario(Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", Layout::BuiltIn()), name);
    return name;
  }();
  return file;
}

// A connection of SQLite with the engine's tables.
class Database {
 public:
  explicit Database(bool many = false) : arenas(std::make_shared<ArenaSet>(many)) {
    EXPECT_EQ(sqlite3_open(":memory:", &handle), SQLITE_OK);
    EXPECT_EQ(AddEngineTables(handle, arenas), SQLITE_OK);
  }
  ~Database() { EXPECT_EQ(sqlite3_close(handle), SQLITE_OK); }
  Database(const Database &) = delete;

  // The rows as "a|b\n", NULL as "NULL"; what goes wrong as a last line "error: TEXT".
  std::string Ask(const std::string &statement) {
    sqlite3_stmt *prepared = nullptr;
    std::string text;
    if (sqlite3_prepare_v2(handle, statement.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
      return std::string("error: ") + sqlite3_errmsg(handle);
    int code;
    while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
      for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
        const auto *cell = reinterpret_cast<const char *>(sqlite3_column_text(prepared, i));
        if (i > 0) text += '|';
        text += cell == nullptr ? "NULL" : cell;
      }
      text += '\n';
    }
    if (code != SQLITE_DONE) text += std::string("error: ") + sqlite3_errmsg(handle);
    sqlite3_finalize(prepared);
    return text;
  }

  // The lines of EXPLAIN QUERY PLAN, without SQLite's own words: "f: walk\nn: _address\n".
  std::string Plan(const std::string &statement) {
    sqlite3_stmt *prepared = nullptr;
    const std::string explain = "EXPLAIN QUERY PLAN " + statement;
    if (sqlite3_prepare_v2(handle, explain.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
      return std::string("error: ") + sqlite3_errmsg(handle);
    std::string text;
    while (sqlite3_step(prepared) == SQLITE_ROW) {
      std::string line = reinterpret_cast<const char *>(sqlite3_column_text(prepared, 3));
      constexpr std::string_view kBefore = " VIRTUAL TABLE INDEX ";
      if (const size_t at = line.find(kBefore); line.starts_with("SCAN ") && at != line.npos)
        line = line.substr(5, at - 5) + ": " + line.substr(line.find(':', at) + 1);
      text += line + "\n";
    }
    sqlite3_finalize(prepared);
    return text;
  }

  sqlite3 *handle = nullptr;
  std::shared_ptr<ArenaSet> arenas;
};

class CampusSqlTest : public testing::Test {
 protected:
  CampusSqlTest() { database_.arenas->Add(SnapshotAt(CampusSnapshot())); }
  std::string Ask(const std::string &statement) { return database_.Ask(statement); }
  std::string Plan(const std::string &statement) { return database_.Plan(statement); }

  Database database_;
};

}  // namespace qdt::host

#endif  // TESTS_SQL_SQL_FIXTURE_H_
