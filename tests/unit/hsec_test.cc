#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// Views of the host-security record: the configuration and the rate limits of MAC addresses.
namespace qdt::test {
namespace {

constexpr uint32_t kHsec = 68;

class HsecTest : public ViewTest {};

Record FullHsec() {
  Record record(328);
  record.U8(0, 0b01)
      .U8(1, 201)
      .U16(2, 40002)
      .U16(4, 40004)
      .U16(6, 40006)
      .U16(8, 40008)
      .U32(10, 0xEEEEEEEE)  // not shown
      .U16(14, 40014)
      .U32(16, 3000000016u)
      .U32(20, 0b10101)
      .U32(24, 3000000024u)
      .U32(28, 3000000028u)
      .U32(32, 3000000032u)
      .U32(36, 0b101)
      .U32(40, 3000000040u)
      .U16(300, 1)
      .U16(302, 40302);
  for (int i = 0; i < 128; ++i) record.U16(44 + 2 * i, static_cast<uint16_t>(50000 + i));
  for (int i = 304; i < 328; ++i) record.U8(i, 0xEE);  // not shown
  return record;
}

const std::string kAttackSource =
    "Attack Src:\n"
    "  AlarmEnable       :  1\n"
    "  PenaltyEnable     :  0\n"
    "  DefendType        :  201\n"
    "  AlarmThres        :  40002\n"
    "  PenaltyThres      :  40004\n"
    "  SessCarCauseIdMin :  40006\n"
    "  SessCarCauseIdMax :  40008\n";
const std::string kBlacklist =
    "Blacklist:\n"
    "  AclGrpType       :  40014\n"
    "  AclGrpId         :  3000000016\n";
const std::string kFloodAttack =
    "Anti Attack:\n"
    "  TcpSyncAtkFlag   :  1\n"
    "  UdpAtkFlag       :  0\n"
    "  IcmpAtkFlag      :  1\n"
    "  AbnormalAtkFlag  :  0\n"
    "  FragmentAtkFlag  :  1\n"
    "  TcpSyncAtkCarId  :  3000000024\n"
    "  IcmpAtkCarId     :  3000000028\n"
    "  FragmentAtkCarId :  3000000032\n";
const std::string kHostCpcar =
    "Host CpCar:\n"
    "  HostCpCarArpFlag   :  1\n"
    "  HostCpCarDhcpFlag  :  0\n"
    "  HostCpCar8021XFlag :  1\n"
    "  Pps                :  3000000040\n";
const std::string kTotalCpcar =
    "Total CpCar:\n"
    "  Enable :  1\n"
    "  CarId  :  40302\n";

TEST_F(HsecTest, WholeAnswer) {
  platform.AddEntry(kHsec, Key(uint32_t{0}), FullHsec().bytes());
  const std::string answer = Framed(kAttackSource + kBlacklist + kFloodAttack + kHostCpcar + kTotalCpcar);
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("36", key1, "7", "8", "9"), answer);
  EXPECT_TRUE(platform.walks.empty());
  ExpectFindsOne(NqeTableSearchHsecGlobalCfg, kHsec, FullHsec(), "search 68 00000000", "x", 7, 8);
}

TEST_F(HsecTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatHsecGlobalCfg, 328);
  ExpectBoundedByRoom(NqeTableFormatHsecGlobalCfg, FullHsec());
}

// The label whose line must show 1 when only this bit of the word is set.
struct Flag {
  size_t offset;
  int bit;
  const char *line;
};

TEST_F(HsecTest, EachFlagAlone) {
  const Flag flags[] = {
      {0, 0, "  AlarmEnable       :  1\n"},
      {0, 1, "  PenaltyEnable     :  1\n"},
      {20, 0, "  TcpSyncAtkFlag   :  1\n"},
      {20, 1, "  UdpAtkFlag       :  1\n"},
      {20, 2, "  IcmpAtkFlag      :  1\n"},
      {20, 3, "  AbnormalAtkFlag  :  1\n"},
      {20, 4, "  FragmentAtkFlag  :  1\n"},
      {36, 0, "  HostCpCarArpFlag   :  1\n"},
      {36, 1, "  HostCpCarDhcpFlag  :  1\n"},
      {36, 2, "  HostCpCar8021XFlag :  1\n"},
      {300, 0, "  Enable :  1\n"},
  };
  const std::string zero = FormatText(NqeTableFormatHsecGlobalCfg, Record(328));
  for (const Flag &flag : flags) {
    std::string line = flag.line;
    std::string expected = zero;
    std::string off = line;
    off[off.size() - 2] = '0';
    ASSERT_NE(expected.find(off), std::string::npos) << off;
    expected.replace(expected.find(off), off.size(), line);
    EXPECT_EQ(FormatText(NqeTableFormatHsecGlobalCfg, Record(328).Bits(flag.offset, flag.bit, 1)), expected);
  }
  // The bits above are the engine's own.
  const auto unshown = Record(328).U8(0, 0xFC).U32(20, ~0x1Fu).U32(36, ~7u).U16(300, 0xFFFE);
  EXPECT_EQ(FormatText(NqeTableFormatHsecGlobalCfg, unshown), zero);
}

