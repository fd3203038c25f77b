#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// No view makes a lookup for an answer that has failed already.
namespace qdt::test {
namespace {

using Lines = std::vector<std::string>;

class LookupTest : public ViewTest {
 protected:
  // The lookups that a format operation makes for the record in this room, in which it fails.
  Lines LookupsIn(uint32_t room, TableFormat format, const Record &record) {
    platform.searches.clear();
    std::string area(room, '#');
    EXPECT_EQ(format(area.data(), room, record.data(), record.size()), QDT_TBL_FORMAT) << room;
    return platform.searches;
  }
  // A room that ends within `piece` of the record's text.
  static uint32_t RoomUpTo(const std::string &piece, TableFormat format, const Record &record) {
    const std::string text = FormatText(format, record);
    EXPECT_NE(text.find(piece), text.npos) << text;
    return static_cast<uint32_t>(text.find(piece) + 5);
  }
  Lines LookupsUpTo(const std::string &piece, TableFormat format, const Record &record) {
    return LookupsIn(RoomUpTo(piece, format, record), format, record);
  }
};

TEST_F(LookupTest, Routes) {
  platform.AddEntry(2, Key(uint32_t{7}), Bytes(608));
  platform.AddEntry(6, Key(uint32_t{7}), Bytes(72));
  const Record route = Record(16).U16(2, 7);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatFib, route), Lines{});
  EXPECT_EQ(LookupsUpTo("  NhpEntry", NqeTableFormatFib, route), Lines{"search 2 07000000"});
  EXPECT_EQ(LookupsIn(1, NqeTableFormatIpv6Fib, route), Lines{});
  EXPECT_EQ(LookupsUpTo("  NhpEntry", NqeTableFormatIpv6Fib, route), Lines{"search 6 07000000"});
}

TEST_F(LookupTest, NextHopGroups) {
  platform.AddEntry(2, Key(uint32_t{1}), Bytes(608));
  Record group = Record(784).U8(1, 2).U8(2, 2);
  for (uint32_t i = 0; i < 2; ++i) group.U32(12 + 4 * i, 11 + i).U32(140 + 4 * i, 21 + i);
  for (const TableFormat format : {NqeTableFormatNhpGroup, NqeTableFormatIpv6NhpGroup}) {
    EXPECT_EQ(LookupsIn(1, format, group), Lines{});
    EXPECT_EQ(LookupsUpTo("  NhpIndex[0]", format, group), Lines{});
    EXPECT_EQ(LookupsUpTo("  Entry of 0", format, group), Lines{"search 2 0b000000"});
    EXPECT_EQ(LookupsUpTo("  NhpIndex[1]", format, group), Lines{"search 2 0b000000"});
    EXPECT_EQ(LookupsUpTo("  PrimaryNhpIndex[0]", format, group),
              (Lines{"search 2 0b000000", "search 2 0c000000"}));
    EXPECT_EQ(LookupsUpTo("  PrimaryEntry of 0", format, group),
              (Lines{"search 2 0b000000", "search 2 0c000000", "search 2 15000000"}));
  }
}

TEST_F(LookupTest, NextHops) {
  platform.AddEntry(29, Key(uint32_t{1}), Bytes(1544));
  platform.AddEntry(24, Key(uint32_t{2}, uint32_t{1}), Bytes(40), 8);
  Record nextHop = Record(608).U8(16 + 8, 2).U8(16 + 9, 2);
  for (uint32_t i = 0; i < 2; ++i) {
    nextHop.U32(16 + 112 + 16 * i + 4, 31 + i);
    nextHop.U8(16 + 176 + 16 * i, 1).U8(16 + 176 + 16 * i + 1, 2).U32(16 + 176 + 16 * i + 4, 41 + i);
  }
  EXPECT_EQ(LookupsIn(1, NqeTableFormatNhp, nextHop), Lines{});
  EXPECT_EQ(LookupsUpTo("    [0]L3Svc", NqeTableFormatNhp, nextHop), Lines{"search 29 1f000000"});
  EXPECT_EQ(LookupsUpTo("    [0]L1Svc", NqeTableFormatNhp, nextHop),
            (Lines{"search 29 1f000000", "search 29 20000000", "search 24 0200000029000000"}));
  // An encapsulation that is too long fails the view before its services.
  EXPECT_EQ(LookupsIn(8192, NqeTableFormatNhp, nextHop.U8(16 + 7, 65)), Lines{});
}

