// The host platform's table manager against the C++ library's hash table on the same keys, in tables of 1,000
// to 1,000,000 entries; walks of them; the rate of the writer, alone and with readers; the expiry of
// sessions.

#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/lab_arena.h"
#include "bench/processors.h"
#include "host/engine/aging.h"
#include "host/tbm/status.h"
#include "host/tbm/table_writer.h"
#include "platform/tbm.h"

namespace qdt::bench {
namespace {

constexpr uint32_t kMacTable = 26;
constexpr uint32_t kSizes[] = {1000, 16384, 262144, 1000000};

struct Key {
  std::array<uint8_t, 12> bytes;
  bool operator==(const Key &other) const = default;
};
using Record = std::array<uint8_t, 20>;

// A plain good hash of the same bytes.
struct HashOfKey {
  size_t operator()(const Key &key) const {
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(key.bytes.data()), key.bytes.size()});
  }
};

using Map = std::unordered_map<Key, Record, HashOfKey>;

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error(why); }

// Different keys in random order; those of different `kind` are different as well. Like MAC keys: a vendor's
// prefix, rising numbers and a rest that is often the same.
std::vector<Key> MakeKeys(uint8_t kind, uint32_t count) {
  std::vector<Key> keys(count);
  for (uint32_t i = 0; i < count; ++i) {
    keys[i].bytes = {0x02,
                     0x00,
                     kind,
                     static_cast<uint8_t>(i >> 16),
                     static_cast<uint8_t>(i >> 8),
                     static_cast<uint8_t>(i),
                     1,
                     0,
                     10};
  }
  std::shuffle(keys.begin(), keys.end(), std::mt19937(kind));
  return keys;
}

Record RecordOf(const Key &key) {
  Record record{};
  std::copy(key.bytes.begin(), key.bytes.end(), record.begin());
  return record;
}

// The MAC table of a lab arena with room for so many entries, and filled.
class MacTable {
 public:
  explicit MacTable(uint32_t entries, bool published = false)
      : present_(MakeKeys(1, entries)), missing_(MakeKeys(2, entries)) {
    host::ArenaPlan plan = host::Layout::BuiltIn().Plan("");
    plan.tables[kMacTable].capacity = entries;
    path_ = "/dev/shm/nqe-bench." + std::to_string(getpid()) + "." + std::to_string(entries);
    arena_ = host::Arena::Create(path_, plan);
    if (published) arena_->Publish();
    published_ = published;
    host::Arena::SetCurrent(arena_.get());
    host::TableWriter writer(arena_.get());
    for (const Key &key : present_) {
      if (writer.Insert(kMacTable, key.bytes.data(), RecordOf(key).data(), nullptr) != host::tbm::kTbmOk)
        Stop("cannot insert");
    }
    Check();
  }
  ~MacTable() {
    if (published_) arena_->Retire();
    host::Arena::SetCurrent(nullptr);
  }

  const std::vector<Key> &present() const { return present_; }
  const std::vector<Key> &missing() const { return missing_; }
  host::Arena *arena() const { return arena_.get(); }
  std::unique_ptr<host::Arena> *owner() { return &arena_; }
  const std::string &path() const { return path_; }

 private:
  void Check() const {
    for (const Key &key : present_) {
      void *entry = nullptr;
      if (TbmTblSearch(0, kMacTable, key.bytes.data(), &entry) != 0) Stop("an entry is not found");
      if (std::memcmp(entry, key.bytes.data(), key.bytes.size()) != 0)
        Stop("a search finds another key's entry");
    }
    for (const Key &key : missing_) {
      void *entry = nullptr;
      if (TbmTblSearch(0, kMacTable, key.bytes.data(), &entry) != host::tbm::kTbmNotFound)
        Stop("a missing key is found");
    }
  }

  std::vector<Key> present_, missing_;
  std::string path_;
  bool published_;
  std::unique_ptr<host::Arena> arena_;
};

double Nanoseconds(const auto &run) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  run();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

// In random order, others than they were inserted in.
std::vector<Key> Shuffled(std::vector<Key> keys) {
  std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  return keys;
}

void SearchTable(std::span<const Key> keys) {
  for (const Key &key : keys) {
    void *entry = nullptr;
    benchmark::DoNotOptimize(TbmTblSearch(0, kMacTable, key.bytes.data(), &entry));
    benchmark::DoNotOptimize(entry);
  }
}

void SearchMap(const Map &map, const std::vector<Key> &keys) {
  for (const Key &key : keys) {
    const auto found = map.find(key);
    benchmark::DoNotOptimize(found);
  }
}

