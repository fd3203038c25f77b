#include <algorithm>
#include <string>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"

// System statistics: which counters a kind selects, their rows, the baseline, and the cut of a full answer.
namespace qdt::test {
namespace {

class SysStatTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    Reset("all");  // the baseline outlives a test; the engine's totals are 0 here
    platform.statisticsMasks.clear();
  }

  void Reset(const char *type) {
    const size_t answers = platform.answers.size();
    SetType(type);
    EXPECT_EQ(QdtOmaSysStatResetProc(&request_), 0);
    EXPECT_EQ(platform.answers.size(), answers);
    EXPECT_TRUE(platform.allocations.empty());
  }

  std::string Query(const char *type) {
    SetType(type);
    EXPECT_EQ(QdtOmaSysStatQueryProc(&request_), 0);
    if (platform.answers.empty()) return "nothing was sent";
    const std::string answer = platform.answers.back();
    platform.answers.clear();
    platform.allocations.clear();
    return answer;
  }

  uint64_t &Counter(size_t index) { return platform.statistics.at(index); }

  // A row as it stands on the screen: the label ends in column 63.
  static std::string Row(const std::string &label, const std::string &value) {
    const std::string padding(label.size() < 60 ? 60 - label.size() : 0, ' ');
    return "\n   " + padding + label + ": " + value;
  }

  void SetType(const char *type) {
    request_.texts.clear();
    if (type != nullptr) request_.texts["type"] = type;
  }

  omcc_request request_;
};

constexpr char kNormal[] = "\n Normal statistic information:";
constexpr char kDiscard[] = "\n Discard statistic information:";
constexpr char kError[] = "\n Error statistic information:";

TEST_F(SysStatTest, WholeAnswer) {
  platform.protocols[5] = "ftp";
  // The ends of every range, a counter without a name in two of them, and two rate limits.
  for (const size_t i : {0, 99, 100, 174, 186, 187, 308, 460, 461, 540, 541, 576, 577, 582, 830})
    Counter(i) = i + 1;
  Counter(135) = UINT64_MAX;
  EXPECT_EQ(Query("all"),
            "\n Normal statistic information:"
            "\n                                                   mac flapping: 1"
            "\n                                 roam ap2sta mactbl search fail: 100"
            "\n                                                       maclearn: 462"
            "\n                                ERPS packets received from lswm: 541"
            "\n                                 Total IPV4 packets transmitted: 542"
            "\n                                 Igmp-snooping pkt send to txif: 577"
            "\n Discard statistic information:"
            "\n                                                    not defined: 188"
            "\n                                                            121: 309"
            "\n                                                host if isolate: 461"
            "\n                                                              0: 578"
            "\n                                                      CAR - ftp: 583"
            "\n                                                            253: 831"
            "\n Error statistic information:"
            "\n                                            usf https sess null: 101"
            "\n                                           iptables snode null : 18446744073709551615"
            "\n                                                             74: 175"
            "\n                                      Capture send to nctl fail: 187");
  EXPECT_EQ(platform.statisticsMasks, std::vector<uint32_t>{7});
}

TEST_F(SysStatTest, KindsAndTheirMasks) {
  Counter(3) = 1;
  Counter(101) = 2;
  Counter(188) = 3;
  const std::string normal = kNormal + Row("mac learn msg punt", "1");
  const std::string discard = kDiscard + Row("arp miss", "3");
  const std::string error = kError + Row("usf https sess dir invalid", "2");
  EXPECT_EQ(Query("normal"), normal);
  EXPECT_EQ(Query("discard"), discard);
  EXPECT_EQ(Query("error"), error);
  EXPECT_EQ(Query("all"), normal + discard + error);
  EXPECT_EQ(platform.statisticsMasks, (std::vector<uint32_t>{1, 2, 4, 7}));
}

TEST_F(SysStatTest, OtherTypesSelectNothing) {
  Counter(3) = Counter(101) = Counter(188) = 1;
  for (const char *type : {"All", "ALL", "", "all ", "normals", "err"}) EXPECT_EQ(Query(type), "") << type;
  EXPECT_EQ(Query(nullptr), "");
  request_.scribbles = true;
  EXPECT_EQ(Query(nullptr), "");
  EXPECT_EQ(platform.statisticsMasks, std::vector<uint32_t>(8, 0));
}

TEST_F(SysStatTest, NoRowsForCountersAtZero) {
  EXPECT_EQ(Query("all"), std::string(kNormal) + kDiscard + kError);
}

