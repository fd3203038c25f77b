#include <string>

#include "tests/unit/view_test.h"

// Views of IPv6 routes, next hops, next-hop groups, neighbours and port addresses.
namespace qdt::test {
namespace {

constexpr uint32_t kNextHopV4 = 2, kGroupV4 = 3, kFib = 5, kNextHop = 6, kGroup = 7, kNd = 8, kCtrlIfMap = 11,
                   kPortHead = 16, kPort = 17, kNdMiss = 89;

class Ipv6Test : public ViewTest {
 protected:
  void *AddTo(uint32_t table, uint32_t index, size_t size) {
    return platform.AddEntry(table, Key(index), Bytes(size));
  }
};

// Routes.

// 2001:db8:1:2:3:4:5:6 as the route key has it: bytes in network order.
Bytes FibKey(uint16_t prefixLength, uint16_t vpn) {
  Bytes key = Key(prefixLength, vpn);
  for (const uint8_t byte : {0x20, 0x01, 0x0D, 0xB8, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6}) key.push_back(byte);
  return key;
}

Record FullRoute(const void *bound) {
  return Record(16)
      .Bits(0, 0, 6)
      .Bits(0, 5, 1)
      .U8(1, 128)
      .U16(2, 40001)
      .U32(4, 4000000001u)
      .Address(8, bound);
}

constexpr char kFullRoute[] =
    "  OpCode    :  6\n"
    "  MulNhp    :  0\n"
    "  Def       :  0\n"
    "  Dir       :  1\n"
    "  Prefix    :  128\n"
    "  NhpIndex  :  40001\n"
    "  ReIndex   :  4000000001\n";

TEST_F(Ipv6Test, RouteWholeAnswer) {
  const Record route = FullRoute(AddTo(kNextHop, 40001, 72));
  platform.AddEntry(kFib, FibKey(64, 7), route.bytes());
  EXPECT_EQ(Query("68", "2001:db8:1:2:3:4:5:6", "64", "7"), Framed(kFullRoute));
  EXPECT_EQ(Query("68", "2001:0DB8:0001:2:3:4:0.5.0.6", "64", "7"), Framed(kFullRoute));
  EXPECT_EQ(Query("68", "2001:db8:1:2:3:4:5:7", "64", "7"), "search result not found");
  EXPECT_EQ(Query("68", "2001:db8:1:2:3:4:5:6", "63", "7"), "search result not found");
  ExpectBoundedByRoom(NqeTableFormatIpv6Fib, route);
  ExpectOneRecordOnly(NqeTableFormatIpv6Fib, 16);
}

TEST_F(Ipv6Test, RouteFindsByPrefixVpnAndDestinationInNetworkOrder) {
  platform.AddEntry(kFib, FibKey(64, 0x0201), FullRoute(nullptr).bytes());
  ExpectFindsOne(NqeTableSearchIpv6Fib, kFib, FullRoute(nullptr),
                 "search 5 4000010220010db8000100020003000400050006", "2001:db8:1:2:3:4:5:6", 0x10040,
                 0x50201);
  EXPECT_EQ(platform.allocations[0].path, "src/om/nqe_cli/nqe_cli_tbl_query_ipv6");
}

TEST_F(Ipv6Test, RouteTextsThatAreNoAddressMeanTheZeroAddress) {
  platform.AddEntry(kFib, FibKey(64, 7), FullRoute(nullptr).bytes());
  platform.searches.clear();
  for (const char *key1 : {"0", "", "x", "10.1.0.7", "2001:db8:1:2:3:4:5:6:7", "2001:db8::g", "::"}) {
    EXPECT_EQ(Query("68", key1), "search result not found");
  }
  EXPECT_EQ(platform.searches, std::vector<std::string>(7, "search 5 " + std::string(40, '0')));
}

TEST_F(Ipv6Test, RouteIsCheckedInTheIpv6Tables) {
  const std::string intact = kFullRoute;
  const void *const v4 = AddTo(kNextHopV4, 40001, 608);
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, FullRoute(v4)), intact + "  NhpEntry  :  Error(-7)\n");
  const void *const live = AddTo(kNextHop, 40001, 72);
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, FullRoute(live)), intact);
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, FullRoute(v4)), intact + "  NhpEntry  :  Error(0)\n");
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, FullRoute(nullptr)), intact + "  NhpEntry  :  Error(0)\n");
  EXPECT_EQ(platform.searches, std::vector<std::string>(3, "search 6 419c0000"));
  platform.FailTable(kNextHop, -1);
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, FullRoute(live)), intact + "  NhpEntry  :  Error(-1)\n");
}

