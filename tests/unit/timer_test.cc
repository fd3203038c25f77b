#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <cstdint>

#include "src/om/common/processor_timer.h"

// The processor's timer against the system's monotonic clock.
namespace qdt::test {
namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

uint64_t MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

TEST(TimerTest, FrequencyIsTheProcessors) {
#if defined(__aarch64__)
  uint64_t frequency;
  asm("mrs %0, cntfrq_el0" : "=r"(frequency));
  EXPECT_EQ(TimerFrequency(), frequency);
#else
  EXPECT_EQ(TimerFrequency(), 1'000'000'000u);
#endif
  EXPECT_EQ(TimerFrequency(), TimerFrequency());
}

TEST(TimerTest, CounterNeverGoesBack) {
  uint64_t last = TimerCounter();
  for (int i = 0; i < 100'000; ++i) {
    const uint64_t now = TimerCounter();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(TimerTest, CounterKeepsTimeWithItsFrequency) {
  const uint64_t clockBefore = MonotonicNow();
  const uint64_t begin = TimerCounter();
  const uint64_t clockBegin = MonotonicNow();
  const timespec pause = {0, 50'000'000};
  nanosleep(&pause, nullptr);
  const uint64_t clockEnd = MonotonicNow();
  const uint64_t end = TimerCounter();
  const uint64_t clockAfter = MonotonicNow();
  // What the counter saw lies between what the clock saw closely within and closely around it, but for a
  // thousandth and a tick.
  const double seconds = static_cast<double>(end - begin) / static_cast<double>(TimerFrequency());
  const double tick = 1.0 / static_cast<double>(TimerFrequency());
  EXPECT_GE(seconds * 1.001 + tick, static_cast<double>(clockEnd - clockBegin) / kNanosecondsPerSecond);
  EXPECT_LE(seconds * 0.999 - tick, static_cast<double>(clockAfter - clockBefore) / kNanosecondsPerSecond);
}

TEST(TimerTest, ReadingLeavesTheHandlersOfSignalsAlone) {
  struct sigaction before {};
  struct sigaction after {};
  sigaction(SIGILL, nullptr, &before);
  TimerCounter();
  sigaction(SIGILL, nullptr, &after);
  EXPECT_EQ(before.sa_handler, after.sa_handler);
  EXPECT_EQ(before.sa_flags, after.sa_flags);
}

}  // namespace
}  // namespace qdt::test
