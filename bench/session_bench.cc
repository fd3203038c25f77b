// Sessions: what the filter costs for each of 65,536, and what the agent's query costs as a whole.
//
// Every measurement takes turns with its baseline: for the filter, which is run by a scan of the flow
// partition as a reset of sessions runs it, reading the fields of each record that say whether it is shown at
// all; for a query that looks through the whole table, a walk that looks at nothing; for a list, the library
// with every format handed to snprintf (baseline/).

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/lab_arena.h"
#include "host/tbm/status.h"
#include "host/tbm/table_writer.h"
#include "platform/engine.h"
#include "platform/omcc.h"
#include "platform/tbm.h"
#include "qdt/cli.h"
#include "qdt/session.h"
#include "qdt/tables.h"
#include "src/om/engine/session.h"
#include "src/om/engine/table_ids.h"

// The management agent as far as a query needs it.
struct omcc_request {
  std::map<std::string, const char *> texts;
  std::map<std::string, uint64_t> numbers;
  std::map<std::string, uint8_t> flags;
};

namespace {

template <typename T>
int32_t Parameter(const std::map<std::string, T> &values, const char *name, T *value) {
  const auto found = values.find(name);
  if (found == values.end()) return -1;
  *value = found->second;
  return 0;
}

std::string g_answer;  // the last one sent

}  // namespace

extern "C" {

int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text) {
  return Parameter(request->texts, name, text);
}
int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value) {
  return Parameter(request->numbers, name, value);
}
int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value) {
  return Parameter(request->flags, name, value);
}
int32_t QdtOmSendMsg(const char *reply) {
  g_answer = reply;
  return 0;
}

}  // extern "C"

namespace qdt::bench {
namespace {

constexpr uint32_t kSessions = 65536;
constexpr uint16_t kLastPort = 65535;

[[noreturn]] void Stop(const std::string &why) { throw std::runtime_error(why); }

// The operations that are timed, of one library.
struct Library {
  decltype(&SessionParamValuelClear) clear;
  decltype(&QuerySessionGetParam) read;
  decltype(&QuerySessionNodeMatch) match;
  decltype(&QdtOmaQuerySessionProc) query;
  decltype(&QdtFlowPartScan) scan;
  decltype(&CliNqeTblSearch) view;
};

template <typename T>
void Find(void *handle, const char *name, T &operation) {
  operation = reinterpret_cast<T>(dlsym(handle, name));
  if (operation == nullptr) Stop(dlerror());
}

Library Load(const char *path) {
  void *const handle = dlopen(path, RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) Stop(dlerror());
  Library library;
  Find(handle, "SessionParamValuelClear", library.clear);
  Find(handle, "QuerySessionGetParam", library.read);
  Find(handle, "QuerySessionNodeMatch", library.match);
  Find(handle, "QdtOmaQuerySessionProc", library.query);
  Find(handle, "QdtFlowPartScan", library.scan);
  Find(handle, "CliNqeTblSearch", library.view);
  return library;
}

// A full table of IPv4 sessions, which differ in their source port, with all that records lead to.
class Sessions {
 public:
  explicit Sessions(host::Arena *arena) : keys_(kSessions) {
    if (TbmTblGetSpec(kEngineInstance, kTableSession) != kSessions)
      Stop("the session table has another capacity");
    host::TableWriter writer(arena);
    std::vector<char> stored(host::Layout::BuiltIn().Table(kTableSession).spec.StoredSize());
    for (uint32_t i = 0; i < kSessions; ++i) {
      keys_[i] = {0x0A000001, 0x0A000002, static_cast<uint16_t>(i), 443, 6, 0, 7};
      const SessionRecord record = Make(i);
      void *live = nullptr;
      std::memcpy(stored.data(), &record, sizeof(record));
      if (writer.Insert(kTableSession, &i, stored.data(), &live) != host::tbm::kTbmOk) Stop("cannot insert");
    }
  }

 private:
  SessionRecord Make(uint32_t index) const {
    SessionRecord record{};
    record.index = index;
    record.valid = 1;
    record.agingTime = 300;
    record.sourceTranslated = record.destinationTranslated = 1;
    record.ingressIfIndex = 11;
    record.egressIfIndex = 12;
    record.positive = {0xCB007101, 0xCB007102, 0, 0};
    record.serviceId = 47;
    record.positiveKey = record.negativeKey = reinterpret_cast<uintptr_t>(&keys_[index]);
    record.createTime = static_cast<uint32_t>(std::time(nullptr));
    record.sac = reinterpret_cast<uintptr_t>(&sac_);
    record.tcpFlow = reinterpret_cast<uintptr_t>(&tcpFlow_);
    return record;
  }

