#include "host/base/time_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace qdt::host {
namespace {

TEST(TimeTextTest, Utc) {
  EXPECT_EQ(UtcText(0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(UtcText(1795329597123456789), "2026-11-22T06:39:57.123Z");
  EXPECT_EQ(UtcText(951827696999999999), "2000-02-29T12:34:56.999Z");
  EXPECT_EQ(UtcText(UINT64_MAX), "2554-07-21T23:34:33.709Z");
}

TEST(TimeTextTest, IsReadWithAnyZone) {
  EXPECT_EQ(ReadTime("1970-01-01T00:00:00Z"), 0u);
  EXPECT_EQ(ReadTime("2026-11-22T06:39:57.123Z"), 1795329597123000000u);
  EXPECT_EQ(ReadTime("2026-11-22T06:39:57.1234567899999Z"), 1795329597123456789u);
  EXPECT_EQ(ReadTime("2026-11-22T07:39:57+01:00"), 1795329597000000000u);
  EXPECT_EQ(ReadTime("2026-11-21T22:09:57-08:30"), 1795329597000000000u);
  EXPECT_EQ(ReadTime("2000-02-29T12:34:56.999999999Z"), 951827696999999999u);
  EXPECT_EQ(ReadTime("2016-12-31T23:59:60Z"), 1483228800000000000u);
}

TEST(TimeTextTest, FarTimesAreTheFirstAndTheLast) {
  for (const char *text : {"1969-12-31T23:59:59.5Z", "1970-01-01T00:00:00+00:01", "0000-01-01T00:00:00Z"})
    EXPECT_EQ(ReadTime(text), 0u) << text;
  EXPECT_EQ(ReadTime("2262-04-11T23:47:15.9Z"), 9223372035900000000u);
  for (const char *text : {"2262-04-11T23:47:16Z", "2400-01-01T00:00:00Z", "9999-12-31T23:59:59Z"})
    EXPECT_EQ(ReadTime(text), 9223372036854775807u) << text;
}

TEST(TimeTextTest, WhatIsNoTime) {
  const std::string time = "2026-11-22T06:39:57.1+01:00";
  for (size_t size = 0; size < time.size(); ++size)
    EXPECT_EQ(ReadTime(std::string(time, 0, size)), std::nullopt) << size;
  for (const char *text :
       {"2026-11-22T06:39:57Zx", "2026-11-22 06:39:57Z", "2026-13-22T06:39:57Z", "2026-02-29T06:39:57Z",
        "2026-11-22T24:00:00Z", "2026-11-22T06:60:57Z", "2026-11-22T06:39:61Z", "2026-11-22T06:39:57.Z",
        "2026-11-22T06:39:57+24:00", "yesterday"})
    EXPECT_EQ(ReadTime(text), std::nullopt) << text;
}

}  // namespace
}  // namespace qdt::host
