#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qdt/oma.h"
#include "tests/fake_platform/fake_platform.h"

// The engine's own trace, set and queried by the management agent.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;
using Builder = int32_t (*)(char *, uint32_t, AgentRequest);

class TraceCommandTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.runReply = {0, true, "reply"};
  }

  // The line that the engine gets for the request.
  std::string Line() {
    platform.runLines.clear();
    platform.answers.clear();
    EXPECT_EQ(QdtOmaTracePktSetProc(&request_), 0);
    EXPECT_EQ(platform.answers, Lines{"reply"});
    EXPECT_TRUE(platform.engineLines.empty());
    EXPECT_TRUE(platform.log.empty());
    return platform.runLines.size() == 1 ? platform.runLines[0] : std::to_string(platform.runLines.size());
  }

  // What a builder writes for the request, in exactly the room that it needs and in more; in every smaller
  // room it must fail and write nothing outside.
  std::string Options(Builder builder) {
    char area[400];
    const int32_t length = builder(area, sizeof(area), &request_);
    if (length < 0) return "code " + std::to_string(length);
    const std::string options(area, static_cast<size_t>(length));
    for (uint32_t room = 0; room <= options.size() && !options.empty(); ++room) {
      const auto small = std::make_unique<char[]>(room);
      EXPECT_EQ(builder(small.get(), room, &request_), -1) << options << " in " << room;
    }
    const auto room = static_cast<uint32_t>(options.size()) + 1;
    const auto exact = std::make_unique<char[]>(room);
    EXPECT_EQ(builder(exact.get(), room, &request_), length);
    EXPECT_EQ(exact.get(), options);
    return options;
  }

  void Query(uint64_t index) { request_.numbers["index"] = index; }

  omcc_request request_;
};

TEST_F(TraceCommandTest, AllOptionsInTheirOrder) {
  request_.texts = {{"destination-ip", "10.0.0.1"},
                    {"source-ip", "10.0.0.2"},
                    {"destination-mac", "00e0-fc12-3456"},
                    {"source-mac", "A00B-C10D-E20F"},
                    {"eth-type", "0800"}};
  request_.numbers = {{"destination-port", 80},
                      {"source-port", 4000000001},
                      {"protocol", 6},
                      {"time-out", 300},
                      {"index", 3}};
  request_.flags = {{"enable", 1}};
  EXPECT_EQ(Line(),
            "trace-pkt-nqe set --destination-ip=10.0.0.1 --source-ip=10.0.0.2 "
            "--destination-mac=00:e0:fc:12:34:56 --source-mac=a0:0b:c1:0d:e2:0f "
            "--destination-port=80 --source-port=4000000001 --eth-type=0800 --protocol=6 --time-out=300 "
            "--enable=1 --index=3 ");
}

TEST_F(TraceCommandTest, TheLongestLineFits) {
  request_.texts = {{"destination-ip", "255.255.255.255"},
                    {"source-ip", "255.255.255.255"},
                    {"destination-mac", "ffff-ffff-ffff"},
                    {"source-mac", "ffff-ffff-ffff"},
                    {"eth-type", "ffff"}};
  for (const char *name : {"destination-port", "source-port", "protocol", "time-out", "index"})
    request_.numbers[name] = 0xFFFFFFFF;
  EXPECT_EQ(Line(),
            "trace-pkt-nqe set --destination-ip=255.255.255.255 --source-ip=255.255.255.255 "
            "--destination-mac=ff:ff:ff:ff:ff:ff --source-mac=ff:ff:ff:ff:ff:ff "
            "--destination-port=4294967295 --source-port=4294967295 --eth-type=ffff --protocol=4294967295 "
            "--time-out=4294967295 --enable=0 --index=65535 ");
}

