#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "qdt/oma.h"
#include "src/om/oma/command_line.h"
#include "tests/fake_platform/fake_platform.h"

// Engine command lines of the management agent: how they are run, answered and released.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;

class OmaCommandTest : public PlatformTest {
 protected:
  void Answer(int32_t status, const std::string &text) { platform.runReply = {status, true, text}; }
  void AnswerNothing(int32_t status) { platform.runReply = {status, false, ""}; }

  int32_t Type(const char *line) {
    request_.texts["cmdline"] = line;
    return QdtOmaCmdlineProc(&request_);
  }

  omcc_request request_;
};

TEST_F(OmaCommandTest, TypedDiagLinesRunUnchanged) {
  Answer(0, "  Port : 7\n");
  for (const std::string line : {"diag search nqpTable 3 1.1.1.1 0 0 0", "diag x", "diag  ", "diag diag"}) {
    platform.runLines.clear();
    EXPECT_EQ(Type(line.c_str()), 0);
    EXPECT_EQ(platform.runLines, Lines{line});
  }
  EXPECT_EQ(platform.answers, Lines(4, "  Port : 7\n"));
  EXPECT_TRUE(platform.engineLines.empty());
}

TEST_F(OmaCommandTest, OtherTypedLinesRunDiag) {
  Answer(0, "usage");
  for (const char *line : {"show version", "diag", "diag ", "DIAG search", "Diag search", "diagx more", "",
                           " diag search", "diag\tsearch"}) {
    platform.runLines.clear();
    EXPECT_EQ(Type(line), 0) << line;
    EXPECT_EQ(platform.runLines, Lines{"diag"}) << line;
  }
  EXPECT_EQ(platform.answers, Lines(9, "usage"));
}

TEST_F(OmaCommandTest, NothingTypedReachesNobody) {
  Answer(0, "usage");
  EXPECT_EQ(QdtOmaCmdlineProc(&request_), -1);
  request_.scribbles = true;
  EXPECT_EQ(QdtOmaCmdlineProc(&request_), -1);
  EXPECT_EQ(Type(nullptr), -1);
  EXPECT_TRUE(platform.runLines.empty());
  EXPECT_TRUE(platform.answers.empty());
}

TEST_F(OmaCommandTest, TypedLinesNeedSuccessAndAReply) {
  for (const int32_t status : {-1, 1}) {
    Answer(status, "late");
    EXPECT_EQ(Type("diag x"), -1);
    AnswerNothing(status);
    EXPECT_EQ(Type("diag x"), -1);
  }
  AnswerNothing(0);
  EXPECT_EQ(Type("diag x"), -1);
  EXPECT_TRUE(platform.answers.empty());
  EXPECT_EQ(platform.runLines.size(), 5u);

  Answer(0, "");
  EXPECT_EQ(Type("diag x"), 0);
  for (const int32_t sent : {-1, 1, -2}) {
    platform.sendResult = sent;
    EXPECT_EQ(Type("diag x"), -1) << sent;
  }
  EXPECT_EQ(platform.answers, Lines(4, ""));
  EXPECT_TRUE(platform.log.empty());
}

// What the three ways to run a line make of a send's result.
struct Judged {
  int32_t sent, run, trace, owned;
};
constexpr Judged kJudged[] = {{0, 0, 0, 0}, {-1, -1, -1, -1}, {1, -1, 0, 1}, {-2, -1, 0, -2}, {7, -1, 0, 7}};