TEST_F(HsecTest, BlocksByThemselves) {
  struct Piece {
    int32_t (*format)(char *, uint32_t, const void *);
    const std::string &text;
  };
  const Record record = FullHsec();
  for (const auto &[format, text] : {Piece{NqeTableHsecGlobalAtkSrcCfg, kAttackSource},
                                     {NqeTableHsecGlobalBlacklistCfg, kBlacklist},
                                     {NqeTableHsecGlobalFloodAtkCfg, kFloodAttack},
                                     {NqeTableHsecGlobalHostCpCarCfg, kHostCpcar},
                                     {NqeTableHsecGlobalTotalCpCarCfg, kTotalCpcar}}) {
    const auto size = static_cast<uint32_t>(text.size());
    std::string area(size + 1, '#');
    EXPECT_EQ(format(area.data(), size + 1, record.data()), static_cast<int32_t>(size));
    EXPECT_STREQ(area.c_str(), text.c_str());
    EXPECT_EQ(format(area.data(), size, record.data()), QDT_TBL_FORMAT);
    EXPECT_EQ(format(area.data(), 0, record.data()), QDT_TBL_FORMAT);
    EXPECT_EQ(format(area.data(), size, nullptr), QDT_TBL_DATA_SIZE);
  }
}

// The rate limit of a MAC address.

TEST_F(HsecTest, CarIdOfAMacAddress) {
  platform.AddEntry(kHsec, Key(uint32_t{0}), FullHsec().bytes());
  // The slots are the low seven bits of d92595fa, 99f97ebf, e9e77d2 and of two addresses found for the ends.
  EXPECT_EQ(Query("48", "00:11:22:33:44:55"), Framed("  CarId       :  50122\n"));
  EXPECT_EQ(Query("48", "a0:0b:c1:0d:e2:0f"), Framed("  CarId       :  50063\n"));
  EXPECT_EQ(Query("48", "A0:B:C1:D:E2:F"), Framed("  CarId       :  50063\n"));
  EXPECT_EQ(Query("48", "ff:ff:ff:ff:ff:ff"), Framed("  CarId       :  50082\n"));
  EXPECT_EQ(Query("48", "02:00:00:00:00:26"), Framed("  CarId       :  50000\n"));
  EXPECT_EQ(Query("48", "02:00:00:00:00:b0"), Framed("  CarId       :  50127\n"));
  // 77f4e8bf agrees with a0:0b:c1:0d:e2:0f in the low seven bits.
  EXPECT_EQ(Query("48", "a0:0b:c1:0d:e2:52"), Framed("  CarId       :  50063\n"));
}

TEST_F(HsecTest, CarIdSearch) {
  platform.AddEntry(kHsec, Key(uint32_t{0}), FullHsec().bytes());
  for (const uint32_t loopNum : {0, 1, 50}) {
    EXPECT_EQ(Call(NqeTableSearchMacCarId, loopNum, "00:11:22:33:44:55", 7, 8),
              (Found{0, Key(uint16_t{50122})}));
    EXPECT_EQ(platform.allocations.back().size, 2u);
  }
  EXPECT_EQ(platform.searches, std::vector<std::string>(3, "search 68 00000000"));
  platform.FailAllocation(0);
  EXPECT_EQ(Query("48", "00:11:22:33:44:55"), "nqecli malloc fail");
  for (const int32_t code : {-1, -12, 2}) {
    platform.FailTable(kHsec, code);
    EXPECT_EQ(Call(NqeTableSearchMacCarId, 0, "00:11:22:33:44:55").code, code);
  }
}

TEST_F(HsecTest, CarIdWithoutARecord) {
  EXPECT_EQ(Query("48", "00:11:22:33:44:55"), "search result not found");
}

TEST_F(HsecTest, CarIdOfWhatIsNoMacAddress) {
  platform.AddEntry(kHsec, Key(uint32_t{0}), FullHsec().bytes());
  for (const char *key1 : {"0", "all", "", "00:11:22:33:44", "00-11-22-33-44-55", "10.1.0.7"}) {
    EXPECT_EQ(Query("48", key1), "search is not supported") << key1;
  }
  EXPECT_EQ(Query("48", "num5"), "search is not supported");
  EXPECT_TRUE(platform.searches.empty());
}

TEST_F(HsecTest, CarIdLengthsAndRoom) {
  EXPECT_EQ(FormatText(NqeTableFormatMacCarId, Record(2).U16(0, 65535)), "  CarId       :  65535\n");
  ExpectOneRecordOnly(NqeTableFormatMacCarId, 2);
  ExpectBoundedByRoom(NqeTableFormatMacCarId, Record(2).U16(0, 65535));
}

}  // namespace
}  // namespace qdt::test
