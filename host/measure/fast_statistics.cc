#include "host/measure/fast_statistics.h"

#include <syslog.h>

#include "host/regions/shared_counter.h"

namespace qdt::host {

FastStatistics::FastStatistics(FastStatBlock *block, uint32_t cores) : block_(block) {
  if (block_ != nullptr) block_->coreCount = static_cast<int32_t>(cores);
}

uint32_t FastStatistics::Mode() const { return std::atomic_ref(block_->mode).load(); }

// Programs the counters for a mode that was not in force before.
void FastStatistics::Follow(uint32_t mode) {
  mode_ = mode;
  counters_.reset();
  if (mode == 0 || mode > QDT_PMU_MODES || evt_define[mode] == nullptr) return;
  counters_.emplace(evt_define[mode]);
  if (told_ || counters_->counted() == counters_->events()) return;
  told_ = true;
  syslog(
      LOG_INFO,
      "fast statistics: of the %zu events of mode %u this machine counts %zu; where it does not, cycles are "
      "the processor timer's and other events stay 0",
      counters_->events(), mode, counters_->counted());
}

// Whoever stops a mode waits for the busy flags. So the flag is set first and the mode looked at again.
void FastStatistics::Begin(uint32_t core) {
  if (block_ == nullptr || core >= FastStatBlock::kCores) return;
  const uint32_t mode = Mode();
  if (mode != mode_) Follow(mode);
  if (!counters_) return;
  core_ = &block_->cores[core];
  std::atomic_ref(core_->busy).store(1);
  if (Mode() != mode_) End();
}

void FastStatistics::Enter(uint8_t point) {
  if (core_ == nullptr) return;
  Close();
  point_ = point < FastStatBlock::kPoints ? &core_->points[point] : nullptr;
}

void FastStatistics::End() {
  if (core_ == nullptr) return;
  Close();
  std::atomic_ref(core_->busy).store(0);
  core_ = nullptr;
}

// Books what has been counted since the last point there, unless the mode has been stopped meanwhile.
void FastStatistics::Close() {
  const HardwareCounters::Values now = counters_->Read();
  if (point_ != nullptr && Mode() == mode_) {
    AddTo(&point_->hits, 1);
    AddTo(&point_->packets, 1);
    for (size_t i = 0; i < counters_->events(); ++i) AddTo(&point_->events[i].count, now[i] - since_[i]);
  }
  since_ = now;
  point_ = nullptr;
}

}  // namespace qdt::host