TEST_F(OmaCommandTest, ConstantLines) {
  for (const int32_t status : {0, -1, 1}) {  // only the reply decides
    Answer(status, "tasks");
    for (const Judged &judged : kJudged) {
      platform.sendResult = judged.sent;
      EXPECT_EQ(QdtOmaRunCmdline("perf task show"), judged.run) << judged.sent;
      EXPECT_EQ(RunTraceCommandLine("trace-pkt-nqe display index 0"), judged.trace) << judged.sent;
    }
    EXPECT_EQ(platform.answers, Lines(2 * std::size(kJudged), "tasks"));
    platform.answers.clear();
  }
  EXPECT_EQ(platform.runLines[0], "perf task show");
  EXPECT_EQ(platform.runLines[1], "trace-pkt-nqe display index 0");

  for (const int32_t status : {0, -1, 1}) {
    platform.sendResult = 0;
    AnswerNothing(status);
    EXPECT_EQ(QdtOmaRunCmdline("perf task show"), -1);
    EXPECT_EQ(RunTraceCommandLine("trace-pkt-nqe display index 0"), -1);
  }
  EXPECT_TRUE(platform.answers.empty());
  EXPECT_TRUE(platform.allocations.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(OmaCommandTest, OwnedLinesAreReleasedOnEveryPath) {
  const auto run = [this] {
    char *line = nullptr;
    EXPECT_EQ(QdtOmaAllocCmdline(&line), 0);
    std::strcpy(line, "egn reset all");
    const int32_t returned = QdtOmaRunOwnedCmdline(line);
    EXPECT_EQ(platform.liveAllocations(), 0u);
    return returned;
  };
  for (const int32_t status : {0, -1, 1}) {
    Answer(status, "done");
    for (const Judged &judged : kJudged) {
      platform.sendResult = judged.sent;
      EXPECT_EQ(run(), judged.owned);
    }
    AnswerNothing(status);
    EXPECT_EQ(run(), -1);
  }
  EXPECT_EQ(platform.runLines, Lines(18, "egn reset all"));
  EXPECT_EQ(platform.answers, Lines(15, "done"));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(OmaCommandTest, AConstantGivenAwayIsLeftToTheAllocator) {
  Answer(0, "help");
  platform.sendResult = 3;
  EXPECT_EQ(QdtOmaRunOwnedCmdline("egn help"), 3);
  EXPECT_EQ(platform.answers, Lines{"help"});
  EXPECT_EQ(platform.foreignFrees, 1);
  platform.foreignFrees = 0;
}

TEST_F(OmaCommandTest, CommandLineBuffers) {
  char *line = nullptr;
  ASSERT_EQ(QdtOmaAllocCmdline(&line), 0);
  ASSERT_EQ(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma");
  EXPECT_EQ(std::count(line, line + 20480, '\0'), 20480);
  free_ex(g_mallocHandle, line);

  platform.FailAllocation(0);
  EXPECT_EQ(QdtOmaAllocCmdline(&line), -1);
  EXPECT_EQ(line, nullptr);
  EXPECT_TRUE(platform.log.empty());
}

// What the builder was called with, and what it does.
struct Builder {
  static int32_t Build(char *buffer, int32_t capacity, AgentRequest request) {
    ++calls;
    zeroes = std::count(buffer, buffer + 20480, '\0');
    room = capacity;
    got = request;
    std::strcpy(buffer, "nat query-nat-address-group-usage id 7");
    return result;
  }
  static inline int calls;
  static inline long zeroes;
  static inline int32_t room, result;
  static inline AgentRequest got;
};

class OmaChannelTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    Builder::calls = 0;
    Builder::result = 0;
    platform.engineReply = {5, true, "used"};
  }

  int32_t Run() { return QdtOmaChanByName(&request_, Builder::Build); }

  omcc_request request_;
};

TEST_F(OmaChannelTest, SendsTheBuiltLine) {
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Builder::calls, 1);
  EXPECT_EQ(Builder::zeroes, 20480);
  EXPECT_EQ(Builder::room, 20480);
  EXPECT_EQ(Builder::got, &request_);
  EXPECT_EQ(platform.engineLines, Lines{"nat query-nat-address-group-usage id 7"});
  EXPECT_EQ(platform.answers, Lines{"used"});
  ASSERT_EQ(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma");
  EXPECT_TRUE(platform.runLines.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(OmaChannelTest, ShortMemoryIsLogged) {
  platform.FailAllocation(0);
  EXPECT_EQ(Run(), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for qdt channel msg failed\n"}}));
  EXPECT_EQ(Builder::calls, 0);
  EXPECT_TRUE(platform.engineLines.empty());
}

TEST_F(OmaChannelTest, TheBuilderMayAbandonTheRequest) {
  for (const int32_t refusal : {-1, 1}) {
    Builder::result = refusal;
    EXPECT_EQ(Run(), -1);
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
  EXPECT_TRUE(platform.engineLines.empty());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(OmaChannelTest, FailuresOfTheEngine) {
  platform.engineReply = {-1, true, "used"};
  EXPECT_EQ(Run(), -1);
  platform.engineReply = {-1, false, ""};
  EXPECT_EQ(Run(), -1);
  platform.engineReply = {5, false, ""};
  EXPECT_EQ(Run(), -1);
  EXPECT_TRUE(platform.answers.empty());
  platform.engineReply = {0, true, ""};  // a length of 0 is none
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(platform.answers, Lines{""});
  EXPECT_EQ(platform.liveAllocations(), 0u);
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(OmaChannelTest, FailuresOfTheAgent) {
  for (const int32_t sent : {-1, 1, 7}) {
    platform.sendResult = sent;
    EXPECT_EQ(Run(), -1) << sent;
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
}

}  // namespace
}  // namespace qdt::test
