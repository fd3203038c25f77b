#ifndef BENCH_PROCESSORS_H_
#define BENCH_PROCESSORS_H_

#include <sched.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

// A processor for the writer and one for its readers, and how far they are from each other. What a line of
// memory takes from one to the other decides what it costs to be read, and a host moves its guests'
// processors about.
namespace qdt::bench {

constexpr int kWritersProcessor = 0;
constexpr int kReadersProcessor = 1;

inline double Now(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

inline void StayOn(int processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) {
    std::fprintf(stderr, "it takes two processors, %d and %d\n", kWritersProcessor, kReadersProcessor);
    std::exit(2);
  }
}

// Nanoseconds that a line of memory takes to the readers' processor and back: the least of some turns, as
// others interrupt them.
inline double RoundTrip() {
  constexpr int kTurns = 20;
  constexpr int kTrips = 1000;
  static std::atomic<int> line;
  std::thread other([] {
    StayOn(kReadersProcessor);
    for (int i = 0; i < kTurns * kTrips; ++i) {
      while (line.load(std::memory_order_acquire) == 0) {
      }
      line.store(0, std::memory_order_release);
    }
  });
  double least = 0;
  for (int turn = 0; turn < kTurns; ++turn) {
    const double begin = Now(CLOCK_MONOTONIC);
    for (int i = 0; i < kTrips; ++i) {
      line.store(1, std::memory_order_release);
      while (line.load(std::memory_order_acquire) != 0) {
      }
    }
    const double trip = (Now(CLOCK_MONOTONIC) - begin) / kTrips;
    least = turn == 0 ? trip : std::min(least, trip);
  }
  other.join();
  return least;
}

// A round trip between two cores of one cache takes less than this, one between cores of different caches
// more.
constexpr double kNearNs = 200;
inline bool IsNear(double roundTrip) { return roundTrip < kNearNs; }

}  // namespace qdt::bench

#endif  // BENCH_PROCESSORS_H_
