#include "src/om/oma/session_filter.h"

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/session_fixture.h"

// The filter of session queries and resets: what its rows read from a request, and which sessions pass them.
namespace qdt::test {
namespace {

constexpr uint32_t kSource = 0x0A000001, kDestination = 0x0A000002;        // 10.0.0.1, 10.0.0.2
constexpr uint32_t kNewSource = 0xCB007101, kNewDestination = 0xCB007102;  // 203.0.113.1, 203.0.113.2
constexpr uint32_t kLoopback = 0x7F000001;                                 // 127.0.0.1
constexpr int kSourceBit = 0, kDestinationBit = 1, kSourcePortBit = 2, kDestinationPortBit = 3;

class SessionFilterTest : public SessionTest {
 protected:
  // An IPv4 session from 10.0.0.1:1000 to 10.0.0.2:80, TCP, VPN 7, whose translation is there but not in use.
  Record Ipv4(uint32_t source = kSource, uint32_t destination = kDestination) {
    return Fill(Session(Ipv4Key(source, destination, 1000, 80, 6, 7)));
  }
  // An IPv6 session from [2001:db8::1]:1000 to [2001:db8::2]:80, TCP, VPN 7.
  Record Ipv6() { return Fill(Session(Ipv6Key(1, 2, 1000, 80, 6, 7))); }

  // 0, 1 or -1 for the record, held against the request.
  int32_t Match(const Record &record) {
    EXPECT_EQ(SessionParamValuelClear(), 1);
    EXPECT_EQ(QuerySessionGetParam(&request_, 1), 0);
    return QuerySessionNodeMatch(record.data());
  }

  void Clear() {
    request_ = {};
    platform.log.clear();
  }

  int32_t MatchText(const Record &record, const char *name, const char *text) {
    Clear();
    request_.texts[name] = text;
    if (record.bytes()[8] & kIpv6Flag) request_.texts["type"] = "ipv6";
    return Match(record);
  }

  int32_t MatchNumber(const Record &record, const char *name, uint64_t number) {
    Clear();
    request_.numbers[name] = number;
    if (record.bytes()[8] & kIpv6Flag) request_.texts["type"] = "ipv6";
    return Match(record);
  }

