// Table views against the same views with every format handed to snprintf.
//
// The library is loaded twice: as it is, and compiled with a Text that calls snprintf (baseline/), over a
// platform that answers at once. What each view makes of a set of records is compared first, byte by byte;
// only then is it timed.

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

#include "qdt/tables.h"
#include "src/om/engine/capwap.h"
#include "src/om/engine/engine_stat.h"
#include "src/om/engine/global.h"
#include "src/om/engine/route.h"
#include "src/om/engine/sac.h"
#include "src/om/engine/session.h"
#include "src/om/engine/switching.h"

namespace qdt::bench {
namespace {

struct View {
  uint32_t id;  // of the diag table
  const char *name;
  size_t recordSize;
};

// One row a view of the registry. Lists are measured by one record; the list of MAC addresses once more at
// length.
constexpr View kViews[] = {
    {0, "fwdif", 1544},
    {1, "ctrlif_map_fwdif", 16},
    {2, "flowif_map_fwdif", 16},
    {3, "fib", 16},
    {4, "nhp", 608},
    {5, "nhp_group", 784},
    {6, "arp", 44},
    {7, "arp_miss_cache", 32},
    {8, "portip", 20},
    {9, "bridgeinfo", 24},
    {10, "global", 14672},
    {11, "acl_group", 40},
    {12, "acl_rule", 268},
    {13, "acl_stat", 208},
    {15, "attack_smac", 16},
    {16, "attack_sip", 12},
    {17, "attack_sdata", 48},
    {18, "capture_cfg", 64},
    {19, "mirr_observe", 8},
    {20, "vlaninfo", 24},
    {21, "vlan_bitmap", 1028},
    {22, "ssw_boardcast", 8},
    {23, "ssw_macinfo", 20},
    {25, "port_isolate", 12},
    {26, "port_tag", 8},
    {27, "afpacket_filter", 12},
    {28, "usf_user", 760},
    {29, "usf_stat", 8},
    {30, "usf_macip", 48},
    {31, "car", 144},
    {32, "capwap_tunnel", 112},
    {33, "capwap_decap", 20},
    {34, "buf_cache_stat", 2192},
    {35, "cpcar_pro", 20},
    {36, "hsec_global_cfg", 328},
    {37, "timer_stat", 32},
    {38, "local_mng_user", 28},
    {39, "usf_roam", 32},
    {40, "usf_roam_ap2sta_elb", 36},
    {41, "http_portal_port", 4},
    {42, "arp_dup_mac", 20},
    {43, "web_proxy_portal", 208},
    {44, "trunk", 1032},
    {45, "cpcar_pro_pps", 20},
    {46, "priority", 224},
    {47, "tbm_memory_stat", 64},
    {48, "mac_carId", 2},
    {49, "ssw_global_boardcast", 4},
    {50, "session", 192},
    {51, "mc_route_port", 8},
    {52, "mc_elb", 16},
    {53, "exclude_mc_elb", 8},
    {54, "mc2uc_elb", 24},
    {55, "vap_to_sta", 16},
    {56, "dhcp_snooping_bind", 44},
    {57, "session_cpcar", 24},
    {58, "station_trace", 224},
    {59, "acl_whole_machine_spec", 64},
    {60, "cpcar_port_map", 8},
    {61, "usf_map_fwdif", 16},
    {62, "nat_arp_pool_section", 24},
    {63, "nat_arp_pool_exclude", 24},
    {64, "nat_arp_host", 24},
    {65, "mod_info", 276},
    {66, "dns_domain", 136},
    {67, "nat_policy", 512},
    {68, "ipv6_fib", 16},
    {69, "ipv6_nhp", 72},
    {70, "ipv6_nhp_group", 784},
    {71, "nd", 56},
    {72, "nd_miss_cache", 72},
    {73, "ipv6_portip", 32},
    {74, "port_inst_state", 12},
    {75, "mfib_dummy", 16},
    {76, "cause", 16},
    {77, "dropid", 128},
    {78, "sac_profile", 392},
    {79, "sac_policy_carid", 12},
    {80, "sac_app_group", 64},
    {81, "sac_protocol_mapping", 8},
    {82, "sac_app_mapping", 40},
    {83, "sac_app_rvs_mapping", 40},
    {84, "sac_priority_mapping", 4},
    {85, "sac_if_stat", 16104},
    {86, "sac_usf_stat", 3472},
    {87, "eaplog_info", 1632},
    {88, "arp_simulator", 56},
    {23, "ssw_macinfo, 4,000 entries", 4000 * sizeof(MacEntry)},
};

// What a record must hold in order to be one: bytes that stand for sizes and kinds, of which a random value
// is refused.
struct Given {
  uint32_t id;
  size_t offset;
  std::vector<uint8_t> bytes;
};
const Given kGiven[] = {
    // Pointers into the engine's memory: none. What they lead to is read through the kernel, which is no
    // formatting.
    {34, offsetof(PacketCacheStat, taskCount), {0, 0, 0, 0, 0, 0, 0, 0}},
    {50, offsetof(SessionRecord, positiveKey), std::vector<uint8_t>(56)},
    {4,
     offsetof(NextHopEntry, ext.encapSize),
     {kMaxEncapsulation, kMaxL3EgressServices, kMaxL1EgressServices, 0, 0}},
    {32, offsetof(CapwapTunnelEntry, encapsulationSize), {kMaxCapwapEncapsulation}},
    {65, 0, {64, 0, 0, 0}},  // the size of a name
    {69, offsetof(Ipv6NextHopEntry, ext.outputInterfaceCount), {0}},
    {85, offsetof(SacInterfaceStatistics, lastSlot), {9, 0, 0, 0}},  // ten applications
    {86, offsetof(SacUserEntry, statistics.lastSlot), {9, 0, 0, 0}},
};

struct Pattern {
  std::string name;
  std::vector<char> record;
};

std::vector<Pattern> MakePatterns(const View &view) {
  const size_t size = view.recordSize;
  std::vector<Pattern> patterns{{"zeros", std::vector<char>(size, 0)}, {"ones", std::vector<char>(size, -1)}};
  for (const char *name : {"random", "random2", "random3", "random4"}) {
    std::mt19937 random(static_cast<uint32_t>(patterns.size()));
    std::vector<char> record(size);
    std::generate(record.begin(), record.end(), [&] { return static_cast<char>(random()); });
    patterns.push_back({name, record});
  }
  for (Pattern &pattern : patterns) {
    for (const Given &given : kGiven) {
      if (given.id == view.id)
        std::copy(given.bytes.begin(), given.bytes.end(), pattern.record.begin() + given.offset);
    }
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
  if (length <= 0 && IsTimed(pattern)) Stop(what + "the view fails with " + std::to_string(length));
  if (length != baselineLength || std::strcmp(g_out[0], g_out[1]) != 0) {
    Stop(what + "Print and snprintf differ:\n" + g_out[0] + "\n--- snprintf\n" + g_out[1]);
  }
}

double Median(std::vector<double> &samples) {
  const auto middle = samples.begin() + static_cast<ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

template <typename Call>
double Nanoseconds(int calls, Call call) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  for (int i = 0; i < calls; ++i) call();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / calls;
}

// Records from this size on have answers that are lists.
constexpr size_t kLongAnswer = 64 * 1024;

// Nanoseconds of one call of a view.
double Time(TableFormat format, const std::vector<char> &record) {
  const int calls = record.size() < kLongAnswer ? 64 : 1;  // enough to make the clock's own time small
  return Nanoseconds(calls, [&] {
    benchmark::DoNotOptimize(format(g_out[0], kRoom, record.data(), static_cast<int32_t>(record.size())));
  });
}

// A list is as good as the memory that it is written to: its time beside that of a copy of its text.
void CompareWithCopy(benchmark::State &state, TableFormat print, const std::vector<char> &record) {
  std::vector<double> printTimes, copyTimes;
  const int32_t length = print(g_out[0], kRoom, record.data(), static_cast<int32_t>(record.size()));
  for (auto _ : state) {
    printTimes.push_back(Time(print, record));
    copyTimes.push_back(Nanoseconds(1, [&] {
      std::memcpy(g_out[1], g_out[0], static_cast<size_t>(length));
      benchmark::ClobberMemory();
    }));
    state.SetIterationTime(printTimes.back() * 1e-9);
  }
  const double print_ns = Median(printTimes);
  const double copy_ns = Median(copyTimes);
  state.counters["print_ns"] = print_ns;
  state.counters["copy_ns"] = copy_ns;
  state.counters["bytes"] = length;
  state.counters["ratio"] = copy_ns / print_ns;
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

void RegisterCopy(const View &view, const Pattern &pattern, TableFormat print) {
  benchmark::RegisterBenchmark(
      ("copy/" + std::string(view.name) + "/" + pattern.name).c_str(),
      [=](benchmark::State &state) { CompareWithCopy(state, print, pattern.record); })
      ->UseManualTime()
      ->Iterations(200);
}

void Register(const TableOps *library, const TableOps *baseline) {
  for (const View &view : kViews) {
    const TableFormat print = library[view.id].format;
    const TableFormat bySnprintf = baseline[view.id].format;
    for (const Pattern &pattern : MakePatterns(view)) {
      CheckEqual(view, pattern, print, bySnprintf);
      if (!IsTimed(pattern)) continue;
      if (view.recordSize > kLongAnswer) RegisterCopy(view, pattern, print);
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
    qdt::bench::Register(qdt::bench::LoadRegistry(QDT_LIBRARY),
                         qdt::bench::LoadRegistry(QDT_BASELINE_LIBRARY));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "views_bench: %s\n", error.what());
    return 1;
  }
}
