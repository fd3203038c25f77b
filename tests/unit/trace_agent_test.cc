#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qdt/oma.h"
#include "tests/unit/trace_block_fixture.h"

// Packet trace by a request of the management agent: what the block holds behind it.
namespace qdt::test {
namespace {

// What every request leaves: 5 packets, 300, lengths up to 65535.
Record Defaults() { return Record(224).U16(10, 65535).U32(24, 300).U32(112, 5); }
Record Condition(uint64_t mask) { return Defaults().U64(0, mask); }

// The parameters of a request.
struct Given {
  std::map<std::string, const char *> texts = {};
  std::map<std::string, uint64_t> numbers = {};
  std::map<std::string, uint8_t> flags = {};
};

class TraceAgentTest : public TraceBlockTest {
 protected:
  void Run() {
    EXPECT_EQ(QdtOmaDebugPktProc(&request_), 0);
    EXPECT_TRUE(platform.answers.empty());
    EXPECT_TRUE(platform.runLines.empty());
  }

  void ExpectOf(const Given &given, const Record &block, const std::string &what) {
    request_ = {given.texts, given.numbers, given.flags};
    ClearBlock();
    Run();
    ExpectBlock(block, what);
    request_.scribbles = true;  // what a failed parse leaves behind must not reach the block
    ClearBlock();
    Run();
    ExpectBlock(block, what + ", scribbled");
  }
  void Number(const char *name, uint64_t value, const Record &block) {
    ExpectOf({.numbers = {{name, value}}}, block, std::string(name) + " " + std::to_string(value));
  }
  void Text(const char *name, const char *value, const Record &block) {
    ExpectOf({.texts = {{name, value}}}, block,
             std::string(name) + " " + (value == nullptr ? "null" : value));
  }
  void Flag(const char *name, uint8_t value, const Record &block) {
    ExpectOf({.flags = {{name, value}}}, block, std::string(name) + " " + std::to_string(value));
  }

