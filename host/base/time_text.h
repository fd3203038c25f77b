#ifndef HOST_BASE_TIME_TEXT_H_
#define HOST_BASE_TIME_TEXT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qdt::host {

// Nanoseconds since 1970.
uint64_t NanosecondsNow();

// The processor's timer, by which the engine stamps packets that wait for their fragments.
uint64_t TimerMilliseconds();

// "2026-11-22T06:39:57.123Z", of nanoseconds since 1970.
std::string UtcText(uint64_t nanoseconds);

// The nanoseconds since 1970 of a time of RFC 3339, with any zone: "2026-11-22T07:39:57.123+01:00". Nothing
// for what is none; 0 for times before 1970, and kEndOfTime for those behind it.
constexpr uint64_t kEndOfTime = INT64_MAX;  // in 2262
std::optional<uint64_t> ReadTime(std::string_view text);

}  // namespace qdt::host

#endif  // HOST_BASE_TIME_TEXT_H_