TEST_F(Ipv6Test, RouteOfAGroup) {
  const auto route = [](const void *bound) { return Record(16).Bits(0, 3, 1).U16(2, 77).Address(8, bound); };
  const std::string intact =
      "  OpCode    :  0\n"
      "  MulNhp    :  1\n"
      "  Def       :  0\n"
      "  Dir       :  0\n"
      "  Prefix    :  0\n"
      "  NhpIndex  :  77\n"
      "  ReIndex   :  0\n";
  AddTo(kNextHop, 77, 72);
  const void *const v4 = AddTo(kGroupV4, 77, 784);
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, route(v4)), intact + "  NhpEntry  :  Error(-7)\n");
  EXPECT_EQ(FormatText(NqeTableFormatIpv6Fib, route(AddTo(kGroup, 77, 784))), intact);
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 7 4d000000"});
}

// Next hops.

constexpr size_t kExt = 24, kOutCount = kExt + 9, kOut = kExt + 16;

Record FullNextHop(const void *first, const void *second) {
  return Record(72)
      .U32(0, 3000000001u)
      .U32(4, 0xFE800001)
      .U32(8, 0x00020003)
      .U32(12, 0x00040005)
      .U32(16, 0x0006ABCD)
      .U32(20, 91)
      .U16(kExt, 40024)
      .U16(kExt + 2, 40026)
      .Copy(kExt + 4, "\x9B\x66\x99\x68")
      .Copy(kExt + 8, "\x97\x02\x96\x6B")
      .U32(kExt + 12, 92)
      .Address(kOut, first)
      .Address(kOut + 8, second);
}

TEST_F(Ipv6Test, NextHopWholeAnswer) {
  const uint32_t first[4] = {7001, 1, 2, 6001}, second[4] = {0xFFFFFFFF, 1, 2, 0x80000000};
  const Record record = FullNextHop(first, second);
  platform.AddEntry(kNextHop, Key(uint32_t{70000}), record.bytes());
  EXPECT_EQ(Query("69", "0", "70000"), Framed("  IfIndex    :  3000000001\n"
                                              "  NextHopIp  :  fe80:1:2:3:4:5:6:abcd\n"
                                              "  PortId    : 40024\n"
                                              "  Mtu       : 40026\n"
                                              "  NdMiss   : -101\n"
                                              "  NdFake   : 102\n"
                                              "  EncapType : -103\n"
                                              "  EncapSize : 104\n"
                                              "  L3SvcNum  : 107\n"
                                              "  L1SvcNum  : -106\n"
                                              "  LinkSvcNum: -105\n"
                                              "  FwdIfNum  : 2\n"
                                              "  OutFwdif:\n"
                                              "    [0]CtrlIfIndex=6001, FwdifIndex=7001\n"
                                              "    [1]CtrlIfIndex=-2147483648, FwdifIndex=-1\n"
                                              "\n"));
  ExpectBoundedByRoom(NqeTableFormatIpv6Nhp, record);
  ExpectFindsOne(NqeTableSearchIpv6Nhp, kNextHop, record, "search 6 70110100", "x", 70000);
  ExpectOneRecordOnly(NqeTableFormatIpv6Nhp, 72);
}