TEST_F(TraceCommandTest, AnEmptyRequestDisables) {
  EXPECT_EQ(Line(), "trace-pkt-nqe set --enable=0 ");
  request_.scribbles = true;
  EXPECT_EQ(Line(), "trace-pkt-nqe set --enable=0 ");
  ASSERT_EQ(platform.allocations.size(), 2u);
  EXPECT_EQ(platform.allocations[0].size, 400u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_tracepkt");
}

TEST_F(TraceCommandTest, TwoAddresses) {
  request_.texts = {{"destination-ip", "10.0.0.1"}, {"source-ip", "10.0.0.2"}};
  request_.flags = {{"enable", 1}};
  EXPECT_EQ(Line(), "trace-pkt-nqe set --destination-ip=10.0.0.1 --source-ip=10.0.0.2 --enable=1 ");
}

// The length of the destination counts twice, and the options behind it stand behind NULs.
TEST_F(TraceCommandTest, ARefusedSourceEndsTheLineBehindTheDestination) {
  request_.flags = {{"enable", 1}};
  for (const char *source : {"fe80::1", "10.0.0", "", "host"}) {
    request_.texts = {
        {"destination-ip", "10.0.0.1"}, {"source-ip", source}, {"source-mac", "00e0-fc12-3456"}};
    EXPECT_EQ(Line(), "trace-pkt-nqe set --destination-ip=10.0.0.1 ") << source;

    std::string area(100, '\0');
    EXPECT_EQ(FormatTypeIp(area.data(), 100, &request_), 52) << source;  // 2 * 26
    EXPECT_EQ(area, "--destination-ip=10.0.0.1 " + std::string(74, '\0'));
    char small[26];
    EXPECT_EQ(FormatTypeIp(small, sizeof(small), &request_), -1);
  }
}

TEST_F(TraceCommandTest, OtherAddressesThatAreNoneAddNothing) {
  request_.texts = {{"source-ip", "fe80::1"}};
  EXPECT_EQ(Line(), "trace-pkt-nqe set --enable=0 ");
  for (const char *text : {"fe80::1", "10.0.0", "", static_cast<const char *>(nullptr)}) {
    request_.texts = {{"destination-ip", text}, {"source-ip", "10.0.0.2"}};
    EXPECT_EQ(Line(), "trace-pkt-nqe set --source-ip=10.0.0.2 --enable=0 ");
  }
  request_.texts = {{"destination-ip", "fe80::1"}, {"source-ip", "fe80::1"}};
  EXPECT_EQ(Line(), "trace-pkt-nqe set --enable=0 ");
  request_.texts = {{"destination-ip", "10.0.0.1"}, {"source-ip", nullptr}};  // absent
  EXPECT_EQ(Line(), "trace-pkt-nqe set --destination-ip=10.0.0.1 --enable=0 ");
}

TEST_F(TraceCommandTest, AddressOptions) {
  EXPECT_EQ(Options(FormatTypeIp), "");
  request_.texts["destination-ip"] = "1.2.3.4";
  EXPECT_EQ(Options(FormatTypeIp), "--destination-ip=1.2.3.4 ");
  request_.texts["source-ip"] = "5.6.7.8";
  EXPECT_EQ(Options(FormatTypeIp), "--destination-ip=1.2.3.4 --source-ip=5.6.7.8 ");
}

TEST_F(TraceCommandTest, MacOptions) {
  EXPECT_EQ(Options(FormatTypeMac), "");
  request_.texts["source-mac"] = "00e0-fc12-3456";
  EXPECT_EQ(Options(FormatTypeMac), "--source-mac=00:e0:fc:12:34:56 ");
  request_.texts["destination-mac"] = "0102-0304-05FF";
  EXPECT_EQ(Options(FormatTypeMac), "--destination-mac=01:02:03:04:05:ff --source-mac=00:e0:fc:12:34:56 ");
  request_.texts["destination-mac"] = "01:02:03:04:05:ff";
  EXPECT_EQ(Options(FormatTypeMac), "--source-mac=00:e0:fc:12:34:56 ");
}

TEST_F(TraceCommandTest, NumberOptions) {
  struct Case {
    Builder builder;
    const char *name;
    uint64_t value;
    const char *options;
  };
  for (const Case &one : {
           Case{FormatTypePort, "source-port", 65536, "--source-port=65536 "},
           {FormatTypePort, "destination-port", 0, "--destination-port=0 "},
           {FormatTypeProto, "protocol", 4294967295, "--protocol=4294967295 "},
           {FormatTypeTimeOut, "time-out", 7, "--time-out=7 "},
           {FormatTypeIndex, "index", 65535, "--index=65535 "},
           {FormatTypeIndex, "index", 65537, "--index=1 "},
       }) {
    request_ = {};
    EXPECT_EQ(Options(one.builder), "") << one.name;
    request_.numbers[one.name] = one.value;
    EXPECT_EQ(Options(one.builder), one.options);
  }
}

TEST_F(TraceCommandTest, EthernetTypeOptions) {
  EXPECT_EQ(Options(FormatTypeEthType), "");
  for (const auto &[text, options] : {std::pair("0x86DD", "--eth-type=86dd "),
                                      {"806", "--eth-type=0806 "},
                                      {"123456", "--eth-type=3456 "},
                                      {"", "--eth-type=0000 "},
                                      {"8x", "--eth-type=0008 "}}) {
    request_.texts["eth-type"] = text;
    EXPECT_EQ(Options(FormatTypeEthType), options);
  }
}

TEST_F(TraceCommandTest, EnableOptions) {
  EXPECT_EQ(Options(FormatTypeEnable), "--enable=0 ");
  request_.flags["enable"] = 0;
  EXPECT_EQ(Options(FormatTypeEnable), "--enable=0 ");
  request_.flags["enable"] = 1;
  EXPECT_EQ(Options(FormatTypeEnable), "--enable=1 ");
}

TEST_F(TraceCommandTest, ShortMemoryIsLogged) {
  platform.FailAllocation(0);
  EXPECT_EQ(QdtOmaTracePktSetProc(&request_), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for trace pkt failed\n"}}));
  EXPECT_TRUE(platform.runLines.empty());
}

TEST_F(TraceCommandTest, OnlyMinusOneOfTheSendIsAFailure) {
  for (const int32_t sent : {0, 1, -2}) {
    platform.sendResult = sent;
    EXPECT_EQ(QdtOmaTracePktSetProc(&request_), 0) << sent;
  }
  EXPECT_TRUE(platform.log.empty());
  const LogLine line = {3, "QdtOmaCmdlineTracePkt failed\n"};
  platform.sendResult = -1;
  EXPECT_EQ(QdtOmaTracePktSetProc(&request_), -1);
  EXPECT_EQ(platform.log, std::vector<LogLine>{line});
  platform.sendResult = 0;
  platform.runReply = {0, false, ""};  // no reply
  EXPECT_EQ(QdtOmaTracePktSetProc(&request_), -1);
  EXPECT_EQ(platform.log, std::vector<LogLine>(2, line));
}

TEST_F(TraceCommandTest, AReplyIsSentWhateverStatusCameWithIt) {
  Query(1);
  for (const int32_t status : {-1, 1}) {
    platform.runReply = {status, true, "refused"};
    EXPECT_EQ(QdtOmaTracePktSetProc(&request_), 0);
    EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), 0);
  }
  EXPECT_EQ(platform.answers, Lines(4, "refused"));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TraceCommandTest, QueriesByIndex) {
  for (const uint64_t index : {0, 1, 2, 3}) {
    Query(index);
    EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), 0);
  }
  EXPECT_EQ(platform.runLines, (Lines{"trace-pkt-nqe display index 0", "trace-pkt-nqe display index 1",
                                      "trace-pkt-nqe display index 2", "trace-pkt-nqe display index 3"}));
  EXPECT_EQ(platform.answers, Lines(4, "reply"));
  Query(0x10002);
  EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), 0);
  EXPECT_EQ(platform.runLines.back(), "trace-pkt-nqe display index 2");  // 16 bits
}

TEST_F(TraceCommandTest, OtherIndexesSendTheUsageAndFail) {
  for (const uint64_t index : {4, 7, 65535}) {
    Query(index);
    EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), -1);
  }
  EXPECT_EQ(platform.runLines, Lines(3, "trace-pkt-nqe"));
  EXPECT_EQ(platform.answers, Lines(3, "reply"));
}

TEST_F(TraceCommandTest, QueriesThatFail) {
  EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), -1);  // without an index
  EXPECT_TRUE(platform.runLines.empty());
  Query(1);
  for (const auto &[sent, status] : {std::pair(1, 0), {-2, 0}, {-1, -1}}) {
    platform.sendResult = sent;
    EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), status) << sent;
  }
  platform.sendResult = 0;
  platform.runReply = {0, false, ""};
  EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), -1);
  Query(4);
  EXPECT_EQ(QdtOmaTracePktQueryProc(&request_), -1);
  EXPECT_TRUE(platform.log.empty());
}

}  // namespace
}  // namespace qdt::test
