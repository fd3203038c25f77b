// Longest-prefix match on route tables of every size and shape.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/route_sets.h"
#include "host/arena/arena.h"
#include "host/tbm/route_index_writer.h"
#include "host/tbm/table_writer.h"
#include "platform/tbm.h"

namespace qdt::bench {
namespace {

using host::tbm::RouteIndexSize;
using host::tbm::RouteIndexWriter;
using Clock = std::chrono::steady_clock;

constexpr double kSmall = 150;  // nanoseconds a match may take at 1,000 routes
constexpr double kLarge = 500;  // and at 1,000,000
constexpr RouteSet kSets[] = {
    {"IPv4, lengths 8 to 32", 4, 1000, 8, 32, RouteShape::kRandom, 1, kSmall},
    {"IPv4, every length of one address", 4, 33, 0, 32, RouteShape::kNested, 1, kSmall},
    {"IPv6, lengths 16 to 128", 16, 1000, 16, 128, RouteShape::kRandom, 1, kSmall},
    {"IPv6, every length of one address", 16, 129, 0, 128, RouteShape::kNested, 1, kSmall},
    {"IPv6, every length of 8 addresses", 16, 1000, 0, 128, RouteShape::kNested, 1, kSmall},
    {"IPv4, length 24", 4, 1000000, 24, 24, RouteShape::kRandom, 1, kLarge},
    {"IPv4, lengths 8 to 32", 4, 1000000, 8, 32, RouteShape::kRandom, 1, kLarge},
    {"IPv4, lengths 8 to 32, 1,000 VPNs", 4, 1000000, 8, 32, RouteShape::kRandom, 1000, kLarge},
    {"IPv4, every length of 40,000 addresses", 4, 1000000, 0, 32, RouteShape::kNested, 1, kLarge},
    {"IPv6, length 48", 16, 1000000, 48, 48, RouteShape::kRandom, 1, kLarge},
    {"IPv6, lengths 16 to 128", 16, 1000000, 16, 128, RouteShape::kRandom, 1, kLarge},
    {"IPv6, every length of 8,000 addresses", 16, 1000000, 0, 128, RouteShape::kNested, 1, kLarge},
    {"IPv6, every length of 6,600 addresses, forks", 16, 1000000, 0, 128, RouteShape::kForked, 1, kLarge},
    {"IPv4, each behind another", 4, 1000000, 8, 32, RouteShape::kGrown, 1, kLarge},
    {"IPv6, each behind another", 16, 1000000, 16, 128, RouteShape::kGrown, 1, kLarge},
};

constexpr size_t kBatch = 2048;
constexpr size_t kBaselineBatches =
    4;  // an iteration; of the large sets a search a length takes microseconds

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error(why); }

// A route table in an arena of its own. A route's record is its number.
class Table {
 public:
  explicit Table(const RouteSet &set)
      : arena_(host::Arena::Create("/dev/shm/nqe-bench." + std::to_string(getpid()), Plan(set))) {
    host::Arena::SetCurrent(arena_.get());
  }

  void Insert(const RouteKey &key, uint32_t number) {
    const uint64_t record = number;
    if (host::TableWriter(arena_.get()).Insert(kTable, &key, &record, nullptr) != 0) Stop("cannot insert");
  }
  static uint32_t Match(const RouteKey &key) {
    void *entry = nullptr;
    return TbmTblMatch(0, kTable, &key, &entry) == 0 ? *static_cast<const uint32_t *>(entry) : 0;
  }
  // As Match, without a look at the record.
  static void *Address(const RouteKey &key) {
    void *entry = nullptr;
    TbmTblMatch(0, kTable, &key, &entry);
    return entry;
  }

 private:
  static constexpr uint32_t kTable = 1;

  static host::ArenaPlan Plan(const RouteSet &set) {
    host::ArenaPlan plan;
    plan.tables.resize(host::kTableCount);
    for (uint32_t id = 0; id < host::kTableCount; ++id) plan.tables[id].id = id;
    host::TableSpec &spec = plan.tables[kTable];
    spec.keySize = static_cast<uint16_t>(host::kPrefixAddressOffset + set.addressSize);
    spec.dataSize = spec.recordSize = sizeof(uint64_t);
    spec.capacity = set.count;
    spec.lookup = set.addressSize == 4 ? host::Lookup::kPrefix4 : host::Lookup::kPrefix6;
    return plan;
  }

  std::unique_ptr<host::Arena> arena_;
};

// The index of such a table alone, in a file as arenas are.
class Index {
 public:
  Index(uint32_t addressSize, uint32_t capacity)
      : addressSize_(addressSize), size_((RouteIndexSize(capacity, addressSize) + 4095) / 4096 * 4096) {
    const std::string path = "/dev/shm/nqe-bench-routes." + std::to_string(getpid());
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd_ < 0 || unlink(path.c_str()) != 0 || ftruncate(fd_, static_cast<off_t>(size_)) != 0)
      Stop("no index");
    void *area = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, fd_, 0);
    if (area == MAP_FAILED) Stop("cannot map the index");
    area_ = static_cast<char *>(area);
  }
  ~Index() {
    munmap(area_, size_);
    close(fd_);
  }
  Index(const Index &) = delete;
  Index &operator=(const Index &) = delete;

  RouteIndexWriter writer() const {
    return {area_, size_, addressSize_, [fd = fd_](uint64_t offset, uint64_t size) {
              return posix_fallocate(fd, static_cast<off_t>(offset), static_cast<off_t>(size)) == 0;
            }};
  }
  uint64_t StorageBytes() const {
    return host::tbm::RouteStorageBytes(*reinterpret_cast<const host::tbm::RouteHead *>(area_));
  }

 private:
  uint32_t addressSize_;
  uint64_t size_;
  int fd_;
  char *area_;
};

