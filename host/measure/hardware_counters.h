#ifndef HOST_MEASURE_HARDWARE_COUNTERS_H_
#define HOST_MEASURE_HARDWARE_COUNTERS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/base/fd.h"
#include "qdt/pmu.h"

namespace qdt::host {

// A count that grows with time in the steps that the processor offers to programs: its time-stamp counter or
// generic timer, else nanoseconds.
uint64_t ReadProcessorTimer();

// The processor's event counters for the calling thread, in user mode.
class HardwareCounters {
 public:
  using Values = std::array<uint64_t, QDT_PMU_EVENTS>;

  // Counts the events of a table (qdt/pmu.h) from now on. Cycles that the kernel or the processor does not
  // let this process count are the processor timer's; other events stay 0 then.
  explicit HardwareCounters(const PmuEventSelect *table);

  size_t events() const { return events_.size(); }
  size_t counted() const { return opened_.size(); }  // events among them that the processor counts

  // What each event of the table stands at.
  Values Read() const;

 private:
  static constexpr int kNotCounted = -1;

  struct Event {
    bool cycles;
    int place;  // among those that are counted, or kNotCounted
  };

  void Open(const PmuEventSelect &row);

  std::vector<Event> events_;
  std::vector<UniqueFd> opened_;  // the first leads the group, so that all are read at one moment
};

}  // namespace qdt::host

#endif  // HOST_MEASURE_HARDWARE_COUNTERS_H_
