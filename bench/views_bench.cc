// Table views against the same views with every format handed to snprintf.
//
// The library is loaded twice: as it is, and compiled with a Text that calls snprintf (baseline/). What each
// view makes of a set of records is compared first, byte by byte; only then is it timed.

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/lab_arena.h"
#include "qdt/tables.h"
#include "src/om/engine/global.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/switching.h"

namespace qdt::bench {
namespace {

struct View {
  uint32_t id;  // of the diag table
  const char *name;
  size_t recordSize;
};

// One row a view.
constexpr View kViews[] = {
    {0, "fwdif", sizeof(ForwardingInterface)},
    {1, "ctrlif_map_fwdif", sizeof(InterfaceMapEntry)},
    {10, "global", sizeof(GlobalEntry)},
    {23, "ssw_macinfo", sizeof(MacEntry)},
    {23, "ssw_macinfo, 4,000 entries", 4000 * sizeof(MacEntry)},
};

struct Pattern {
  std::string name;
  std::vector<char> record;
};

std::vector<Pattern> MakePatterns(size_t size) {
  std::vector<Pattern> patterns{{"zeros", std::vector<char>(size, 0)}, {"ones", std::vector<char>(size, -1)}};
  for (const char *name : {"random", "random2", "random3", "random4"}) {
    std::mt19937 random(static_cast<uint32_t>(patterns.size()));
    std::vector<char> record(size);
    std::generate(record.begin(), record.end(), [&] { return static_cast<char>(random()); });
    patterns.push_back({name, record});
  }
  return patterns;
}

// What is timed: a record of the small values that engines mostly hold, and one of long numbers.
bool IsTimed(const Pattern &pattern) { return pattern.name == "zeros" || pattern.name == "random"; }

constexpr uint32_t kRoom = 1 << 20;
char g_out[2][kRoom];

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error(why); }

const TableOps *LoadRegistry(const char *library) {
  void *handle = dlopen(library, RTLD_LAZY | RTLD_LOCAL);
  const void *registry = handle == nullptr ? nullptr : dlsym(handle, "g_nqeTblOps");
  if (registry == nullptr) Stop(dlerror());
  return static_cast<const TableOps *>(registry);
}

void CheckEqual(const View &view, const Pattern &pattern, TableFormat print, TableFormat baseline) {
  const std::string what = std::string(view.name) + ", record of " + pattern.name + ": ";
  if (print == nullptr || baseline == nullptr) Stop(what + "the library has no such view");
  const auto size = static_cast<int32_t>(pattern.record.size());
  const int32_t length = print(g_out[0], kRoom, pattern.record.data(), size);
  const int32_t baselineLength = baseline(g_out[1], kRoom, pattern.record.data(), size);
  if (length <= 0) Stop(what + "the view fails with " + std::to_string(length));
  if (length != baselineLength || std::memcmp(g_out[0], g_out[1], length + 1) != 0) {
    Stop(what + "Print and snprintf differ:\n" + g_out[0] + "\n--- snprintf\n" + g_out[1]);
  }
}

double Median(std::vector<double> &samples) {
  const auto middle = samples.begin() + static_cast<ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

// Nanoseconds of one call.
double Time(TableFormat format, const std::vector<char> &record) {
  using Clock = std::chrono::steady_clock;
  constexpr size_t kLongAnswer = 64 * 1024;
  const int calls = record.size() < kLongAnswer ? 64 : 1;  // enough to make the clock's own time small
  const auto begin = Clock::now();
  for (int i = 0; i < calls; ++i) {
    benchmark::DoNotOptimize(format(g_out[0], kRoom, record.data(), static_cast<int32_t>(record.size())));
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / calls;
}

// The two take turns, so that whatever else the machine does meets both alike.
void Compare(benchmark::State &state, TableFormat print, TableFormat baseline,
             const std::vector<char> &record) {
  std::vector<double> printTimes, baselineTimes;
  for (auto _ : state) {
    printTimes.push_back(Time(print, record));
    baselineTimes.push_back(Time(baseline, record));
    state.SetIterationTime(printTimes.back() * 1e-9);
  }
  const double print_ns = Median(printTimes);
  const double baseline_ns = Median(baselineTimes);
  state.counters["print_ns"] = print_ns;
  state.counters["snprintf_ns"] = baseline_ns;
  state.counters["speedup"] = baseline_ns / print_ns;
}

void Register(const TableOps *library, const TableOps *baseline) {
  for (const View &view : kViews) {
    const TableFormat print = library[view.id].format;
    const TableFormat bySnprintf = baseline[view.id].format;
    for (const Pattern &pattern : MakePatterns(view.recordSize)) {
      CheckEqual(view, pattern, print, bySnprintf);
      if (!IsTimed(pattern)) continue;
      benchmark::RegisterBenchmark(
          ("view/" + std::string(view.name) + "/" + pattern.name).c_str(),
          [=](benchmark::State &state) { Compare(state, print, bySnprintf, pattern.record); })
          ->UseManualTime()
          ->Iterations(200);
    }
  }
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    const qdt::bench::LabArena arena;
    qdt::bench::Register(qdt::bench::LoadRegistry(QDT_LIBRARY),
                         qdt::bench::LoadRegistry(QDT_BASELINE_LIBRARY));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "views_bench: %s\n", error.what());
    return 1;
  }
}
