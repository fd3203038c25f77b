#include "host/query/statistics.h"

#include <atomic>

#include "host/base/host_error.h"
#include "host/record/filter.h"
#include "host/regions/statistics.h"
#include "platform/engine.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

struct Range {
  uint32_t first;
  uint32_t count;
  std::string_view kind;
};

// As the listing of the statistics has them.
constexpr Range kRanges[] = {
    {QDT_STAT_NORMAL, QDT_STAT_NORMAL_COUNT, "normal"},
    {QDT_STAT_ERROR, QDT_STAT_ERROR_COUNT, "error"},
    {QDT_STAT_DISCARD, QDT_STAT_DISCARD_COUNT, "discard"},
    {QDT_STAT_RECEIVED, QDT_STAT_RECEIVED_COUNT, "normal"},
    {QDT_STAT_TRANSMITTED, QDT_STAT_TRANSMITTED_COUNT, "normal"},
    {QDT_STAT_CAR, QDT_STAT_CAR_COUNT, "discard"},
};

// The rate limits' counters are those of protocols.
std::string NameOf(uint32_t number) {
  const bool isCar = number >= QDT_STAT_CAR;
  const char *name = isCar ? QdtGetNameByProId(number - QDT_STAT_CAR) : QdtOmaSysStatDescGet()[number];
  if (name == nullptr) return {};
  return isCar ? std::string("CAR - ") + name : name;
}

uint64_t Load(const uint64_t *counter) {
  return std::atomic_ref<uint64_t>(*const_cast<uint64_t *>(counter)).load(std::memory_order_relaxed);
}

}  // namespace

CounterList ReadCounters(const RecordSource &source, std::string_view pattern) {
  uint32_t size = 0;
  const auto *vectors = static_cast<const uint64_t *>(source.arena().FindRegion(kStatisticsRegion, &size));
  CounterList list;
  list.cores = vectors == nullptr ? 0 : size / (QDT_STAT_COUNTERS * sizeof(uint64_t));
  if (list.cores == 0) throw HostError("this engine keeps no statistics");
  for (const Range &range : kRanges) {
    for (uint32_t number = range.first; number < range.first + range.count; ++number) {
      Counter counter{number, NameOf(number), range.kind, 0, {}};
      if (!pattern.empty() && !Matches(pattern, counter.name)) continue;
      for (uint32_t core = 0; core < list.cores; ++core) {
        counter.cores.push_back(Load(vectors + size_t{core} * QDT_STAT_COUNTERS + number));
        counter.sum += counter.cores.back();
      }
      list.counters.push_back(std::move(counter));
    }
  }
  return list;
}

}  // namespace qdt::host
