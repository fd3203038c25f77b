#ifndef SRC_OM_COMMON_CLOCK_H_
#define SRC_OM_COMMON_CLOCK_H_

#include <cstdint>
#include <ctime>

namespace qdt {

// Seconds of the clock that the engine stamps its entries with.
inline uint32_t MonotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

// What is left of the `lifetime` of an entry that was last refreshed at `timeStamp`; 0 when it is over. A
// stamp in the future counts as now.
inline uint32_t SecondsLeft(uint32_t lifetime, uint32_t timeStamp) {
  const uint32_t now = MonotonicSeconds();
  const uint32_t elapsed = now > timeStamp ? now - timeStamp : 0;
  return elapsed < lifetime ? lifetime - elapsed : 0;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_CLOCK_H_
