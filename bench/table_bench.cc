// The host platform's table manager on the lab engine's MAC table, filled to its last entry.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/lab_arena.h"
#include "host/tbm/status.h"
#include "host/tbm/table_writer.h"
#include "platform/tbm.h"

namespace qdt::bench {
namespace {

constexpr uint32_t kMacTable = 26;
constexpr uint32_t kCapacity = 16384;

using Key = std::array<uint8_t, 12>;
using Record = std::array<uint8_t, 20>;

// Different keys in random order; those of different `kind` are different as well. Like MAC keys: a vendor's
// prefix, rising numbers and a rest that is often the same.
std::vector<Key> MakeKeys(uint8_t kind) {
  std::vector<Key> keys(kCapacity);
  for (uint32_t i = 0; i < kCapacity; ++i) {
    keys[i] = {0x02, 0x00, kind, 0x10, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i), 1, 0, 10};
  }
  std::shuffle(keys.begin(), keys.end(), std::mt19937(kind));
  return keys;
}

const std::vector<Key> kPresent = MakeKeys(1);
const std::vector<Key> kMissing = MakeKeys(2);

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error(why); }

void Fill(host::Arena *arena) {
  if (TbmTblGetSpec(0, kMacTable) != kCapacity) Stop("the MAC table has another capacity");
  host::TableWriter writer(arena);
  for (const Key &key : kPresent) {
    Record record{};
    std::copy(key.begin(), key.end(), record.begin());
    if (writer.Insert(kMacTable, key.data(), record.data(), nullptr) != host::tbm::kTbmOk)
      Stop("cannot insert");
  }
  if (writer.Insert(kMacTable, kMissing[0].data(), Record{}.data(), nullptr) != host::tbm::kTbmFull) {
    Stop("the table is not full");
  }
}

void CheckSearches() {
  for (const Key &key : kPresent) {
    void *entry = nullptr;
    if (TbmTblSearch(0, kMacTable, key.data(), &entry) != 0) Stop("an entry is not found");
    if (std::memcmp(entry, key.data(), key.size()) != 0) Stop("a search finds another key's entry");
  }
  for (const Key &key : kMissing) {
    void *entry = nullptr;
    if (TbmTblSearch(0, kMacTable, key.data(), &entry) != host::tbm::kTbmNotFound)
      Stop("a missing key is found");
  }
}

// Seconds that each of `count` entries of an iteration takes.
benchmark::Counter PerEntry(size_t count) {
  return {static_cast<double>(count),
          benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
}

// Every key once an iteration, in random order.
void Search(benchmark::State &state, const std::vector<Key> &keys) {
  for (auto _ : state) {
    for (const Key &key : keys) {
      void *entry = nullptr;
      benchmark::DoNotOptimize(TbmTblSearch(0, kMacTable, key.data(), &entry));
      benchmark::DoNotOptimize(entry);
    }
  }
  state.counters["per_entry"] = PerEntry(keys.size());
}

// All entries in the batches in which the diag command fetches them.
void Walk(benchmark::State &state) {
  constexpr uint32_t kBatch = 50;
  std::array<Record, kBatch> batch;
  for (auto _ : state) {
    TbmTravContext context;
    TbmTblTravContextInit(&context);
    uint32_t entries = 0;
    int32_t status = host::tbm::kTbmMore;
    while (status == host::tbm::kTbmMore) {
      uint32_t bytes = sizeof(batch);
      status = TbmTblTravNext(0, kMacTable, &context, batch.data(), &bytes);
      entries += TbmTblTravContextCnt(&context);
    }
    if (status != host::tbm::kTbmOk || entries != kCapacity) state.SkipWithError("the walk is not whole");
  }
  state.counters["per_entry"] = PerEntry(kCapacity);
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  using namespace qdt::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    const LabArena arena;
    Fill(arena.get());
    CheckSearches();
    benchmark::RegisterBenchmark("table/search_hit", Search, kPresent);
    benchmark::RegisterBenchmark("table/search_miss", Search, kMissing);
    benchmark::RegisterBenchmark("table/walk", Walk);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "table_bench: %s\n", error.what());
    return 1;
  }
}
