#include <arpa/inet.h>

#include <string>
#include <vector>

#include "tests/unit/kernel_calls.h"
#include "tests/unit/session_fixture.h"

// The diag view of sessions: which records it collects.
namespace qdt::test {
namespace {

constexpr uint32_t kSource = 0x0A000001, kDestination = 0x0A000002;  // 10.0.0.1, 10.0.0.2

class SessionSearchTest : public SessionTest {
 protected:
  // A session from 10.0.0.1:1000 to 10.0.0.2:80 over TCP, whose other direction is `negative`.
  Record Both(const Record &negative) {
    return Session(Ipv4Key(kSource, kDestination, 1000, 80, 6)).Address(120, Keep(negative));
  }
  Record Plain() { return Both(Ipv4Key(0x0B000001, 0x0B000002, 80, 1000, 17)); }

  // How many records a search collects, or its code.
  int Count(const std::string &key1, uint32_t srcPort = 0, uint32_t dstPort = 0, uint32_t protocol = 0) {
    const Found found = Call(NqeTableSearchSession, 0, key1.c_str(), srcPort, dstPort, protocol);
    return found.code == 0 ? static_cast<int>(found.record.size() / 192) : found.code;
  }
};

TEST_F(SessionSearchTest, AllAndNumCollectEverySessionWithBothKeys) {
  for (int i = 0; i < 8; ++i) Add(Plain());
  Add(Plain().U64(112, 0));
  Add(Plain().U64(120, 0));
  EXPECT_EQ(Count("all"), 8);
  EXPECT_EQ(Count("allthings"), 8);
  EXPECT_EQ(Count("num5"), 5);
  EXPECT_EQ(Count("num8"), 8);
  EXPECT_EQ(Count("num9"), 8);
  EXPECT_EQ(Count("num5 of them"), 5);
  EXPECT_EQ(Count("all", 1, 2, 3), 8);  // ports are not looked at
  EXPECT_EQ(platform.walks, std::vector<std::string>(7, "visit 65"));
}

TEST_F(SessionSearchTest, DeliversWholeRecordsInOrder) {
  Bytes expected;
  for (uint32_t i = 0; i < 3; ++i) {
    const Record record = Plain().U32(0, 100 + i).U64(184, 0xEEEEEEEEEEEEEEEE);
    Add(record);
    expected.insert(expected.end(), record.bytes().begin(), record.bytes().end());
  }
  for (const uint32_t loopNum : {0, 1, 50}) {
    EXPECT_EQ(Call(NqeTableSearchSession, loopNum, "all"), (Found{0, expected}));
    EXPECT_EQ(platform.allocations.back().size, 682u * 192);
    EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_session");
  }
}

TEST_F(SessionSearchTest, AtMost682WithoutANumber) {
  const Record record = Plain();
  for (int i = 0; i < 683; ++i) Add(record);
  EXPECT_EQ(Count("all"), 682);
  EXPECT_EQ(Count("10.0.0.1:10.0.0.2"), 682);
  EXPECT_EQ(Count("num683"), 683);
  EXPECT_EQ(Count("num10000"), 683);
}

// The whole query: keys of both directions are compared, and those of the one that is found are printed.
TEST_F(SessionSearchTest, AsksTheKernelAboutPagesOnly) {
  for (int i = 0; i < 4000; ++i) Add(Plain());
  Add(Session(Ipv4Key(0x0A000003, kDestination, 1000, 80, 6)).Address(120, Keep(Ipv4Key(1, 2, 3, 4, 5))));
  std::string area(QDT_OUTPUT_CAPACITY, '#');
  KernelCalls::count = 0;
  CliNqeTblSearch(area.data(), QDT_OUTPUT_CAPACITY, 50, "sip:10.0.0.3", 0, 0, 0);
  EXPECT_NE(area.find("  PosSrcIp     :  0x0a000003\n"), std::string::npos) << area.c_str();
  EXPECT_GE(KernelCalls::count.load(), 1);
  EXPECT_LE(KernelCalls::count.load(), 1000);
}

TEST_F(SessionSearchTest, NumbersThatAreNone) {
  Add(Plain());
  for (const char *key : {"num", "num0", "numeric", "num 0"}) {
    EXPECT_EQ(Count(key), 0) << key;
    EXPECT_EQ(platform.allocations.back().size, 0u) << key;
  }
}

TEST_F(SessionSearchTest, NumbersThatNoMemoryHolds) {
  Add(Plain());
  for (const char *key : {"num-1", "num-5", "num11184811", "num4294967295", "num9223372036854775807",
                          "num99999999999999999999"}) {
    platform.allocations.clear();
    EXPECT_EQ(Count(key), QDT_TBL_NO_MEMORY) << key;
    ASSERT_EQ(platform.allocations.size(), 1u) << key;  // the number's text alone
    EXPECT_EQ(platform.allocations[0].size, std::strlen(key) - 2) << key;
  }
  EXPECT_TRUE(platform.walks.empty());
}

// As the command's own check of the number does.
TEST_F(SessionSearchTest, OfWideNumbersTheLow32BitsCount) {
  for (int i = 0; i < 3; ++i) Add(Plain());
  EXPECT_EQ(Count("num4294967297"), 1);
  EXPECT_EQ(Count("num-4294967294"), 2);
  EXPECT_EQ(Count("num4294967296"), 0);
  EXPECT_EQ(Count("num-9999999999999999999"), 0);  // the lowest number of 64 bits
}

TEST_F(SessionSearchTest, KeysUpToThirtyCharacters) {
  EXPECT_EQ(Count("all" + std::string(27, 'x')), 0);
  EXPECT_EQ(Count("all" + std::string(28, 'x')), QDT_TBL_FORMAT);
  EXPECT_EQ(Count("num" + std::string(28, '1')), QDT_TBL_FORMAT);
}

TEST_F(SessionSearchTest, ShortMemory) {
  Add(Plain());
  platform.FailAllocation(0);
  EXPECT_EQ(Count("all"), QDT_TBL_NO_MEMORY);
  for (const int failing : {0, 1}) {
    platform.FailAllocation(failing);
    EXPECT_EQ(Count("num5"), QDT_TBL_NO_MEMORY);
  }
  EXPECT_TRUE(platform.walks.empty());
  platform.FailAllocation(-1);
  EXPECT_EQ(Count("num5"), 1);
}

TEST_F(SessionSearchTest, AWalkThatFails) {
  for (const int32_t code : {-1, -116, 2}) {
    platform.FailTable(kSessionTable, code);
    void *record = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(NqeTableSearchSession(&record, &length, &context, 0, "all", 0, 0, 0), QDT_TBL_FAIL);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
}

TEST_F(SessionSearchTest, TwoAddressesMatchEitherDirection) {
  Add(Plain());
  EXPECT_EQ(Count("10.0.0.1:10.0.0.2"), 1);
  EXPECT_EQ(Count("11.0.0.1:11.0.0.2"), 1);
  for (const char *key : {"10.0.0.2:10.0.0.1", "10.0.0.1:11.0.0.2", "11.0.0.1:10.0.0.2", "10.0.0.1:10.0.0.3",
                          "10.0.0.3:10.0.0.2"}) {
    EXPECT_EQ(Count(key), 0) << key;
  }
}

TEST_F(SessionSearchTest, PortsAndProtocolOfTwoAddresses) {
  Add(Plain());
  const struct {
    uint32_t srcPort, dstPort, protocol;
    int found;
  } kCases[] = {
      {1000, 80, 6, 1},  {1001, 80, 6, 0}, {1000, 81, 6, 0},
      {1000, 80, 17, 0}, {1000, 80, 0, 0}, {1000, 0, 6, 0},
      {1000, 0, 0, 0},   {0, 80, 6, 0},    {0, 80, 0, 0},
      {0, 0, 6, 1},      {0, 0, 17, 0},    {0, 0, 0, 1},
      {66536, 80, 6, 0}, {0, 0, 262, 0},   {1000, 65536 + 80, 6, 0},  // wider than the key's fields
  };
  for (const auto &c : kCases) {
    EXPECT_EQ(Count("10.0.0.1:10.0.0.2", c.srcPort, c.dstPort, c.protocol), c.found)
        << c.srcPort << " " << c.dstPort << " " << c.protocol;
  }
  EXPECT_EQ(Count("11.0.0.1:11.0.0.2", 80, 1000, 17), 1);
}

TEST_F(SessionSearchTest, ZerosOfAKeyCannotBeAskedForWithASourcePort) {
  const Record other = Ipv4Key(1, 2, 3, 4, 5);
  Add(Session(Ipv4Key(kSource, kDestination, 1000, 0, 6)).Address(120, Keep(other)));
  EXPECT_EQ(Count("10.0.0.1:10.0.0.2", 1000, 0, 6), 0);
  Add(Session(Ipv4Key(kSource, kDestination, 1000, 80, 0)).Address(120, Keep(other)));
  EXPECT_EQ(Count("10.0.0.1:10.0.0.2", 1000, 80, 0), 0);
}

TEST_F(SessionSearchTest, OneAddress) {
  Add(Plain());
  const struct {
    const char *key;
    uint32_t srcPort, dstPort, protocol;
    int found;
  } kCases[] = {
      {"sip:10.0.0.1", 0, 0, 0, 1},  {"sip:11.0.0.1", 0, 0, 0, 1},  {"sip:10.0.0.2", 0, 0, 0, 0},
      {"sip:10.0.0.1", 1, 0, 0, 0},  {"sip:10.0.0.1", 0, 1, 0, 0},  {"sip:10.0.0.1", 0, 0, 6, 0},
      {"dip:10.0.0.2", 0, 0, 0, 1},  {"dip:11.0.0.2", 0, 0, 0, 1},  {"dip:10.0.0.1", 0, 0, 0, 0},
      {"dip:10.0.0.2", 1, 0, 0, 0},  {"dip:10.0.0.2", 0, 1, 0, 0},  {"dip:10.0.0.2", 0, 0, 6, 0},
      {"SIP:10.0.0.1", 0, 0, 0, 0},  {"ip:10.0.0.1", 0, 0, 0, 0},   {"sip:10.0.0.x", 0, 0, 0, 0},
      {"sip:", 0, 0, 0, 0},          {"sip:sip", 0, 0, 0, 0},       {"10.0.0.1:dip", 0, 0, 0, 0},
      {"sip: 10.0.0.1", 0, 0, 0, 0}, {"sipx:10.0.0.1", 0, 0, 0, 0},
  };
  for (const auto &c : kCases)
    EXPECT_EQ(Count(c.key, c.srcPort, c.dstPort, c.protocol), c.found) << c.key << " " << c.srcPort;
}

TEST_F(SessionSearchTest, KeysThatMatchNothing) {
  Add(Plain());
  for (const char *key : {"10.0.0.1", "", ":", ":10.0.0.2", "10.0.0.1:", "ALL", "Num5", "nu", "al",
                          "10.0.0.1111111111:10.0.0.2", "10.0.0.1:10.0.0.2:80", "10.0.0.1:10.0.0.22222222"}) {
    EXPECT_EQ(Count(key), 0) << key;
  }
  platform.log.clear();
  EXPECT_EQ(Count("10.0.0.1"), 0);  // one line a direction
  EXPECT_EQ(platform.log, std::vector<LogLine>(2, {3, "[ErrCode: -6]not support this input for 10.0.0.1\n"}));
}

TEST_F(SessionSearchTest, DamagedKeysMatchNothing) {
  for (const uint64_t wild : kWildAddresses) {
    platform.ClearTable(kSessionTable);
    Add(Plain().U64(112, wild));
    EXPECT_EQ(Count("10.0.0.1:10.0.0.2"), 0);
    EXPECT_EQ(Count("11.0.0.1:11.0.0.2"), 1);  // by its other direction
    EXPECT_EQ(Count("all"), 1);
  }
}

TEST_F(SessionSearchTest, TheCallbackAndItsRoom) {
  const Record record = Plain();
  auto *const live = const_cast<void *>(record.data());
  Bytes area(2 * 192, 0xEE);
  SessionCollect collect = {{"all", 0, 0, 0}, area.data(), 0, 0, 2};
  for (uint32_t count = 1; count <= 2; ++count) {
    EXPECT_EQ(SessionNodeSearchMatch(live, &collect), -9);
    EXPECT_EQ(collect.Count, count);
    EXPECT_EQ(collect.Bytes, count * 192);
  }
  EXPECT_EQ(SessionNodeSearchMatch(live, &collect), -10);
  collect.Count = 3;  // above the limit
  EXPECT_EQ(SessionNodeSearchMatch(live, &collect), -10);
  EXPECT_EQ(collect.Bytes, 2u * 192);
  EXPECT_EQ(std::memcmp(area.data(), record.data(), 192), 0);
  EXPECT_EQ(std::memcmp(area.data() + 192, record.data(), 192), 0);
}

TEST_F(SessionSearchTest, TheMatchersAlone) {
  const Record key = Ipv4Key(kSource, kDestination, 1000, 80, 6);
  SessionSearchKey search = {"10.0.0.1:10.0.0.2", 0, 0, 0};
  EXPECT_EQ(SessionNodeMatchHashNode(&search, key.data()), 0);
  EXPECT_EQ(SessionNodeParamMultiIp(&search, htonl(kSource), htonl(kDestination), key.data()), 0);
  EXPECT_NE(SessionNodeParamMultiIp(&search, htonl(kSource), htonl(kSource), key.data()), 0);
  EXPECT_EQ(SessionNodeParamSingleIp(&search, "sip", "", htonl(kSource), key.data()), 0);
  EXPECT_EQ(SessionNodeParamSingleIp(&search, "dip", "", htonl(kDestination), key.data()), 0);
  EXPECT_NE(SessionNodeParamSingleIp(&search, "10.0.0.1", "", htonl(kSource), key.data()), 0);
  const Record broadcast = Ipv4Key(0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 0);
  EXPECT_NE(SessionNodeParamSingleIp(&search, "sip", "", 0xFFFFFFFF, broadcast.data()), 0);
  std::strcpy(search.Text, "10.0.0.1");
  EXPECT_EQ(SessionNodeMatchHashNode(&search, key.data()), -6);
}

}  // namespace
}  // namespace qdt::test