 private:
  static Record Fill(Record record) {
    return record.U32(28, kNewSource)
        .U32(32, kNewDestination)
        .U16(36, 2000)
        .U16(38, 8080)
        .U32(40, 0xEEEEEEEE)  // the negative direction is not looked at
        .U32(44, 0xEEEEEEEE)
        .U16(20, 11)
        .U16(22, 12)
        .U8(52, 47);
  }
};

TEST_F(SessionFilterTest, SessionsThatNoQueryShows) {
  EXPECT_EQ(Match(Ipv4()), 0);
  for (int flags = 0; flags < 256; ++flags) {
    const bool valid = (flags & 0x20) != 0, ipv6 = (flags & 0x01) != 0;
    EXPECT_EQ(Match(Ipv4().U8(8, static_cast<uint8_t>(flags))), valid && !ipv6 ? 0 : 1) << flags;
  }
  for (int state = 0; state < 256; ++state)
    EXPECT_EQ(Match(Ipv4().U8(9, static_cast<uint8_t>(state))), state == 1 ? 1 : 0) << state;
  EXPECT_EQ(Match(Ipv4().U16(10, 0)), 1);
  EXPECT_EQ(Match(Ipv4().U16(10, 1)), 0);
  EXPECT_EQ(Match(Ipv4().U16(10, 65535)), 0);
}

TEST_F(SessionFilterTest, TheTypeIsAlwaysActive) {
  for (const char *type : {"", "ipv4", "IPv6", "ipv6 ", "all"}) {
    request_.texts["type"] = type;
    EXPECT_EQ(Match(Ipv4()), 0) << type;
    EXPECT_EQ(Match(Ipv6()), 1) << type;
  }
  request_.texts["type"] = nullptr;
  EXPECT_EQ(Match(Ipv6()), 1);
  request_.texts.clear();
  EXPECT_EQ(Match(Ipv4()), 0);
  EXPECT_EQ(Match(Ipv6()), 1);
  request_.texts["type"] = "ipv6";
  EXPECT_EQ(Match(Ipv4()), 1);
  EXPECT_EQ(Match(Ipv6()), 0);
}

// What a row of the filter makes of an IPv4 session whose translation bits are set as stated.
struct Row {
  const char *name;
  std::vector<int> bits;
  const char *passes;
  std::vector<const char *> fails;
};

TEST_F(SessionFilterTest, AddressesOfIpv4Sessions) {
  const Row kRows[] = {
      {"global-destination-ip", {}, "10.0.0.2", {"10.0.0.1", "203.0.113.2", "2.0.0.10"}},
      {"global-destination-ip", {kDestinationBit}, "10.0.0.2", {"203.0.113.2"}},
      {"global-source-ip", {}, "10.0.0.1", {"203.0.113.1", "10.0.0.2"}},
      {"global-source-ip", {kSourceBit}, "203.0.113.1", {"10.0.0.1"}},
      {"global-source-ip", {1, 2, 3, 7, 8}, "10.0.0.1", {"203.0.113.1"}},
      {"inside-destination-ip", {}, "10.0.0.2", {"203.0.113.2", "10.0.0.1"}},
      {"inside-destination-ip", {kDestinationBit}, "203.0.113.2", {"10.0.0.2"}},
      {"inside-destination-ip", {0, 2, 3, 7, 8}, "10.0.0.2", {"203.0.113.2"}},
      {"inside-source-ip", {}, "10.0.0.1", {"203.0.113.1", "10.0.0.2"}},
      {"inside-source-ip", {kSourceBit}, "10.0.0.1", {"203.0.113.1"}},
  };
  for (const Row &row : kRows) {
    Record record = Ipv4();
    for (const int bit : row.bits) record.Bits(16, bit, 1);
    EXPECT_EQ(MatchText(record, row.name, row.passes), 0) << row.name << " " << row.passes;
    for (const char *address : row.fails)
      EXPECT_EQ(MatchText(record, row.name, address), 1) << row.name << " " << address;
  }
}

TEST_F(SessionFilterTest, LoopbackAddresses) {
  for (const uint32_t loopback : {0x7F000000u, kLoopback, 0x7FFFFFFFu}) {
    const Record there = Ipv4().U32(32, loopback).Bits(16, kDestinationBit, 1);
    EXPECT_EQ(MatchText(there, "inside-destination-ip", "10.0.0.2"), 0);
    EXPECT_EQ(MatchText(there, "inside-destination-ip", "127.0.0.1"), 1);
    const Record here = Ipv4(loopback);
    EXPECT_EQ(MatchText(here, "inside-source-ip", "203.0.113.1"), 1);  // not translated
    EXPECT_EQ(MatchText(Ipv4(loopback).Bits(16, kSourceBit, 1), "inside-source-ip", "203.0.113.1"), 0);
  }
  EXPECT_EQ(MatchText(Ipv4(kLoopback), "inside-source-ip", "127.0.0.1"), 0);
  EXPECT_EQ(MatchText(Ipv4(kSource, kLoopback), "inside-destination-ip", "127.0.0.1"), 0);
  // Just outside of 127.0.0.0/8.
  for (const uint32_t outside : {0x7EFFFFFFu, 0x80000000u}) {
    EXPECT_EQ(MatchText(Ipv4(outside).Bits(16, kSourceBit, 1), "inside-source-ip", "203.0.113.1"), 1);
    const Record there = Ipv4().U32(32, outside).Bits(16, kDestinationBit, 1);
    EXPECT_EQ(MatchText(there, "inside-destination-ip", "10.0.0.2"), 1);
  }
}

TEST_F(SessionFilterTest, AddressesOfIpv6Sessions) {
  Record translated = Ipv6();
  for (int bit = 0; bit < 4; ++bit) translated.Bits(16, bit, 1);
  for (const Record &record : {Ipv6(), translated}) {
    for (const char *name : {"global-source-ip", "inside-source-ip"}) {
      EXPECT_EQ(MatchText(record, name, "2001:db8::1"), 0) << name;
      for (const char *other : {"2001:db8::2", "2001:db8:1::1", "2001:db8::1:0:1", "2001:db9::1", "::1"})
        EXPECT_EQ(MatchText(record, name, other), 1) << name << " " << other;
    }
    for (const char *name : {"global-destination-ip", "inside-destination-ip"}) {
      EXPECT_EQ(MatchText(record, name, "2001:db8::2"), 0) << name;
      EXPECT_EQ(MatchText(record, name, "2001:db8::1"), 1) << name;
    }
  }
  EXPECT_EQ(MatchText(Ipv6(), "global-source-ip", "32.1.13.184"), 1);  // the first word alone
}

TEST_F(SessionFilterTest, AddressesThatAreNone) {
  for (const char *name :
       {"global-source-ip", "inside-source-ip", "global-destination-ip", "inside-destination-ip"}) {
    for (const char *none :
         {"", "0.0.0.0", "1.2.3.256", "a.b", "1.2.3.4.5", "::", "2001:db8::zz", "nonsense"}) {
      EXPECT_EQ(MatchText(Ipv4(), name, none), 0) << name << " " << none;
      EXPECT_EQ(MatchText(Ipv6(), name, none), 0) << name << " " << none;
    }
    EXPECT_EQ(MatchText(Ipv4(), name, nullptr), 0) << name;
    EXPECT_EQ(MatchText(Ipv4(), name, "255.255.255.255"), 1) << name;  // an address like any other
  }
  EXPECT_EQ(MatchText(Ipv4(0xFFFFFFFF), "inside-source-ip", "255.255.255.255"), 0);
}

TEST_F(SessionFilterTest, PortsOfIpv4Sessions) {
  const struct {
    const char *name;
    int bit;  // translates what is compared; negative: none does
    uint16_t original, translated;
  } kRows[] = {{"global-source-port", kSourcePortBit, 1000, 2000},
               {"global-destination-port", -1, 80, 8080},
               {"inside-source-port", -1, 1000, 2000},
               {"inside-destination-port", kDestinationPortBit, 80, 8080}};
  for (const auto &row : kRows) {
    for (int bit = 0; bit < 32; ++bit) {
      const Record record = Ipv4().Bits(16, bit, 1);
      const bool translated = bit == row.bit;
      EXPECT_EQ(MatchNumber(record, row.name, row.original), translated ? 1 : 0) << row.name << " " << bit;
      EXPECT_EQ(MatchNumber(record, row.name, row.translated), translated ? 0 : 1) << row.name << " " << bit;
    }
    EXPECT_EQ(MatchNumber(Ipv4(), row.name, row.original + 65536), 0) << row.name;  // cut to 16 bits
    EXPECT_EQ(MatchNumber(Ipv4(), row.name, 0), 0) << row.name;
    EXPECT_EQ(MatchNumber(Ipv4(), row.name, 65536), 0) << row.name;
  }
}

TEST_F(SessionFilterTest, PortsOfIpv6Sessions) {
  Record record = Ipv6();
  for (int bit = 0; bit < 4; ++bit) record.Bits(16, bit, 1);
  for (const char *name : {"global-source-port", "inside-source-port"}) {
    EXPECT_EQ(MatchNumber(record, name, 1000), 0) << name;
    EXPECT_EQ(MatchNumber(record, name, 2000), 1) << name;
    EXPECT_EQ(MatchNumber(record, name, 80), 1) << name;
    EXPECT_EQ(MatchNumber(record, name, 0), 0) << name;
  }
  for (const char *name : {"global-destination-port", "inside-destination-port"}) {
    EXPECT_EQ(MatchNumber(record, name, 80), 0) << name;
    EXPECT_EQ(MatchNumber(record, name, 8080), 1) << name;
    EXPECT_EQ(MatchNumber(record, name, 1000), 1) << name;
  }
}

TEST_F(SessionFilterTest, OtherNumbers) {
  const struct {
    const char *name;
    uint64_t passes;
    std::vector<uint64_t> fails, off;
  } kRows[] = {
      {"ingress-ifindex", 11, {12, 10, 65536 + 11}, {0, uint64_t{1} << 32}},
      {"egress-ifindex", 12, {11, 13, 65536 + 12}, {0, uint64_t{1} << 32}},
      {"protocol", 6, {5, 17, 255}, {0, 256}},
      {"vpn-id", 7, {6, 8, 65535}, {0, 65536}},
  };
  for (const auto &row : kRows) {
    for (const Record &record : {Ipv4(), Ipv6()}) {
      EXPECT_EQ(MatchNumber(record, row.name, row.passes), 0) << row.name;
      for (const uint64_t value : row.fails) EXPECT_EQ(MatchNumber(record, row.name, value), 1) << row.name;
      for (const uint64_t value : row.off) EXPECT_EQ(MatchNumber(record, row.name, value), 0) << row.name;
    }
    request_ = {};
    request_.scribbles = true;  // absent, with something in the output
    EXPECT_EQ(Match(Ipv4()), 0) << row.name;
  }
  EXPECT_EQ(MatchNumber(Ipv4(), "protocol", 256 + 6), 0);  // cut to 8 bits
}

TEST_F(SessionFilterTest, CreatedWithinMinutes) {
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  const auto match = [&](uint32_t created, uint64_t minutes) {
    return MatchNumber(Ipv4().U32(128, created), "create-in", minutes);
  };
  EXPECT_EQ(match(now, 1), 0);
  EXPECT_EQ(match(now - 50, 1), 0);
  EXPECT_EQ(match(now - 60, 1), 1);  // not within the minute, which has to end later than now
  EXPECT_EQ(match(now - 61, 1), 1);
  EXPECT_EQ(match(now - 61, 2), 0);
  EXPECT_EQ(match(now - 255 * 60 + 10, 255), 0);
  EXPECT_EQ(match(now - 255 * 60, 255), 1);
  EXPECT_EQ(match(now - 1000000, 0), 0);
  EXPECT_EQ(match(now - 1000000, 256), 0);  // cut to 8 bits: 0
  EXPECT_EQ(match(now - 1000000, 257), 1);
  EXPECT_EQ(match(0, 1), 1);
  EXPECT_EQ(match(UINT32_MAX, 255), 0);  // far in the future
}

TEST_F(SessionFilterTest, Services) {
  const struct {
    const char *name;
    uint8_t id;
  } kServices[] = {{"http", 1}, {"dns", 2},   {"ftp", 3},    {"ras", 4},  {"telnet", 5},  {"rtsp", 6},
                   {"sip", 9},  {"pptp", 15}, {"https", 47}, {"ssh", 48}, {"dns-tcp", 49}};
  for (const auto &service : kServices) {
    for (int id = 0; id < 256; ++id) {
      const Record record = Ipv4().U8(52, static_cast<uint8_t>(id));
      EXPECT_EQ(MatchText(record, "service-id", service.name), id == service.id ? 0 : 1) << service.name;
    }
  }
  for (const char *unknown : {"", "HTTP", "http ", "smtp", "1", "dns-udp"}) {
    EXPECT_EQ(MatchText(Ipv4(), "service-id", unknown), 0) << unknown;
    EXPECT_EQ(MatchText(Ipv4().U8(52, 0), "service-id", unknown), 0) << unknown;
  }
}

TEST_F(SessionFilterTest, Features) {
  EXPECT_EQ(MatchText(Ipv4(), "feature", "sac"), 1);
  EXPECT_EQ(MatchText(Ipv4().U64(168, kWildAddresses[0]), "feature", "sac"), 0);  // only that it is there
  for (const char *other : {"", "SAC", "sac ", "nat"}) {
    EXPECT_EQ(MatchText(Ipv4(), "feature", other), 0) << other;
    EXPECT_EQ(MatchText(Ipv4().U64(168, 1), "feature", other), 0) << other;
  }
}

TEST_F(SessionFilterTest, LimitAndVerbositySelectNothing) {
  for (const uint64_t limit : {0, 1, 255}) EXPECT_EQ(MatchNumber(Ipv4(), "session-number", limit), 0);
  for (const uint8_t verbose : {0, 1, 255}) {
    request_ = {};
    request_.flags["verbose"] = verbose;
    EXPECT_EQ(Match(Ipv4()), 0);
  }
}

TEST_F(SessionFilterTest, AllRowsTogether) {
  Record record = Ipv4().U32(128, static_cast<uint32_t>(std::time(nullptr))).U64(168, 1);
  request_.numbers = {{"create-in", 5},
                      {"egress-ifindex", 12},
                      {"global-destination-port", 80},
                      {"global-source-port", 1000},
                      {"ingress-ifindex", 11},
                      {"inside-destination-port", 80},
                      {"inside-source-port", 1000},
                      {"protocol", 6},
                      {"session-number", 3},
                      {"vpn-id", 7}};
  request_.texts = {{"global-destination-ip", "10.0.0.2"},
                    {"global-source-ip", "10.0.0.1"},
                    {"inside-destination-ip", "10.0.0.2"},
                    {"inside-source-ip", "10.0.0.1"},
                    {"service-id", "https"},
                    {"feature", "sac"},
                    {"type", "ipv4"}};
  request_.flags = {{"verbose", 1}};
  EXPECT_EQ(Match(record), 0);
  EXPECT_EQ(platform.log, std::vector<LogLine>{});
  for (const auto &[name, number] : std::map(request_.numbers)) {
    if (name == "session-number" || name == "create-in") continue;
    request_.numbers[name] = number + 1;
    EXPECT_EQ(Match(record), 1) << name;
    request_.numbers[name] = number;
  }
  EXPECT_EQ(Match(record), 0);
}

TEST_F(SessionFilterTest, SessionsWithoutAKey) {
  const struct {
    const char *name;
    const char *text;  // or null, and then the number
    uint64_t number;
  } kRows[] = {{"global-destination-ip", "10.0.0.2", 0},
               {"global-destination-port", nullptr, 80},
               {"global-source-ip", "203.0.113.1", 0},
               {"global-source-port", nullptr, 2000},
               {"inside-destination-ip", "10.0.0.2", 0},
               {"inside-destination-port", nullptr, 8080},
               {"inside-source-ip", "10.0.0.1", 0},
               {"inside-source-port", nullptr, 1000},
               {"protocol", nullptr, 6},
               {"vpn-id", nullptr, 7}};
  for (const auto &row : kRows) {
    // Translated all over: what the key is not needed for does not count either.
    for (const Record &record : {Ipv4().Bits(16, 0, 0xF), Ipv6().Bits(16, 0, 0xF)}) {
      const auto match = [&](uint64_t key) {
        Record damaged = record;
        damaged.U64(112, key);
        return row.text != nullptr ? MatchText(damaged, row.name, row.text)
                                   : MatchNumber(damaged, row.name, row.number);
      };
      EXPECT_EQ(match(0), 1) << row.name;
      EXPECT_TRUE(platform.log.empty()) << row.name;
      for (const uint64_t wild : kWildAddresses) {
        EXPECT_EQ(match(wild), -1) << row.name;
        EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, std::string("Query session compare ") + row.name +
                                                              " failed, ret: 2\n"}}));
      }
    }
  }
  EXPECT_EQ(MatchNumber(Ipv4().U64(112, kWildAddresses[0]), "ingress-ifindex", 11), 0);  // needs no key
}

