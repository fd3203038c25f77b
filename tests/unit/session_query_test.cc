#include <cstdlib>
#include <string>
#include <vector>

#include "tests/unit/kernel_calls.h"
#include "tests/unit/session_fixture.h"

// The agent's list of sessions: which are listed, in which form, and what becomes of a list that is too long.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;

constexpr uint32_t kSource = 0x0A000001, kDestination = 0x0A000002;  // 10.0.0.1, 10.0.0.2
constexpr char kNone[] = "Current Total Sessions : 0\n";

class SessionQueryTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    setenv("TZ", "UTC", 1);
  }

  // The one text that a query sends.
  std::string List() {
    platform.answers.clear();
    EXPECT_EQ(QdtOmaQuerySessionProc(&request_), 0);
    EXPECT_EQ(platform.liveAllocations(), 0u);
    if (platform.answers.size() != 1) return "answers: " + std::to_string(platform.answers.size());
    return platform.answers.front();
  }

  Record Numbered(uint16_t port) {
    return Session(Ipv4Key(kSource, kDestination, port, 80, 17, 3), 65535).U32(128, 1700000000);
  }
  static std::string NumberedText(uint16_t port) {
    return "\n udp VPN: 3 <--> 3 \n 10.0.0.1:" + std::to_string(port) + " <--> 10.0.0.2:80\n\n";
  }
  Record Ipv6(uint16_t port) { return Session(Ipv6Key(1, 2, port, 443, 6, 4), 65535).U32(128, 1700000000); }
  static std::string Ipv6Text(uint16_t port) {
    return "\n tcp VPN: 4 <--> 4 \n 2001:db8::1." + std::to_string(port) + " <--> 2001:db8::2.443\n";
  }

  // The id of a session at this address with index 0x1A and create time 0x6553F100.
  static std::string Id(const void *record) {
    char digits[32];
    const int length =
        std::snprintf(digits, sizeof(digits), "%llx", reinterpret_cast<unsigned long long>(record));
    char id[64];
    std::snprintf(id, sizeof(id), "%x28%s1a6553f100000", static_cast<unsigned>(length), digits);
    return id;
  }
};

TEST_F(SessionQueryTest, WithoutParametersAtMostTenIpv4Sessions) {
  std::string expected;
  for (uint16_t port = 1; port <= 12; ++port) {
    Add(Numbered(port));
    Add(Ipv6(port));
    if (port <= 10) expected += NumberedText(port);
  }
  EXPECT_EQ(List(), expected);
  EXPECT_EQ(platform.walks, Lines{"visit 65"});
  ASSERT_EQ(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].size, 20480u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_session");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionQueryTest, OneFamilyAtATime) {
  Add(Numbered(1));
  Add(Ipv6(2));
  Add(Numbered(3));
  Add(Ipv6(4));
  request_.texts["type"] = "ipv6";
  EXPECT_EQ(List(), Ipv6Text(2) + Ipv6Text(4));
  for (const char *other : {"ipv4", "", "all", "IPV6"}) {
    request_.texts["type"] = other;
    EXPECT_EQ(List(), NumberedText(1) + NumberedText(3)) << other;
  }
}

TEST_F(SessionQueryTest, TheNumberOfSessions) {
  for (uint16_t port = 1; port <= 12; ++port) Add(Numbered(port));
  const auto listed = [this](uint64_t number) {
    request_.numbers["session-number"] = number;
    return List();
  };
  EXPECT_EQ(listed(0), kNone);
  EXPECT_EQ(listed(256), kNone);  // cut to 8 bits
  EXPECT_EQ(listed(1), NumberedText(1));
  EXPECT_EQ(listed(2), NumberedText(1) + NumberedText(2));
  EXPECT_EQ(listed(255).size(), listed(12).size());
  EXPECT_EQ(listed(12).substr(listed(11).size()), NumberedText(12));
}

TEST_F(SessionQueryTest, NoSessions) {
  EXPECT_EQ(List(), kNone);
  Add(Numbered(1).U8(8, 0));
  Add(Numbered(2).U8(9, 1));
  Add(Numbered(3).U16(10, 0));
  EXPECT_EQ(List(), kNone);
}

TEST_F(SessionQueryTest, Filters) {
  for (uint16_t port = 1; port <= 5; ++port) Add(Numbered(port));
  request_.numbers["inside-source-port"] = 4;
  EXPECT_EQ(List(), NumberedText(4));
  request_.numbers = {{"protocol", 0}, {"global-source-port", 0}};
  request_.texts["service-id"] = "nonsense";
  EXPECT_EQ(List(), NumberedText(1) + NumberedText(2) + NumberedText(3) + NumberedText(4) + NumberedText(5));
}

