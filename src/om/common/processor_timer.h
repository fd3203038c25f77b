#ifndef SRC_OM_COMMON_PROCESSOR_TIMER_H_
#define SRC_OM_COMMON_PROCESSOR_TIMER_H_

#include <cstdint>

namespace qdt {

// The processor's timer, in which the engine measures time: the generic timer on AArch64, nanoseconds of the
// monotonic clock elsewhere.

// Ticks up to now.
uint64_t TimerCounter();

// Ticks a second. Read from the processor by the first call.
uint64_t TimerFrequency();

// Ticks as whole milliseconds; 0 when the frequency is 0. In two steps, since their product with 1000 need
// not fit.
constexpr uint64_t TicksToMilliseconds(uint64_t ticks, uint64_t frequency) {
  return frequency == 0 ? 0 : ticks / frequency * 1000 + ticks % frequency * 1000 / frequency;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_PROCESSOR_TIMER_H_
