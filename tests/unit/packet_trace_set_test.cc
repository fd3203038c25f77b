#include <string>
#include <utility>
#include <vector>

#include "tests/unit/packet_trace_fixture.h"

// Conditions that the packet-trace command sets: what each writes, accepts and refuses.
namespace qdt::test {
namespace {

constexpr char kInput[] = "Error: input error.\n", kAddress[] = "Error: ip address error.\n",
               kSourceV6[] = "Error: source IPv6 address invalid.\n",
               kDestinationV6[] = "Error: destination IPv6 address invalid.\n",
               kSourcePort[] = "Error: source port out of range.\n",
               kDestinationPort[] = "Error: destination port out of range.\n",
               kProtocol[] = "Error: protocol invalid.\n", kRange[] = "Error: number out of range.\n";

Record Zeros() { return Record(224); }
Record Mask(uint64_t mask) { return Zeros().U64(0, mask); }

class PacketTraceSetTest : public PacketTraceTest {
 protected:
  void Set(const std::string &keyword, const std::string &argument, const std::string &confirmation,
           const Record &block) {
    ExpectSet({"set", keyword, argument}, "packet trace set " + confirmation, block);
  }
  // A condition without an argument, which is not looked at when it is there.
  void Set(const std::string &keyword, const std::string &confirmation, const Record &block) {
    ExpectSet({"set", keyword}, "packet trace set " + confirmation, block);
    ExpectSet({"set", keyword, "x"}, "packet trace set " + confirmation, block);
  }
  // Refused on a block that holds something in every byte, so that any write shows.
  void Refuse(const std::string &keyword, const std::vector<std::string> &arguments,
              const std::string &message) {
    Record block(224);
    for (size_t i = 0; i < 224; ++i) block.U8(i, static_cast<uint8_t>(i + 1));
    SetBlock(block);
    for (const std::string &argument : arguments) ExpectRefused({"set", keyword, argument}, message);
  }
};

TEST_F(PacketTraceSetTest, PrintControls) {
  Set("timeout", "1", "timeout ok", Zeros().U32(24, 1));
  Set("timeout", "6000", "timeout ok", Zeros().U32(24, 6000));
  Set("print_num", "1", "print num ok", Zeros().U32(112, 1));
  Set("print_num", "255", "print num ok", Zeros().U32(112, 255));
  Set("print_num", "256", "print num ok", Zeros().U32(112, 256));  // although the help says 255
  Set("print_console", "1", "print console flag ok", Zeros().U8(107, 1));
  Set("print_to_log", "1", "print to log flag ok", Zeros().U8(108, 1));
  Set("tool_check", "1", "tool check flag ok", Zeros().U8(106, 1));
}

TEST_F(PacketTraceSetTest, ANewNumberOfPrintsClearsItsByte) {
  SetBlock(Zeros().U64(104, 0xFFFFFFFFFFFFFFFF).U32(112, 0xFFFFFFFF));
  EXPECT_EQ(Run({"set", "print_num", "7"}), "packet trace set print num ok");
  ExpectBlock(Zeros().U64(104, 0xFFFFFFFFFFFF00FF).U32(112, 7));
}

TEST_F(PacketTraceSetTest, SwitchesGoOffAgain) {
  for (const auto &[keyword, byte, confirmation] : {std::tuple("print_console", 107, "print console flag ok"),
                                                    {"print_to_log", 108, "print to log flag ok"},
                                                    {"tool_check", 106, "tool check flag ok"}}) {
    SetBlock(Zeros().U64(104, 0xFFFFFFFFFFFFFFFF));
    EXPECT_EQ(Run({"set", keyword, "0"}), std::string("packet trace set ") + confirmation);
    ExpectBlock(Zeros().U64(104, 0xFFFFFFFFFFFFFFFF).U8(byte, 0), keyword);
  }
  SetBlock(Zeros().U8(12, 0xFF));
  EXPECT_EQ(Run({"set", "inner", "0"}), "packet trace set inner flag ok");
  ExpectBlock(Zeros().U8(12, 0xFD));
}

TEST_F(PacketTraceSetTest, FlagsAndTheirBits) {
  Set("inner", "1", "inner flag ok", Zeros().U8(12, 1 << 1));
  Set("from_cp", "1", "from cp ok", Mask(1u << 4).U8(12, 1 << 2));
  Set("eap_key", "eap key ok", Mask(1u << 10).U8(12, 1 << 3));
  Set("capwap_ka", "capwap keepalive ok", Mask(1u << 14).U8(12, 1 << 4));
  Set("pppoe_ka", "pppoe keepalive ok", Mask(1u << 30).U8(12, 1 << 5));
  SetBlock(Zeros().U8(12, 0xFF));
  EXPECT_EQ(Run({"set", "from_cp", "0"}), "packet trace set from cp ok");
  ExpectBlock(Mask(1u << 4).U8(12, 0xFB));
}

TEST_F(PacketTraceSetTest, FromCpOffStillSetsItsBit) { Set("from_cp", "0", "from cp ok", Mask(1u << 4)); }

TEST_F(PacketTraceSetTest, Numbers) {
  Set("min_pkt_len", "64", "min_pkt_len ok", Mask(1u << 1).U16(8, 64));
  Set("max_pkt_len", "1518", "max_pkt_len ok", Mask(1u << 1).U16(10, 1518));
  Set("src_fwdif", "4294967295", "src fwdif ok", Mask(1u << 2).U32(16, 0xFFFFFFFF));
  Set("vlan", "4094", "vlan ok", Mask(1u << 6).U16(14, 4094));
  Set("protocol", "0", "portocol ok", Mask(1u << 13));
  Set("protocol", "255", "portocol ok", Mask(1u << 13).U8(52, 255));
  Set("sport", "65535", "sport ok", Mask(1u << 17).U16(88, 65535));
  Set("dport", "53", "dport ok", Mask(1u << 18).U16(90, 53));
  Set("sport", "0", "sport ok", Mask(1u << 17));
  Set("dport", "65535", "dport ok", Mask(1u << 18).U16(90, 65535));
  Set("tcp_flags", "0", "tcp_flag ok", Mask(1u << 25));  // although the help says 1
  Set("tcp_flags", "32", "tcp_flag ok", Mask(1u << 25).U8(13, 32));
  Set("cause_id", "300", "cause id ok", Mask(1u << 31).U16(94, 300));
  Set("icmp_type", "8", "icmpType ok", Mask(1u << 29).U8(97, 8));
}

TEST_F(PacketTraceSetTest, NumbersAreKeptToTheirFields) {
  Set("min_pkt_len", "65537", "min_pkt_len ok", Mask(1u << 1).U16(8, 1));
  Set("max_pkt_len", "0x1FFFE", "max_pkt_len ok", Mask(1u << 1).U16(10, 0xFFFE));
  Set("vlan", "4294967295", "vlan ok", Mask(1u << 6).U16(14, 0xFFFF));
  Set("cause_id", "65536", "cause id ok", Mask(1u << 31));
  Set("icmp_type", "257", "icmpType ok", Mask(1u << 29).U8(97, 1));
}

TEST_F(PacketTraceSetTest, BasesAreThoseOfAllCommands) {
  Set("timeout", "0x10", "timeout ok", Zeros().U32(24, 16));
  Set("timeout", "010", "timeout ok", Zeros().U32(24, 8));
  Set("src_fwdif", "", "src fwdif ok", Mask(1u << 2));  // an empty word is 0
}

TEST_F(PacketTraceSetTest, DestinationInterfaceGoesIntoTheSourcesField) {
  SetBlock(Zeros().U32(20, 99));
  EXPECT_EQ(Run({"set", "dst_fwdif", "7"}), "packet trace set dst fwdif ok");
  ExpectBlock(Mask(1u << 3).U32(16, 7).U32(20, 99));
  const std::string shown = Run({"show"});
  EXPECT_NE(shown.find("\n SrcFwdifindex            : 7\n DstFwdifindex            : 99\n"),
            std::string::npos)
      << shown;
}

TEST_F(PacketTraceSetTest, MacAddresses) {
  const std::string bytes = {'\x00', '\xe0', '\xfc', '\x12', '\x34', '\x56'};
  for (const char *text : {"00:e0:fc:12:34:56", "00:E0:FC:12:34:56", "0:E0:fC:12:34:56"}) {
    Set("smac", text, "smac ok", Mask(1u << 7).Copy(40, bytes));
    Set("dmac", text, "dmac ok", Mask(1u << 8).Copy(46, bytes));
  }
  Set("smac", "1:2:3:4:5:6:7", "smac ok", Mask(1u << 7).Copy(40, "\x01\x02\x03\x04\x05\x06"));
}

TEST_F(PacketTraceSetTest, EthernetTypes) {
  Set("eth_type", "0x0806", "eth type ok", Mask(1u << 9).U16(54, 0x0806));
  Set("eth_type", "0x86dD", "eth type ok", Mask(1u << 9).U16(54, 0x86DD));
  Set("eth_type", "0x08061", "eth type ok", Mask(1u << 9).U16(54, 0x0806));
  Set("eth_type", "0x806", "eth type ok", Mask(1u << 9).U16(54, 0x8006));  // two digits, then one
  Set("arp", "arp ok", Mask(1u << 9).U16(54, 0x0806));
  const std::string help = "eth type input in hexadecimal format. eg:0x0806\n";
  Refuse("eth_type", {"0806", "2054", "0x08", "0x", "", "arp", "0xgggg", "0X0806"}, help + kInput);
  ExpectRefused({"set", "eth_type"}, kInput);  // without a word, before anything is printed
}

TEST_F(PacketTraceSetTest, Ipv4Addresses) {
  const std::string bytes = {10, 1, 0, 7};  // network order
  SetBlock(Zeros().U8(96, 9));
  EXPECT_EQ(Run({"set", "sip", "10.1.0.7"}), "packet trace set sip ok");
  ExpectBlock(Mask(1u << 11 | 1u << 28).Copy(32, bytes));
  SetBlock(Zeros().U8(96, 9));
  EXPECT_EQ(Run({"set", "dip", "10.1.0.7"}), "packet trace set dip ok");
  ExpectBlock(Mask(1u << 12 | 1u << 28).Copy(36, bytes));
  Set("sip", "255.255.255.255", "sip ok", Mask(1u << 11 | 1u << 28).U32(32, 0xFFFFFFFF));
  Set("dip", "0.0.0.0 and more", "dip ok", Mask(1u << 12 | 1u << 28));
  for (const char *keyword : {"sip", "dip"}) {
    Refuse(keyword, {"1.2.3.256", "256.2.3.4", "1.256.3.4", "1.2.999.4"}, kAddress);
    Refuse(keyword, {"1.2.3", "", "host", "1.2.3.x", "::1"}, kInput);
  }
}

TEST_F(PacketTraceSetTest, Ipv6Addresses) {
  const std::string bytes = {'\x20', '\x01', '\x0d', '\xb8', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\x01', '\x02'};
  const Record source = Mask(1u << 26 | 1u << 28).Copy(56, bytes).U16(54, 0x86DD).U8(96, 1);
  const Record destination = Mask(1u << 27 | 1u << 28).Copy(72, bytes).U16(54, 0x86DD).U8(96, 1);
  for (const char *text :
       {"2001:db8::102", " 2001:DB8::102", "2001:0db8:0000:0000:0000:0000:0000:0102 more"}) {
    Set("sip6", text, "sip6 ok", source);
    Set("dip6", text, "dip6 ok", destination);
  }
  const std::vector<std::string> wrong = {
      "2001:db8::zz", "1.2.3.4", "", " ", "::1%1", std::string(46, '0'), std::string(5000, ':')};
  Refuse("sip6", wrong, kSourceV6);
  Refuse("dip6", wrong, kDestinationV6);
}

TEST_F(PacketTraceSetTest, TheLongestIpv6Text) {
  Set("sip6", "0000:0000:0000:0000:0000:ffff:255.255.255.254", "sip6 ok",
      Mask(1u << 26 | 1u << 28).U16(54, 0x86DD).U8(96, 1).Copy(66, "\xff\xff\xff\xff\xff\xfe"));
}

TEST_F(PacketTraceSetTest, IpTypes) {
  SetBlock(Zeros().U8(96, 9));
  EXPECT_EQ(Run({"set", "ip_type", "ipv4"}), "packet trace set ipType ok");
  ExpectBlock(Mask(1u << 28));
  Set("ip_type", "ipv6", "ipType ok", Mask(1u << 28).U8(96, 1));
  Refuse("ip_type", {"IPv4", "ipv", "ipv44", "4", ""}, kInput);
}

TEST_F(PacketTraceSetTest, ConditionsWithoutFields) {
  Set("not_frag", "ipv4 not fragment", Mask(1u << 21));
  Set("first_frag", "ipv4 first fragment", Mask(1u << 22));
  Set("not_first_frag", "ipv4 not first fragment", Mask(1u << 23));
  Set("last_frag", "ipv4 last fragment", Mask(1u << 24));
  Set("icmp", "icmp ok", Mask(1u << 13).U8(52, 1));
}

TEST_F(PacketTraceSetTest, DiscardTypes) {
  const std::string ok = "discard type ok";
  Set("discard_type", "all", ok, Mask(1u << 5).U16(92, 274));
  Set("discard_type", "atksrc", ok, Mask(1u << 5).U16(92, 11));
  Set("discard_type", "car", ok, Mask(1u << 5).U16(92, 128));
  Set("discard_type", "maclearn", ok, Mask(1u << 5).U16(92, 274));  // the counter behind the last type
  // Only one word is read, so that a name of several is not found.
  Set("discard_type", "all types", ok, Mask(1u << 5).U16(92, 274));
  Set("discard_type", " car", ok, Mask(1u << 5).U16(92, 128));
  Refuse("discard_type",
         {"arp miss", "not defined", "ALL", "Car", "cars", "", " ", "11", "icmp", "mac msg punt",
          std::string(127, 'a'), std::string(5000, 'a'), "car" + std::string(200, 'x')},
         kInput);
}

TEST_F(PacketTraceSetTest, Refusals) {
  Refuse("timeout", {"0", "6001", "4294967295", ""}, kRange);
  Refuse("print_num", {"0", "257", ""}, kRange);
  Refuse("tcp_flags", {"33", "255"}, kRange);
  Refuse("protocol", {"256", "4294967295"}, kProtocol);
  Refuse("sport", {"65536"}, kSourcePort);
  Refuse("dport", {"65536"}, kDestinationPort);
  for (const char *keyword : {"print_console", "print_to_log", "inner", "from_cp", "tool_check"})
    Refuse(keyword, {"2", "4294967295"}, kInput);
  for (const char *keyword : {"smac", "dmac"})
    Refuse(keyword, {"00:11:22:33:44", "00e0-fc12-3456", "", "00:11:22:33:44:gg", "00:11:22:33:44:555"},
           kInput);
}

TEST_F(PacketTraceSetTest, NotANumber) {
  for (const char *keyword : {"timeout", "print_num", "print_console", "print_to_log", "from_cp", "inner",
                              "tool_check", "min_pkt_len", "max_pkt_len", "src_fwdif", "dst_fwdif", "vlan",
                              "protocol", "sport", "dport", "tcp_flags", "cause_id", "icmp_type"}) {
    Refuse(keyword, {"x", "1x", "-1", "4294967296", "1 2", "08", "0xg", "1.5"}, kInput);
  }
}

TEST_F(PacketTraceSetTest, MissingArguments) {
  for (const char *keyword :
       {"timeout",     "print_num",   "print_console", "print_to_log", "from_cp", "inner",    "tool_check",
        "min_pkt_len", "max_pkt_len", "src_fwdif",     "dst_fwdif",    "smac",    "dmac",     "eth_type",
        "vlan",        "sip",         "dip",           "sip6",         "dip6",    "protocol", "sport",
        "dport",       "tcp_flags",   "discard_type",  "cause_id",     "ip_type", "icmp_type"}) {
    ExpectRefused({"set", keyword}, kInput);
  }
}

TEST_F(PacketTraceSetTest, UnknownKeywords) {
  for (const char *keyword : {"", "Timeout", "time", "timeouts", "ip-type", "icmp-type", "capwap_ctrl",
                              "capwap_data", "capwap_frag", "set"}) {
    ExpectRefused({"set", keyword}, "Error: Unsupported pkt trace type.\n");
    ExpectRefused({"set", keyword, "1"}, "Error: Unsupported pkt trace type.\n");
  }
}

TEST_F(PacketTraceSetTest, ConditionsAddUp) {
  for (const auto &[keyword, argument] :
       {std::pair("sip", "1.2.3.4"), {"dport", "80"}, {"vlan", "5"}, {"dip6", "::1"}, {"print_num", "3"}})
    Run({"set", keyword, argument});
  ExpectBlock(Mask(1u << 11 | 1u << 28 | 1u << 18 | 1u << 6 | 1u << 27)
                  .Copy(32, "\x01\x02\x03\x04")
                  .U16(90, 80)
                  .U16(14, 5)
                  .U8(87, 1)
                  .U16(54, 0x86DD)
                  .U8(96, 1)
                  .U32(112, 3));
}

// The setters as operations: on the block that they are given, whether or not it is the attached one.
TEST_F(PacketTraceSetTest, SettersWithoutAKeyword) {
  struct Case {
    int32_t (*set)(OutputBuffer *, const char *, const char *, void *, void *);
    const char *argument;
    int32_t code;
    std::string text;
    Record block;
  };
  const Case cases[] = {
      {PktTraceSetCapwapCtrl, nullptr, 0, "packet trace set capwap ctrl ok",
       Mask(1u << 14).U16(88, 5246).U16(90, 5246)},
      {PktTraceSetCapwapData, nullptr, 0, "packet trace set capwap data ok",
       Mask(1u << 14).U16(88, 5247).U16(90, 5247)},
      {PktTraceSetCapwapFrag, nullptr, 0, "packet trace set capwap fragment ok",
       Mask(1u << 14).U8(12, 1 << 6)},
      {PktTraceSetTimeout, "6000", 0, "packet trace set timeout ok", Zeros().U32(24, 6000)},
      {PktTraceSetTimeout, "6001", 8, "", Zeros()},
      {PktTraceSetTimeout, "x", 1, "", Zeros()},
      {PktTraceSetTimeout, nullptr, 1, "", Zeros()},
      {PktTraceSetSip, "1.2.3.4", 0, "packet trace set sip ok",
       Mask(1u << 11 | 1u << 28).Copy(32, "\x01\x02\x03\x04")},
      {PktTraceSetSip, "1.2.3.256", 2, "", Zeros()},
      {PktTraceSetSip, "1.2.3", 1, "", Zeros()},
  };
  for (const Case &one : cases) {
    alignas(8) uint8_t block[224] = {};
    const std::string text = Capture([&](OutputBuffer *out) {
      EXPECT_EQ(one.set(out, "keyword", one.argument, block, block + 104), one.code);
    });
    EXPECT_EQ(text, one.text);
    EXPECT_EQ(Bytes(block, block + 224), one.block.bytes()) << one.text;
  }
  ExpectBlock(Zeros());
}

TEST_F(PacketTraceSetTest, SetAsAnOperationAppends) {
  ASSERT_EQ(PktTraceAttach(), 0);
  const std::string text = Capture([](OutputBuffer *out) {
    QdtCliPrintf(out, "before ");
    EXPECT_EQ(PktTraceSet(out, "vlan", "7"), -1);
    EXPECT_EQ(PktTraceSet(out, "vlan", nullptr), 0);
    EXPECT_EQ(PktTraceSet(out, "nothing", nullptr), 0);
  });
  EXPECT_EQ(text,
            std::string("before packet trace set vlan ok") + kInput + "Error: Unsupported pkt trace type.\n");
}

}  // namespace
}  // namespace qdt::test