  std::vector<SessionKey> keys_;
  SacSubSession sac_{{}, 1001, 1002, 1003};
  TcpFlow tcpFlow_{};
};

double Nanoseconds(const std::function<void()> &run) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  run();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

double Median(std::vector<double> &samples) {
  const auto middle = samples.begin() + static_cast<ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

// Times `run` in turns with its baseline; both do something `times` times.
void Compare(benchmark::State &state, double times, const std::function<void()> &run,
             const std::function<void()> &baseline) {
  std::vector<double> runTimes, baselineTimes;
  for (auto _ : state) {
    runTimes.push_back(Nanoseconds(run) / times);
    baselineTimes.push_back(Nanoseconds(baseline) / times);
    state.SetIterationTime(runTimes.back() * 1e-9);
  }
  const double run_ns = Median(runTimes);
  const double baseline_ns = Median(baselineTimes);
  state.counters["run_ns"] = run_ns;
  state.counters["baseline_ns"] = baseline_ns;
  state.counters["ratio"] = run_ns / baseline_ns;
}

void Register(const std::string &name, int iterations, double times, const std::function<void()> &run,
              const std::function<void()> &baseline) {
  benchmark::RegisterBenchmark(("session/" + name).c_str(),
                               [=](benchmark::State &state) { Compare(state, times, run, baseline); })
      ->UseManualTime()
      ->Iterations(iterations);
}

// A session passes each of these; the ports are asked for one by one.
const omcc_request kNoFilter;
const omcc_request kRecordFilter = {{}, {{"ingress-ifindex", 11}}, {}};
const omcc_request kKeyFilter = {{}, {{"protocol", 6}}, {}};
const omcc_request kAllFilters = {{{"global-destination-ip", "10.0.0.2"},
                                   {"global-source-ip", "203.0.113.1"},
                                   {"inside-destination-ip", "203.0.113.2"},
                                   {"inside-source-ip", "10.0.0.1"},
                                   {"service-id", "https"},
                                   {"feature", "sac"}},
                                  {{"create-in", 255},
                                   {"egress-ifindex", 12},
                                   {"global-destination-port", 443},
                                   {"ingress-ifindex", 11},
                                   {"inside-destination-port", 443},
                                   {"protocol", 6},
                                   {"vpn-id", 7}},
                                  {{"verbose", 1}}};

void SetFilter(const Library &library, const omcc_request &request) {
  omcc_request copy = request;
  library.clear();
  library.read(&copy, 1);
}

decltype(&QuerySessionNodeMatch) g_match;  // of the library that is measured
uint32_t g_matches, g_shown;

int32_t Match(void *record) {
  g_matches += g_match(record) == 0;
  return 0;
}

int32_t Look(void *entry) {
  const auto &record = *static_cast<const SessionRecord *>(entry);
  g_shown += record.valid && record.state != kSessionNeverListed && record.agingTime != kSessionAgeOut;
  return 0;
}

// Calls `visit` for every session.
void Scan(const Library &library, int32_t (*visit)(void *record)) {
  uint32_t cursor = 0;
  if (library.scan(visit, kSessions, &cursor) != 0 || cursor != kSessions) Stop("a scan misses sessions");
}

void RegisterFilter(const std::string &name, const Library &library, const omcc_request &request) {
  g_match = library.match;
  const auto run = [&library, &request] {
    SetFilter(library, request);
    g_matches = 0;
    Scan(library, Match);
    if (g_matches != kSessions) Stop("a session does not pass the filter");
  };
  run();
  Register(name, 5, kSessions, run, [&library] { Scan(library, Look); });
}

// The answer to the query.
std::string Ask(const Library &library, const omcc_request &request) {
  omcc_request copy = request;
  g_answer.clear();
  if (library.query(&copy) != 0) Stop("a query fails");
  return g_answer;
}

int32_t PassBy(void *entry, void *) {
  benchmark::DoNotOptimize(entry);
  return QDT_TBL_CONTINUE;
}

void RegisterQueries(const Library &library, const Library &baseline) {
  static const omcc_request kLast = {{}, {{"inside-source-port", kLastPort}}, {}};
  const std::string last = Ask(library, kLast);
  if (last.find(":65535[203.0.113.1:65535]") == std::string::npos) Stop("the query finds:" + last);
  Register(
      "query, one of 65,536", 5, 1, [&library] { Ask(library, kLast); },
      [] { TbmTblTrav(kEngineInstance, kTableSession, PassBy, nullptr); });

  static std::string area(QDT_OUTPUT_CAPACITY, '\0');
  const auto view = [&library](const char *address) {
    constexpr uint32_t kSessionView = 50;
    library.view(area.data(), QDT_OUTPUT_CAPACITY, kSessionView, address, 0, 0, 0);
  };
  view("sip:10.0.0.1");
  if (area.find("  PosSrcIp     :  0x0a000001\n") == std::string::npos) Stop("the view finds:" + area);
  Register(
      "diag view, none of 65,536", 5, 1, [view] { view("sip:10.0.0.3"); },
      [] { TbmTblTrav(kEngineInstance, kTableSession, PassBy, nullptr); });

  static const omcc_request kList = {{}, {{"session-number", 255}}, {{"verbose", 1}}};
  const std::string list = Ask(library, kList);
  if (list != Ask(baseline, kList)) Stop("Print and snprintf differ:\n" + list);
  if (list.size() < 20000) Stop("the list is not full");
  Register(
      "query, a full answer, verbose", 200, 1, [&library] { Ask(library, kList); },
      [&baseline] { Ask(baseline, kList); });
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  using namespace qdt::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    const LabArena arena;
    const Sessions sessions(arena.get());
    const Library library = Load(QDT_LIBRARY);
    const Library baseline = Load(QDT_BASELINE_LIBRARY);
    RegisterFilter("filter, none", library, kNoFilter);
    RegisterFilter("filter, one of the record", library, kRecordFilter);
    RegisterFilter("filter, one of the key", library, kKeyFilter);
    RegisterFilter("filter, all", library, kAllFilters);
    RegisterQueries(library, baseline);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception &error) {
    fprintf(stderr, "session_bench: %s\n", error.what());
    return 1;
  }
}
