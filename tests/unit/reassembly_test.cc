#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qdt/oma.h"
#include "src/om/common/processor_timer.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/unit/kernel_calls.h"

// The listings of packets that wait for fragments: both layouts, the filters, rings that are broken, and what
// fails.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;
using Log = std::vector<LogLine>;

constexpr uint32_t kGlobal = 0;
constexpr char kRegion4[] = "IP_REASS_CTX_PTR";
constexpr char kRegion6[] = "IP6_REASS_CTX_PTR";

uint64_t NowInMilliseconds() {
  return static_cast<uint64_t>(static_cast<unsigned __int128>(TimerCounter()) * 1000 / TimerFrequency());
}

// An entry with a different value in every field, whose time is over.
Record Entry4() {
  return Record(104)
      .U32(32, 0x00110005)
      .U32(36, 0x0A010007)
      .U32(40, 0xC0A80163)
      .U32(44, 1000044)
      .U64(48, UINT64_MAX)
      .U64(56, UINT64_MAX)
      .U64(64, 64)
      .U32(72, 1000072)
      .U32(76, 1000076)
      .U32(80, 1000080)
      .U64(84, UINT64_MAX)
      .U32(92, UINT32_MAX)
      .U32(96, 1000096)
      .U32(100, 0xFFF40000u + 12345);  // the flags of the first fragment and of others, but not 19 and 20
}

constexpr char kText4[] =
    "\n  Vrf : 1114117                   Protocol : 17\n"
    "  SRC Addr : 10.1.0.7             First Arrived Flag: 1\n"
    "  DST Addr : 192.168.1.99         Last Arrived Flag : 0\n"
    "  SRC Port : 1000072              DST Port : 1000076     \n"
    "  Vlan : 1000080                  Reassemble : 1           \n"
    "  Packet ID : 1000044             Frag Count: 1000096\n"
    "  TTL(ms) : 12345                 Left-time(ms) : 0\n";

Record Entry6() {
  return Record(128)
      .U32(32, 0x003A0006)
      .U32(36, 0x20010DB8)
      .U32(40, 0x00010000)
      .U32(48, 0x00000007)
      .U32(52, 0xFE800000)
      .U32(56, 0x00000001)
      .U32(60, 0x00000002)
      .U32(64, 0x0A0B0C0D)
      .U32(68, 2000068)
      .U64(72, UINT64_MAX)
      .U64(80, UINT64_MAX)
      .U64(88, 88)
      .U32(96, 2000096)
      .U32(100, 2000100)
      .U32(104, 2000104)
      .U64(108, UINT64_MAX)
      .U32(116, UINT32_MAX)
      .U32(120, 2000120)
      .U32(124, 0xFFEB0000u + 54321);
}

constexpr char kText6[] =
    "\n  Vrf : 3801094                   Protocol : 58\n"
    "  SRC Addr : 2001:db8:1::7                                  First Arrived Flag: 1\n"
    "  DST Addr : fe80::1:0:2:a0b:c0d                            Last Arrived Flag : 0\n"
    "  SRC Port : 2000100              DST Port : 2000104     \n"
    "  Vlan : 2000096                  Reassemble : 0           \n"
    "  Packet ID : 2000068             Frag Count: 2000120\n"
    "  TTL(ms) : 54321                 Left-time(ms) : 0\n";

// What differs between the two versions, for the tests of what does not.
struct Version {
  const char *name;
  const char *region;
  int32_t (*handle)(AgentRequest);
  int32_t (*print)(char *, uint32_t, uint32_t, const void *);
  Record (*entry)();
  const char *text;
  size_t flags, timeStamp;
  int first, last, reassemble;
  const char *logMark;  // in front of its log lines
  const char *verifyLog;
  const char *printLog;
};

const Version kVersions[] = {
    {"ipv4", kRegion4, QdtOmaIpv4FragReassProc, QdtOmaFragReassPrintTblInfo, Entry4, kText4, 100, 64, 18, 19,
     20, "", "[Qdt IPv4]verify param fail\n", "sprintf_s failed, ret: -1\n\n"},
    {"ipv6", kRegion6, QdtOmaIpv6FragReassProc, QdtOmaIpv6FragReassPrintTblInfo, Entry6, kText6, 124, 88, 17,
     18, 20, "[Qdt IPv6]", "[Qdt IPv6]verify param fail\n",
     "[Qdt IPv6]ip6 reass sprintf_s failed, ret: -1\n\n"},
};

class ReassemblyTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.AddEntry(kGlobal, Key(uint32_t{0}), Bytes(8));
    for (const char *name : {kRegion4, kRegion6}) {
      platform.AddRegion(name, 40);
      SetRing(name, {});
    }
  }

  uint64_t Head(const char *region) { return reinterpret_cast<uint64_t>(platform.Region(region)) + 24; }
  static uint64_t LinkOf(const Record &entry) { return reinterpret_cast<uint64_t>(entry.data()) + 16; }

  void SetFirst(const char *region, uint64_t link) {
    static_cast<uint64_t *>(platform.Region(region))[4] = link;  // byte 32
    static_cast<uint64_t *>(platform.Region(region))[3] = 0xBAD0BAD0BAD0BAD0;
  }

  // Makes the entries the region's ring. Their backward links, which nothing follows, lead nowhere.
  void SetRing(const char *region, const std::vector<Record> &entries) {
    ring_.assign(entries.begin(), entries.end());
    SetFirst(region, ring_.empty() ? Head(region) : LinkOf(ring_.front()));
    for (size_t i = 0; i < ring_.size(); ++i) {
      ring_[i].U64(16, 0xBAD0BAD0BAD0BAD0);
      ring_[i].U64(24, i + 1 < ring_.size() ? LinkOf(ring_[i + 1]) : Head(region));
    }
  }

  // Asks with these addresses, which may be null; the answer, or what was returned without one.
  std::string List(const Version &version, const char *source = nullptr, const char *destination = nullptr) {
    request_.texts.clear();
    if (source != nullptr) request_.texts["source-ip"] = source;
    if (destination != nullptr) request_.texts["destination-ip"] = destination;
    platform.answers.clear();
    result = version.handle(&request_);
    EXPECT_EQ(platform.liveAllocations(), 0u);
    return platform.answers.empty() ? "nothing, " + std::to_string(result) : platform.answers.back();
  }

  std::string Print(const Version &version, const Record &entry) {
    std::string area(4096, '#');
    const int32_t written = version.print(area.data(), 4096, 0, entry.data());
    EXPECT_EQ(std::strlen(area.c_str()), static_cast<size_t>(written));
    return area.c_str();
  }

  // The number behind `label` in a block.
  static long Value(const std::string &text, const std::string &label) {
    const size_t at = text.find(label);
    EXPECT_NE(at, std::string::npos) << text;
    return at == std::string::npos ? -1 : std::stol(text.substr(at + label.size()));
  }

  omcc_request request_;
  std::deque<Record> ring_;
};