// Rows that no request can make active, asked directly.
size_t RowOf(const std::string &name) {
  for (size_t row = 0; row < kSessionFilterRows; ++row) {
    if (SessionFilterName(row) == name) return row;
  }
  ADD_FAILURE() << "no row " << name;
  return 0;
}

FilterValue &ValueOf(const std::string &name) { return g_sessionFilter[RowOf(name)]; }

TEST_F(SessionFilterTest, MissingKeysHavePortZero) {
  const auto compare = [](const char *name, const Record &record) {
    Candidate candidate(*static_cast<const SessionRecord *>(record.data()));
    return g_sessionComparators[RowOf(name)](candidate, FilterValue{});
  };
  const Record ipv4 = Ipv4().U64(112, 0), ipv6 = Ipv6().U64(112, 0);
  for (const char *name : {"global-source-port", "global-destination-port", "inside-destination-port"}) {
    EXPECT_EQ(compare(name, ipv6), 0) << name;
    EXPECT_EQ(compare(name, ipv4), 1) << name;
    EXPECT_EQ(compare(name, Ipv6()), 1) << name;
  }
  EXPECT_EQ(compare("inside-source-port", ipv6), 0);
  EXPECT_EQ(compare("inside-source-port", ipv4), 0);
  EXPECT_EQ(compare("inside-source-port", Ipv4()), 1);
  EXPECT_EQ(compare("service-id", Ipv4()), 0);  // 0 stands for every service
}

