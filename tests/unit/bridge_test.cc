#include <string>

#include "tests/unit/view_test.h"

// Views of bridges, trunks, and MAC addresses in use on several interfaces.
namespace qdt::test {
namespace {

constexpr uint32_t kTrunk = 13, kBridge = 27, kDuplicateMac = 72;

class BridgeTest : public ViewTest {};

Record FullBridge() {
  return Record(24)
      .U32(0, 3000000001u)
      .U32(4, 3000004002u)
      .U8(8, 203)
      .U8(9, 204)
      .U16(10, 0xFFFF)
      .U32(12, 3000012005u)
      .U32(16, 3000016006u)
      .U32(20, 3000020007u);
}

TEST_F(BridgeTest, WholeAnswer) {
  platform.AddEntry(kBridge, Key(uint32_t{70000}), FullBridge().bytes());
  EXPECT_EQ(Query("9", "0", "70000"), Framed("  BrId         :  3000000001\n"
                                             "  BrIfIndex    :  3000004002\n"
                                             "  VlanFilter   :  203\n"
                                             "  MacLimitEn   :  204\n"
                                             "  MacAgeTime   :  3000012005\n"
                                             "  MacLimitNum  :  3000016006\n"
                                             "  CurMacNum    :  3000020007\n"));
  EXPECT_EQ(Query("9", "70000"), "search result not found");
  ExpectFindsOne(NqeTableSearchBridge, kBridge, FullBridge(), "search 27 70110100", "x", 70000);
}

TEST_F(BridgeTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatBridge, 24);
  ExpectBoundedByRoom(NqeTableFormatBridge, FullBridge());
}

// Duplicate MAC addresses.

Record Duplicate(uint32_t ifIndex) {
  return Record(20)
      .U32(0, ifIndex)
      .U32(4, 3000004001u)
      .Copy(8, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U16(14, 40014)
      .U32(16, 99);
}

std::string DuplicateText(const std::string &ifIndex) {
  return "  IfIndex  :  " + ifIndex +
         "  BrId     :  3000004001  VlanId   :  40014  SrcMac   :  a0:0b:c1:0d:e2:0f\n\n";
}

TEST_F(BridgeTest, DuplicateMacWholeTable) {
  std::string first, all;
  for (uint32_t i = 0; i < 60; ++i) {
    platform.AddEntry(kDuplicateMac, Key(i), Duplicate(3000000000u + i).bytes());
    all += DuplicateText(std::to_string(3000000000u + i));
    if (i < 5) first = all;
  }
  EXPECT_EQ(Query("42", "all"), Framed(all));
  EXPECT_EQ(Query("42", "num60"), Framed(all));
  EXPECT_EQ(Query("42", "num5"), Framed(first));
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"next 72 1000", "next 72 1000", "next 72 1000",
                                                      "next 72 200", "next 72 100"}));
}