TEST_F(ReassemblyTest, WholeAnswer) {
  for (const Version &version : kVersions) {
    SetRing(version.region, {version.entry(), version.entry().U32(32, 0xFFFF8005), version.entry()});
    platform.attaches.clear();
    platform.allocations.clear();
    std::string second = version.text;
    second.replace(1, second.find('\n', 1) - 1, "  Vrf : -32763                    Protocol : 65535");
    EXPECT_EQ(List(version), version.text + second + version.text);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(platform.attaches, Lines{std::string(version.region) + " 0"});
    ASSERT_EQ(platform.allocations.size(), 1u);
    EXPECT_EQ(platform.allocations[0].size, 409600u);
  }
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(ReassemblyTest, MemoryIsTakenInTheNameOfItsSource) {
  List(kVersions[0]);
  List(kVersions[1]);
  ASSERT_EQ(platform.allocations.size(), 2u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/oma/qdt_oma_frag_reass");
  EXPECT_EQ(platform.allocations[1].path, "src/om/oma/qdt_oma_ipv6_frag_reass");
}

TEST_F(ReassemblyTest, AnEmptyRingSendsAnEmptyReply) {
  for (const Version &version : kVersions) {
    EXPECT_EQ(List(version), "") << version.name;
    EXPECT_EQ(result, 0);
  }
}

TEST_F(ReassemblyTest, AsksTheKernelAboutPagesOnly) {
  for (const Version &version : kVersions) {
    SetRing(version.region, std::vector<Record>(4000, version.entry()));
    KernelCalls::count = 0;
    EXPECT_EQ(List(version, version.region == kRegion4 ? "192.0.2.1" : "2001:db8::1"), "");
    EXPECT_LE(KernelCalls::count.load(), 1000);
  }
}

TEST_F(ReassemblyTest, EachFlagHasItsBit) {
  for (const Version &version : kVersions) {
    for (int bit = 0; bit < 32; ++bit) {
      SCOPED_TRACE(std::string(version.name) + " bit " + std::to_string(bit));
      const std::string text = Print(version, version.entry().U32(version.flags, 1u << bit));
      EXPECT_EQ(Value(text, "TTL(ms) : "), bit < 16 ? 1 << bit : 0);
      EXPECT_EQ(Value(text, "First Arrived Flag: "), bit == version.first);
      EXPECT_EQ(Value(text, "Last Arrived Flag : "), bit == version.last);
      EXPECT_EQ(Value(text, "Reassemble : "), bit == version.reassemble);
    }
  }
}

TEST_F(ReassemblyTest, LeftTime) {
  for (const Version &version : kVersions) {
    // Left times around those of an entry that is as old as `age` says.
    const auto left = [&](int64_t age, uint32_t ttl) {
      const uint64_t stamp = NowInMilliseconds() - static_cast<uint64_t>(age);
      const Record entry = version.entry().U32(version.flags, ttl).U64(version.timeStamp, stamp);
      const long most = static_cast<long>(ttl + stamp - NowInMilliseconds());
      const long shown = Value(Print(version, entry), "Left-time(ms) : ");
      EXPECT_LE(shown, std::max(0L, most));
      EXPECT_GE(shown, std::max(0L, static_cast<long>(ttl + stamp - NowInMilliseconds())));
      return shown;
    };
    EXPECT_GT(left(0, 65535), 0);
    EXPECT_GT(left(1000, 65535), 0);
    EXPECT_GT(left(-100000, 0), 65535);  // stamped in the future
    EXPECT_EQ(left(65000, 1000), 0);
    EXPECT_EQ(left(1, 0), 0);
    // Beyond what 32 bits hold.
    const auto shown = [&](uint64_t stamp) {
      return Value(Print(version, version.entry().U64(version.timeStamp, stamp)), "Left-time(ms) : ");
    };
    EXPECT_EQ(shown(NowInMilliseconds() + 0x100000000), INT32_MAX);
    EXPECT_EQ(shown(NowInMilliseconds() - 0xC0000000), 0);
  }
}

TEST_F(ReassemblyTest, MillisecondsOfTheTimer) {
  EXPECT_EQ(TicksToMilliseconds(123456789, 0), 0u);
  EXPECT_EQ(TicksToMilliseconds(0, 100), 0u);
  EXPECT_EQ(TicksToMilliseconds(62'500'000, 62'500'000), 1000u);
  EXPECT_EQ(TicksToMilliseconds(62'499'999, 62'500'000), 999u);
  EXPECT_EQ(TicksToMilliseconds(24'000'001, 24'000'000), 1000u);
  EXPECT_EQ(TicksToMilliseconds(UINT64_MAX, 1'000'000'000), 18446744073709u);
}

TEST_F(ReassemblyTest, Ipv4Filters) {
  const auto entry = [](uint32_t source, uint32_t destination, uint32_t id) {
    return Entry4().U32(36, source).U32(40, destination).U32(44, id);
  };
  SetRing(kRegion4, {entry(0x01020304, 0x05060708, 1), entry(0x01020304, 0x0A0B0C0D, 2),
                     entry(0x05060708, 0x01020304, 3), entry(0xFFFFFFFF, 0, 4)});
  // The packet ids of an answer.
  const auto ids = [this](const char *source, const char *destination) {
    const std::string answer = List(kVersions[0], source, destination);
    std::string found;
    for (size_t at = answer.find("Packet ID : "); at != std::string::npos;
         at = answer.find("Packet ID : ", at + 1))
      found += answer[at + 12];
    return found;
  };
  EXPECT_EQ(ids(nullptr, nullptr), "1234");
  EXPECT_EQ(ids("1.2.3.4", nullptr), "12");
  EXPECT_EQ(ids(nullptr, "1.2.3.4"), "3");
  EXPECT_EQ(ids("1.2.3.4", "10.11.12.13"), "2");
  EXPECT_EQ(ids("5.6.7.8", "10.11.12.13"), "");
  EXPECT_EQ(ids("4.3.2.1", nullptr), "");
  EXPECT_EQ(ids("0.0.0.0", "0.0.0.0"), "1234");
  EXPECT_EQ(ids("1.2.3.456", nullptr), "4");  // no address: searched as the address of all ones
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(ReassemblyTest, Ipv6Filters) {
  SetRing(kRegion6, {Entry6()});
  const std::string shown = kText6;
  const Version &ipv6 = kVersions[1];
  for (const char *source : {"2001:db8:1::7", "2001:DB8:1:0::0.0.0.7", "::", "::zz", "2001:db8::1::7"})
    EXPECT_EQ(List(ipv6, source), shown) << source;  // a text that is no address passes all
  for (const char *source : {"2001:db9:1::7", "2001:db8:2::7", "2001:db8:1::1:0:7", "2001:db8:1::8", "::1"})
    EXPECT_EQ(List(ipv6, source), "") << source;
  EXPECT_EQ(List(ipv6, nullptr, "fe80::1:0:2:a0b:c0d"), shown);
  EXPECT_EQ(List(ipv6, nullptr, "2001:db8:1::7"), "");
  EXPECT_EQ(List(ipv6, "2001:db8:1::7", "fe80::1:0:2:a0b:c0d"), shown);
  EXPECT_EQ(List(ipv6, "2001:db8:1::7", "fe80::1:0:2:a0b:c0e"), "");
  EXPECT_EQ(List(ipv6, "fe80::1:0:2:a0b:c0d", "2001:db8:1::7"), "");

  const uint32_t source[4] = {0x20010DB8, 0x00010000, 0, 7}, any[4] = {};
  char text[1000];
  void *const region = platform.Region(kRegion6);
  EXPECT_EQ(QdtOmaIpv6FragReassGetTbl(region, text, sizeof(text), source, any),
            static_cast<int32_t>(shown.size()));
  EXPECT_EQ(text, shown);
  EXPECT_EQ(QdtOmaIpv6FragReassGetTbl(region, text, sizeof(text), any, source), 0);
}

TEST_F(ReassemblyTest, TheTypeSelectsTheHandler) {
  const auto attached = [this](const char *type) {
    request_.texts["type"] = type;
    platform.attaches.clear();
    EXPECT_EQ(QdtOmaFragReassProc(&request_), 0);
    return platform.attaches.at(0);
  };
  EXPECT_EQ(attached("ipv6"), "IP6_REASS_CTX_PTR 0");
  for (const char *type : {"IPV6", "ipv4", "", "ipv6 ", "ipv", "6"})
    EXPECT_EQ(attached(type), "IP_REASS_CTX_PTR 0");
  EXPECT_EQ(attached(nullptr), "IP_REASS_CTX_PTR 0");
  request_.texts.clear();
  request_.scribbles = true;
  platform.attaches.clear();
  EXPECT_EQ(QdtOmaFragReassProc(&request_), 0);
  EXPECT_EQ(platform.attaches, Lines{"IP_REASS_CTX_PTR 0"});

  request_.texts["type"] = "ipv6";
  platform.RemoveRegion(kRegion6);
  EXPECT_EQ(QdtOmaFragReassProc(&request_), -1);
  request_.texts["type"] = "ipv4";
  platform.FailTable(kGlobal, -7);
  EXPECT_EQ(QdtOmaFragReassProc(&request_), -7);
}

TEST_F(ReassemblyTest, AddressesOfTheOtherVersionAreToldToTheAgent) {
  SetRing(kRegion4, {Entry4()});
  const auto list = [this](const char *source, const char *destination) {
    platform.log.clear();
    const std::string answer = List(kVersions[0], source, destination);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(platform.log, (Log{{3, "[Qdt IPv4]verify param fail\n"}}));
    return answer;
  };
  EXPECT_EQ(list("fe80::1", nullptr), "  Input error, source-ip is fe80::1, but ip-type is 4");
  EXPECT_EQ(list("fe80::1", "fe80::2"), "  Input error, source-ip is fe80::1, but ip-type is 4");
  EXPECT_EQ(list("10.1.0.7", "::"), "  Input error, destination-ip is ::, but ip-type is 4");
  EXPECT_EQ(list("", nullptr), "  Input error, source-ip is , but ip-type is 4");
  EXPECT_EQ(list(nullptr, "x"), "  Input error, destination-ip is x, but ip-type is 4");

  EXPECT_EQ(List(kVersions[1], "1.2.3.4"), "  Input error, source-ip is 1.2.3.4, but ip-type is 6");
  EXPECT_EQ(platform.log.back(), (LogLine{3, "[Qdt IPv6]verify param fail\n"}));
  EXPECT_EQ(List(kVersions[1], "::1", "1.2.3.4"),
            "  Input error, destination-ip is 1.2.3.4, but ip-type is 6");

  // Sending decides.
  platform.sendResult = 1;
  List(kVersions[0], "fe80::1");
  EXPECT_EQ(result, -1);

  // The edge case of a request that names no type.
  platform.sendResult = 0;
  request_.texts = {{"source-ip", "2001:db8::1"}};
  EXPECT_EQ(QdtOmaFragReassProc(&request_), 0);
  EXPECT_EQ(platform.answers.back(), "  Input error, source-ip is 2001:db8::1, but ip-type is 4");
}

TEST_F(ReassemblyTest, VerifyParam) {
  std::string area(58, '#');
  EXPECT_EQ(QdtOmaFragVerifyParam(area.data(), 58, 4, nullptr, nullptr), 0);
  EXPECT_EQ(QdtOmaFragVerifyParam(area.data(), 58, 4, "1.2.3.4", "0."), 0);
  EXPECT_EQ(QdtOmaFragVerifyParam(area.data(), 58, 6, nullptr, ":"), 0);
  EXPECT_EQ(area, std::string(58, '#'));  // written only by a refusal
  EXPECT_EQ(QdtOmaFragVerifyParam(area.data(), 58, 6, "::", "1.2.3.4"), -1);
  EXPECT_STREQ(area.c_str(), "");  // the line takes 58 characters and its end: all or nothing
  area.assign(59, '#');
  EXPECT_EQ(QdtOmaFragVerifyParam(area.data(), 59, 6, "::", "1.2.3.4"), -1);
  EXPECT_STREQ(area.c_str(), "  Input error, destination-ip is 1.2.3.4, but ip-type is 6");
}

TEST_F(ReassemblyTest, ARegionThatIsNotThere) {
  for (const Version &version : kVersions) {
    platform.RemoveRegion(version.region);
    platform.log.clear();
    EXPECT_EQ(List(version), "nothing, -1");
    const std::string line =
        std::string(version.logMark) + "get fragctl by name " + version.region + " fail\n";
    EXPECT_EQ(platform.log, (Log{{3, line}}));
  }
  EXPECT_TRUE(platform.allocations.empty());
}

TEST_F(ReassemblyTest, TheGlobalTableIsNeededForIpv4) {
  SetRing(kRegion4, {Entry4()});
  List(kVersions[0]);
  EXPECT_EQ(platform.searches, Lines(2, "search 0 00000000"));  // once for the request, once for the entry

  for (const int32_t code : {-7, -1, 3}) {
    platform.FailTable(kGlobal, code);
    platform.log.clear();
    EXPECT_EQ(List(kVersions[0]), "nothing, " + std::to_string(code));
    EXPECT_EQ(platform.log,
              (Log{{3, "Search CAP_TABLE_GLOBAL fail for FragReass, ret: " + std::to_string(code) + "\n"}}));
  }
  EXPECT_EQ(List(kVersions[1]), "");

  platform.FailTable(kGlobal, -7);
  platform.log.clear();
  char text[1000];
  EXPECT_EQ(QdtOmaFragReassPrintTblInfo(text, sizeof(text), 0, Entry4().data()), -7);
  EXPECT_EQ(QdtOmaFragReassGetTbl(platform.Region(kRegion4), text, sizeof(text), 0, 0), -1);
  EXPECT_EQ(platform.log, Log(2, {3, "[ErrCode: -7]Error in Search CAP_TABLE_GLOBAL\n"}));

  // A positive code is no length.
  platform.FailTable(kGlobal, 3);
  platform.log.clear();
  EXPECT_EQ(QdtOmaFragReassPrintTblInfo(text, sizeof(text), 0, Entry4().data()), 3);
  EXPECT_EQ(QdtOmaFragReassGetTbl(platform.Region(kRegion4), text, sizeof(text), 0, 0), -1);
  EXPECT_EQ(platform.log, Log(2, {3, "[ErrCode: 3]Error in Search CAP_TABLE_GLOBAL\n"}));
  EXPECT_GT(QdtOmaIpv6FragReassPrintTblInfo(text, sizeof(text), 0, Entry6().data()), 0);
}

TEST_F(ReassemblyTest, ShortMemoryIsLogged) {
  for (const Version &version : kVersions) {
    platform.log.clear();
    platform.FailAllocation(0);
    EXPECT_EQ(List(version), "nothing, -1");
    EXPECT_EQ(platform.log, (Log{{3, std::string(version.logMark) + "malloc buf for tbl usage failed\n"}}));
  }
}

TEST_F(ReassemblyTest, AFailedSendIsLoggedForIpv6) {
  for (const int32_t sent : {-1, 1}) {
    platform.sendResult = sent;
    platform.log.clear();
    EXPECT_EQ(List(kVersions[0]), "");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(platform.log.empty());
    EXPECT_EQ(List(kVersions[1]), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(platform.log, (Log{{3, "[Qdt IPv6]send msg failed\n"}}));
  }
}

TEST_F(ReassemblyTest, WhatDoesNotFitIsNotSent) {
  for (const Version &version : kVersions) {
    const size_t length = std::strlen(version.text);
    const size_t fit = 409599 / length;
    SetRing(version.region, std::vector<Record>(fit, version.entry()));
    EXPECT_EQ(List(version).size(), fit * length);
    EXPECT_TRUE(platform.log.empty());
    SetRing(version.region, std::vector<Record>(fit + 1, version.entry()));
    EXPECT_EQ(List(version), "nothing, -1");
    Log expected = {{3, version.printLog}};
    if (version.region == kRegion6) expected.push_back({3, "[Qdt IPv6]get frag reass tbl failed\n"});
    EXPECT_EQ(platform.log, expected);
    platform.log.clear();
  }
}

TEST_F(ReassemblyTest, BlocksStandBehindWhatIsThere) {
  for (const Version &version : kVersions) {
    const auto length = static_cast<uint32_t>(std::strlen(version.text));
    const Record entry = version.entry();
    for (const uint32_t offset : {0u, 1u, 77u}) {
      const uint32_t whole = offset + length + 1;
      for (const uint32_t size : {0u, offset, offset + 1, offset + 2, whole - 1, whole}) {
        std::string area(size, '#');
        platform.log.clear();
        const int32_t written = version.print(area.data(), size, offset, entry.data());
        EXPECT_EQ(area.substr(0, offset), std::string(std::min(offset, size), '#'));
        if (size == whole) {
          EXPECT_EQ(written, static_cast<int32_t>(length));
          EXPECT_EQ(area.substr(offset), version.text + std::string(1, '\0'));
        } else {
          EXPECT_EQ(written, -1) << size;
          EXPECT_EQ(platform.log, (Log{{3, version.printLog}}));
        }
      }
    }
    std::string unaligned = "x";
    unaligned.append(static_cast<const char *>(entry.data()), entry.size());
    std::string area(length + 1, '#');
    EXPECT_EQ(version.print(area.data(), length + 1, 0, unaligned.data() + 1), static_cast<int32_t>(length));
    EXPECT_STREQ(area.c_str(), version.text);
  }
}

// Rings that the engine was changing, or damaged.
class BrokenRingTest : public ReassemblyTest {
 protected:
  void SetUp() override {
    ReassemblyTest::SetUp();
    page_ = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page_, MAP_FAILED);
    guard_ = mmap(nullptr, kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(guard_, MAP_FAILED);
  }
  void TearDown() override {
    munmap(page_, kPage);
    munmap(guard_, kPage);
    ReassemblyTest::TearDown();
  }

  // Links that lead nowhere, or to an entry that is not there in full.
  std::vector<uint64_t> BadLinks() const {
    const auto guard = reinterpret_cast<uint64_t>(guard_);
    return {0, 1, 16, 0x10000, guard, guard + 2000, 0x8000000000000000, UINT64_MAX};
  }

  static constexpr size_t kPage = 65536;  // of any processor, in whole pages
  void *page_ = nullptr;
  void *guard_ = nullptr;
};

TEST_F(BrokenRingTest, ABadLinkEndsTheWalk) {
  for (const Version &version : kVersions) {
    for (const uint64_t bad : BadLinks()) {
      SetRing(version.region, {version.entry(), version.entry(), version.entry()});
      ring_[1].U64(24, bad);
      EXPECT_EQ(List(version), std::string(version.text) + version.text) << std::hex << bad;
      EXPECT_EQ(result, 0);
      SetFirst(version.region, bad);
      EXPECT_EQ(List(version), "") << std::hex << bad;
      EXPECT_EQ(result, 0);
    }
  }
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(BrokenRingTest, ALoopBesidesTheHeadEnds) {
  for (const Version &version : kVersions) {
    SetRing(version.region, {version.entry(), version.entry(), version.entry()});
    ring_[2].U64(24, LinkOf(ring_[1]));
    // Nothing that the filter passes: round and round without filling the answer.
    EXPECT_EQ(List(version, version.region == kRegion4 ? "1.1.1.1" : "::1"), "");
    EXPECT_EQ(result, 0);
    const std::string text = version.text;
    EXPECT_EQ(List(version), text + text + text);
    EXPECT_EQ(result, 0);
    ring_[0].U64(24, LinkOf(ring_[0]));
    EXPECT_EQ(List(version), text);
    EXPECT_EQ(result, 0);
  }
}

// Wherever a circle begins and however long it is, each of its entries is shown and the walk ends soon after.
TEST_F(BrokenRingTest, EveryCircleIsFound) {
  for (const Version &version : kVersions) {
    for (size_t entries = 1; entries <= 12; ++entries) {
      for (size_t to = 0; to < entries; ++to) {
        SetRing(version.region, std::vector<Record>(entries, version.entry()));
        ring_.back().U64(24, LinkOf(ring_[to]));
        const size_t shown = List(version).size() / std::strlen(version.text);
        EXPECT_EQ(result, 0);
        EXPECT_GE(shown, entries) << to;
        EXPECT_LE(shown, 3 * entries) << to;
      }
    }
  }
}

// The length of a ring is the engine's affair: 70,000 entries that do not pass, and one behind them that
// does.
TEST_F(BrokenRingTest, LongRingsAreWalkedToTheirEnd) {
  for (const Version &version : kVersions) {
    const bool isIpv4 = version.region == kRegion4;
    std::vector<Record> entries(70000, isIpv4 ? Record(104) : Record(128));
    entries.push_back(version.entry());
    SetRing(version.region, entries);
    EXPECT_EQ(List(version, isIpv4 ? "10.1.0.7" : "2001:db8:1::7"), version.text);
    EXPECT_EQ(result, 0);
  }
}

TEST_F(BrokenRingTest, ARegionThatCannotBeReadHasNoEntries) {
  char text[100];
  const uint32_t any[4] = {};
  EXPECT_EQ(QdtOmaFragReassGetTbl(guard_, text, sizeof(text), 0, 0), 0);
  EXPECT_EQ(QdtOmaIpv6FragReassGetTbl(guard_, text, sizeof(text), any, any), 0);
}

TEST_F(BrokenRingTest, EntriesMayEndWithThePage) {
  for (const Version &version : kVersions) {
    SetRing(version.region, {version.entry()});
    const Record &entry = ring_[0];
    char *const at = static_cast<char *>(page_) + kPage - entry.size();
    std::memcpy(at, entry.data(), entry.size());
    SetFirst(version.region, reinterpret_cast<uint64_t>(at) + 16);
    EXPECT_EQ(List(version), version.text);
  }
}

}  // namespace
}  // namespace qdt::test
