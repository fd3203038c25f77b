// Statements over bench/sql.yaml in process: a count, a lookup by a whole key, and a join of three tables.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "bench/lab_arena.h"
#include "host/scenario/scenario.h"
#include "host/sql/sql.h"

namespace qdt::bench {
namespace {

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error("sql_bench: " + why); }

// A connection to the scenario's tables, which this process keeps as a file of its own.
class Site {
 public:
  Site() : file_("/dev/shm/nqe-sql-bench." + std::to_string(getpid())) {
    const host::Layout &layout = host::Layout::BuiltIn();
    arena_ = host::Arena::Create(file_, layout.Plan("/nowhere"));
    host::TableWriter writer(arena_.get());
    host::Scenario::Load(QDT_BENCH_SCENARIO, layout).Fill(arena_.get(), &writer);
    arena_->Publish();
    auto arenas = std::make_shared<host::ArenaSet>();
    arenas->Add(host::SnapshotAt(file_));
    if (sqlite3_open(":memory:", &handle_) != SQLITE_OK || AddEngineTables(handle_, arenas) != SQLITE_OK)
      Stop("no connection");
  }
  ~Site() {
    sqlite3_close(handle_);
    arena_->Retire();
  }

  sqlite3_stmt *Prepare(const char *text) const {
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(handle_, text, -1, &statement, nullptr) != SQLITE_OK)
      Stop(sqlite3_errmsg(handle_));
    return statement;
  }

 private:
  const std::string file_;
  std::unique_ptr<host::Arena> arena_;
  sqlite3 *handle_ = nullptr;
};

const Site &TheSite() {
  static const Site site;
  return site;
}

// Times a statement that gives one number. What it takes to compile the statement is part of it.
void Ask(benchmark::State &state, const char *text, int64_t wanted, double goal) {
  const Site &site = TheSite();
  for (auto _ : state) {
    sqlite3_stmt *statement = site.Prepare(text);
    if (sqlite3_step(statement) != SQLITE_ROW || sqlite3_column_int64(statement, 0) != wanted) Stop(text);
    sqlite3_finalize(statement);
  }
  state.counters["goal_ns"] = goal;
}

// Times a compiled statement that is given a key, another each time.
void LookUp(benchmark::State &state) {
  sqlite3_stmt *statement = TheSite().Prepare("SELECT dmac FROM arp WHERE vpn = 0 AND next_hop = ?");
  uint32_t number = 0;
  for (auto _ : state) {
    number = (number + 4099) % 8192;
    const std::string key = "172.16." + std::to_string(1 + number / 256) + "." + std::to_string(number % 256);
    sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    if (sqlite3_step(statement) != SQLITE_ROW || sqlite3_column_bytes(statement, 0) != 17) Stop(key);
    if (sqlite3_step(statement) != SQLITE_DONE) Stop(key + " twice");
    sqlite3_reset(statement);
  }
  sqlite3_finalize(statement);
  state.counters["goal_ns"] = 4000;
}

BENCHMARK_CAPTURE(Ask, count, "SELECT count(*) FROM ssw_macinfo", 16384, 3e6)
    ->Name("sql/count of 16,384 MACs")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(LookUp)->Name("sql/lookup by a whole key");
BENCHMARK_CAPTURE(Ask, join,
                  "SELECT count(a.dmac) FROM fib f JOIN nhp n ON n._address = f.next_hop_address "
                  "JOIN arp a ON a.vpn = f.vpn AND a.next_hop = n.next_hop",
                  8192, 25e6)
    ->Name("sql/fib, nhp and arp joined, 8,192 routes")
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace qdt::bench

BENCHMARK_MAIN();
