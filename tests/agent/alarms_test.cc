#include "host/agent/alarms.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/agent/engine_watch.h"

namespace qdt::host {
namespace {

using enum AlarmSeverity;
using enum AlarmType;
using std::chrono::milliseconds;
using std::chrono::seconds;

// 2026-11-22T10:00:00Z
constexpr AlarmList::Time kStart{seconds(1795341600)};

std::string Between(const std::string &text, const std::string &before, const std::string &after) {
  const size_t at = text.find(before);
  if (at == text.npos) return "";
  const size_t from = at + before.size();
  return text.substr(from, text.find(after, from) - from);
}

class AlarmsTest : public testing::Test {
 protected:
  // Of all notifications so far: "RESOURCE TYPE SEVERITY TEXT;".
  std::string Heard() {
    std::string all;
    for (const Event &event : events_) {
      EXPECT_EQ(event.module, "ietf-alarms");
      EXPECT_EQ(event.name, "alarm-notification");
      const std::string resource = Between(event.body, "<resource", "</resource>");
      all += resource.substr(resource.find('>') + 1) + ' ' + Between(event.body, ">tavrix-alarms:", "<") +
             ' ' + Between(event.body, "<perceived-severity>", "<") + ' ' +
             Between(event.body, "<alarm-text>", "<") + ';';
    }
    events_.clear();
    return all;
  }
  // All that a source tells, its pieces joined.
  std::string Told(const char *part, size_t room = 1) {
    std::string all, from;
    for (const StateSource &source : alarms_.Sources()) {
      if (source.part != part) continue;
      do {
        StateSink sink(room);
        from = source.walk(from, &sink);
        for (const StateRecord &record : sink.records()) all += record.body;
      } while (!from.empty());
    }
    return all;
  }

  std::vector<Event> events_;
  AlarmList alarms_{[this](Event event) { events_.push_back(std::move(event)); }};
};

constexpr char kDisk[] =
    "<resource>record</resource><alarm-type-id "
    "xmlns:tavrix-alarms=\"urn:tavrix:params:xml:ns:yang:tavrix-alarms\">tavrix-alarms:record-lost"
    "</alarm-type-id><alarm-type-qualifier/>";

TEST_F(AlarmsTest, RaisedAndClearedWithItsHistory) {
  EXPECT_EQ(Told("alarm-list"), "<number-of-alarms>0</number-of-alarms>");
  alarms_.Clear(kRecordLost, AlarmResource::Record(), "nothing was wrong", kStart);
  alarms_.Raise(kRecordLost, AlarmResource::Record(), kMajor, "the disk is full", kStart);
  alarms_.Raise(kRecordLost, AlarmResource::Record(), kMajor, "the disk is still full", kStart + seconds(1));
  alarms_.Clear(kRecordLost, AlarmResource::Record(), "written again", kStart + seconds(2));
  EXPECT_EQ(Heard(), "record record-lost major the disk is full;record record-lost cleared written again;");
  EXPECT_EQ(
      Told("alarm-list"),
      "<number-of-alarms>1</number-of-alarms><last-changed>2026-11-22T10:00:02.000Z</last-changed><alarm>" +
          std::string(kDisk) +
          "<time-created>2026-11-22T10:00:00.000Z</time-created><is-cleared>true</is-cleared>"
          "<last-raised>2026-11-22T10:00:00.000Z</last-raised>"
          "<last-changed>2026-11-22T10:00:02.000Z</last-changed><perceived-severity>major</"
          "perceived-severity>"
          "<alarm-text>written again</alarm-text>"
          "<status-change><time>2026-11-22T10:00:02.000Z</time><perceived-severity>cleared"
          "</perceived-severity><alarm-text>written again</alarm-text></status-change>"
          "<status-change><time>2026-11-22T10:00:00.000Z</time><perceived-severity>major"
          "</perceived-severity><alarm-text>the disk is full</alarm-text></status-change></alarm>");
}

TEST_F(AlarmsTest, AHistoryIsBoundedAndItsTimesDiffer) {
  for (int i = 0; i < 100; ++i) {
    alarms_.Raise(kRecordLost, AlarmResource::Record(), kMajor, "lost", kStart);
    alarms_.Clear(kRecordLost, AlarmResource::Record(), "found", kStart);
  }
  const std::string told = Told("alarm-list");
  std::vector<std::string> times;
  for (size_t at = 0; (at = told.find("<status-change><time>", at)) != told.npos; ++at)
    times.push_back(told.substr(at + 21, 24));
  ASSERT_EQ(times.size(), 32u);
  EXPECT_EQ(times.front(), "2026-11-22T10:00:00.199Z");
  for (size_t i = 1; i < times.size(); ++i) EXPECT_LT(times[i], times[i - 1]);
  EXPECT_EQ(events_.size(), 200u);
}

TEST_F(AlarmsTest, AreCountedBySeverity) {
  for (const char *name : {"a", "b", "c"})
    alarms_.Raise(kTableUsage, AlarmResource::Table(name), kMajor, "above", kStart);
  alarms_.Raise(kTableUsage, AlarmResource::Table("c"), kCritical, "full", kStart);
  alarms_.Clear(kTableUsage, AlarmResource::Table("a"), "below", kStart);
  const std::string summary = Told("summary");
  EXPECT_NE(summary.find("<severity>minor</severity><total>0</total>"), summary.npos);
  EXPECT_NE(summary.find(
                "<severity>major</severity><total>2</total><not-cleared>1</not-cleared><cleared>1</cleared>"),
            summary.npos);
  EXPECT_NE(
      summary.find(
          "<severity>critical</severity><total>1</total><not-cleared>1</not-cleared><cleared>0</cleared>"),
      summary.npos);
  // In pieces each alarm is told once.
  EXPECT_EQ(Told("alarm-list", 1), Told("alarm-list", 1 << 20));
}

class WatchTest : public AlarmsTest {
 protected:
  static EngineLook LookOf(uint32_t entries, uint64_t drops = 0, uint32_t memory = 10) {
    EngineLook look;
    look.tables = {{"fib", entries, 100}, {"global", 1, 1}};
    look.drops = drops;
    look.memoryPercent = memory;
    return look;
  }
  // A resource's prefixes left out.
  std::string Said() {
    std::string text = Heard();
    for (size_t at; (at = text.find("tavrix-engine-state:")) != text.npos;) text.erase(at, 20);
    return text;
  }