// Table and baseline take turns; the least time of each counts, as others use the machine as well.
void Search(benchmark::State &state, uint32_t entries, bool hit) {
  MacTable table(entries);
  Map map;
  map.reserve(entries);
  for (const Key &key : table.present()) map.emplace(key, RecordOf(key));
  const std::vector<Key> keys = Shuffled(hit ? table.present() : table.missing());
  const int rounds = std::max<int>(3, 200000 / static_cast<int>(entries));
  double least = 1e18, leastMap = 1e18;
  for (auto _ : state) {
    for (int i = 0; i < rounds; ++i) {
      least = std::min(least, Nanoseconds([&] { SearchTable(keys); }) / entries);
      leastMap = std::min(leastMap, Nanoseconds([&] { SearchMap(map, keys); }) / entries);
    }
    state.SetIterationTime(least * 1e-9);
  }
  state.counters["table_ns"] = least;
  state.counters["baseline_ns"] = leastMap;
}

// All entries in the batches in which the diag command fetches them.
uint32_t WalkOnce() {
  constexpr uint32_t kBatch = 50;
  std::array<Record, kBatch> batch;
  TbmTravContext context;
  TbmTblTravContextInit(&context);
  uint32_t entries = 0;
  int32_t status = host::tbm::kTbmMore;
  while (status == host::tbm::kTbmMore) {
    uint32_t bytes = sizeof(batch);
    status = TbmTblTravNext(0, kMacTable, &context, batch.data(), &bytes);
    entries += TbmTblTravContextCnt(&context);
  }
  return status == host::tbm::kTbmOk ? entries : 0;
}

// `churned`: all entries have been replaced in random order, so that neighbours of the order stand apart.
void Walk(benchmark::State &state, uint32_t entries, bool churned) {
  MacTable table(entries);
  host::TableWriter writer(table.arena());
  for (uint32_t round = 0; churned && round < 2; ++round) {
    std::vector<Key> keys = table.present();
    std::shuffle(keys.begin(), keys.end(), std::mt19937(round));
    for (const Key &key : keys) {
      writer.Remove(kMacTable, key.bytes.data());
      writer.Insert(kMacTable, key.bytes.data(), RecordOf(key).data(), nullptr);
    }
    if (round != 0) continue;
    // Freed slots come back in the order in which they were freed: free many, so that this is a random one.
    for (const Key &key : keys) writer.Remove(kMacTable, key.bytes.data());
    std::shuffle(keys.begin(), keys.end(), std::mt19937(9));
    for (const Key &key : keys) writer.Insert(kMacTable, key.bytes.data(), RecordOf(key).data(), nullptr);
  }
  double least = 1e18;
  for (auto _ : state) {
    least = std::min(least, Nanoseconds([&] {
                              if (WalkOnce() != entries) state.SkipWithError("the walk is not whole");
                            }) / entries);
    state.SetIterationTime(least * 1e-9);
  }
  state.counters["table_ns"] = least;
}

// Updates, and an entry taken away and inserted again, in turns.
double WriterNanoseconds(MacTable *table, uint32_t changes) {
  host::TableWriter writer(table->arena());
  std::mt19937 random(3);
  return Nanoseconds([&] {
           for (uint32_t i = 0; i < changes; ++i) {
             const Key &key = table->present()[random() % table->present().size()];
             const Record record = RecordOf(key);
             writer.Remove(kMacTable, key.bytes.data());
             void *address = nullptr;
             writer.Insert(kMacTable, key.bytes.data(), record.data(), &address);
             writer.Update(kMacTable, address, record.data());
           }
         }) /
         changes;
}

// Processes that search and walk at full speed until they are ended.
class Readers {
 public:
  Readers(MacTable *table, int count) {
    for (int i = 0; i < count; ++i) {
      const pid_t pid = fork();
      if (pid == 0) Read(table, i);
      pids_.push_back(pid);
    }
    usleep(200000);
  }
  ~Readers() {
    for (const pid_t pid : pids_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  }

 private:
  [[noreturn]] static void Read(MacTable *table, int number) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    StayOn(kReadersProcessor);
    const std::vector<Key> keys = Shuffled(table->present());
    table->owner()->reset();
    const auto arena = host::Arena::Attach(table->path(), host::Arena::Access::kLive);
    host::Arena::SetCurrent(arena.get());
    // Commands of some searches each, which give up their copies when they are over.
    constexpr size_t kCommand = 64;
    for (size_t at = 0;; at = (at + kCommand) % keys.size()) {
      if (number % 2 == 0) {
        WalkOnce();
        continue;
      }
      SearchTable({&keys[at], std::min(kCommand, keys.size() - at)});
      arena->DropCopies();
    }
  }
  std::vector<pid_t> pids_;
};

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