TEST_F(Ipv6Test, NextHopOutputInterfaces) {
  const uint32_t live[4] = {7001, 1, 2, 6001};
  const auto interfaces = [&](uint8_t count, uint64_t third) {
    const std::string text = FormatText(
        NqeTableFormatIpv6Nhp,
        Record(72).U8(kOutCount, count).Address(kOut, live).U64(kOut + 16, third).Address(kOut + 24, live));
    const size_t at = text.find("  OutFwdif:\n");
    return at == text.npos ? text : text.substr(at);
  };
  EXPECT_EQ(interfaces(0, 0), "  OutFwdif:\n\n");
  EXPECT_EQ(interfaces(255, 0), "  OutFwdif:\n\n");
  EXPECT_EQ(interfaces(4, 0),
            "  OutFwdif:\n"
            "    [0]CtrlIfIndex=6001, FwdifIndex=7001\n"
            "    [1]CtrlIfIndex=0, FwdifIndex=0\n"
            "    [2]CtrlIfIndex=0, FwdifIndex=0\n"
            "    [3]CtrlIfIndex=6001, FwdifIndex=7001\n"
            "\n");
  EXPECT_EQ(interfaces(5, 0), "code -120");
  EXPECT_EQ(interfaces(127, 0), "code -120");
  for (const uint64_t wild : {uint64_t{8}, uint64_t{0x8000000000000000}, UINT64_MAX}) {
    EXPECT_EQ(interfaces(4, wild),
              "  OutFwdif:\n"
              "    [0]CtrlIfIndex=6001, FwdifIndex=7001\n"
              "    [1]CtrlIfIndex=0, FwdifIndex=0\n"
              "    [2]CtrlIfIndex=0, FwdifIndex=0\n"
              "    [3]CtrlIfIndex=6001, FwdifIndex=7001\n"
              "\n")
        << std::hex << wild;
    EXPECT_EQ(interfaces(1, wild), "  OutFwdif:\n    [0]CtrlIfIndex=6001, FwdifIndex=7001\n\n");
  }
}

TEST_F(Ipv6Test, NextHopAddressTexts) {
  const auto text = [](uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    const std::string all =
        FormatText(NqeTableFormatIpv6Nhp, Record(72).U32(4, a).U32(8, b).U32(12, c).U32(16, d));
    const std::string label = "  NextHopIp  :  ";
    const size_t at = all.find(label) + label.size();
    return all.substr(at, all.find('\n', at) - at);
  };
  EXPECT_EQ(text(0, 0, 0, 0), "::");
  EXPECT_EQ(text(0, 0, 0, 1), "::1");
  EXPECT_EQ(text(0xFE800000, 0, 0, 0x12345678), "fe80::1234:5678");
  EXPECT_EQ(text(0, 0, 0xFFFF, 0x0A010007), "::ffff:10.1.0.7");
}

// Groups: checked against the IPv4 next hops.

TEST_F(Ipv6Test, GroupMembersAreLookedUpAmongTheIpv4NextHops) {
  const void *const v6 = AddTo(kNextHop, 501, 72);
  const void *const v4 = AddTo(kNextHopV4, 502, 608);
  Record group(784);
  group.U8(0, 1).U8(1, 3).U8(2, 2).U32(4, 4000000002u).U32(8, 0x0000C0D3);
  group.U32(12, 501).U32(16, 502).U32(20, 502).U32(140, 502).U32(144, 501);
  group.Address(272, v6).Address(280, v4).Address(288, v6).Address(528, v4).Address(536, v6);
  platform.AddEntry(kGroup, Key(uint32_t{70000}), group.bytes());
  EXPECT_EQ(Query("70", "0", "70000"), Framed("  BsFrr:         1\n"
                                              "  BsNhpNum:      3\n"
                                              "  HashIndex:     4000000002\n"
                                              "  PrimaryNum:    2\n"
                                              "  PrimaryBitmap: 0000c0d3\n"
                                              "  NhpIndex[0]:     501\n"
                                              "  Entry of 0 :     Error\n"
                                              "  NhpIndex[1]:     502\n"
                                              "  NhpIndex[2]:     502\n"
                                              "  Entry of 2 :     Error\n"
                                              "  PrimaryNhpIndex[0]:     502\n"
                                              "  PrimaryNhpIndex[1]:     501\n"
                                              "  PrimaryEntry of 1 :     Error\n"));
  EXPECT_EQ(platform.searches[0], "search 7 70110100");
  EXPECT_EQ(platform.searches[1], "search 2 f5010000");
  ExpectBoundedByRoom(NqeTableFormatIpv6NhpGroup, group);
  ExpectFindsOne(NqeTableSearchIpv6NhpGroup, kGroup, group, "search 7 70110100", "x", 70000);
  ExpectOneRecordOnly(NqeTableFormatIpv6NhpGroup, 784);
}

