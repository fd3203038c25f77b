#include <string>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"

// Requests that come to one engine command line: which line, and what becomes of its reply.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;
using Handler = int32_t (*)(AgentRequest);

class EngineSwitchTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.runReply = {0, true, "reply"};
    platform.engineReply = {6, true, "used"};
  }

  // The one line that the handler has the engine run, whose reply goes to the agent.
  std::string Line(Handler handler) { return OnlyLine(handler, platform.runLines, "reply"); }

  // The constant text of that line is handed to the allocator, which does not know it.
  void ExpectHelp(Handler handler) {
    platform.foreignFrees = 0;
    EXPECT_EQ(Line(handler), "egn help");
    EXPECT_EQ(platform.foreignFrees, 1);
    platform.foreignFrees = 0;
  }

  void SetText(const char *name, const char *value) { request_.texts[name] = value; }

  std::string OnlyLine(Handler handler, Lines &lines, const std::string &reply) {
    lines.clear();
    platform.answers.clear();
    EXPECT_EQ(handler(&request_), 0);
    EXPECT_EQ(platform.answers, Lines{reply});
    EXPECT_EQ(platform.liveAllocations(), 0u);
    return lines.size() == 1 ? lines.front() : "not one line";
  }

  omcc_request request_;
};

class EgnTest : public EngineSwitchTest {
 protected:
  // A handler and the parameters that it needs.
  struct Egn {
    Handler handler;
    Lines texts, numbers;
  };
  const std::vector<Egn> all_ = {{QdtOmaEgnInfoQueryProc, {"info-type"}, {}},
                                 {QdtOmaEgnDbgSwitchSetProc, {"level", "switch"}, {}},
                                 {QdtOmaEgnStatSwitchSetProc, {"switch"}, {}},
                                 {QdtOmaEgnDetectThresholdSetProc, {}, {"threshold-value"}},
                                 {QdtOmaEgnStatResetProc, {"stat-type"}, {}}};

  void SetAll(const Egn &egn) {
    request_ = {};
    for (const std::string &name : egn.texts) request_.texts[name] = "x";
    for (const std::string &name : egn.numbers) request_.numbers[name] = 1;
  }
};

