#include <string>

#include "tests/unit/view_test.h"

// Views of ARP entries, of the ARP-miss cache and of the addresses of ports.
namespace qdt::test {
namespace {

constexpr uint32_t kArp = 4, kCtrlIfMap = 11, kPortHead = 14, kPort = 15, kArpMiss = 57;

class NeighbourTest : public ViewTest {};

// Next hops in host order, as the engine's keys have them.
Bytes ArpKey(uint16_t vpn, uint32_t nextHop) { return Key(uint16_t{0}, vpn, nextHop); }

Record FullArp() {
  return Record(44)
      .Bits(8, 0, 1)
      .U32(12, 3000012001u)
      .U32(16, 3000016002u)
      .U32(20, 3000020003u)
      .U32(24, 3000024004u)
      .Copy(28, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U16(34, 40034);
}

TEST_F(NeighbourTest, ArpWholeAnswer) {
  platform.AddEntry(kArp, ArpKey(5, 0x0A010007), FullArp().bytes());
  EXPECT_EQ(Query("6", "10.1.0.7", "5"), Framed("  BsValid       : 1\n"
                                                "  BsFake        : 0\n"
                                                "  CtrlIfIdx     : 3000012001\n"
                                                "  L3CtrlIfIdx   : 3000020003\n"
                                                "  FwdIfIndex    : 3000016002\n"
                                                "  L3FwdIfIndex  : 3000024004\n"
                                                "  VlanId        : 40034\n"
                                                "  Dmac          : a0:0b:c1:0d:e2:0f\n"));
  EXPECT_EQ(Query("6", "10.1.0.7", "6"), "search result not found");
  EXPECT_EQ(Query("6", "7.0.1.10", "5"), "search result not found");
}

TEST_F(NeighbourTest, ArpFindsByVpnAndNextHopInHostOrder) {
  platform.AddEntry(kArp, ArpKey(0x0201, 0x0A010007), FullArp().bytes());
  ExpectFindsOne(NqeTableSearchArp, kArp, FullArp(), "search 4 000001020700010a", "10.1.0.7", 0x0201);
  platform.AddEntry(kArp, ArpKey(0x0201, 0x0A010007), FullArp().bytes());
  ExpectFindsOne(NqeTableSearchArp, kArp, FullArp(), "search 4 000001020700010a", "10.1.0.7", 0xABCD0201);
  platform.AddEntry(kArp, ArpKey(1, 0), FullArp().bytes());
  platform.searches.clear();
  EXPECT_EQ(Query("6", "0"), "search result not found");
  EXPECT_EQ(Query("6", "gateway"), "search result not found");
  EXPECT_EQ(platform.searches,
            (std::vector<std::string>{"search 4 0000000000000000", "search 4 00000000ffffffff"}));
}

TEST_F(NeighbourTest, ArpEachFlagAlone) {
  const std::string rest =
      "  CtrlIfIdx     : 0\n"
      "  L3CtrlIfIdx   : 0\n"
      "  FwdIfIndex    : 0\n"
      "  L3FwdIfIndex  : 0\n"
      "  VlanId        : 0\n"
      "  Dmac          : 00:00:00:00:00:00\n";
  const std::string none = "  BsValid       : 0\n  BsFake        : 0\n" + rest;
  for (int bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(FormatText(NqeTableFormatArp, Record(44).Bits(8, bit, 1)),
              bit == 0   ? "  BsValid       : 1\n  BsFake        : 0\n" + rest
              : bit == 1 ? "  BsValid       : 0\n  BsFake        : 1\n" + rest
                         : none);
  }
}

TEST_F(NeighbourTest, ArpLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatArp, 44);
  ExpectBoundedByRoom(NqeTableFormatArp, FullArp());
}

// The ARP-miss cache.

Record ArpMiss(uint32_t nextHop, uint32_t ttl = 3000028003u) {
  return Record(32).U32(4, nextHop).U32(16, 3000016001u).U32(20, 0x0B160C17).U32(24, 0xC0A80163).U32(28, ttl);
}

std::string ArpMissText(const std::string &nextHop, const std::string &ttl = "3000028003") {
  return "  NextHop   :  " + nextHop + "\n  Create    :  3000016001\n  Ttl(sec)  :  " + ttl +
         "\n  SrcIP     :  11.22.12.23\n  DstIP     :  192.168.1.99\n\n";
}

TEST_F(NeighbourTest, ArpMissWholeCache) {
  platform.AddEntry(kArpMiss, ArpKey(0, 0x0A010007), ArpMiss(0x0A010007).bytes());
  platform.AddEntry(kArpMiss, ArpKey(3, 0xFFFFFFFF), ArpMiss(0xFFFFFFFF).bytes());
  EXPECT_EQ(Query("7", "all"), Framed(ArpMissText("10.1.0.7") + ArpMissText("255.255.255.255")));
  EXPECT_EQ(platform.walks, std::vector<std::string>{"next 57 1600"});
}

TEST_F(NeighbourTest, ArpMissBatchesOf50) {
  std::string text;
  for (uint32_t i = 0; i < 120; ++i) {
    platform.AddEntry(kArpMiss, ArpKey(0, i), ArpMiss(i, 500 + i).bytes());
    text += ArpMissText("0.0.0." + std::to_string(i), std::to_string(500 + i));
  }
  EXPECT_EQ(Query("7", "all", "9"), Framed(text));
  EXPECT_EQ(platform.walks, std::vector<std::string>(3, "next 57 1600"));
}

TEST_F(NeighbourTest, ArpMissOfOneNextHop) {
  for (const uint32_t ttl : {11, 12}) {
    platform.AddEntry(kArpMiss, ArpKey(5, 0x0A010007), ArpMiss(0x0A010007, ttl).bytes());
    platform.AddEntry(kArpMiss, ArpKey(5, 0x0A010008), ArpMiss(0x0A010008, 13).bytes());
    platform.AddEntry(kArpMiss, ArpKey(6, 0x0A010007), ArpMiss(0x0A010007, 14).bytes());
  }
  platform.AddEntry(kArpMiss, ArpKey(0, 0), ArpMiss(0, 15).bytes());
  EXPECT_EQ(Query("7", "10.1.0.7", "5"),
            Framed(ArpMissText("10.1.0.7", "11") + ArpMissText("10.1.0.7", "12")));
  EXPECT_EQ(Query("7", "0"), Framed(ArpMissText("0.0.0.0", "15")));  // an address as well
  EXPECT_EQ(platform.walks,
            (std::vector<std::string>{"by key 57 1600 000005000700010a", "by key 57 1600 0000000000000000"}));
  EXPECT_EQ(Query("7", "10.1.0.9", "5"), "datasize empty or invalid");
}

TEST_F(NeighbourTest, ArpMissRefusesOtherTexts) {
  platform.AddEntry(kArpMiss, ArpKey(0, 0xFFFFFFFF), ArpMiss(0xFFFFFFFF).bytes());
  for (const char *key1 : {"ALL", "al", "all ", "", "x", "10.1.0.256", "255.255.255.255", "num5", "::"}) {
    EXPECT_EQ(Query("7", key1), "invalid input param") << key1;
  }
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(NeighbourTest, ArpMissSearches) {
  const std::vector<Record> entries = {ArpMiss(0x0A010007, 1), ArpMiss(0x0A010007, 2),
                                       ArpMiss(0x0A010007, 3)};
  for (const Record &entry : entries) platform.AddEntry(kArpMiss, ArpKey(5, 0x0A010007), entry.bytes());
  ExpectWalks(NqeTableSearchArpMissCache, kArpMiss, entries, "all");
  platform.FailWalk(kArpMiss, -1, 0);
  ExpectWalks(NqeTableSearchArpMissCache, kArpMiss, entries, "10.1.0.7", 5);
  EXPECT_EQ(Query("7", "all"), "Invalid error code");
  platform.FailTable(kArpMiss, -11);
  EXPECT_EQ(Query("7", "10.1.0.7", "5"), "the search continues,a node is deleted");
}

TEST_F(NeighbourTest, AFailureBehindTheFirstBatchReplacesTheAnswer) {
  for (uint32_t i = 0; i < 60; ++i) platform.AddEntry(kArpMiss, ArpKey(0, i), ArpMiss(i).bytes());
  platform.FailWalk(kArpMiss, 1, -12);
  EXPECT_EQ(Query("7", "all"), "stop the search,a node is deleted");
}

TEST_F(NeighbourTest, ArpMissLengthsAndRoom) {
  EXPECT_EQ(Query("7", "all"), "datasize empty or invalid");
  ExpectFormatsEach(NqeTableFormatArpMissCache, ArpMiss(0x0A010007));
  ExpectBoundedByRoom(NqeTableFormatArpMissCache, ArpMiss(0xFFFFFFFF));
}

// The addresses of a port.

Record PortAddress(uint32_t address, uint32_t type) {
  return Record(20).U32(0, address).U32(4, 0xFFFFFE00).U32(8, type).U32(12, 99).U32(16, 98);
}

std::string PortAddressText(const std::string &address, const std::string &type) {
  return "  IpAddr  :  " + address + "\n  IpMask  :  255.255.254.0\n  IpType  :  " + type + "\n\n";
}

class PortTest : public NeighbourTest {
 protected:
  // Control interface 5 is forwarding interface `fwdIf`, whose addresses are listed under 0x04030201.
  void AddPort(uint32_t fwdIf) {
    platform.AddEntry(kCtrlIfMap, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, fwdIf).bytes());
    platform.AddEntry(kPortHead, Key(fwdIf), Record(16).U32(0, fwdIf).U32(4, 0x04030201).bytes());
  }
};

TEST_F(PortTest, WholeAnswer) {
  AddPort(12);
  platform.AddEntry(kPort, Key(uint32_t{0x04030201}), PortAddress(0x0A010001, 3000008001u).bytes());
  platform.AddEntry(kPort, Key(uint32_t{12}), PortAddress(0x0A010002, 2).bytes());
  platform.AddEntry(kPort, Key(uint32_t{0x04030201}), PortAddress(0xC0A80101, 2).bytes());
  const std::string answer =
      Framed(PortAddressText("10.1.0.1", "3000008001") + PortAddressText("192.168.1.1", "2"));
  // Always a walk of the port's addresses, whatever key1 is.
  for (const char *key1 : {"0", "all", "x", "num5"}) EXPECT_EQ(Query("8", key1, "5"), answer) << key1;
  EXPECT_EQ(platform.searches[0], "search 11 05000000");
  EXPECT_EQ(platform.searches[1], "search 14 0c000000");
  EXPECT_EQ(platform.walks[0], "by key 15 1000 01020304");
  EXPECT_EQ(platform.walks[3], "by key 15 100 01020304");  // the count sizes the first batch
  EXPECT_EQ(Query("8", "num0", "5"), "invalid input param");
}

TEST_F(PortTest, SeveralBatches) {
  AddPort(12);
  std::string text;
  for (uint32_t i = 0; i < 55; ++i) {
    platform.AddEntry(kPort, Key(uint32_t{0x04030201}), PortAddress(i, i).bytes());
    text += PortAddressText("0.0.0." + std::to_string(i), std::to_string(i));
  }
  EXPECT_EQ(Query("8", "0", "5"), Framed(text));
  EXPECT_EQ(Query("8", "num3", "5"), Framed(text));  // counts only the first batch
  EXPECT_EQ(platform.walks[2], "by key 15 60 01020304");
  EXPECT_EQ(platform.walks[3], "by key 15 1000 01020304");
}

TEST_F(PortTest, FailuresOnTheWay) {
  EXPECT_EQ(Query("8", "0", "5"), "search result not found");  // no such control interface
  AddPort(12);
  EXPECT_EQ(Query("8", "0", "5"), "datasize empty or invalid");  // no addresses
  platform.ClearTable(kPortHead);
  EXPECT_EQ(Query("8", "0", "5"), "search result not found");  // no list
  platform.FailTable(kPortHead, -116);
  EXPECT_EQ(Query("8", "0", "5"), "search not ready");
  platform.FailTable(kCtrlIfMap, -113);
  EXPECT_EQ(Query("8", "0", "5"), "search return error protocal");
}

TEST_F(PortTest, ANegativeMapResultIsTheCode) {
  AddPort(0x80000005);
  EXPECT_EQ(Call(NqeTableSearchPortIpList, 50, "0", 5).code, INT32_MIN + 5);
  EXPECT_TRUE(platform.allocations.empty());
  EXPECT_EQ(Query("8", "0", "5"), "Invalid error code");
  platform.FailTable(kCtrlIfMap, -11);
  EXPECT_EQ(Call(NqeTableSearchPortIpList, 50, "0", 5).code, -11);
  EXPECT_EQ(Call(NqeTableSearchPortIpList, 0, "0", 5).code, QDT_TBL_INVALID_INPUT);
}

TEST_F(PortTest, Searches) {
  AddPort(0x7FFFFFFF);
  const std::vector<Record> entries = {PortAddress(1, 1), PortAddress(2, 2), PortAddress(3, 3)};
  for (const Record &entry : entries) platform.AddEntry(kPort, Key(uint32_t{0x04030201}), entry.bytes());
  ExpectWalks(NqeTableSearchPortIpList, kPort, entries, "0", 5);
}

TEST_F(PortTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatPortIpList, PortAddress(0x0A010001, 1));
  ExpectBoundedByRoom(NqeTableFormatPortIpList, PortAddress(0xFFFFFFFF, UINT32_MAX));
}

}  // namespace
}  // namespace qdt::test
