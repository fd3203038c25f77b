#ifndef HOST_BASE_TIME_TEXT_H_
#define HOST_BASE_TIME_TEXT_H_

#include <cstdint>
#include <string>

namespace qdt::host {

// Nanoseconds since 1970.
uint64_t NanosecondsNow();

// The processor's timer, by which the engine stamps packets that wait for their fragments.
uint64_t TimerMilliseconds();

// "2026-11-22T06:39:57.123Z", of nanoseconds since 1970.
std::string UtcText(uint64_t nanoseconds);

}  // namespace qdt::host

#endif  // HOST_BASE_TIME_TEXT_H_