TEST_F(Ipv6Test, GroupShowsAtMost32OfEachList) {
  const std::string text = FormatText(NqeTableFormatIpv6NhpGroup, Record(784).U8(1, 255).U8(2, 33));
  EXPECT_NE(text.find("  NhpIndex[31]:     0\n  Entry of 31 :     Error\n  PrimaryNhpIndex[0]"), text.npos);
  EXPECT_TRUE(text.ends_with("  PrimaryNhpIndex[31]:     0\n  PrimaryEntry of 31 :     Error\n"));
}

// Neighbours.

// fe80::1:2 as the keys of neighbours have it: words in host order.
Bytes NdKey(uint16_t vpn) {
  return Key(uint16_t{0}, vpn, uint32_t{0xFE800000}, uint32_t{0}, uint32_t{0}, uint32_t{0x00010002});
}

constexpr char kNdKeyHex[] = "00000102000080fe000000000000000002000100";

Record FullNd() {
  return Record(56)
      .Bits(20, 1, 1)
      .U32(24, 3000024001u)
      .U32(28, 3000028002u)
      .U32(32, 3000032003u)
      .U32(36, 3000036004u)
      .Copy(40, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U16(46, 40046);
}

TEST_F(Ipv6Test, NdWholeAnswer) {
  platform.AddEntry(kNd, NdKey(5), FullNd().bytes());
  EXPECT_EQ(Query("71", "fe80::1:2", "5"), Framed("  BsValid       : 0\n"
                                                  "  BsFake        : 1\n"
                                                  "  CtrlIfIdx     : 3000024001\n"
                                                  "  L3CtrlIfIdx   : 3000032003\n"
                                                  "  FwdIfIndex    : 3000028002\n"
                                                  "  L3FwdIfIndex  : 3000036004\n"
                                                  "  VlanId        : 40046\n"
                                                  "  Dmac          : a0:0b:c1:0d:e2:0f\n"));
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{6, "NqeTableSearchNd k1 fe80::1:2, k2 5\n"}}));
  ExpectBoundedByRoom(NqeTableFormatNd, FullNd());
  ExpectOneRecordOnly(NqeTableFormatNd, 56);
  const std::string valid = FormatText(NqeTableFormatNd, Record(56).Bits(20, 0, 1));
  EXPECT_EQ(valid.substr(0, 40), "  BsValid       : 1\n  BsFake        : 0\n");
  EXPECT_EQ(FormatText(NqeTableFormatNd, Record(56).U32(20, 0xFFFFFFFC)).substr(0, 40),
            "  BsValid       : 0\n  BsFake        : 0\n");
}

TEST_F(Ipv6Test, NdSearch) {
  platform.AddEntry(kNd, NdKey(0x0201), FullNd().bytes());
  ExpectFindsOne(NqeTableSearchNd, kNd, FullNd(), std::string("search 8 ") + kNdKeyHex, "fe80::1:2",
                 0x00030201);
}

