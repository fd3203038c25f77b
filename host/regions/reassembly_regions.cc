#include "host/regions/reassembly_regions.h"

#include <time.h>

namespace qdt::host {

uint64_t TimerMilliseconds() {
#if defined(__aarch64__)
  uint64_t counter, frequency;
  asm volatile("isb\n\tmrs %0, cntvct_el0" : "=r"(counter));
  asm volatile("mrs %0, cntfrq_el0" : "=r"(frequency));
  return counter / frequency * 1000 + counter % frequency * 1000 / frequency;
#else
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
#endif
}

}  // namespace qdt::host