TEST_F(SysStatTest, EveryCounterHasItsRowInOrder) {
  for (size_t i = 0; i < 831; ++i) Counter(i) = 1;
  const std::string normal = Query("normal");
  const auto rows = [](const std::string &text) { return std::count(text.begin(), text.end(), '\n') - 1; };
  EXPECT_EQ(rows(normal), 216);
  EXPECT_EQ(rows(Query("error")), 87);
  EXPECT_LT(normal.find("roam ap2sta mactbl search fail: 1"), normal.find(" maclearn: 1"));
  EXPECT_LT(normal.find("ERPS packets received from lswm"), normal.find("Total IPV4 packets transmitted"));
}

TEST_F(SysStatTest, RateLimitRowsEndInTheSameColumn) {
  platform.protocols[1] = std::string(53, 'p');
  platform.protocols[2] = std::string(54, 'q');
  platform.protocols[3] = std::string(55, 'r');
  platform.protocols[4] = std::string(200, 's');
  platform.protocols[6] = "";
  for (const size_t id : {1, 2, 3, 4, 6}) Counter(577 + id) = id;
  EXPECT_EQ(Query("discard"), std::string(kDiscard) +  //
                                  "\n    CAR - " + std::string(53, 'p') +
                                  ": 1"  // one blank of padding
                                  "\n   CAR - " +
                                  std::string(54, 'q') +
                                  ": 2"  //
                                  "\n   CAR - " +
                                  std::string(55, 'r') +
                                  ": 3"  // beyond the column
                                  "\n   CAR - " +
                                  std::string(200, 's') +
                                  ": 4"  //
                                  "\n   " +
                                  std::string(54, ' ') + "CAR - : 6");  // padded as a field
}

TEST_F(SysStatTest, ResetCountsFromNow) {
  Counter(0) = 10;
  Counter(100) = 20;
  Counter(187) = 30;
  Counter(577) = 40;
  Counter(461) = 50;
  Counter(541) = 60;
  Reset("all");
  EXPECT_EQ(Query("all"), std::string(kNormal) + kDiscard + kError);
  for (const size_t i : {0, 100, 187, 577, 461, 541}) ++Counter(i);
  EXPECT_EQ(Query("all"), kNormal + Row("mac flapping", "1") + Row("maclearn", "1") +
                              Row("Total IPV4 packets transmitted", "1") + kDiscard +
                              Row("not defined", "1") + Row("0", "1") + kError +
                              Row("usf https sess null", "1"));
  EXPECT_EQ(platform.statisticsMasks, (std::vector<uint32_t>{7, 7, 7}));
}

TEST_F(SysStatTest, ResetOfOneKindLeavesTheOthers) {
  for (const size_t i : {0, 100, 187, 577, 461, 541}) Counter(i) = 5;
  const std::string normal =
      kNormal + Row("mac flapping", "5") + Row("maclearn", "5") + Row("Total IPV4 packets transmitted", "5");
  const std::string discard = kDiscard + Row("not defined", "5") + Row("0", "5");
  const std::string error = kError + Row("usf https sess null", "5");
  Reset("discard");
  EXPECT_EQ(Query("all"), normal + kDiscard + error);
  Reset("normal");
  EXPECT_EQ(Query("all"), std::string(kNormal) + kDiscard + error);
  Reset("error");
  EXPECT_EQ(Query("all"), std::string(kNormal) + kDiscard + kError);
  for (const size_t i : {0, 100, 187, 577, 461, 541}) Counter(i) = 10;
  EXPECT_EQ(Query("all"), normal + discard + error);
  platform.statisticsMasks.clear();
  Reset("other");
  Reset(nullptr);
  EXPECT_EQ(platform.statisticsMasks, (std::vector<uint32_t>{0, 0}));
  EXPECT_EQ(Query("all"), normal + discard + error);
}

TEST_F(SysStatTest, AnEngineThatStartedAgainWraps) {
  Counter(1) = 100;
  Reset("all");
  Counter(1) = 97;
  EXPECT_EQ(Query("normal"), kNormal + Row("mac msg punt", "18446744073709551613"));
}

