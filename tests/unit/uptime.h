#ifndef TESTS_UNIT_UPTIME_H_
#define TESTS_UNIT_UPTIME_H_

#include <cstdint>
#include <ctime>

namespace qdt::test {

// Seconds of the clock that the engine stamps its entries with.
inline uint32_t Uptime() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

// Runs `act(now)` again until the clock's second did not change meanwhile: left times are exact then.
template <typename Act>
void WithinASecond(Act act) {
  for (uint32_t now;;) {
    now = Uptime();
    act(now);
    if (Uptime() == now) return;
  }
}

}  // namespace qdt::test

#endif  // TESTS_UNIT_UPTIME_H_