// They say what an answer looks like, not what is in it.
TEST_F(SessionFilterTest, RowsOfTheAnswerPassEverySession) {
  const Record record = Ipv4();
  Candidate candidate(*static_cast<const SessionRecord *>(record.data()));
  for (const char *name : {"session-number", "verbose"})
    EXPECT_EQ(g_sessionComparators[RowOf(name)](candidate, FilterValue{{1, 0, 0, 0}}), 0) << name;
}

TEST_F(SessionFilterTest, UnsupportedRowsPassAndSaySo) {
  SessionParamValuelClear();
  ValueOf("next-hop").words[3] = 1;
  QuerySessionGetParam(&request_, 0);  // finds it set
  EXPECT_EQ(QuerySessionNodeMatch(Ipv4().data()), 0);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{6, "Does not support match session by NextHop\n"}}));
  platform.log.clear();
  SessionParamValuelClear();
  ValueOf("vlan-id").words[0] = 1;
  QuerySessionGetParam(&request_, 0);
  EXPECT_EQ(QuerySessionNodeMatch(Ipv4().data()), 0);
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{6, "Does not support match session by VlanId\n"}}));
  SessionParamValuelClear();
}

TEST_F(SessionFilterTest, UnsupportedParametersAreNotRead) {
  for (const char *name : {"next-hop", "vlan-id"}) {
    EXPECT_EQ(MatchText(Ipv4(), name, "10.0.0.9"), 0);
    EXPECT_EQ(MatchNumber(Ipv4(), name, 9), 0);
    EXPECT_TRUE(platform.log.empty());
  }
}