TEST_F(SysStatTest, ShortMemoryIsLogged) {
  SetType("all");
  for (const int allocation : {0, 1}) {
    platform.log.clear();
    platform.FailAllocation(allocation);
    EXPECT_EQ(QdtOmaSysStatQueryProc(&request_), -1);
    EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc error\n"}}));
    EXPECT_EQ(platform.liveAllocations(), 0u);
    platform.FailAllocation(-1);
  }
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(SysStatTest, BuffersAreOfTheirSizes) {
  SetType("all");
  EXPECT_EQ(QdtOmaSysStatQueryProc(&request_), 0);
  ASSERT_EQ(platform.allocations.size(), 2u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[1].size, 6648u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_sysstat");
}

TEST_F(SysStatTest, AFailedSendIsNotReported) {
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    EXPECT_EQ(Query("error"), kError);
  }
  EXPECT_TRUE(platform.log.empty());
}

// A full answer. The discard section's header takes 32 characters and a rate-limit row with a value of one
// digit 67, unless its name makes it longer: 301 short rows leave 280 of the 20479 characters.
class SysStatRoomTest : public SysStatTest {
 protected:
  void SetUp() override {
    SysStatTest::SetUp();
    for (size_t i = 187; i < 461; ++i) Counter(i) = 1;
    for (size_t id = 0; id < 27; ++id) Counter(577 + id) = 1;
  }

  // One more rate limit, whose row takes `length` characters.
  void AddRow(uint32_t id, size_t length) {
    platform.protocols[id] = std::string(length - 13, 'n');
    Counter(577 + id) = 1;
  }
  static std::string LongRow(size_t length) { return "\n   CAR - " + std::string(length - 13, 'n') + ": 1"; }
};

TEST_F(SysStatRoomTest, ARowFitsUpToOneCharacterOfTheRoom) {
  const std::string before = Query("discard");
  ASSERT_EQ(before.size(), 20199u);
  AddRow(30, 279);  // 20478 characters: the row's room is one byte less than what is left
  EXPECT_EQ(Query("discard"), before + LongRow(279));
  AddRow(30, 280);
  EXPECT_EQ(Query("discard"), before);
}

TEST_F(SysStatRoomTest, TheFirstRowThatDoesNotFitEndsItsBlock) {
  const std::string before = Query("discard");
  AddRow(30, 280);
  Counter(577 + 31) = 1;  // would fit
  EXPECT_EQ(Query("discard"), before);
}

TEST_F(SysStatRoomTest, WritingGoesOnWithTheNextBlock) {
  const std::string discard = Query("discard");
  AddRow(30, 500);
  Counter(577 + 31) = 1;
  Counter(100) = 1;
  Counter(101) = 1;
  // Behind the rows that fit: the error section's header, and its rows; the normal header stands in front.
  const std::string all = Query("all");
  EXPECT_EQ(all, kNormal + discard + kError + Row("usf https sess null", "1") +
                     Row("usf https sess dir invalid", "1"));
}

TEST_F(SysStatRoomTest, AHeaderThatDoesNotFitAddsNothing) {
  const std::string normal = kNormal, discard = Query("discard");
  Counter(100) = 1;
  // 20479 - 31 - 20199 = 249 characters are left, of which the error header takes 30.
  AddRow(30, 219);
  EXPECT_EQ(Query("all"), normal + discard + LongRow(219) + kError);
  AddRow(30, 220);
  EXPECT_EQ(Query("all"), normal + discard + LongRow(220));
  AddRow(30, 248);
  EXPECT_EQ(Query("all"), normal + discard + LongRow(248));
}

TEST_F(SysStatRoomTest, ABlockOfNamesIsCutAndTheRateLimitsFollow) {
  for (size_t i = 0; i < 100; ++i) Counter(i) = 1;
  for (size_t i = 187; i < 461; ++i) Counter(i) = 12345678901234567890u;
  for (size_t id = 0; id < 27; ++id) Counter(577 + id) = 0;
  Counter(577) = 7;
  const std::string all = Query("all");
  // 31 + 100 * 67 + 32 = 6763; 159 rows of 86 make 20437, which leaves 42: no row of any kind, but the
  // header.
  EXPECT_EQ(all.size(), 20467u);
  EXPECT_EQ(all.substr(20437), kError);
  EXPECT_EQ(all.substr(20437 - 86, 86), Row("web proxy portal", "12345678901234567890"));  // 187 + 158
  EXPECT_EQ(all.find("stp disable"), std::string::npos);
}

TEST_F(SysStatRoomTest, ShorterRateLimitRowsFitBehindACutBlock) {
  // 31 + 75 * 67 = 5056 of normal rows and 32 of a header; 178 rows of 86 make 20396, which leaves 83.
  for (size_t i = 0; i < 75; ++i) Counter(i) = 1;
  for (size_t i = 187; i < 461; ++i) Counter(i) = 12345678901234567890u;
  for (size_t id = 0; id < 27; ++id) Counter(577 + id) = 0;
  Counter(577) = 7;
  Counter(578) = 8;
  const std::string all = Query("all");
  EXPECT_EQ(all.size(), 20463u);
  EXPECT_EQ(all.substr(20396), Row("0", "7"));
  EXPECT_EQ(all.substr(20396 - 86, 86),
            Row("priority ensurence drop when water line 3", "12345678901234567890"));  // 187 + 177
}

}  // namespace
}  // namespace qdt::test