  omcc_request request_;
};

TEST_F(TraceAgentTest, EnableAlone) {
  Flag("enable", 1, Defaults().U8(220, 1));
  Flag("enable", 0, Defaults());
  ExpectOf({}, Defaults(), "an empty request");
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TraceAgentTest, Controls) {
  Number("packet-number", 4000000001, Defaults().U32(112, 4000000001));
  Number("packet-number", 0, Defaults().U32(112, 0));
  Number("time-out", 4000000002, Defaults().U32(24, 4000000002));
  Number("time-out", 0x100000007, Defaults().U32(24, 7));
  Flag("invert", 1, Defaults().U8(12, 1 << 0));
  Flag("inner", 1, Defaults().U8(12, 1 << 1));
  Flag("chip-tx-trace", 1, Defaults().U8(221, 1));
  for (const char *name : {"enable", "invert", "inner", "chip-tx-trace"}) Flag(name, 254, Defaults());
}

TEST_F(TraceAgentTest, PacketFromCp) {
  Flag("packet-from-cp", 1, Condition(1u << 4).U8(12, 1 << 2));
  Flag("packet-from-cp", 0, Condition(1u << 4));  // a condition as well; absent it is none
  Flag("packet-from-cp", 254, Condition(1u << 4));
}

TEST_F(TraceAgentTest, Numbers) {
  Number("ingress-ifindex", 4000000003, Condition(1u << 2).U32(16, 4000000003));
  Number("max-packet-len", 60001, Condition(1u << 1).U16(10, 60001));
  Number("min-packet-len", 60002, Condition(1u << 1).U16(8, 60002));
  Number("cause-id", 60003, Condition(1u << 31).U16(94, 60003));
  Number("vlan-id", 60004, Condition(1u << 6).U16(14, 60004));
  Number("protocol", 17, Condition(1u << 13).U8(52, 17));
  Number("source-port", 60005, Condition(1u << 17).U16(88, 60005));
  Number("destination-port", 60006, Condition(1u << 18).U16(90, 60006));
  Number("tcp-flag-value", 201, Condition(1u << 25).U8(13, 201));
  Number("icmp-type", 202, Condition(1u << 29).U8(97, 202));
}

TEST_F(TraceAgentTest, NumbersAreKeptToTheirFields) {
  Number("ingress-ifindex", 0x900000001, Condition(1u << 2).U32(16, 1));
  Number("max-packet-len", 0x10002, Condition(1u << 1).U16(10, 2));
  Number("protocol", 0x90807, Condition(1u << 13).U16(52, 0x0807));  // 16 bits in the place of 8
  Number("tcp-flag-value", 256, Condition(1u << 25));
  Number("icmp-type", 0x1FF, Condition(1u << 29).U8(97, 255));
}

TEST_F(TraceAgentTest, MacAddresses) {
  const std::string bytes = {'\x00', '\xe0', '\xfc', '\x12', '\x34', '\x56'};
  Text("source-mac", "00e0-fc12-3456", Condition(1u << 7).Copy(40, bytes));
  Text("destination-mac", "00E0-FC12-3456", Condition(1u << 8).Copy(46, bytes));
  for (const char *name : {"source-mac", "destination-mac"}) {
    for (const char *text : {"00:e0:fc:12:34:56", "00e0-fc12", "", static_cast<const char *>(nullptr)})
      Text(name, text, Defaults());
  }
}

TEST_F(TraceAgentTest, EthernetTypes) {
  Text("eth-type", "0806", Condition(1u << 9).U16(54, 0x0806));
  Text("eth-type", "0x86dd", Condition(1u << 9).U16(54, 0x86DD));
  Text("eth-type", "1234567", Condition(1u << 9).U16(54, 0x4567));
  Text("eth-type", "arp", Condition(1u << 9).U16(54, 0x000a));  // as far as it is a number
  Text("eth-type", "", Condition(1u << 9));
  Text("eth-type", nullptr, Defaults());
}

TEST_F(TraceAgentTest, Ipv4AddressesAreWordsInHostOrder) {
  Text("source-ip", "10.1.0.7", Condition(1u << 11 | 1u << 28).U32(32, 0x0A010007));
  Text("destination-ip", "10.1.0.7", Condition(1u << 12 | 1u << 28).U32(36, 0x0A010007));
}

TEST_F(TraceAgentTest, Ipv6AddressesAreInNetworkOrder) {
  const std::string bytes = {'\x20', '\x01', '\x0d', '\xb8', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\x01', '\x02'};
  Text("source-ip", "2001:db8::102", Condition(1u << 26 | 1u << 28).Copy(56, bytes).U8(96, 1));
  Text("destination-ip", "2001:db8::102", Condition(1u << 27 | 1u << 28).Copy(72, bytes).U8(96, 1));
}

TEST_F(TraceAgentTest, UnusableAddressesAreIgnored) {
  for (const char *name : {"source-ip", "destination-ip"}) {
    for (const char *text : {"1.2.3", "1.2.3.256", "2001:db8::zz", "host", "", "::1%1", "1.2.3.4:80",
                             static_cast<const char *>(nullptr)})
      Text(name, text, Defaults());
  }
}

TEST_F(TraceAgentTest, IpTypes) {
  Text("ip-type", "ipv4", Condition(1u << 28));
  Text("ip-type", "ipv6", Condition(1u << 28).U8(96, 1));
  for (const char *text : {"IPv4", "ip", "", "4"}) Text("ip-type", text, Defaults());
}

TEST_F(TraceAgentTest, TheLastIpTypeHolds) {
  ExpectOf({.texts = {{"source-ip", "::1"}, {"destination-ip", "1.2.3.4"}}},
           Condition(1u << 26 | 1u << 12 | 1u << 28).U8(71, 1).U32(36, 0x01020304), "destination");
  ExpectOf({.texts = {{"source-ip", "1.2.3.4"}, {"ip-type", "ipv6"}}},
           Condition(1u << 11 | 1u << 28).U32(32, 0x01020304).U8(96, 1), "ip-type");
  ExpectOf({.texts = {{"source-ip", "::1"}, {"ip-type", "ipv4"}}}, Condition(1u << 26 | 1u << 28).U8(71, 1),
           "ip-type");
}

TEST_F(TraceAgentTest, PacketTypes) {
  Text("packet-type", "capwap-keepalive", Condition(1u << 14).U8(12, 1 << 4));
  Text("packet-type", "pppoe-keepalive", Condition(1u << 30).U8(12, 1 << 5));
  Text("packet-type", "eap-key", Condition(1u << 10).U8(12, 1 << 3));
  for (const char *text : {"eap", "EAP-KEY", "", "capwap"}) Text("packet-type", text, Defaults());
}

TEST_F(TraceAgentTest, Fragments) {
  Text("fragment-type", "not-fragment", Condition(1u << 21));
  Text("fragment-type", "first-fragment", Condition(1u << 22));
  Text("fragment-type", "not-first-fragment", Condition(1u << 23));
  Text("fragment-type", "last-fragment", Condition(1u << 24));
  Text("fragment-protocol", "ip", Condition(1u << 19));
  Text("fragment-protocol", "capwap", Condition(1u << 14).U8(12, 1 << 6));
  Text("fragment-protocol", "802.11", Condition(1u << 20));
  for (const char *name : {"fragment-type", "fragment-protocol"}) {
    for (const char *text : {"fragment", "IP", "802", ""}) Text(name, text, Defaults());
  }
}

TEST_F(TraceAgentTest, DiscardTypes) {
  Text("discard-type", "all", Condition(1u << 5).U16(92, 274));
  Text("discard-type", "arp miss", Condition(1u << 5).U16(92, 1));
  Text("discard-type", "host if isolate", Condition(1u << 5).U16(92, 273));
  Text("discard-type", "maclearn", Condition(1u << 5).U16(92, 274));  // the counter behind the last type
  // A name that two types have is the last's.
  Text("discard-type", "IPv6 fragment packets hashlist find fail", Condition(1u << 5).U16(92, 53));
  EXPECT_TRUE(platform.log.empty());
  Text("discard-type", nullptr, Defaults());
  EXPECT_TRUE(platform.log.empty());
}

TEST_F(TraceAgentTest, UnknownDiscardTypesAreLogged) {
  for (const std::string name : {"not defined", "arp", "ARP MISS", "arp miss ", "", "121", "mac msg punt"}) {
    platform.log.clear();
    Text("discard-type", name.c_str(), Defaults());
    const LogLine line = {3, "input parse fail, invalid discard-type[" + name + "].\n"};
    EXPECT_EQ(platform.log, std::vector<LogLine>(2, line));
  }
}

TEST_F(TraceAgentTest, ConditionsAddUp) {
  ExpectOf({.texts = {{"packet-type", "eap-key"}, {"fragment-protocol", "capwap"}, {"eth-type", "888e"}},
            .numbers = {{"source-port", 5246}, {"vlan-id", 7}, {"packet-number", 9}},
            .flags = {{"enable", 1}, {"invert", 1}, {"packet-from-cp", 1}, {"chip-tx-trace", 1}}},
           Condition(1u << 10 | 1u << 14 | 1u << 9 | 1u << 17 | 1u << 6 | 1u << 4)
               .U8(12, 1 << 0 | 1 << 2 | 1 << 3 | 1 << 6)
               .U16(54, 0x888E)
               .U16(88, 5246)
               .U16(14, 7)
               .U32(112, 9)
               .U8(220, 1)
               .U8(221, 1),
           "many");
}

TEST_F(TraceAgentTest, ARequestReplacesTheOneBefore) {
  Record before(224), after = Defaults();
  for (size_t i = 0; i < 224; ++i) before.U8(i, 0xFF);
  for (size_t i = 132; i < 224; ++i) after.U8(i, 0xFF);
  SetBlock(before);
  Run();
  ExpectBlock(after.U8(220, 0xFE).U8(221, 0xFE));
}

TEST_F(TraceAgentTest, ClearKeepsStationsAndOtherSwitches) {
  Run();  // attaches
  Record before(224), after(224);
  for (size_t i = 0; i < 224; ++i) before.U8(i, 0xFF);
  for (size_t i = 132; i < 224; ++i) after.U8(i, 0xFF);
  SetBlock(before);
  DebugPktClear();
  ExpectBlock(after.U8(220, 0xFE));
}

}  // namespace
}  // namespace qdt::test