// The processor time that the writer takes for a change.
double WriterCpu(MacTable *table, uint32_t changes) {
  const double begin = Now(CLOCK_PROCESS_CPUTIME_ID);
  WriterNanoseconds(table, changes);
  return (Now(CLOCK_PROCESS_CPUTIME_ID) - begin) / changes;
}

// The medians of pairs, alone and read; while the readers' processor is near, if the host has it so within
// some seconds.
void Write(benchmark::State &state, uint32_t entries) {
  MacTable table(entries, true);
  constexpr uint32_t kChanges = 200000;
  constexpr int kPairs = 7;
  constexpr int kWaits = 40;
  StayOn(kWritersProcessor);
  WriterCpu(&table, kChanges);
  for (auto _ : state) {
    std::vector<double> alone, read, trips;
    for (int pair = 0, wait = 0; pair < kPairs; ++pair) {
      for (; wait < kWaits && !IsNear(RoundTrip()); ++wait) usleep(500000);
      alone.push_back(WriterCpu(&table, kChanges));
      {
        const Readers readers(&table, 4);
        read.push_back(WriterCpu(&table, kChanges));
      }
      trips.push_back(RoundTrip());
    }
    state.counters["table_ns"] = Median(read);
    state.counters["baseline_ns"] = Median(alone);
    state.counters["round_trip_ns"] = Median(trips);
    state.SetIterationTime(Median(read) * 1e-9);
  }
}

// Half of 65,536 sessions, then the other half.
void Expire(benchmark::State &state) {
  constexpr uint32_t kSessions = 65536;
  const host::Layout &layout = host::Layout::BuiltIn();
  const host::TableLayout &sessions = layout.Table(host::kFlowPartitionTable);
  const LabArena arena;
  host::TableWriter writer(arena.get());
  host::Aging aging(layout, &writer);
  std::vector<char> record(sessions.spec.StoredSize());
  sessions.At("valid").Set(record.data(), 1);
  double least = 1e18;
  for (auto _ : state) {
    for (uint32_t i = 0; i < kSessions; ++i) {
      sessions.At("aging_time").Set(record.data(), i % 2 == 0 ? 10 : 20);
      if (writer.Insert(host::kFlowPartitionTable, &i, record.data(), nullptr) != 0) Stop("cannot insert");
    }
    uint32_t removed = 0;
    const double took = Nanoseconds([&] { removed = aging.Run(15) + aging.Run(25); });
    if (removed != kSessions) Stop("sessions stay");
    least = std::min(least, took);
    state.SetIterationTime(took * 1e-9);
  }
  state.counters["table_ns"] = least;
}

// A million entries, from nothing.
void Load(benchmark::State &state) {
  double least = 1e18;
  for (auto _ : state) {
    const double took = Nanoseconds([] {
      host::ArenaPlan plan = host::Layout::BuiltIn().Plan("");
      plan.tables[kMacTable].capacity = 1000000;
      const auto arena = host::Arena::Create("/dev/shm/nqe-bench.load." + std::to_string(getpid()), plan);
      host::TableWriter writer(arena.get());
      Key key{};
      for (uint32_t i = 0; i < 1000000; ++i) {
        std::memcpy(key.bytes.data(), &i, sizeof(i));
        if (writer.Insert(kMacTable, key.bytes.data(), RecordOf(key).data(), nullptr) != 0)
          Stop("cannot insert");
      }
    });
    least = std::min(least, took / 1e6);
    state.SetIterationTime(took * 1e-9);
  }
  state.counters["table_ns"] = least;
}

void Register(const std::string &name, int iterations, const auto &run) {
  benchmark::RegisterBenchmark(("table/" + name).c_str(), run)->UseManualTime()->Iterations(iterations);
}

void RegisterAll() {
  for (const uint32_t entries : kSizes) {
    const std::string of = " of " + std::to_string(entries);
    Register("search, found," + of, 1, [=](benchmark::State &state) { Search(state, entries, true); });
    Register("search, missing," + of, 1, [=](benchmark::State &state) { Search(state, entries, false); });
    Register("walk" + of, 5, [=](benchmark::State &state) { Walk(state, entries, false); });
    Register("walk, slots in random order," + of, 5,
             [=](benchmark::State &state) { Walk(state, entries, true); });
  }
  for (const uint32_t entries : {1000u, 262144u}) {
    Register("change under four readers, of " + std::to_string(entries), 1,
             [=](benchmark::State &state) { Write(state, entries); });
  }
  Register("insert, of 1000000", 2, Load);
  Register("expiry of 65536 sessions", 3, Expire);
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  using namespace qdt::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    RegisterAll();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "table_bench: %s\n", error.what());
    return 1;
  }
}