TEST_F(Ipv6Test, AMissingNdEntryLeavesTwoLinesInTheLog) {
  EXPECT_EQ(Query("71", "fe80::9", "0xFFFFFFFF"), "search result not found");
  EXPECT_EQ(platform.log, (std::vector<LogLine>{{6, "NqeTableSearchNd k1 fe80::9, k2 4294967295\n"},
                                                {6, "Error in TbmTblSearch(CAP_TABLE_IPV6_ND), ret=-7\n"}}));
  platform.log.clear();
  platform.FailTable(kNd, -116);
  EXPECT_EQ(Query("71", "no %s address", "0"), "search not ready");
  EXPECT_EQ(platform.log,
            (std::vector<LogLine>{{6, "NqeTableSearchNd k1 no %s address, k2 0\n"},
                                  {6, "Error in TbmTblSearch(CAP_TABLE_IPV6_ND), ret=-116\n"}}));
}

// The ND-miss cache.

Record NdMiss(uint32_t lastWord, uint32_t ttl = 3000036002u) {
  return Record(72)
      .U32(4, 0xFE800000)
      .U32(16, lastWord)
      .U32(20, 91)
      .U32(32, 3000032001u)
      .U32(36, ttl)
      .Copy(40, std::string_view("\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x11", 16))
      .Copy(56, std::string_view("\xFF\x02\0\0\0\0\0\0\0\0\0\x01\xFF\x22\x33\x44", 16));
}

std::string NdMissText(const std::string &nextHop, const std::string &ttl = "3000036002") {
  return "  NextHop   :  " + nextHop + "\n  Create    :  3000032001\n  Ttl(sec)  :  " + ttl +
         "\n  SrcIP     :  2001:db8::11\n  DstIP     :  ff02::1:ff22:3344\n\n";
}

TEST_F(Ipv6Test, NdMissWholeCache) {
  std::string text;
  for (uint32_t i = 1; i <= 51; ++i) {
    platform.AddEntry(kNdMiss, NdKey(static_cast<uint16_t>(i)), NdMiss(0x00010000 + i, i).bytes());
    char address[32];
    std::snprintf(address, sizeof(address), "fe80::1:%x", i);
    text += NdMissText(address, std::to_string(i));
  }
  EXPECT_EQ(Query("72", "all", "9"), Framed(text));
  EXPECT_EQ(platform.walks, std::vector<std::string>(2, "next 89 3600"));
}

TEST_F(Ipv6Test, NdMissOfOneNextHop) {
  platform.AddEntry(kNdMiss, NdKey(0x0201), NdMiss(0x00010002, 11).bytes());
  platform.AddEntry(kNdMiss, NdKey(0x0202), NdMiss(0x00010002, 12).bytes());
  platform.AddEntry(kNdMiss, NdKey(0x0201), NdMiss(0x00010002, 13).bytes());
  EXPECT_EQ(Query("72", "fe80::1:2", "0x201"),
            Framed(NdMissText("fe80::1:2", "11") + NdMissText("fe80::1:2", "13")));
  EXPECT_EQ(platform.walks, std::vector<std::string>{std::string("by key 89 3600 ") + kNdKeyHex});
}

TEST_F(Ipv6Test, NdMissRefusesOtherTexts) {
  platform.AddEntry(kNdMiss, Key(uint32_t{0}, uint64_t{0}, uint64_t{0}), NdMiss(0).bytes());
  for (const char *key1 : {"::", "0::0", "0", "", "ALL", "all ", "x", "10.1.0.7", "num5"}) {
    EXPECT_EQ(Query("72", key1), "invalid input param") << key1;
  }
  EXPECT_TRUE(platform.walks.empty());
  // The batch is allocated before the text is looked at.
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchNdMissCache, 50, "::").code, QDT_TBL_NO_MEMORY);
}

TEST_F(Ipv6Test, NdMissSearches) {
  const std::vector<Record> entries = {NdMiss(0x00010002, 1), NdMiss(0x00010002, 2), NdMiss(0x00010002, 3)};
  for (const Record &entry : entries) platform.AddEntry(kNdMiss, NdKey(5), entry.bytes());
  ExpectWalks(NqeTableSearchNdMissCache, kNdMiss, entries, "all");
  platform.FailWalk(kNdMiss, -1, 0);
  ExpectWalks(NqeTableSearchNdMissCache, kNdMiss, entries, "fe80::1:2", 5);
  platform.FailWalk(kNdMiss, 0, -10);
  EXPECT_EQ(Query("72", "all"), "stop this search");
}