// Keys lie close together; the kernel is asked about their pages, not for each session.
TEST_F(SessionQueryTest, AsksTheKernelAboutPagesOnly) {
  for (uint16_t port = 1; port <= 8000; ++port) Add(Numbered(port));
  request_.numbers["inside-source-port"] = 7777;
  KernelCalls::count = 0;
  EXPECT_EQ(List(), NumberedText(7777));
  EXPECT_GE(KernelCalls::count.load(), 1);
  EXPECT_LE(KernelCalls::count.load(), 1000);
}

TEST_F(SessionQueryTest, Verbose) {
  const void *const sac = Keep(Record(20).U32(8, 1).U32(12, 2).U32(16, 3));
  const void *const flow = Keep(Record(36).U32(4, 11).U32(8, 12).U32(12, 13).U32(16, 0x14).U32(20, 0x15));
  const void *const ipv4 =
      Add(Numbered(1).U32(0, 0x1A).U32(16, 1).U32(28, 0xCB007101).Address(168, sac).Address(176, flow));
  const std::string times =
      "\n Create Time: 2023-11-14 22:13:20\n Slot: 0 CPU: 0  TTL: --:--:--  Left: --:--:--";
  const std::string tcp =
      "\n UpTcpFlow:\n Wscale: 0  Up: 0  Action: 0\n BrakeCount: 0  AccCount: 0  HoldCount: 0"
      "\n Cwnd: 11 Rwnd: 12 RwndMin: 13 Seq: 0x00000015 Ack: 0x00000014";
  const std::string classified = "\n [sac info] appId: 1, protocolId 3, classId 2";
  const std::string addresses = "\n 10.0.0.1:1[203.0.113.1:1] <--> 10.0.0.2:80" + classified + "\n";
  EXPECT_EQ(List(), "\n udp VPN: 3 <--> 3 " + addresses + "\n");
  request_.flags["verbose"] = 1;
  EXPECT_EQ(List(), "\n udp VPN: 3 <--> 3 ID: " + Id(ipv4) + times + addresses + tcp + "\n");
  request_.flags["verbose"] = 2;  // only 1 is true
  EXPECT_EQ(List(), "\n udp VPN: 3 <--> 3 " + addresses + "\n");

  const void *const ipv6 = Add(Ipv6(1).U32(0, 0x1A).Address(168, sac).Address(176, flow));
  request_.flags["verbose"] = 1;
  request_.texts["type"] = "ipv6";
  EXPECT_EQ(List(), "\n tcp VPN: 4 <--> 4 ID: " + Id(ipv6) + times + "\n 2001:db8::1.1 <--> 2001:db8::2.443" +
                        classified + tcp + "\n");
}

TEST_F(SessionQueryTest, FailuresOnTheWay) {
  Add(Numbered(1));
  platform.FailAllocation(0);
  EXPECT_EQ(QdtOmaQuerySessionProc(&request_), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "malloc buf for query session failed\n"}}));
  EXPECT_TRUE(platform.walks.empty());

  platform.log.clear();
  platform.FailAllocation(-1);
  platform.FailTable(kSessionTable, -116);
  EXPECT_EQ(QdtOmaQuerySessionProc(&request_), -1);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Query session get info failed, ret: -116\n"}}));
  EXPECT_TRUE(platform.answers.empty());

  platform.log.clear();
  platform.FailTable(kSessionTable, 0);
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    EXPECT_EQ(QdtOmaQuerySessionProc(&request_), -1);
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
  EXPECT_EQ(platform.answers, Lines(2, NumberedText(1)));
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionQueryTest, AFilterThatCannotBeAppliedEndsTheList) {
  Add(Numbered(1));
  Add(Numbered(1).U64(112, kWildAddresses[0]));
  Add(Numbered(1));
  request_.numbers["inside-source-port"] = 1;
  EXPECT_EQ(List(), NumberedText(1));
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{3, "Query session compare inside-source-port failed, ret: 2\n"}}));
}

