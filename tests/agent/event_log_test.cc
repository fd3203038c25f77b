#include "host/agent/event_log.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

using std::chrono::seconds;
using Time = std::chrono::system_clock::time_point;

Event At(int second, const std::string &body = {}) { return {Time(seconds(second)), "m", "e", body}; }

TEST(EventLog, KeepsTheLast) {
  EventLog log(3, 1 << 20);
  EXPECT_EQ(log.begin(), 1u);
  EXPECT_EQ(log.end(), 1u);
  for (int i = 1; i <= 5; ++i) log.Publish(At(i));
  EXPECT_EQ(log.begin(), 3u);
  EXPECT_EQ(log.end(), 6u);
  EXPECT_EQ(log.At(3).time, Time(seconds(3)));
  EXPECT_EQ(log.At(5).time, Time(seconds(5)));
}

TEST(EventLog, IsBoundedInBytes) {
  EventLog log(1000, 3000);
  for (int i = 1; i <= 10; ++i) log.Publish(At(i, std::string(1000, 'x')));
  EXPECT_EQ(log.end(), 11u);
  EXPECT_EQ(log.end() - log.begin(), 2u);
  log.Publish(At(11, std::string(100'000, 'x')));
  EXPECT_EQ(log.begin(), 11u) << "the last one stays, however large";
  EXPECT_EQ(log.At(11).body.size(), 100'000u);
}

TEST(EventLog, FindsWhereAReplayBegins) {
  EventLog log(10, 1 << 20);
  for (const int second : {10, 20, 20, 30}) log.Publish(At(second));
  EXPECT_EQ(log.Since(Time(seconds(0))), 1u);
  EXPECT_EQ(log.Since(Time(seconds(15))), 2u);
  EXPECT_EQ(log.Since(Time(seconds(20))), 2u);
  EXPECT_EQ(log.Since(Time(seconds(31))), 5u);
}

}  // namespace
}  // namespace qdt::host