TEST_F(Ipv6Test, NdMissLengthsAndRoom) {
  EXPECT_EQ(Query("72", "all"), "datasize empty or invalid");
  ExpectFormatsEach(NqeTableFormatNdMissCache, NdMiss(1));
  ExpectBoundedByRoom(NqeTableFormatNdMissCache, NdMiss(0xFFFFFFFF));
}

// The addresses of a port.

Record PortAddress(uint32_t lastWord, uint32_t type) {
  return Record(32).U32(0, 0x20010DB8).U32(12, lastWord).U32(16, 3000016001u).U32(20, type).U64(24, 91);
}

std::string PortAddressText(const std::string &address, const std::string &type) {
  return "  IpAddr  :  " + address + "\n  Prefix  :  3000016001\n  IpType  :  " + type + "\n\n";
}

class Ipv6PortTest : public Ipv6Test {
 protected:
  void AddPort(uint32_t fwdIf) {
    platform.AddEntry(kCtrlIfMap, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, fwdIf).bytes());
    platform.AddEntry(kPortHead, Key(fwdIf), Record(16).U32(0, fwdIf).U32(4, 0x04030201).bytes());
  }
};

TEST_F(Ipv6PortTest, WholeAnswer) {
  AddPort(12);
  platform.AddEntry(kPort, Key(uint32_t{0x04030201}), PortAddress(0x00010002, 3000020002u).bytes());
  platform.AddEntry(kPort, Key(uint32_t{12}), PortAddress(3, 3).bytes());
  platform.AddEntry(kPort, Key(uint32_t{0x04030201}), PortAddress(4, 4).bytes());
  const std::string answer =
      Framed(PortAddressText("2001:db8::1:2", "3000020002") + PortAddressText("2001:db8::4", "4"));
  for (const char *key1 : {"0", "all", "x", "::1"}) EXPECT_EQ(Query("73", key1, "5"), answer) << key1;
  EXPECT_EQ(platform.searches[1], "search 16 0c000000");
  EXPECT_EQ(platform.walks[0], "by key 17 1600 01020304");
}

TEST_F(Ipv6PortTest, FailuresOnTheWay) {
  EXPECT_EQ(Query("73", "0", "5"), "search result not found");
  AddPort(12);
  EXPECT_EQ(Query("73", "0", "5"), "datasize empty or invalid");
  platform.FailTable(kPortHead, -115);
  EXPECT_EQ(Query("73", "0", "5"), "search internal error");
  platform.FailTable(kCtrlIfMap, -114);
  EXPECT_EQ(Query("73", "0", "5"), "search duplicate");
  EXPECT_EQ(Call(NqeTableSearchIpv6PortIpList, 0, "0", 5).code, QDT_TBL_INVALID_INPUT);
}

TEST_F(Ipv6PortTest, ANegativeMapResultIsTheCode) {
  AddPort(0xFFFFFF8D);  // reads -115
  EXPECT_EQ(Query("73", "0", "5"), "search internal error");
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(Ipv6PortTest, SearchesLengthsAndRoom) {
  AddPort(12);
  const std::vector<Record> entries = {PortAddress(1, 1), PortAddress(2, 2), PortAddress(3, 3)};
  for (const Record &entry : entries) platform.AddEntry(kPort, Key(uint32_t{0x04030201}), entry.bytes());
  ExpectWalks(NqeTableSearchIpv6PortIpList, kPort, entries, "0", 5);
  ExpectFormatsEach(NqeTableFormatIpv6PortIpList, entries[0]);
  ExpectBoundedByRoom(NqeTableFormatIpv6PortIpList, entries[0]);
}

}  // namespace
}  // namespace qdt::test
