#include <string>
#include <vector>

#include "tests/unit/packet_trace_fixture.h"

// The packet-trace command apart from its conditions: help, switches, what it shows, and the attaching.
namespace qdt::test {
namespace {

constexpr char kHelp[] =
    "nqecli pkt_trace enable \n"
    "nqecli pkt_trace disable \n"
    "nqecli pkt_trace show \n"
    "nqecli pkt_trace counter \n"
    "nqecli pkt_trace clear \n"
    "nqecli pkt_trace set timeout <1-6000> \n"
    "nqecli pkt_trace set print_num <1-255> \n"
    "nqecli pkt_trace set print_console <0-1> \n"
    "nqecli pkt_trace set print_to_log <0-1> \n"
    "nqecli pkt_trace set inner <0-1> \n"
    "nqecli pkt_trace set from_cp <0-1> \n"
    "nqecli pkt_trace set tool_check <0-1> \n"
    "nqecli pkt_trace set min_pkt_len <min_pkt_len> \n"
    "nqecli pkt_trace set max_pkt_len <max_pkt_len> \n"
    "nqecli pkt_trace set src_fwdif <src_fwdif> \n"
    "nqecli pkt_trace set dst_fwdif <dst_fwdif> \n"
    "nqecli pkt_trace set smac <xx:xx:xx:xx:xx:xx> \n"
    "nqecli pkt_trace set dmac <xx:xx:xx:xx:xx:xx> \n"
    "nqecli pkt_trace set eth_type <eth_type eg:0x0806> \n"
    "nqecli pkt_trace set vlan <vlan> \n"
    "nqecli pkt_trace set arp \n"
    "nqecli pkt_trace set eap_key \n"
    "nqecli pkt_trace set sip <x.x.x.x> \n"
    "nqecli pkt_trace set dip <x.x.x.x> \n"
    "nqecli pkt_trace set sip6 <sip6> \n"
    "nqecli pkt_trace set dip6 <dip6> \n"
    "nqecli pkt_trace set protocol <protocol> \n"
    "nqecli pkt_trace set not_frag \n"
    "nqecli pkt_trace set first_frag \n"
    "nqecli pkt_trace set not_first_frag \n"
    "nqecli pkt_trace set last_frag \n"
    "nqecli pkt_trace set sport <sport> \n"
    "nqecli pkt_trace set dport <dport> \n"
    "nqecli pkt_trace set icmp \n"
    "nqecli pkt_trace set capwap_ka \n"
    "nqecli pkt_trace set pppoe_ka \n"
    "nqecli pkt_trace set tcp_flags <1-32> \n"
    "nqecli pkt_trace set ip-type \n"
    "nqecli pkt_trace set icmp-type \n"
    "nqecli pkt_trace set discard_type <eg:arp miss> \n"
    "nqecli pkt_trace set cause_id \n";

constexpr char kHead[] =
    "\n Packet Trace Condition Info\n"
    "=====================================================\n";
constexpr char kTail[] = "\n=====================================================\n";

constexpr char kControls[] =
    " DebugFlag                : 1\n"
    " LeftPrintNum             : 4000000001\n"
    " ToolCheck                : 201\n"
    " PrintConsole             : 202\n"
    " Print2Log                : 203\n"
    " PrintLen                 : 60001";

constexpr char kConditions[] =
    "\n Condition                : 0x8000000000000002"
    "\n Timeout                  : 4000000002"
    "\n NotFlag                  : 0"
    "\n InnerFlag                : 0"
    "\n EapKeyFlag               : 0"
    "\n CapwapKaFlag             : 0"
    "\n PppoeKaFlag              : 0"
    "\n fromCpFlag               : 0"
    "\n CapwapFrag               : 0"
    "\n SrcFwdifindex            : 4000000003"
    "\n DstFwdifindex            : 4000000004"
    "\n PktLenRange              : (60002, 60003)"
    "\n Smac                     : a0:0b:c1:0d:e2:0f"
    "\n Dmac                     : 01:f2:03:f4:05:f6"
    "\n EthType                  : 0x86dd"
    "\n Vlan                     : 60004"
    "\n tcpFlag                  : 204"
    "\n SrcIp                    : 0x700010a"
    "\n DstIp                    : 0xfe02a8c0"
    "\n IpProtocol               : 205"
    "\n IpType                   : 206"
    "\n IcmpType                 : 207"
    "\n DiscardType              : arp miss"
    "\n IPV6 SrcIP: 2001:0db8:0000:0000:0000:00ff:0a0b:0c0d"
    "\n IPV6 DstIP: fe80:0102:0304:0506:0708:090a:0b0c:0d0e";

constexpr char kPorts[] =
    "\n TcpUdpSrcPort            : 60005"
    "\n TcpUdpDstPort            : 60006"
    "\n CapwapAllFragment        : 0";

// A different value in every field that is shown; all flags off.
Record FullBlock() {
  return Record(224)
      .U64(0, 0x8000000000000002)
      .U16(8, 60002)
      .U16(10, 60003)
      .U8(13, 204)
      .U16(14, 60004)
      .U32(16, 4000000003)
      .U32(20, 4000000004)
      .U32(24, 4000000002)
      .U32(28, 0xEEEEEEEE)
      .Copy(32, std::string("\x0a\x01\x00\x07\xc0\xa8\x02\xfe", 8))
      .Copy(40, "\xa0\x0b\xc1\x0d\xe2\x0f\x01\xf2\x03\xf4\x05\xf6")
      .U8(52, 205)
      .U8(53, 0xEE)
      .U16(54, 0x86DD)
      .Copy(56, std::string("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\xff\x0a\x0b\x0c\x0d", 16))
      .Copy(72, "\xfe\x80\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e")
      .U16(88, 60005)
      .U16(90, 60006)
      .U16(92, 1)
      .U16(94, 60007)
      .U8(96, 206)
      .U8(97, 207)
      .U8(104, 0xEE)
      .U8(105, 0xEE)
      .U8(106, 201)
      .U8(107, 202)
      .U8(108, 203)
      .U8(109, 0xEE)
      .U16(110, 60001)
      .U32(112, 4000000001)
      .U32(116, 4000000005)
      .U32(120, 4000000006)
      .U32(124, 4000000007)
      .U32(128, 4000000008)
      .U32(132, 0xEEEEEEEE)
      .U8(220, 1);
}

TEST_F(PacketTraceTest, Help) {
  for (const Words &words : std::vector<Words>{{},
                                               {"set"},
                                               {"help"},
                                               {""},
                                               {"Show"},
                                               {"enabled"},
                                               {"show", "a", "b", "c"},
                                               {"set", "timeout", "5", "more"}}) {
    EXPECT_EQ(Run(words), kHelp) << ::testing::PrintToString(words);
    EXPECT_EQ(result, 0);
  }
  ExpectBlock(Record(224));
}

TEST_F(PacketTraceTest, ShowsEveryField) {
  SetBlock(FullBlock());
  EXPECT_EQ(Run({"show"}), std::string(kHead) + kControls + kConditions + kPorts + kTail);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Capture(PktTraceShow), std::string(kHead) + kControls + kConditions + kPorts + kTail);
  EXPECT_EQ(Capture(PktTraceShowCondition), kConditions);
  EXPECT_EQ(Capture(PktTraceShowL4Condition), kPorts);
  ExpectBlock(FullBlock());
}

TEST_F(PacketTraceTest, ShowWithoutConditions) {
  EXPECT_EQ(Run({"show"}),
            "\n Packet Trace Condition Info\n"
            "=====================================================\n"
            " DebugFlag                : 0\n"
            " LeftPrintNum             : 0\n"
            " ToolCheck                : 0\n"
            " PrintConsole             : 0\n"
            " Print2Log                : 0\n"
            " PrintLen                 : 0\n"
            " Condition                : 0\n"
            "=====================================================\n");
  SetBlock(FullBlock().U64(0, 0));
  EXPECT_EQ(Run({"show", "more", "words"}),
            std::string(kHead) + kControls + "\n Condition                : 0" + kTail);
}

// Each flag on its own line, CapwapFrag on two.
TEST_F(PacketTraceTest, ShowsEachFlagAlone) {
  const char *const labels[] = {"NotFlag    ",  "InnerFlag  ", "fromCpFlag ", "EapKeyFlag ",
                                "CapwapKaFlag", "PppoeKaFlag", "CapwapFrag "};
  for (int bit = 0; bit < 8; ++bit) {
    SetBlock(FullBlock().U8(12, static_cast<uint8_t>(1 << bit)));
    std::string expected = std::string(kConditions) + kPorts;
    const auto turnOn = [&](const std::string &label) {
      const size_t at = expected.find("\n " + label);
      ASSERT_NE(at, std::string::npos) << label;
      expected[expected.find(": ", at) + 2] = '1';
    };
    if (bit < 7) turnOn(labels[bit]);
    if (bit == 6) turnOn("CapwapAllFragment");
    EXPECT_EQ(Capture(PktTraceShowCondition) + Capture(PktTraceShowL4Condition), expected) << bit;
  }
}

TEST_F(PacketTraceTest, DebugFlagIsBit0) {
  for (const auto &[byte, text] : {std::pair(0xFE, "0"), {0x01, "1"}, {0xFF, "1"}}) {
    SetBlock(Record(224).U8(220, static_cast<uint8_t>(byte)));
    EXPECT_NE(Run({"show"}).find(std::string("=\n DebugFlag                : ") + text + "\n"),
              std::string::npos)
        << byte;
  }
}

TEST_F(PacketTraceTest, DiscardTypeNames) {
  struct Case {
    uint16_t type;
    std::string name;
  };
  for (const Case &one : {Case{0, ""},
                          {1, "arp miss"},
                          {53, "IPv6 fragment packets hashlist find fail"},
                          {121, ""},
                          {128, "car"},
                          {273, "host if isolate"},
                          {274, "all"},
                          {275, ""},
                          {65535, ""}}) {
    SetBlock(FullBlock().U16(92, one.type));
    EXPECT_NE(Run({"show"}).find("\n DiscardType              : " + one.name + "\n IPV6 SrcIP"),
              std::string::npos)
        << one.type;
  }
}

TEST_F(PacketTraceTest, ShowAfterAllDiscards) {
  Run({"set", "discard_type", "all"});
  EXPECT_NE(Run({"show"}).find("\n DiscardType              : all\n"), std::string::npos);
}

TEST_F(PacketTraceTest, Counters) {
  SetBlock(FullBlock());
  EXPECT_EQ(Run({"counter"}),
            "\n Packet Trace Counter\n"
            "=====================================================\n"
            " Packets from driver number      : 4000000005\n"
            " Packets to driver number        : 4000000006\n"
            " Packets from RLK number         : 4000000008\n"
            " Packets to RLK number           : 4000000007\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Capture(PktTraceShowCounter), Run({"counter", "x"}));
}

TEST_F(PacketTraceTest, EnableAndDisable) {
  SetBlock(FullBlock().U8(220, 0xFE));
  EXPECT_EQ(Run({"enable"}), "packet trace set enable OK");
  EXPECT_EQ(result, 0);
  ExpectBlock(FullBlock().U8(220, 0xFF));
  EXPECT_EQ(Run({"disable"}), "packet trace set disable OK");
  EXPECT_EQ(result, 0);
  ExpectBlock(FullBlock().U8(220, 0xFE).U32(112, 0));
}

TEST_F(PacketTraceTest, ClearKeepsStationsAndOtherSwitches) {
  Record block(224), cleared(224);
  for (size_t i = 0; i < 224; ++i) block.U8(i, 0xFF);
  for (size_t i = 132; i < 224; ++i) cleared.U8(i, 0xFF);
  SetBlock(block);
  EXPECT_EQ(Run({"clear"}), "packet trace clear condition OK");
  EXPECT_EQ(result, 0);
  ExpectBlock(cleared.U8(220, 0xFE));
}

TEST_F(PacketTraceTest, AnswersBeginAnew) {
  static char area[QDT_OUTPUT_CAPACITY];
  OutputBuffer out = {area, 77};
  char *words[] = {const_cast<char *>("pkt_trace"), const_cast<char *>("enable")};
  EXPECT_EQ(VrxPktTraceCmdRun(&out, 2, words), 0);
  EXPECT_STREQ(area, "packet trace set enable OK");
  EXPECT_EQ(out.len, 26u);
  EXPECT_EQ(CliCmdPktTrace(&out, 2, words), 0);  // the same without the emptying
  EXPECT_STREQ(area, "packet trace set enable OKpacket trace set enable OK");
  EXPECT_TRUE(platform.log.empty());
}

}  // namespace
}  // namespace qdt::test