TEST_F(BridgeTest, DuplicateMacIsNotFoundByKey) {
  platform.AddEntry(kDuplicateMac, Key(uint32_t{0}), Duplicate(0).bytes());
  for (const char *key1 : {"0", "x", "ALL", "num101", "a0:0b:c1:0d:e2:0f"}) {
    EXPECT_EQ(Query("42", key1), "invalid input param") << key1;
  }
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(BridgeTest, DuplicateMacSearches) {
  const std::vector<Record> entries = {Duplicate(1), Duplicate(2), Duplicate(3)};
  for (uint32_t i = 0; i < 3; ++i) platform.AddEntry(kDuplicateMac, Key(i), entries[i].bytes());
  ExpectWalks(NqeTableSearchArpUdpMac, kDuplicateMac, entries, "all");
}

TEST_F(BridgeTest, DuplicateMacLengthsAndRoom) {
  EXPECT_EQ(Query("42", "all"), "datasize empty or invalid");
  ExpectFormatsEach(NqeTableFormatArpDupMac, Duplicate(1));
  ExpectBoundedByRoom(NqeTableFormatArpDupMac, Duplicate(UINT32_MAX));
}

// Trunks.

Record Trunk(uint16_t activePorts) {
  Record trunk(1032);
  trunk.U16(0, activePorts).U8(2, 203).U8(3, 0xFF).U32(4, 3000004001u);
  for (uint32_t i = 0; i < 256; ++i) trunk.U32(8 + 4 * i, 3000000000u + i);
  return trunk;
}

std::string TrunkText(int activePorts, int shown) {
  std::string text = "  ActivePortNum  :  " + std::to_string(activePorts) +
                     "\n  HashType       :  203\n  TrunkIfIdx     :  3000004001\n";
  for (int i = 1; i <= shown; ++i) {
    text += "  MemfwdifIdx[" + std::to_string(i) + "]  :  " + std::to_string(2999999999u + i) + "\n";
  }
  return text;
}

TEST_F(BridgeTest, TrunkWholeAnswer) {
  platform.AddEntry(kTrunk, Key(uint32_t{70000}), Trunk(2).bytes());
  EXPECT_EQ(Query("44", "0", "70000"), Framed("  ActivePortNum  :  2\n"
                                              "  HashType       :  203\n"
                                              "  TrunkIfIdx     :  3000004001\n"
                                              "  MemfwdifIdx[1]  :  3000000000\n"
                                              "  MemfwdifIdx[2]  :  3000000001\n"));
  ExpectFindsOne(NqeTableSearchTrunk, kTrunk, Trunk(2), "search 13 70110100", "x", 70000);
}

TEST_F(BridgeTest, TrunkShowsAtMostTheMembersItHolds) {
  for (const int ports : {0, 1, 255, 256}) {
    EXPECT_EQ(FormatText(NqeTableFormatTrunk, Trunk(ports)), TrunkText(ports, ports));
  }
  for (const int ports : {257, 300, 32768, 65535}) {
    EXPECT_EQ(FormatText(NqeTableFormatTrunk, Trunk(ports)), TrunkText(ports, 256));
  }
}

TEST_F(BridgeTest, AShortTrunkIsZeroBehindItsEnd) {
  const Bytes whole = Trunk(2).bytes();
  const auto cut = [&](size_t size) {
    return FormatText(NqeTableFormatTrunk,
                      Record(size).Copy(0, {reinterpret_cast<const char *>(whole.data()), size}));
  };
  EXPECT_EQ(cut(1),
            "  ActivePortNum  :  2\n  HashType       :  0\n  TrunkIfIdx     :  0\n"
            "  MemfwdifIdx[1]  :  0\n  MemfwdifIdx[2]  :  0\n");
  EXPECT_EQ(cut(8),
            "  ActivePortNum  :  2\n  HashType       :  203\n  TrunkIfIdx     :  3000004001\n"
            "  MemfwdifIdx[1]  :  0\n  MemfwdifIdx[2]  :  0\n");
  EXPECT_EQ(cut(12),
            "  ActivePortNum  :  2\n  HashType       :  203\n  TrunkIfIdx     :  3000004001\n"
            "  MemfwdifIdx[1]  :  3000000000\n  MemfwdifIdx[2]  :  0\n");
  EXPECT_EQ(cut(1031), TrunkText(2, 2));
}

TEST_F(BridgeTest, TrunkLengthsAndRoom) {
  const Record trunk = Trunk(1);
  char area[200] = "#";
  for (const int32_t length : {0, -1, INT32_MIN}) {
    EXPECT_EQ(NqeTableFormatTrunk(area, sizeof(area), trunk.data(), length), QDT_TBL_DATA_SIZE);
  }
  EXPECT_EQ(NqeTableFormatTrunk(area, sizeof(area), nullptr, 1032), QDT_TBL_DATA_SIZE);
  EXPECT_STREQ(area, "#");
  ExpectBoundedByRoom(NqeTableFormatTrunk, Trunk(256));
}

}  // namespace
}  // namespace qdt::test
