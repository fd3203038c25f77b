#include <string>
#include <utility>
#include <vector>

#include "tests/unit/view_test.h"

// The view of MAC addresses.
namespace qdt::test {
namespace {

constexpr uint32_t kMac = 26;

class MacTest : public ViewTest {};

Bytes MacKey(uint32_t bridge, uint16_t vlan, uint32_t station) {
  return Record(12).U32(0, bridge).U16(4, vlan).U16(6, 0x0BA0).U32(8, station).bytes();
}

// Static, local and roaming, and ones in the bits that are never shown.
Record FullMac() {
  return Record(20)
      .U32(0, 3000000001u)
      .U16(4, 40004)
      .Copy(6, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U32(12, 0xFFFFC900 | 0b1101'0101)
      .U32(16, 3000000016u);
}

constexpr char kFullMac[] =
    "  BrId        :  3000000001\n"
    "  VlanId      :  40004\n"
    "  Mac         :  a0:0b:c1:0d:e2:0f\n"
    "  Static      :  1\n"
    "  Drop        :  0\n"
    "  Local       :  1\n"
    "  Security    :  0\n"
    "  Roam        :  1\n"
    "  Aging       :  201\n"
    "  OutIfIndex  :  3000000016\n"
    "  DefaultBit  :  0\n\n";

TEST_F(MacTest, WholeAnswer) {
  platform.AddEntry(kMac, Key(uint32_t{7}, uint16_t{4094}, uint32_t{0x04030201}, uint16_t{0x0605}),
                    FullMac().bytes());
  EXPECT_EQ(Query("23", "01:02:03:04:05:06", "7", "4094"), Framed(kFullMac));
  EXPECT_EQ(Query("23", "1:2:3:4:5:6 and more", "7", "69630"), Framed(kFullMac));
  EXPECT_EQ(Query("23", "all"), Framed(kFullMac));
  EXPECT_EQ(Query("23", "num1"), Framed(kFullMac));
  EXPECT_EQ(Query("23", "01:02:03:04:05:07", "7", "4094"), "search result not found");
  EXPECT_EQ(Query("23", "01:02:03:04:05:06", "8", "4094"), "search result not found");
  EXPECT_EQ(Query("23", "01:02:03:04:05:06", "7", "4093"), "search result not found");
}

TEST_F(MacTest, FindsByBridgeVlanAndMac) {
  platform.AddEntry(kMac, Key(uint32_t{0x01020304}, uint16_t{0x0506}, uint32_t{0xCCBBAA99}, uint16_t{0xEEDD}),
                    FullMac().bytes());
  EXPECT_EQ(Call(NqeTableSearchMacInfo, 0, "99:aA:bb:CC:dd:ee", 0x01020304, 0x0506),
            (Found{0, FullMac().bytes()}));
  EXPECT_EQ(platform.searches, std::vector<std::string>{"search 26 04030201060599aabbccddee"});
  EXPECT_EQ(platform.allocations.back().size, 20u);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_ssw");
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(MacTest, ATextThatIsNoMac) {
  platform.AddEntry(kMac, MacKey(0, 0, 0), FullMac().bytes());
  for (const char *key1 : {"0", "", "ALL", "1:2:3:4:5", "1-2-3-4-5-6", "g:2:3:4:5:6", "10.1.0.7"}) {
    EXPECT_EQ(Query("23", key1), "search is not supported") << key1;
  }
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(MacTest, EachFlagBitAlone) {
  const std::vector<std::pair<std::string, int>> kFlags = {
      {"Static    ", 0}, {"Drop      ", 1}, {"Local     ", 2}, {"Security  ", 3}, {"Roam      ", 4}};
  const char *const kAging[8] = {"1", "2", "4", "8", "16", "32", "64", "128"};
  for (int bit = 0; bit < 32; ++bit) {
    std::string expected = "  BrId        :  0\n  VlanId      :  0\n  Mac         :  00:00:00:00:00:00\n";
    for (const auto &[label, at] : kFlags) expected += "  " + label + "  :  " + (bit == at ? "1\n" : "0\n");
    expected += std::string("  Aging       :  ") + (bit >= 8 && bit < 16 ? kAging[bit - 8] : "0") + "\n";
    expected += std::string("  OutIfIndex  :  0\n  DefaultBit  :  ") + (bit == 5 ? "1" : "0") + "\n\n";
    EXPECT_EQ(FormatText(NqeTableFormatMacInfo, Record(20).U32(12, 1u << bit)), expected) << bit;
  }
}

TEST_F(MacTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatMacInfo, FullMac());
  ExpectBoundedByRoom(NqeTableFormatMacInfo, FullMac());
}

TEST_F(MacTest, WalksInBatches) {
  std::string seventy, all;
  for (uint32_t i = 0; i < 120; ++i) {
    platform.AddEntry(kMac, MacKey(1, 2, i), FullMac().U32(16, i).bytes());
    std::string text = kFullMac;
    text.replace(text.find("3000000016"), 10, std::to_string(i));
    all += text;
    if (i < 70) seventy += text;
  }
  EXPECT_EQ(Query("23", "all"), Framed(all));
  EXPECT_EQ(Query("23", "num70"), Framed(seventy));
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"next 26 1000", "next 26 1000", "next 26 1000",
                                                      "next 26 1000", "next 26 400"}));
  EXPECT_EQ(platform.allocations.back().size, 400u);
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(MacTest, Failures) {
  EXPECT_EQ(Query("23", "all"), "datasize empty or invalid");
  for (uint32_t i = 0; i < 60; ++i) platform.AddEntry(kMac, MacKey(0, 0, i), FullMac().bytes());
  platform.FailAllocation(0);
  EXPECT_EQ(Query("23", "a0:0b:00:00:00:00"), "nqecli malloc fail");
  platform.FailAllocation(1);
  EXPECT_EQ(Query("23", "all"), "nqecli malloc fail");
  platform.FailWalk(kMac, 1, -11);
  EXPECT_EQ(Query("23", "all"), "the search continues,a node is deleted");
  platform.FailTable(kMac, -116);
  EXPECT_EQ(Query("23", "all"), "search not ready");
  EXPECT_EQ(Query("23", "a0:0b:00:00:00:00"), "search not ready");
}

// Everything or nothing: a large table fits, a full one does not.
TEST_F(MacTest, LargeTables) {
  std::string all;
  uint32_t count = 0;
  for (; count < 4000; ++count) {
    platform.AddEntry(kMac, MacKey(1, 2, count), FullMac().bytes());
    all += kFullMac;
  }
  ASSERT_LT(all.size(), size_t{QDT_OUTPUT_CAPACITY});
  EXPECT_EQ(Query("23", "all"), Framed(all));
  for (; count < 16384; ++count) platform.AddEntry(kMac, MacKey(1, 2, count), FullMac().bytes());
  EXPECT_EQ(Query("23", "all"), "parse data format fail");
}

}  // namespace
}  // namespace qdt::test
