#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the sources of attacks.
namespace qdt::test {
namespace {

constexpr uint32_t kData = 37, kMac = 38, kAddress = 39;

class AttackTest : public ViewTest {};

Record Mac(uint8_t last) {
  Record record(16);
  for (int i = 6; i < 16; ++i) record.U8(i, 0xEE);  // not shown
  return record.Copy(0, "\xA0\x0B\xC1\x0D\xE2").U8(5, last);
}

TEST_F(AttackTest, SourceMac) {
  ExpectLists("15", kMac, NqeTableSearchAttackSmac, {Mac(0), Mac(0x0F), Mac(0xFF)},
              {"  SrcMac  :  a0:0b:c1:0d:e2:00\n", "  SrcMac  :  a0:0b:c1:0d:e2:0f\n",
               "  SrcMac  :  a0:0b:c1:0d:e2:ff\n"});
  ExpectFormatsEach(NqeTableFormatAttackSmac, Mac(1));
  ExpectBoundedByRoom(NqeTableFormatAttackSmac, Mac(1));
}

TEST_F(AttackTest, EveryByteOfAnAddress) {
  const std::string digits = "0123456789abcdef";
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text = {digits[byte / 16], digits[byte % 16]};
    Record record(16);
    for (int i = 0; i < 6; ++i) record.U8(i, static_cast<uint8_t>(byte));
    EXPECT_EQ(FormatText(NqeTableFormatAttackSmac, record),
              "  SrcMac  :  " + text + ":" + text + ":" + text + ":" + text + ":" + text + ":" + text + "\n");
  }
}

Record Address(uint32_t address) { return Record(12).U32(0, address).U32(4, 0xEEEEEEEE).U32(8, 0xEEEEEEEE); }

TEST_F(AttackTest, SourceAddress) {
  ExpectLists("16", kAddress, NqeTableSearchAttackSip, {Address(0x0A010007), Address(0), Address(0xFFFFFFFE)},
              {"  SrcIp  :  10.1.0.7\n", "  SrcIp  :  0.0.0.0\n", "  SrcIp  :  255.255.255.254\n"});
  ExpectFormatsEach(NqeTableFormatAttackSip, Address(1));
  ExpectBoundedByRoom(NqeTableFormatAttackSip, Address(0xFFFFFFFE));
}

Record Data(uint64_t total) {
  return Record(48)
      .U32(0, 0xC0A80163)
      .Copy(4, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U16(10, 0xEEEE)  // not shown
      .U32(12, 0xEEEEEEEE)
      .U32(16, 3000016001u)
      .U32(20, 3000020002u)
      .U32(24, 3000024003u)
      .U32(28, 3000028004u)
      .U64(32, total)
      .U32(40, 3000040005u)
      .U32(44, 3000044006u);
}

std::string DataText(const std::string &total) {
  return "  Ipv4Addr        :  192.168.1.99\n"
         "  Mac             :  a0:0b:c1:0d:e2:0f\n"
         "  LastSec         :  3000016001\n"
         "  LastCount       :  3000020002\n"
         "  LastAlarmSec    :  3000024003\n"
         "  MsgPubFlag      :  3000028004\n"
         "  TotalCount      :  " +
         total +
         "\n"
         "  PenaltyCycleCnt :  3000040005\n"
         "  AlarmCycleCnt   :  3000044006\n\n";
}

TEST_F(AttackTest, SourceData) {
  ExpectLists("17", kData, NqeTableSearchAttackSdata, {Data(0), Data(1), Data(UINT64_MAX)},
              {DataText("0"), DataText("1"), DataText("18446744073709551615")});
  ExpectFormatsEach(NqeTableFormatAttackSdata, Data(2));
  ExpectBoundedByRoom(NqeTableFormatAttackSdata, Data(UINT64_MAX));
}

TEST_F(AttackTest, BatchesOfFiftyUpToAHundredRecords) {
  std::string sixty;
  for (uint32_t i = 0; i < 120; ++i) {
    platform.AddEntry(kAddress, Key(i), Address(0x0A000000 + i).bytes());
    if (i < 60) sixty += "  SrcIp  :  10.0.0." + std::to_string(i) + "\n";
  }
  EXPECT_EQ(Query("16", "num60"), Framed(sixty));
  EXPECT_EQ(platform.walks, (std::vector<std::string>{"next 39 600", "next 39 120"}));
}

}  // namespace
}  // namespace qdt::test
