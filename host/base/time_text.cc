#include "host/base/time_text.h"

#include <time.h>

#include <cstdio>

namespace qdt::host {

namespace {

bool Take(std::string_view *text, char wanted) {
  if (!text->starts_with(wanted)) return false;
  text->remove_prefix(1);
  return true;
}

// Takes a number of so many digits that is within its bounds.
bool TakeNumber(std::string_view *text, size_t digits, int least, int most, int *number) {
  if (text->size() < digits) return false;
  *number = 0;
  for (const char c : text->substr(0, digits)) {
    if (c < '0' || c > '9') return false;
    *number = *number * 10 + (c - '0');
  }
  text->remove_prefix(digits);
  return *number >= least && *number <= most;
}

// ".123" in nanoseconds; what is finer does not count.
bool TakeFraction(std::string_view *text, uint64_t *nanoseconds) {
  *nanoseconds = 0;
  if (!Take(text, '.')) return true;
  uint64_t unit = 100'000'000;
  int digit = 0;
  if (!TakeNumber(text, 1, 0, 9, &digit)) return false;
  do {
    *nanoseconds += static_cast<uint64_t>(digit) * unit;
    unit /= 10;
  } while (!text->empty() && (*text)[0] >= '0' && (*text)[0] <= '9' && TakeNumber(text, 1, 0, 9, &digit));
  return true;
}

// "Z" or "+01:00", in seconds that the zone is ahead.
bool TakeZone(std::string_view *text, int64_t *ahead) {
  *ahead = 0;
  if (Take(text, 'Z')) return true;
  const bool isAhead = Take(text, '+');
  int hours = 0, minutes = 0;
  if ((!isAhead && !Take(text, '-')) || !TakeNumber(text, 2, 0, 23, &hours) || !Take(text, ':') ||
      !TakeNumber(text, 2, 0, 59, &minutes))
    return false;
  *ahead = (isAhead ? 1 : -1) * (hours * 3600 + minutes * 60);
  return true;
}

int DaysOf(int year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  return kDays[month - 1] + (month == 2 && leap);
}

}  // namespace

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

std::optional<uint64_t> ReadTime(std::string_view text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  uint64_t fraction = 0;
  int64_t ahead = 0;
  // A minute may have a leap second.
  if (!TakeNumber(&text, 4, 0, 9999, &year) || !Take(&text, '-') || !TakeNumber(&text, 2, 1, 12, &month) ||
      !Take(&text, '-') || !TakeNumber(&text, 2, 1, DaysOf(year, month), &day) || !Take(&text, 'T') ||
      !TakeNumber(&text, 2, 0, 23, &hour) || !Take(&text, ':') || !TakeNumber(&text, 2, 0, 59, &minute) ||
      !Take(&text, ':') || !TakeNumber(&text, 2, 0, 60, &second) || !TakeFraction(&text, &fraction) ||
      !TakeZone(&text, &ahead) || !text.empty())
    return {};
  tm parts = {};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  const int64_t seconds = timegm(&parts) - ahead;
  if (seconds < 0) return 0;
  if (static_cast<uint64_t>(seconds) >= kEndOfTime / kNanoseconds) return kEndOfTime;
  return static_cast<uint64_t>(seconds) * kNanoseconds + fraction;
}

}  // namespace qdt::host
