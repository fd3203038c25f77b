// What nqecli watch writes, answer by answer.

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "host/regions/statistics.h"
#include "qdt/stats.h"
#include "tests/host/temp_dir.h"
#include "tools/nqecli/watch/watch_rates.h"
#include "tools/nqecli/watch/watch_view.h"

namespace qdt::nqecli {
namespace {

using host::Layout;
using host::Rate;

constexpr uint64_t kTime = 1795329597123456789;  // 2026-11-22 06:39:57.123

class WatchTest : public testing::Test {
 protected:
  // What one more answer writes.
  std::string Frame(WatchView *view, const std::string &answer, const std::vector<Rate> &rates = {}) {
    const auto text = std::make_shared<AnswerText>();
    EXPECT_EQ(write(text->fd(), answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    ChildAnswer child;
    child.out = text;
    WatchFrame frame;
    frame.time = kTime + 2000000000 * count_;
    frame.seconds = count_ == 0 ? 0 : 2;
    frame.command = &command_;
    frame.answer = &child;
    ++count_;
    view->Begin(frame);
    for (const Rate &rate : rates) view->Take(rate);
    view->End();
    return out_.Take();
  }

  static Rate OfInterface(const uint32_t *index, std::string_view field, double perSecond) {
    Rate rate;
    rate.table = Layout::BuiltIn().FindTable("fwdif");
    rate.key = reinterpret_cast<const uint8_t *>(index);
    rate.field = field;
    rate.perSecond = perSecond;
    return rate;
  }

  static Rate OfRegion(std::string_view field, double perSecond) {
    Rate rate;
    rate.region = Layout::BuiltIn().FindRegion("PKT_TRACE_CTX_PTR");
    rate.field = field;
    rate.perSecond = perSecond;
    return rate;
  }

  static Rate OfStatistic(uint32_t number, std::string_view field, double perSecond) {
    Rate rate;
    rate.number = number;
    rate.field = field;
    rate.perSecond = perSecond;
    return rate;
  }

  host::StringOut out_;
  std::vector<std::string> command_ = {"list", "fwdif", "if_index<9"};
  uint64_t count_ = 0;
  const uint32_t five_ = 5;
};

TEST_F(WatchTest, LinesThatChange) {
  const auto view = MakeWatchLines(&out_);
  EXPECT_EQ(Frame(view.get(), "name value\na 1\nb 2\nb 2\nc 3\n"), "name value\na 1\nb 2\nb 2\nc 3\n");
  EXPECT_EQ(Frame(view.get(), "name value\na 1\nb 2\nb 2\nc 3\n"), "");
  EXPECT_EQ(Frame(view.get(), "name value\na 1\nb 2\nd 4\nc 33\n"),
            "2026-11-22T06:40:01.123Z - b 2\n"
            "2026-11-22T06:40:01.123Z - c 3\n"
            "2026-11-22T06:40:01.123Z + d 4\n"
            "2026-11-22T06:40:01.123Z + c 33\n");
  // A column that has grown, and another order, change no line.
  EXPECT_EQ(Frame(view.get(), "name  value\nc     33\na      1\nb      2\nd      4\n"), "");
  EXPECT_EQ(Frame(view.get(), "",
                  {OfInterface(&five_, "counters[0].in_bytes", 1234.56), OfRegion("from_driver", 0.04),
                   OfStatistic(187, "arp miss", 3)}),
            "2026-11-22T06:40:05.123Z - name  value\n"
            "2026-11-22T06:40:05.123Z - c     33\n"
            "2026-11-22T06:40:05.123Z - a      1\n"
            "2026-11-22T06:40:05.123Z - b      2\n"
            "2026-11-22T06:40:05.123Z - d      4\n"
            "2026-11-22T06:40:05.123Z fwdif if_index=5 counters[0].in_bytes 1234.6/s\n"
            "2026-11-22T06:40:05.123Z PKT_TRACE_CTX_PTR from_driver 0.0/s\n"
            "2026-11-22T06:40:05.123Z statistics number=187 arp miss 3.0/s\n");
}

TEST_F(WatchTest, AnAnswerWithoutItsNewline) {
  const auto view = MakeWatchLines(&out_);
  EXPECT_EQ(Frame(view.get(), "a"), "a\n");
  EXPECT_EQ(Frame(view.get(), "b"), "2026-11-22T06:39:59.123Z - a\n2026-11-22T06:39:59.123Z + b\n");
}

TEST_F(WatchTest, Documents) {
  const auto view = MakeWatchJson(&out_);
  EXPECT_EQ(Frame(view.get(), "{\"records\":[{\"big\":18446744073709551615,\"x\":0.1}],\"count\":1}\n"),
            "{\"time\":\"2026-11-22T06:39:57.123Z\",\"seconds\":0.0,\"command\":[\"list\",\"fwdif\","
            "\"if_index<9\"],\"answer\":{\"records\":[{\"big\":18446744073709551615,\"x\":0.1}],\"count\":1},"
            "\"rates\":[]}\n");
  EXPECT_EQ(
      Frame(view.get(), "a \"b\"\n\x1b[7m\xff\n",
            {OfInterface(&five_, "counters[0].in_bytes", 1234.5678), OfRegion("from_driver", 0.5),
             OfStatistic(187, "arp miss", 3), OfStatistic(193, "", 0.25)}),
      "{\"time\":\"2026-11-22T06:39:59.123Z\",\"seconds\":2.0,\"command\":[\"list\",\"fwdif\",\"if_index<9\"]"
      ","
      "\"answer\":\"a \\\"b\\\"\\n\\\\x1b[7m\\\\xff\",\"rates\":["
      "{\"table\":\"fwdif\",\"id\":29,\"key\":{\"if_index\":5},\"field\":\"counters[0].in_bytes\","
      "\"per_second\":1234.567},"
      "{\"region\":\"PKT_TRACE_CTX_PTR\",\"field\":\"from_driver\",\"per_second\":0.5},"
      "{\"statistic\":187,\"field\":\"arp miss\",\"per_second\":3.0},"
      "{\"statistic\":193,\"field\":null,\"per_second\":0.25}]}\n");
  // Half a document is no document, two are none either.
  EXPECT_NE(Frame(view.get(), "{\"records\":[\n").find("\"answer\":\"{\\\"records\\\":[\","),
            std::string::npos);
  EXPECT_NE(Frame(view.get(), "{}\n{}\n").find("\"answer\":\"{}\\n{}\","), std::string::npos);
  EXPECT_NE(Frame(view.get(), "\n").find("\"answer\":null,"), std::string::npos);
}

// Pieces of 64 KiB are read: nothing is lost between two of them.
TEST_F(WatchTest, LongAnswersAndLongLines) {
  std::string lines;
  for (int i = 0; i < 30000; ++i) lines += "line " + std::to_string(i) + "\n";
  lines += std::string(200000, 'x') + "\n";
  auto view = MakeWatchLines(&out_);
  EXPECT_EQ(Frame(view.get(), lines), lines);
  EXPECT_EQ(Frame(view.get(), lines), "");
  EXPECT_EQ(Frame(view.get(), lines + "line 30000\n"), "2026-11-22T06:40:01.123Z + line 30000\n");
  view = MakeWatchJson(&out_);
  std::string document = "[0";
  for (int i = 1; i < 60000; ++i) document += ",\n" + std::to_string(i);
  document += "]";
  std::string oneLine = document;
  std::erase(oneLine, '\n');
  EXPECT_NE(Frame(view.get(), document + "\n").find("\"answer\":" + oneLine + ",\"rates\":[]}\n"),
            std::string::npos);
  EXPECT_NE(Frame(view.get(), document + ",").find("\"answer\":\"[0,\\n1,"), std::string::npos);
}

constexpr char kStart[] = "\x1b[2J\x1b[H";
constexpr char kAgain[] = "\x1b[H";
constexpr char kEnd[] = "\x1b[K\r\n";
constexpr char kBelow[] = "\x1b[J";

std::string New(const std::string &line) { return "\x1b[7m" + line + "\x1b[0m" + kEnd; }

TEST_F(WatchTest, OnATerminalInPlace) {
  const auto view = MakeWatchScreen(&out_, 2, [] { return ScreenSize{8, 60}; });
  EXPECT_EQ(Frame(view.get(), "a 1\nb 2\n"),
            std::string(kStart) + "every 2 s: list fwdif if_index<9  2026-11-22T06:39:57.123Z" + kEnd +
                "a 1" + kEnd + "b 2" + kEnd + kBelow);
  EXPECT_EQ(Frame(view.get(), "a 1\nc 2\n", {OfInterface(&five_, "mtu", 2)}),
            std::string(kAgain) + "every 2 s: list fwdif if_index<9  2026-11-22T06:39:59.123Z" + kEnd +
                "a 1" + kEnd + New("c 2") + kEnd + "fwdif if_index=5 mtu 2.0/s" + kEnd + kBelow);
}

TEST_F(WatchTest, AsMuchAsTheTerminalHasRoomFor) {
  command_ = {"list"};
  const auto view = MakeWatchScreen(&out_, 0.5, [] { return ScreenSize{8, 12}; });
  // Six rows between the heading and the last one; two of them for rates.
  EXPECT_EQ(Frame(view.get(), "1\n2\n3\n4\n5\n6\n7\n"), std::string(kStart) + "every 0.5 s:" + kEnd + "1" +
                                                            kEnd + "2" + kEnd + "3" + kEnd + "4" + kEnd +
                                                            "5" + kEnd + "... 2 more l" + kEnd + kBelow);
  EXPECT_EQ(Frame(view.get(), "1\n2\n3\n4\n5\n6\n7\n",
                  {OfInterface(&five_, "mtu", 2), OfInterface(&five_, "mtu", 3)}),
            std::string(kAgain) + "every 0.5 s:" + kEnd + "1" + kEnd + "2" + kEnd + "3" + kEnd +
                "... 4 more l" + kEnd + kEnd + "... 2 more l" + kEnd + kBelow);
  // Characters count, not bytes; what would steer the terminal is shown.
  EXPECT_EQ(Frame(view.get(), "\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\x1b\t\x9b[31m\n\xc2\x9b[31m\n"),
            std::string(kAgain) + "every 0.5 s:" + kEnd +
                New("\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\\x1b \\x") + New("\\xc2\\x9b[31m") + kBelow);
}

// Each of the statistics by its name, the sum of the cores.
TEST_F(WatchTest, RatesOfTheStatistics) {
  const host::TempDir dir;
  host::ArenaPlan plan = Layout::BuiltIn().Plan("/nowhere");
  plan.regions.push_back(host::StatisticsSpec(2));
  const auto engine = host::Arena::Create(dir.File("a"), plan);
  engine->Publish();
  host::Statistics statistics(*engine);
  statistics.Add(0, QDT_STAT_CAR + 2, 100);
  const auto source = host::RecordSource::OfEngine(dir.File("a"), Layout::BuiltIn());
  const auto lines = [](host::CounterRates *rates) {
    std::vector<std::string> all;
    rates->Read(2, [&](const Rate &rate) {
      all.push_back(std::to_string(rate.number) + ' ' + std::string(rate.field) + ' ' +
                    std::to_string(rate.perSecond));
    });
    return all;
  };
  const auto ratesOf = [&](const std::vector<std::string> &command) {
    Place place;
    place.arena = dir.File("a");
    return RatesOf(place, *source, command);
  };
  const auto rates = ratesOf({"statistics"});
  const auto some = ratesOf({"statistics", "--csv", "*arp-*ss"});
  ASSERT_NE(rates, nullptr);
  ASSERT_NE(some, nullptr);
  EXPECT_TRUE(lines(rates.get()).empty());
  EXPECT_TRUE(lines(some.get()).empty());
  statistics.Add(0, QDT_STAT_CAR + 2, 3);
  statistics.Add(1, QDT_STAT_CAR + 2, 4);
  statistics.Add(1, QDT_STAT_CAR + 200, 2);
  EXPECT_EQ(lines(rates.get()), (std::vector<std::string>{"579 CAR - arp-miss 3.500000", "777  1.000000"}));
  EXPECT_EQ(lines(some.get()), (std::vector<std::string>{"579 CAR - arp-miss 3.500000"}));
  EXPECT_TRUE(lines(rates.get()).empty());
  // Of other commands there are none.
  EXPECT_EQ(ratesOf({"usage"}), nullptr);
  EXPECT_EQ(ratesOf({"list", "nhp"}), nullptr);
  EXPECT_NE(ratesOf({"list", "--limit", "3", "fwdif"}), nullptr);
  EXPECT_NE(ratesOf({"regions", "PKT_TRACE_CTX_PTR"}), nullptr);
  EXPECT_NE(ratesOf({"regions", "PKT_TRACE_CTX_PTR", "--fields", "to_driver,from_driver"}), nullptr);
  EXPECT_EQ(ratesOf({"regions", "PKT_TRACE_CTX_PTR", "--fields", "station_count"}), nullptr);
  EXPECT_NE(ratesOf({"show", "station_trace"}), nullptr);
  EXPECT_EQ(ratesOf({"show", "tbm_memory_stat"}), nullptr);
  EXPECT_EQ(ratesOf({"show", "nonsense"}), nullptr);
  EXPECT_EQ(ratesOf({"list", "nonsense"}), nullptr);
  engine->Retire();
}

}  // namespace
}  // namespace qdt::nqecli