TEST_F(SessionQueryTest, ASessionWithoutAKeyEndsTheList) {
  Add(Numbered(1));
  Add(Numbered(2).U64(112, 0));
  Add(Numbered(3));
  EXPECT_EQ(List(), NumberedText(1));
  platform.ClearTable(kSessionTable);
  Add(Numbered(2).U64(112, kWildAddresses[1]));
  EXPECT_EQ(List(), kNone);
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(SessionQueryTest, TheCallback) {
  request_.numbers["session-number"] = 2;
  SessionParamValuelClear();
  QuerySessionGetParam(&request_, 1);
  char area[256];
  SessionQueryOutput output = {area, sizeof(area), 0, 1};
  const Record ipv4 = Numbered(1), ipv6 = Ipv6(1);
  const auto visit = [&](const Record &record) {
    return OmaQuerySessionGetInfo(const_cast<void *>(record.data()), &output);
  };
  EXPECT_EQ(visit(ipv4), -9);
  EXPECT_EQ(output.counter, 2u);
  EXPECT_EQ(visit(ipv6), -9);  // does not pass
  EXPECT_EQ(output.counter, 2u);
  EXPECT_EQ(visit(ipv4), -9);
  EXPECT_EQ(output.counter, 3u);
  EXPECT_EQ(visit(ipv4), -10);
  EXPECT_EQ(area, NumberedText(1) + NumberedText(1));
}

// A list that ends in the middle of a session keeps the lines that fit.
TEST_F(SessionQueryTest, LinesThatFitStay) {
  const Record record = Numbered(7).Address(168, Keep(Record(20)));
  const std::string protocol = "\n udp VPN: 3 <--> 3 ";
  const std::string addresses = protocol + "\n 10.0.0.1:7 <--> 10.0.0.2:80";
  const std::string plain = addresses + "\n", plainEnd = plain + "\n";
  const std::string classified = addresses + "\n [sac info] appId: 0, protocolId 0, classId 0\n";
  SessionParamValuelClear();
  QuerySessionGetParam(&request_, 1);
  for (uint32_t room = 1; room <= classified.size() + 2; ++room) {
    const auto area = std::make_unique<char[]>(room);
    SessionQueryOutput output = {area.get(), room, 0, 1};
    const int32_t code = OmaQuerySessionGetInfo(const_cast<void *>(record.data()), &output);
    const size_t fits = room - 1;
    std::string expected;
    if (fits >= protocol.size()) expected = protocol;
    if (fits >= plain.size()) expected = plain;
    if (fits >= plainEnd.size()) expected = plainEnd;  // without its classification
    // The classification fits, but the end of its line does not, which takes the whole line back.
    if (fits == classified.size() - 1) expected = protocol;
    if (fits >= classified.size()) expected = classified;
    if (fits >= classified.size() + 1) expected = classified + "\n";
    EXPECT_EQ(area.get(), expected) << room;
    EXPECT_EQ(output.length, expected.size()) << room;
    const bool whole = expected.ends_with("\n\n");
    EXPECT_EQ(code, whole ? -9 : -10) << room;
    EXPECT_EQ(output.counter, whole ? 2u : 1u) << room;
  }
}

// The same with all of its lines.
TEST_F(SessionQueryTest, VerboseLinesThatFitStay) {
  const Record record =
      Numbered(7).U32(0, 0x1A).Address(176, Keep(Record(36).U32(4, 11).U32(16, 0x14).U32(20, 0x15)));
  const std::string lines[] = {
      "\n udp VPN: 3 <--> 3 ",
      "ID: " + Id(record.data()) +
          "\n Create Time: 2023-11-14 22:13:20\n Slot: 0 CPU: 0  TTL: --:--:--  Left: --:--:--",
      "\n 10.0.0.1:7 <--> 10.0.0.2:80\n",
      "\n UpTcpFlow:\n Wscale: 0  Up: 0  Action: 0\n BrakeCount: 0  AccCount: 0  HoldCount: 0"
      "\n Cwnd: 11 Rwnd: 0 RwndMin: 0 Seq: 0x00000015 Ack: 0x00000014",
      "\n"};
  std::string whole;
  for (const std::string &line : lines) whole += line;
  request_.flags["verbose"] = 1;
  SessionParamValuelClear();
  QuerySessionGetParam(&request_, 1);
  for (uint32_t room = 1; room <= whole.size() + 1; ++room) {
    std::string expected;
    for (const std::string &line : lines) {
      if (expected.size() + line.size() >= room) break;
      expected += line;
    }
    const auto area = std::make_unique<char[]>(room);
    SessionQueryOutput output = {area.get(), room, 0, 1};
    platform.log.clear();
    const int32_t code = OmaQuerySessionGetInfo(const_cast<void *>(record.data()), &output);
    EXPECT_EQ(area.get(), expected) << room;
    EXPECT_EQ(code, expected == whole ? -9 : -10) << room;
    EXPECT_EQ(platform.log.size(), expected == whole ? 0u : 1u) << room;
  }
}

TEST_F(SessionQueryTest, AFullAnswerIsSentAsFarAsItGoes) {
  const Record record =
      Numbered(10001).U32(16, 0xF).U32(28, 0xCB007101).U16(36, 20002).U32(32, 0xCB007102).U16(38, 8080);
  const std::string text =
      "\n udp VPN: 3 <--> 3 \n 10.0.0.1:10001[203.0.113.1:20002] <--> 10.0.0.2:80[203.0.113.2:8080]\n\n";
  ASSERT_EQ(text.size(), 92u);
  for (int i = 0; i < 255; ++i) Add(record);
  request_.numbers["session-number"] = 255;
  std::string expected;
  for (int i = 0; i < 222; ++i) expected += text;  // 20,424 of 20,479 characters
  EXPECT_EQ(List(), expected + "\n udp VPN: 3 <--> 3 ");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Sprintf failed, ret=-1\n"}}));
}

}  // namespace
}  // namespace qdt::test