// A set's routes in all that is compared. One at a time: the large ones take memory.
struct Loaded {
  explicit Loaded(const RouteSet &set)
      : set(&set),
        routes(set),
        maps(routes.keys(), set.addressSize),
        table(set),
        index(set.addressSize, set.count),
        writer(index.writer()) {
    for (uint32_t i = 0; i < routes.keys().size(); ++i) {
      Insert(i);
      table.Insert(routes.keys()[i], i + 1);
    }
  }

  void Insert(uint32_t number) {
    const RouteKey &key = routes.keys()[number];
    if (writer.Insert(key.vpn, key.address.data(), key.length, number + 1, number + 1) != 0)
      Stop("cannot insert");
  }
  void Remove(uint32_t number) {
    const RouteKey &key = routes.keys()[number];
    if (writer.Remove(key.vpn, key.address.data(), key.length) != 0) Stop("cannot remove");
  }

  const RouteSet *set;
  Routes routes;
  MapPerLength maps;
  Table table;
  Index index;
  RouteIndexWriter writer;
};

Loaded &Load(const RouteSet &set) {
  static std::unique_ptr<Loaded> loaded;
  if (loaded == nullptr || loaded->set != &set) {
    loaded.reset();
    loaded = std::make_unique<Loaded>(set);
  }
  return *loaded;
}

template <typename Run>
double Nanoseconds(const Run &run) {
  const auto begin = Clock::now();
  run();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

double Median(std::vector<double> *samples) {
  const auto middle = samples->begin() + static_cast<ptrdiff_t>(samples->size() / 2);
  std::nth_element(samples->begin(), middle, samples->end());
  return *middle;
}

// Nanoseconds of one of a batch.
template <typename Match>
double TimeBatch(const std::vector<RouteKey> &keys, size_t first, const Match &match) {
  return Nanoseconds([&] {
           for (size_t i = first; i < first + kBatch; ++i) benchmark::DoNotOptimize(match(keys[i]));
         }) /
         kBatch;
}

void CheckAnswers(const Loaded &loaded, const std::vector<RouteKey> &keys) {
  for (size_t i = 0; i < std::min(keys.size(), size_t{20000}); ++i) {
    if (Table::Match(keys[i]) != loaded.maps.Match(keys[i])) Stop("two answers differ");
  }
}

// Destinations for which a set's routes have been touched long ago, as far as the caches reach.
void MatchAll(benchmark::State &state, const RouteSet &set, bool beside) {
  Loaded &loaded = Load(set);
  const auto keys = loaded.routes.Destinations(set.count < 100000 ? 16 * kBatch : 256 * kBatch, beside);
  CheckAnswers(loaded, keys);
  size_t found = 0;
  for (const RouteKey &key : keys) found += Table::Match(key) != 0;
  std::vector<double> times, baselineTimes;
  for (auto _ : state) {
    for (size_t first = 0; first < keys.size(); first += kBatch) {
      times.push_back(TimeBatch(keys, first, Table::Address));
    }
    for (size_t i = 0; i < kBaselineBatches; ++i) {
      const size_t first = (baselineTimes.size() * 37 % (keys.size() / kBatch)) * kBatch;
      baselineTimes.push_back(
          TimeBatch(keys, first, [&](const RouteKey &key) { return loaded.maps.Match(key); }));
    }
  }
  state.counters["run_ns"] = Median(&times);
  state.counters["baseline_ns"] = Median(&baselineTimes);
  state.counters["found"] = static_cast<double>(found) / static_cast<double>(keys.size());
  state.counters["routes"] = set.count;
  state.counters["goal_ns"] = set.goal;
}

// Routes leave and come again, in random order.
void ChangeAll(benchmark::State &state, const RouteSet &set) {
  Loaded &loaded = Load(set);
  const uint32_t batch = std::min(set.count, 1000u);
  std::vector<double> removals, insertions;
  for (auto _ : state) {
    for (uint32_t first = 0; first + batch <= set.count && first < 100 * batch; first += batch) {
      removals.push_back(Nanoseconds([&] {
                           for (uint32_t i = first; i < first + batch; ++i) loaded.Remove(i);
                         }) /
                         batch);
      insertions.push_back(Nanoseconds([&] {
                             for (uint32_t i = first; i < first + batch; ++i) loaded.Insert(i);
                           }) /
                           batch);
    }
  }
  state.counters["goal_ns"] = set.goal;
  state.counters["insert_ns"] = Median(&insertions);
  state.counters["remove_ns"] = Median(&removals);
  state.counters["routes"] = set.count;
  state.counters["bytes"] = static_cast<double>(loaded.index.StorageBytes()) / set.count;
}

void Register() {
  for (const RouteSet &set : kSets) {
    const std::string what = "/" + std::string(set.name) + "/" + std::to_string(set.count);
    for (const bool beside : {false, true}) {
      benchmark::RegisterBenchmark(("route" + what + (beside ? "/beside" : "/hit")).c_str(),
                                   [&set, beside](benchmark::State &state) { MatchAll(state, set, beside); })
          ->Iterations(1);
    }
    benchmark::RegisterBenchmark(("routechange" + what).c_str(), [&set](benchmark::State &state) {
      ChangeAll(state, set);
    })->Iterations(1);
  }
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    qdt::bench::Register();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "route_bench: %s\n", error.what());
    return 1;
  }
}
