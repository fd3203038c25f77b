#include "host/base/time_text.h"

#include <gtest/gtest.h>

namespace qdt::host {
namespace {

TEST(TimeTextTest, Utc) {
  EXPECT_EQ(UtcText(0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(UtcText(1795329597123456789), "2026-11-22T06:39:57.123Z");
  EXPECT_EQ(UtcText(951827696999999999), "2000-02-29T12:34:56.999Z");
  EXPECT_EQ(UtcText(UINT64_MAX), "2554-07-21T23:34:33.709Z");
}

}  // namespace
}  // namespace qdt::host