TEST_F(LookupTest, IngressServices) {
  platform.AddEntry(24, Key(uint32_t{2}, uint32_t{1}), Bytes(40), 8);
  Record interface = Record(1544).U32(1008, 3);
  for (uint32_t i = 0; i < 3; ++i)
    interface.U8(1016 + 16 * i, 4).U16(1018 + 16 * i, 2).U32(1020 + 16 * i, 51 + i);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatFwdif, interface), Lines{});
  EXPECT_EQ(LookupsUpTo("IngSvcSet:", NqeTableFormatFwdif, interface), Lines{});
  EXPECT_EQ(LookupsUpTo("  [ 1]L1Svc", NqeTableFormatFwdif, interface),
            (Lines{"search 24 0200000033000000", "search 24 0200000034000000"}));
}

TEST_F(LookupTest, AclRules) {
  platform.AddEntry(25, Key(uint32_t{0}, uint32_t{0}, uint32_t{0}), Bytes(208));
  const Record rule = Record(268).U32(4, 6).U32(8, 9);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatAclRule, rule), Lines{});
  EXPECT_EQ(LookupsUpTo("  DomainID", NqeTableFormatAclRule, rule), Lines{});
  EXPECT_EQ(LookupsUpTo("  AclStatEntry", NqeTableFormatAclRule, rule),
            Lines{"search 25 000000000600000009000000"});
}

TEST_F(LookupTest, CapwapTunnels) {
  platform.AddEntry(1, Key(uint16_t{0}, uint16_t{0}, uint32_t{0}), Bytes(16));
  const Record tunnel(112);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatCapwapTunnel, tunnel), Lines{});
  EXPECT_EQ(LookupsUpTo("  CapwapTunnelEncap", NqeTableFormatCapwapTunnel, tunnel), Lines{});
  EXPECT_EQ(LookupsUpTo("  CapwapTunnel-Fast", NqeTableFormatCapwapTunnel, tunnel),
            Lines{"match 1 0000000000000000"});
  EXPECT_EQ(LookupsIn(8192, NqeTableFormatCapwapTunnel, Record(112).U8(35, 65)), Lines{});
}

TEST_F(LookupTest, ProtocolRates) {
  for (uint32_t i = 0; i < 3; ++i) platform.AddEntry(54, Key(i), Bytes(144));
  const Record records = Record(60).U32(24, 1).U32(44, 2);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatCpcarPps, records), Lines{"search 54 00000000"});
  const auto first = static_cast<uint32_t>(FormatText(NqeTableFormatCpcarPps, Record(20)).size());
  EXPECT_EQ(LookupsIn(first + 9, NqeTableFormatCpcarPps, records),
            (Lines{"search 54 00000000", "search 54 01000000"}));
}

TEST_F(LookupTest, TableMemory) {
  std::vector<TbmTableDesc> tables(109);
  TbmGlobalInfo info{109, 0, tables.data(), nullptr, nullptr};
  g_tbmGlobalInfo = &info;
  const Record none(0);
  EXPECT_EQ(LookupsIn(1, NqeTableFormatTbmMemStat, none), Lines{});
  EXPECT_EQ(platform.memoryQueries, std::vector<uint32_t>{});
  EXPECT_EQ(LookupsUpTo("\n  2 ", NqeTableFormatTbmMemStat, none), Lines{});
  // The whole text asked for all of them first.
  ASSERT_EQ(platform.memoryQueries.size(), 109u + 3u);
  EXPECT_EQ(platform.memoryQueries.back(), 2u);
  g_tbmGlobalInfo = nullptr;
}

}  // namespace
}  // namespace qdt::test
