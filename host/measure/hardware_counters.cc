#include "host/measure/hardware_counters.h"

#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <optional>
#include <span>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace qdt::host {
namespace {

// An event as the kernel knows it.
struct KernelEvent {
  uint32_t type;
  uint64_t config;
};

constexpr KernelEvent kCycles{PERF_TYPE_HARDWARE, PERF_COUNT_HW_CPU_CYCLES};

#if defined(__aarch64__)

// The tables hold the numbers of this processor's own events.
std::optional<KernelEvent> Find(uint32_t event) { return KernelEvent{PERF_TYPE_RAW, event}; }

#else

constexpr uint64_t Cache(uint64_t cache, uint64_t operation, uint64_t result) {
  return cache | operation << 8 | result << 16;
}
constexpr uint64_t kRead = PERF_COUNT_HW_CACHE_OP_READ;
constexpr uint64_t kWrite = PERF_COUNT_HW_CACHE_OP_WRITE;
constexpr uint64_t kAll = PERF_COUNT_HW_CACHE_RESULT_ACCESS;
constexpr uint64_t kMiss = PERF_COUNT_HW_CACHE_RESULT_MISS;

// What the kernel counts under a common name. Its cache events tell reads from writes; where a table asks for
// both, reads stand for them.
constexpr struct {
  uint32_t event;
  KernelEvent kernel;
} kKnown[] = {
    {0x01, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1I, kRead, kMiss)}},
    {0x02, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_ITLB, kRead, kMiss)}},
    {0x03, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kRead, kMiss)}},
    {0x04, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kRead, kAll)}},
    {0x05, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_DTLB, kRead, kMiss)}},
    {0x08, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_INSTRUCTIONS}},
    {0x10, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_BRANCH_MISSES}},
    {0x12, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_BRANCH_INSTRUCTIONS}},
    {0x14, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1I, kRead, kAll)}},
    {0x1D, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_BUS_CYCLES}},
    {0x23, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_STALLED_CYCLES_FRONTEND}},
    {0x24, {PERF_TYPE_HARDWARE, PERF_COUNT_HW_STALLED_CYCLES_BACKEND}},
    {0x25, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_DTLB, kRead, kAll)}},
    {0x26, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_ITLB, kRead, kAll)}},
    {0x36, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_LL, kRead, kAll)}},
    {0x37, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_LL, kRead, kMiss)}},
    {0x40, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kRead, kAll)}},
    {0x41, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kWrite, kAll)}},
    {0x42, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kRead, kMiss)}},
    {0x43, {PERF_TYPE_HW_CACHE, Cache(PERF_COUNT_HW_CACHE_L1D, kWrite, kMiss)}},
};

std::optional<KernelEvent> Find(uint32_t event) {
  for (const auto &row : kKnown) {
    if (row.event == event) return row.kernel;
  }
  return std::nullopt;
}

#endif

UniqueFd OpenCounter(const KernelEvent &event, int group) {
  perf_event_attr attributes = {};
  attributes.size = sizeof(attributes);
  attributes.type = event.type;
  attributes.config = event.config;
  attributes.read_format = PERF_FORMAT_GROUP;
  attributes.exclude_kernel = 1;  // what a process without privileges may count
  attributes.exclude_hv = 1;
  constexpr pid_t kThisThread = 0;
  constexpr int kAnyCpu = -1;
  return UniqueFd(static_cast<int>(
      syscall(SYS_perf_event_open, &attributes, kThisThread, kAnyCpu, group, PERF_FLAG_FD_CLOEXEC)));
}

}  // namespace

uint64_t ReadProcessorTimer() {
#if defined(__x86_64__)
  return __rdtsc();
#elif defined(__aarch64__)
  uint64_t count;
  asm volatile("mrs %0, cntvct_el0" : "=r"(count));
  return count;
#else
  return static_cast<uint64_t>(
      std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
#endif
}

HardwareCounters::HardwareCounters(const PmuEventSelect *table) {
  for (const PmuEventSelect *row = table; row->event != QDT_PMU_EVENT_END && events_.size() < QDT_PMU_EVENTS;
       ++row) {
    Open(*row);
  }
}

void HardwareCounters::Open(const PmuEventSelect &row) {
  Event event{row.event == QDT_PMU_EVENT_CYCLES, kNotCounted};
  const std::optional<KernelEvent> kernel = event.cycles ? kCycles : Find(row.event);
  if (kernel) {
    UniqueFd counter = OpenCounter(*kernel, opened_.empty() ? -1 : opened_.front().get());
    if (counter.ok()) {
      event.place = static_cast<int>(opened_.size());
      opened_.push_back(std::move(counter));
    }
  }
  events_.push_back(event);
}

HardwareCounters::Values HardwareCounters::Read() const {
  struct {
    uint64_t count;
    uint64_t values[QDT_PMU_EVENTS];
  } group = {};
  if (!opened_.empty() && read(opened_.front().get(), &group, sizeof(group)) < 0) group = {};
  Values values{};
  for (size_t i = 0; i < events_.size(); ++i) {
    if (events_[i].place != kNotCounted) {
      values[i] = group.values[events_[i].place];
    } else if (events_[i].cycles) {
      values[i] = ReadProcessorTimer();
    }
  }
  return values;
}

}  // namespace qdt::host
