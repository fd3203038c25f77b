#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/view_test.h"

// Views of VLANs and of the bitmaps of their members.
namespace qdt::test {
namespace {

constexpr uint32_t kCtrlIfMap = 11, kVlan = 22, kBitmap = 40;

class VlanTest : public ViewTest {};

// A value of its own in every field wider than a bit, ones in what is never shown.
Record FullVlan() {
  return Record(24)
      .U32(0, 0xEEEEEEEE)
      .U16(4, 40004)
      .U16(6, 0xEA69)
      .U16(8, 40008)
      .U16(10, 40010)
      .U16(12, 40012)
      .U16(14, 40014)
      .U32(16, 3000000016u)
      .U32(20, 3000000020u);
}

constexpr char kFullVlan[] =
    "  VlanId           :  40004\n"
    "  MacLearnEn       :  1\n"
    "  BcLimitEn        :  0\n"
    "  MissUcAct        :  2\n"
    "  MacLimitEn       :  0\n"
    "  MacLimitFull     :  1\n"
    "  MacLimitAct      :  1\n"
    "  MacLimitAlarmEn  :  0\n"
    "  RoamUserExistFlag:  1\n"
    "  ArpReplyEnable   :  0\n"
    "  IgmpsnpEnable    :  1\n"
    "  DhcpEnable       :  0\n"
    "  BcMid            :  40008\n"
    "  StatId           :  40010\n"
    "  MacLimitNum      :  40012\n"
    "  CurMacNum        :  3000000016\n"
    "  VlanIfIdx        :  3000000020\n"
    "  InstanceId       :  40014\n";

TEST_F(VlanTest, WholeAnswer) {
  platform.AddEntry(kVlan, Key(uint16_t{4094}, uint16_t{7}), FullVlan().bytes());
  EXPECT_EQ(Query("20", "0", "7", "4094"), Framed(kFullVlan));
  EXPECT_EQ(Query("20", "x", "65543", "69630"), Framed(kFullVlan));  // the low 16 bits count
  EXPECT_EQ(Query("20", "all", "7", "4094"), Framed(kFullVlan));     // never a list
  EXPECT_EQ(Query("20", "0", "4094", "7"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
}

// The command names the bridge first, the key the VLAN.
TEST_F(VlanTest, FindsByVlanAndBridge) {
  platform.AddEntry(kVlan, Key(uint16_t{0x0304}, uint16_t{0x0102}), FullVlan().bytes());
  ExpectFindsOne(NqeTableSearchVlan, kVlan, FullVlan(), "search 22 04030201", "x", 0x0102, 0x0304);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_ssw");
}

TEST_F(VlanTest, EachFlagBitAlone) {
  const std::vector<std::pair<std::string, int>> kFlags = {
      {"MacLearnEn       ", 0},  {"BcLimitEn        ", 1}, {"MissUcAct        ", 2},
      {"MacLimitEn       ", 4},  {"MacLimitFull     ", 5}, {"MacLimitAct      ", 6},
      {"MacLimitAlarmEn  ", 8},  {"RoamUserExistFlag", 9}, {"ArpReplyEnable   ", 10},
      {"IgmpsnpEnable    ", 11}, {"DhcpEnable       ", 12}};
  for (int bit = 0; bit < 16; ++bit) {
    std::string expected = "  VlanId           :  0\n";
    for (const auto &[label, first] : kFlags) {
      const bool two = first == 2 || first == 6;  // the actions have two bits
      const char *value = bit == first ? "1" : two && bit == first + 1 ? "2" : "0";
      expected += "  " + label + ":  " + value + "\n";
    }
    expected +=
        "  BcMid            :  0\n  StatId           :  0\n  MacLimitNum      :  0\n"
        "  CurMacNum        :  0\n  VlanIfIdx        :  0\n  InstanceId       :  0\n";
    EXPECT_EQ(FormatText(NqeTableFormatVlan, Record(24).U16(6, static_cast<uint16_t>(1 << bit))), expected)
        << bit;
  }
}

TEST_F(VlanTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatVlan, 24);
  ExpectBoundedByRoom(NqeTableFormatVlan, FullVlan());
}

// Bitmaps.

// A word of its own in every place.
Record FullBitmap() {
  Record bitmap(1028);
  bitmap.U32(0, static_cast<uint32_t>(-2000000001));
  for (uint32_t i = 0; i < 256; ++i) bitmap.U32(4 + 4 * i, (i + 1) * 2654435761u);
  return bitmap;
}

constexpr char kZeroLine[] =
    "    00000000 00000000 00000000 00000000   00000000 00000000 00000000 00000000 \n";

std::string Repeat(const char *line, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += line;
  return text;
}

std::string Binary(uint32_t value) {
  char text[QDT_BINARY_SIZE + 1];
  text[QDT_BINARY_SIZE] = '#';
  toBinary(text, value);
  EXPECT_EQ(text[QDT_BINARY_SIZE], '#');
  return text;
}

TEST_F(VlanTest, BitsFromTheMostSignificantDown) {
  EXPECT_EQ(Binary(0), "00000000 00000000 00000000 00000000 ");
  EXPECT_EQ(Binary(0xFFFFFFFF), "11111111 11111111 11111111 11111111 ");
  EXPECT_EQ(Binary(0x80000001), "10000000 00000000 00000000 00000001 ");
  EXPECT_EQ(Binary(0x12345678), "00010010 00110100 01010110 01111000 ");
  for (uint32_t bit = 0; bit < 32; ++bit) {
    std::string expected = "00000000 00000000 00000000 00000000 ";
    const uint32_t column = 31 - bit;
    expected[column + column / 8] = '1';
    EXPECT_EQ(Binary(1u << bit), expected);
  }
}

TEST_F(VlanTest, BitmapGolden) {
  EXPECT_EQ(FormatText(NqeTableFormatVlanBitmap, FullBitmap()), Golden("vlan_bitmap.txt"));
}

TEST_F(VlanTest, OuterBitsOfAWord) {
  const Record bitmap = Record(1028).U32(0, 5).U32(4, 0x80000001).U32(4 + 4 * 255, 0x80000001);
  EXPECT_EQ(FormatText(NqeTableFormatVlanBitmap, bitmap),
            "  IfIndex  :  5\n"
            "  Bitmap   :\n"
            "    10000000 00000000 00000000 00000001   00000000 00000000 00000000 00000000 \n" +
                Repeat(kZeroLine, 63) + "  UntagBitmap   :\n" + Repeat(kZeroLine, 63) +
                "    00000000 00000000 00000000 00000000   10000000 00000000 00000000 00000001 \n");
}

TEST_F(VlanTest, BitmapWholeAnswer) {
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{5}), Record(16).U32(0, 5).U32(4, 0x01020304).bytes());
  platform.AddEntry(kBitmap, Key(uint32_t{0x01020304}), FullBitmap().bytes());
  EXPECT_EQ(Query("21", "0", "5"), Framed(Golden("vlan_bitmap.txt")));
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 11 05000000", "search 40 04030201"}));
  EXPECT_EQ(platform.allocations.back().size, 1028u);
  EXPECT_EQ(Query("21", "all", "5"), Framed(Golden("vlan_bitmap.txt")));
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(VlanTest, BitmapSearchFails) {
  EXPECT_EQ(Query("21", "0", "5"), "search result not found");  // no such interface
  platform.AddEntry(kCtrlIfMap, Key(uint32_t{5}), Record(16).U32(4, 12).bytes());
  EXPECT_EQ(Query("21", "0", "5"), "search result not found");  // no bitmap
  platform.AddEntry(kBitmap, Key(uint32_t{12}), FullBitmap().bytes());
  platform.FailAllocation(0);
  EXPECT_EQ(Query("21", "0", "5"), "nqecli malloc fail");
  platform.FailTable(kBitmap, -116);
  EXPECT_EQ(Query("21", "0", "5"), "search not ready");
  platform.searches.clear();
  platform.FailTable(kCtrlIfMap, -12);
  EXPECT_EQ(Query("21", "0", "5"), "stop the search,a node is deleted");
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(VlanTest, BitmapLengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatVlanBitmap, 1028);
  ExpectBoundedByRoom(NqeTableFormatVlanBitmap, FullBitmap());
}

TEST_F(VlanTest, BitmapsByThemselves) {
  const std::string golden = Golden("vlan_bitmap.txt");
  const size_t members = golden.find("  Bitmap"), untagged = golden.find("  UntagBitmap");
  const Record record = FullBitmap();
  for (const auto &[piece, text] :
       {std::pair{&NqeTableVlanBitmapParseBitmap, golden.substr(members, untagged - members)},
        std::pair{&NqeTableVlanBitmapParseUntagBitmap, golden.substr(untagged)}}) {
    const auto length = static_cast<uint32_t>(text.size());
    for (const uint32_t room : {0u, 1u, 12u, 13u, 54u, 92u, 93u, 1000u, length - 1, length, length + 1}) {
      const auto area = std::make_unique<char[]>(room);  // a sanitizer sees every byte beyond
      const int32_t code = piece(area.get(), room, record.data());
      EXPECT_EQ(code, room > length ? static_cast<int32_t>(length) : -1) << room;
      if (code >= 0) {
        EXPECT_EQ(area.get(), text);
      }
    }
    char area[] = "#";
    EXPECT_EQ(piece(area, 1, nullptr), QDT_TBL_DATA_SIZE);
    EXPECT_STREQ(area, "#");
  }
}

}  // namespace
}  // namespace qdt::test