TEST_F(EgnTest, LinesWithTheirParameters) {
  SetText("info-type", "signature-info");
  EXPECT_EQ(Line(QdtOmaEgnInfoQueryProc), "egn display signature-info");
  SetText("level", "error");
  SetText("switch", "enable");
  EXPECT_EQ(Line(QdtOmaEgnDbgSwitchSetProc), "egn debugging debug-level error enable");
  SetText("switch", "disable");
  EXPECT_EQ(Line(QdtOmaEgnStatSwitchSetProc), "egn debugging statistic disable");
  SetText("stat-type", "all");
  EXPECT_EQ(Line(QdtOmaEgnStatResetProc), "egn reset all");
  request_.numbers["threshold-value"] = 4294967295u;
  EXPECT_EQ(Line(QdtOmaEgnDetectThresholdSetProc), "egn debugging detect-threshold 4294967295");
  EXPECT_TRUE(platform.engineLines.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(EgnTest, TextsGoThroughAsTheyAre) {
  SetText("info-type", "");
  EXPECT_EQ(Line(QdtOmaEgnInfoQueryProc), "egn display ");
  SetText("info-type", "a b %s\n");
  EXPECT_EQ(Line(QdtOmaEgnInfoQueryProc), "egn display a b %s\n");
}

TEST_F(EgnTest, AThresholdIsCutTo32Bits) {
  request_.numbers["threshold-value"] = 0x100000005;
  EXPECT_EQ(Line(QdtOmaEgnDetectThresholdSetProc), "egn debugging detect-threshold 5");
  request_.numbers["threshold-value"] = 0;
  EXPECT_EQ(Line(QdtOmaEgnDetectThresholdSetProc), "egn debugging detect-threshold 0");
}

TEST_F(EgnTest, WithoutTheirParametersTheyAskForHelp) {
  for (const bool scribbles : {false, true}) {
    request_.scribbles = scribbles;
    for (const Egn &egn : all_) ExpectHelp(egn.handler);
  }
  EXPECT_TRUE(platform.allocations.empty());
}

TEST_F(EgnTest, DebuggingNeedsBothParameters) {
  SetText("switch", "enable");
  ExpectHelp(QdtOmaEgnDbgSwitchSetProc);
  request_ = {};
  SetText("level", "error");
  ExpectHelp(QdtOmaEgnDbgSwitchSetProc);
}

TEST_F(EgnTest, AParameterWithoutATextIsNone) {
  SetText("info-type", nullptr);
  ExpectHelp(QdtOmaEgnInfoQueryProc);
}

TEST_F(EgnTest, AParameterOfAnotherKindIsNone) {
  request_.numbers["info-type"] = 1;
  ExpectHelp(QdtOmaEgnInfoQueryProc);
  SetText("threshold-value", "10");
  ExpectHelp(QdtOmaEgnDetectThresholdSetProc);
}

TEST_F(EgnTest, TheSendsResultComesBackUnchanged) {
  for (const Egn &egn : all_) {
    for (const int32_t sent : {0, -1, -2, 1, 7}) {
      platform.sendResult = sent;
      SetAll(egn);
      EXPECT_EQ(egn.handler(&request_), sent);
      EXPECT_EQ(platform.liveAllocations(), 0u);
      request_ = {};
      EXPECT_EQ(egn.handler(&request_), sent);
    }
  }
  platform.foreignFrees = 0;
}

TEST_F(EgnTest, OnlyTheReplyDecides) {
  for (const Egn &egn : all_) {
    SetAll(egn);
    platform.runReply = {-1, true, "refused"};
    EXPECT_EQ(egn.handler(&request_), 0);
    platform.runReply = {0, false, ""};
    EXPECT_EQ(egn.handler(&request_), -1);
    EXPECT_EQ(platform.liveAllocations(), 0u);
    request_ = {};  // the help, which has no reply either
    EXPECT_EQ(egn.handler(&request_), -1);
  }
  EXPECT_EQ(platform.foreignFrees, static_cast<int>(all_.size()));
  platform.foreignFrees = 0;
  EXPECT_EQ(platform.answers, Lines(all_.size(), "refused"));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(EgnTest, ShortMemoryIsSilent) {
  for (const Egn &egn : all_) {
    SetAll(egn);
    platform.FailAllocation(0);
    EXPECT_EQ(egn.handler(&request_), -1);
  }
  EXPECT_TRUE(platform.runLines.empty());
  EXPECT_TRUE(platform.log.empty());
  ASSERT_EQ(platform.allocations.size(), all_.size());
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma");
}

TEST_F(EgnTest, LinesEndAtTheirBuffer) {
  const std::string longest(20480 - 1 - 12, 'x');
  SetText("info-type", longest.c_str());
  EXPECT_EQ(Line(QdtOmaEgnInfoQueryProc), "egn display " + longest);
  const std::string tooLong = longest + "x";
  SetText("info-type", tooLong.c_str());
  platform.runLines.clear();
  EXPECT_EQ(QdtOmaEgnInfoQueryProc(&request_), -1);
  EXPECT_TRUE(platform.runLines.empty());
  EXPECT_EQ(platform.liveAllocations(), 0u);
  EXPECT_TRUE(platform.log.empty());
}

class PerfTest : public EngineSwitchTest {};

TEST_F(PerfTest, TaskQueries) {
  EXPECT_EQ(Line(QdtOmaPerfTaskQueryProc), "perf task show");
  SetText("sort-by-cycles", "average");
  EXPECT_EQ(Line(QdtOmaPerfTaskQueryProc), "perf task topdown avg");
  SetText("sort-by-cycles", "total");
  EXPECT_EQ(Line(QdtOmaPerfTaskQueryProc), "perf task topdown total");
  for (const char *other : {"avg", "", "Total", "AVERAGE", "total ", "averages", "tota"}) {
    SetText("sort-by-cycles", other);
    EXPECT_EQ(Line(QdtOmaPerfTaskQueryProc), "perf task") << other;
  }
}

TEST_F(PerfTest, TraceModes) {
  EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task");
  SetText("trace-mode", "cycle");
  EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task set time");
  SetText("trace-mode", "icache");
  EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task set icache");
  SetText("trace-mode", "dcache");
  EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task set dcache");
  for (const char *other : {"time", "", "Cycle", "cycles", "icach"}) {
    SetText("trace-mode", other);
    EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task") << other;
  }
}

TEST_F(PerfTest, WhatIsAbsentMayScribble) {
  request_.scribbles = true;
  EXPECT_EQ(Line(QdtOmaPerfTaskQueryProc), "perf task show");
  EXPECT_EQ(Line(QdtOmaPerfTaskSetProc), "perf task");
  EXPECT_EQ(Line(QdtOmaPerfModeSetProc), "perf-mode disable");
}

TEST_F(PerfTest, TaskReset) { EXPECT_EQ(Line(QdtOmaPerfTaskResetProc), "perf task clear"); }

TEST_F(PerfTest, Mode) {
  EXPECT_EQ(Line(QdtOmaPerfModeSetProc), "perf-mode disable");
  request_.flags["enable"] = 0;
  EXPECT_EQ(Line(QdtOmaPerfModeSetProc), "perf-mode disable");
  for (const uint8_t flag : {1, 2, 0xFF}) {
    request_.flags["enable"] = flag;
    EXPECT_EQ(Line(QdtOmaPerfModeSetProc), "perf-mode enable");
  }
}

TEST_F(PerfTest, RepliesAndSends) {
  for (const Handler handler :
       {QdtOmaPerfTaskQueryProc, QdtOmaPerfTaskResetProc, QdtOmaPerfTaskSetProc, QdtOmaPerfModeSetProc}) {
    request_.texts = {{"sort-by-cycles", "total"}, {"trace-mode", "cycle"}};
    platform.sendResult = 0;
    platform.runReply = {-1, true, "reply"};  // its status is not looked at
    Line(handler);
    for (const int32_t sent : {-1, 1, 7}) {
      platform.sendResult = sent;
      EXPECT_EQ(handler(&request_), -1) << sent;
    }
    platform.sendResult = 0;
    platform.runReply = {0, false, ""};
    EXPECT_EQ(handler(&request_), -1);
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
  EXPECT_TRUE(platform.allocations.empty());
  EXPECT_TRUE(platform.log.empty());
}

class NatGroupTest : public EngineSwitchTest {
 protected:
  std::string ChannelLine() { return OnlyLine(QdtOmaNatGroupUsageProc, platform.engineLines, "used"); }
};

TEST_F(NatGroupTest, Lines) {
  EXPECT_EQ(ChannelLine(), "nat query-nat-address-group-usage ");
  request_.numbers["id"] = 7;
  EXPECT_EQ(ChannelLine(), "nat query-nat-address-group-usage id 7");
  request_.numbers["id"] = 0;
  EXPECT_EQ(ChannelLine(), "nat query-nat-address-group-usage id 0");
  request_.numbers["id"] = 0x1FFFFFFFF;
  EXPECT_EQ(ChannelLine(), "nat query-nat-address-group-usage id 4294967295");
  request_ = {};
  request_.scribbles = true;
  EXPECT_EQ(ChannelLine(), "nat query-nat-address-group-usage ");
  EXPECT_TRUE(platform.runLines.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(NatGroupTest, Failures) {
  platform.FailAllocation(0);
  EXPECT_EQ(QdtOmaNatGroupUsageProc(&request_), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for qdt channel msg failed\n"}}));
  platform.log.clear();
  platform.engineReply = {-1, true, "used"};
  EXPECT_EQ(QdtOmaNatGroupUsageProc(&request_), -1);
  platform.engineReply = {6, false, ""};
  EXPECT_EQ(QdtOmaNatGroupUsageProc(&request_), -1);
  EXPECT_TRUE(platform.answers.empty());
  platform.engineReply = {6, true, "used"};
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    EXPECT_EQ(QdtOmaNatGroupUsageProc(&request_), -1);
  }
  EXPECT_TRUE(platform.log.empty());
}

}  // namespace
}  // namespace qdt::test
