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

}  // namespace qdt

#endif  // SRC_OM_COMMON_PROCESSOR_TIMER_H_