  EngineWatch watch_{{.raise = 80, .clear = 70}, &alarms_};
};

constexpr char kFib[] = "/engine/tables/table[name='fib'] table-usage ";

TEST_F(WatchTest, ATableRaisesAboveAndClearsBelow) {
  const auto after = [&](uint32_t entries) {
    watch_.Saw(LookOf(entries));
    return Said();
  };
  EXPECT_EQ(after(80), "");
  EXPECT_EQ(after(81), kFib + std::string("major the table fib is above 80 %;"));
  EXPECT_EQ(after(99), "");
  EXPECT_EQ(after(75), "");
  EXPECT_EQ(after(71), "");
  EXPECT_EQ(after(70), kFib + std::string("cleared the table fib is no longer above 70 %;"));
  EXPECT_EQ(after(75), "");
  EXPECT_EQ(after(100), kFib + std::string("critical the table fib is full;"));
  EXPECT_EQ(after(90), "");
  EXPECT_EQ(after(100), "");
  EXPECT_EQ(after(78), kFib + std::string("major the table fib is above 70 %;"));
  EXPECT_EQ(after(0), kFib + std::string("cleared the table fib is no longer above 70 %;"));
}

TEST_F(WatchTest, TheEngineGoesAndComes) {
  watch_.Saw(LookOf(100, 0, 90));
  Said();
  watch_.SawNone("no arena\x01");
  EXPECT_EQ(Said(), "/engine engine-gone critical no engine can be read: no arena?;" + std::string(kFib) +
                        "cleared the engine is gone;/engine memory-usage cleared the engine is gone;");
  watch_.SawNone("still none");
  EXPECT_EQ(Said(), "");
  watch_.Saw(LookOf(1));
  EXPECT_EQ(Said(), "/engine engine-gone cleared an engine can be read;");
}

TEST_F(WatchTest, DropsAreThoseSinceTheLookBefore) {
  watch_.Saw(LookOf(1, 500));
  EXPECT_EQ(Said(), "");
  watch_.Saw(LookOf(1, 501));
  EXPECT_EQ(Said(), "/engine packet-buffers major packets are dropped for which there is no buffer;");
  watch_.Saw(LookOf(1, 502));
  EXPECT_EQ(Said(), "");
  watch_.Saw(LookOf(1, 502));
  EXPECT_EQ(Said(), "/engine packet-buffers cleared no more packets are dropped for want of a buffer;");
}

TEST(EngineLook, ComesBackAsItWas) {
  EngineLook look;
  look.tables = {{"fib", 3, 8192}, {"arp", 0, 4294967295}};
  look.drops = 18446744073709551615u;
  const auto same = EngineLook::Parse(look.Text());
  ASSERT_TRUE(same.has_value());
  EXPECT_EQ(same->drops, look.drops);
  EXPECT_EQ(same->memoryPercent, std::nullopt);
  ASSERT_EQ(same->tables.size(), 2u);
  EXPECT_EQ(same->tables[1].table, "arp");
  EXPECT_EQ(same->tables[1].capacity, 4294967295u);
  for (const std::string &text :
       {std::string(), std::string("x"), look.Text() + "y", look.Text().substr(0, 30)})
    EXPECT_FALSE(EngineLook::Parse(text).has_value()) << text;
}

}  // namespace
}  // namespace qdt::host
