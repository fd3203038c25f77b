#include "host/base/time_text.h"

#include <time.h>

#include <cstdio>

namespace qdt::host {

constexpr uint64_t kNanoseconds = 1000000000;  // of a second

uint64_t NanosecondsNow() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * kNanoseconds + static_cast<uint64_t>(now.tv_nsec);
}

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

std::string UtcText(uint64_t nanoseconds) {
  const auto seconds = static_cast<time_t>(nanoseconds / kNanoseconds);
  tm parts = {};
  gmtime_r(&seconds, &parts);
  char text[40];
  const size_t length = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof(text) - length, ".%03uZ",
                static_cast<unsigned>(nanoseconds % kNanoseconds / 1000000));
  return text;
}

}  // namespace qdt::host