TEST_F(SessionFilterTest, TheOrderOfTheRows) {
  const char *kNames[] = {"create-in",
                          "egress-ifindex",
                          "global-destination-ip",
                          "global-destination-port",
                          "global-source-ip",
                          "global-source-port",
                          "ingress-ifindex",
                          "inside-destination-ip",
                          "inside-destination-port",
                          "inside-source-ip",
                          "inside-source-port",
                          "next-hop",
                          "protocol",
                          "service-id",
                          "session-number",
                          "verbose",
                          "vlan-id",
                          "vpn-id",
                          "feature",
                          "type"};
  static_assert(std::size(kNames) == 20);
  for (size_t i = 0; i < 20; ++i) EXPECT_STREQ(SessionFilterName(i), kNames[i]);
}

TEST_F(SessionFilterTest, WhatARequestLeavesInTheRows) {
  const auto value = [](const char *name) { return ValueOf(name).words[0]; };
  SessionParamValuelClear();
  QuerySessionGetParam(&request_, 1);
  EXPECT_EQ(value("session-number"), 10u);
  EXPECT_EQ(value("verbose"), 0u);
  EXPECT_EQ(value("type"), 1u);
  request_.numbers = {{"session-number", 0x107}, {"vpn-id", 0x12345}, {"create-in", 0x1FF}};
  request_.flags = {{"verbose", 3}};
  request_.texts = {
      {"type", "ipv6"}, {"feature", "sac"}, {"service-id", "pptp"}, {"global-source-ip", "1.2.3.4"}};
  QuerySessionGetParam(&request_, 1);
  EXPECT_EQ(value("session-number"), 7u);
  EXPECT_EQ(value("verbose"), 3u);
  EXPECT_EQ(value("vpn-id"), 0x2345u);
  EXPECT_EQ(value("create-in"), 0xFFu);
  EXPECT_EQ(value("type"), 2u);
  EXPECT_EQ(value("feature"), 1u);
  EXPECT_EQ(value("service-id"), 15u);
  EXPECT_EQ(value("global-source-ip"), 0x01020304u);

  SessionParamValuelClear();
  for (size_t row = 0; row < kSessionFilterRows; ++row) {
    const bool type = std::string_view(SessionFilterName(row)) == "type";
    const auto &words = g_sessionFilter[row].words;
    EXPECT_EQ(words[0], type ? 1u : 0u) << SessionFilterName(row);
    for (int i = 1; i < 4; ++i) EXPECT_EQ(words[i], 0u) << SessionFilterName(row);
  }
  QuerySessionGetParam(&request_, 0);  // a reset
  EXPECT_EQ(value("session-number"), 0u);
  EXPECT_EQ(value("verbose"), 0u);
  EXPECT_EQ(value("vpn-id"), 0x2345u);
  EXPECT_EQ(value("type"), 2u);
}

}  // namespace
}  // namespace qdt::test
