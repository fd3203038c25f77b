#include "host/regions/statistics.h"

#include <atomic>

#include "platform/engine.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

constexpr uint32_t kVectorSize = QDT_STAT_COUNTERS * sizeof(uint64_t);

// Null without an arena, and when its engine keeps no statistics.
uint64_t *Counters(const Arena *arena, uint32_t *cores) {
  uint32_t size = 0;
  void *place = arena == nullptr ? nullptr : arena->FindRegion(kStatisticsRegion, &size);
  *cores = size / kVectorSize;
  return static_cast<uint64_t *>(place);
}

struct Range {
  uint32_t kind;
  uint32_t first;
  uint32_t count;
};

constexpr Range kRanges[] = {
    {QDT_STAT_KIND_NORMAL, QDT_STAT_NORMAL, QDT_STAT_NORMAL_COUNT},
    {QDT_STAT_KIND_ERROR, QDT_STAT_ERROR, QDT_STAT_ERROR_COUNT},
    {QDT_STAT_KIND_DISCARD, QDT_STAT_DISCARD, QDT_STAT_DISCARD_COUNT},
    {QDT_STAT_KIND_NORMAL, QDT_STAT_RECEIVED, QDT_STAT_RECEIVED_COUNT},
    {QDT_STAT_KIND_NORMAL, QDT_STAT_TRANSMITTED, QDT_STAT_TRANSMITTED_COUNT},
    {QDT_STAT_KIND_DISCARD, QDT_STAT_CAR, QDT_STAT_CAR_COUNT},
};

uint64_t Load(uint64_t *counter) {
  return std::atomic_ref<uint64_t>(*counter).load(std::memory_order_relaxed);
}

}  // namespace

RegionSpec StatisticsSpec(uint32_t cores) { return {kStatisticsRegion, cores * kVectorSize, false}; }

Statistics::Statistics(const Arena &arena) : counters_(Counters(&arena, &cores_)) {}

// One thread writes: what it read is still there when it stores, and readers see whole values.
void Statistics::Add(uint32_t core, uint32_t counter, uint64_t amount) {
  uint64_t *place = counters_ + size_t{core} * QDT_STAT_COUNTERS + counter;
  std::atomic_ref<uint64_t>(*place).store(*place + amount, std::memory_order_relaxed);
}

}  // namespace qdt::host

extern "C" {

void QdtSysStatAccumulate(uint32_t mask, uint64_t *vector) {
  using namespace qdt::host;
  uint32_t cores = 0;
  uint64_t *counters = Counters(Arena::Current(), &cores);
  if (vector == nullptr) return;
  for (uint32_t core = 0; core < cores; ++core, counters += QDT_STAT_COUNTERS) {
    for (const Range &range : kRanges) {
      if ((range.kind & mask) == 0) continue;
      for (uint32_t i = range.first; i < range.first + range.count; ++i) vector[i] += Load(&counters[i]);
    }
  }
}

int32_t QdtSysStatGetNumRuncs(void) {
  using namespace qdt::host;
  uint32_t cores = 0;
  Counters(Arena::Current(), &cores);
  return static_cast<int32_t>(cores);
}

uint64_t *QdtSysStatGetRuncStat(uint32_t core) {
  using namespace qdt::host;
  uint32_t cores = 0;
  uint64_t *counters = Counters(Arena::Current(), &cores);
  return core < cores ? counters + size_t{core} * QDT_STAT_COUNTERS : nullptr;
}

}  // extern "C"
