#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of the tests of the ARP simulator.
namespace qdt::test {
namespace {

constexpr uint32_t kSimulator = 108;

class ArpSimulatorTest : public ViewTest {};

Record Entry() {
  return Record(56)
      .U32(0, 0x0a010203)
      .U32(4, 0xfffefdfc)
      .U16(8, 60008)
      .Copy(10, "\xd0\xd1\xd2\xd3\xd4\xd5")
      .U16(16, 60016)
      .Copy(18, "\x50\x51\x52\x53\x54\x05")
      .U32(24, 3000000024u)
      .U32(28, 3000000028u)
      .U32(32, 3000000032u)
      .U32(36, 0xFFFFFFFF)
      .U64(40, 0xEEEEEEEE00000000 + 3000000040u)
      .U64(48, 0xEEEEEEEE00000000 + 3000000048u);
}

const std::string kText =
    "  Type             :  60016\n"
    "  Interval         :  3000000024\n"
    "  TestTimes        :  3000000028\n"
    "  VlanId           :  60008\n"
    "  SrcMac           :  50:51:52:53:54:05\n"
    "  DstMac           :  d0:d1:d2:d3:d4:d5\n"
    "  SrcIp            :  10.1.2.3\n"
    "  DstIp            :  255.254.253.252\n"
    "  SentTimes        :  3000000032\n"
    "  Testing          :  1\n"
    "  TestSendTimeMs   :  3000000040\n"
    "  TestReplyTimeMs  :  3000000048\n\n";

std::string SmallText(const std::string &interval) {
  return "  Type             :  0\n"
         "  Interval         :  " +
         interval +
         "\n"
         "  TestTimes        :  0\n"
         "  VlanId           :  0\n"
         "  SrcMac           :  00:00:00:00:00:00\n"
         "  DstMac           :  00:00:00:00:00:00\n"
         "  SrcIp            :  0.0.0.0\n"
         "  DstIp            :  0.0.0.0\n"
         "  SentTimes        :  0\n"
         "  Testing          :  0\n"
         "  TestSendTimeMs   :  0\n"
         "  TestReplyTimeMs  :  0\n\n";
}

TEST_F(ArpSimulatorTest, Lists) {
  ExpectLists("88", kSimulator, NqeTableSearchArpSimulator,
              {Entry(), Record(56).U32(24, 2), Record(56).U32(24, 3)},
              {kText, SmallText("2"), SmallText("3")});
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_other");
}

TEST_F(ArpSimulatorTest, TestingIsOneBit) {
  EXPECT_EQ(FormatText(NqeTableFormatArpSimulator, Record(56).U32(36, 0xFFFFFFFE)), SmallText("0"));
}

TEST_F(ArpSimulatorTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatArpSimulator, Entry());
  ExpectBoundedByRoom(NqeTableFormatArpSimulator, Entry());
}

}  // namespace
}  // namespace qdt::test
