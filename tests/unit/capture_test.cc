#include <string>

#include "tests/unit/view_test.h"

// View of packet captures.
namespace qdt::test {
namespace {

constexpr uint32_t kCapture = 28;

class CaptureTest : public ViewTest {};

// Unshown bytes are 0xEE; all interface slots are free.
Record FullCapture() {
  return Record(64)
      .U8(0, 200)
      .U8(1, 201)
      .U16(2, 0xEEEE)
      .U32(4, 3000000004u)
      .U32(8, 3000000008u)
      .U32(12, 3000000012u)
      .U32(16, 3000000016u)
      .U8(20, 220)
      .U8(21, 221)
      .U16(22, 40022)
      .U32(24, 0xEEEEEE00)
      .U8(24, 224)
      .U16(28, 40028)
      .U16(30, 40030);
}

const std::string kText =
    "  ExpireTime     :  3000000008\n"
    "  CaptHost       :  220\n"
    "  PktLen         :  3000000012\n"
    "  PktNumRemain   :  40030\n"
    "  Timeout        :  3000000016\n"
    "  Direction      :  221\n"
    "  CaptDrop       :  224\n"
    "  DropType       :  40022\n"
    "  VlanId         :  40028\n"
    "  ACL-isValid    :  200\n"
    "  ACL-aclGrpType :  201\n"
    "  ACL-aclGrpId   :  3000000004\n";

TEST_F(CaptureTest, WholeAnswer) {
  const Record capture = FullCapture().U32(32, 2000000032).U32(60, 2000000060);
  platform.AddEntry(kCapture, Key(uint32_t{70000}), capture.bytes());
  const std::string answer =
      Framed(kText + "  IfIndex        :  2000000032\n  IfIndex        :  2000000060\n");
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("18", key1, "70000"), answer);
  EXPECT_EQ(Query("18", "70000"), "search result not found");
  EXPECT_TRUE(platform.walks.empty());
  ExpectFindsOne(NqeTableSearchCaptureCfg, kCapture, capture, "search 28 70110100", "x", 70000);
}

TEST_F(CaptureTest, NoInterfaces) { EXPECT_EQ(FormatText(NqeTableFormatCaptureCfg, FullCapture()), kText); }

TEST_F(CaptureTest, InterfacesInSlotOrderWithoutFreeSlots) {
  const Record capture = FullCapture().U32(36, 9).U32(44, static_cast<uint32_t>(-1)).U32(48, 1).U32(56, 9);
  EXPECT_EQ(FormatText(NqeTableFormatCaptureCfg, capture), kText +
                                                               "  IfIndex        :  9\n"
                                                               "  IfIndex        :  -1\n"
                                                               "  IfIndex        :  1\n"
                                                               "  IfIndex        :  9\n");
  Record full = FullCapture();
  std::string lines;
  for (int slot = 0; slot < 8; ++slot) {
    full.U32(32 + 4 * slot, 0x80000000u + slot);
    lines += "  IfIndex        :  -214748364" + std::to_string(8 - slot) + "\n";
  }
  EXPECT_EQ(FormatText(NqeTableFormatCaptureCfg, full), kText + lines);
}

TEST_F(CaptureTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatCaptureCfg, 64);
  ExpectBoundedByRoom(NqeTableFormatCaptureCfg, FullCapture().U32(32, 1).U32(40, 0x80000000));
}

}  // namespace
}  // namespace qdt::test
