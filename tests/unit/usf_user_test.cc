#include <array>
#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of wireless users, its pieces, and how the counters of a user are added up.
namespace qdt::test {
namespace {

constexpr uint32_t kUser = 45;
constexpr const char *kMac = "a0:1:02:03:04:f5";  // a field may have one digit

const Bytes kStation = {0xA0, 0x01, 0x02, 0x03, 0x04, 0xF5, 0, 0};

class UsfUserTest : public ViewTest {
 protected:
  // The lines that the view shows for the record with another value than zero.
  static std::vector<std::string> SetLines(const Record &record) {
    const std::string text = FormatText(NqeTableFormatUsfUser, record);
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
      const size_t end = text.find('\n', at);
      const std::string line = text.substr(at, end - at);
      const size_t value = line.rfind(' ');
      if (value != std::string::npos && line.find_first_not_of("0x.,", value + 1) != std::string::npos)
        lines.push_back(line);
      at = end + 1;
    }
    return lines;
  }

  // What each bit of the word at `offset` shows alone; an empty text for a bit that is never shown.
  static void ExpectBits(size_t offset, const std::array<std::string, 32> &lines) {
    for (int bit = 0; bit < 32; ++bit) {
      std::vector<std::string> expected;
      if (!lines[bit].empty()) expected.push_back(lines[bit]);
      EXPECT_EQ(SetLines(Record(760).Bits(offset, bit, 1)), expected) << offset << " bit " << bit;
    }
  }
};

// The four words of flags stand between the other fields. In each of the counter blocks a counter is its
// number from 1 to 20, moved one decimal place up for each block and, when it is 64 bits wide, by twelve
// more.
Record FullUser() {
  Record record(760);
  for (size_t at = 0; at < 760; ++at) record.U8(at, 0xEE);  // what is left so is not shown
  record.Copy(0, "\xA0\x01\x02\x03\x04\xF5")
      .U32(8, 0xFFFFF800 | 0b10101100101)
      .U16(12, 60012)
      .U16(14, 60014)
      .U32(16, 0x0A010203)
      .U32(20, 0xCB00714D)
      .U32(24, 0xF8000000 | 1u << 26 | 118u << 18 | 201u << 10 | 0b0110011010)
      .U32(28, 0xFFFFFC00 | 0b1001101001)
      .U32(32, 0xF8000000 | 0b101u << 24 | 54321u << 8 | 0b10010110)
      .U32(36, 4000000036)
      .U32(40, 4000000040);
  for (uint16_t at = 44; at < 58; at += 2) record.U16(at, 60000 + at);
  for (uint8_t at = 58; at < 64; ++at) record.U8(at, 100 + at);
  record.U32(64, 0xC0A80164).U16(68, 60068).U16(70, 60070).U8(72, 172).U8(73, 173).U16(74, 60074);
  for (uint16_t at = 76; at < 94; at += 2) record.U16(at, 60000 + at);
  record.U32(96, 4000000096).U64(128, 10000000000000000128u).U32(736, 0x0A0B0C0D);
  for (uint8_t i = 0; i < 8; ++i) record.U8(740 + i, 201 + i);

  uint32_t scale = 1;
  for (size_t block = 288; block < 736; block += 112, scale *= 10) {
    for (uint32_t family = 0; family < 2; ++family) {
      const size_t at = block + 56 * family;
      for (uint32_t i = 0; i < 4; ++i) record.U64(at + 8 * i, (10 * family + 1 + i) * 1000000000000 * scale);
      for (uint32_t i = 0; i < 6; ++i) record.U32(at + 32 + 4 * i, (10 * family + 5 + i) * scale);
    }
  }
  return record;
}

const std::string kServices =
    "UsfUserIngressSvc:\n"
    "  IngCarEn           :  0\n"
    "  IngStatEn          :  1\n"
    "  IngPortalPushEn    :  0\n"
    "  IngIpv4AuthAclEn   :  1\n"
    "  IngIpv6AuthAclEn   :  1\n"
    "  Ipv4RedirectAclEn  :  0\n"
    "  Ipv6RedirectAclEn  :  0\n"
    "  IngRmkDscpEn       :  1\n"
    "  IngRmk8021pEn      :  1\n"
    "  IngRmkLpEn         :  0\n"
    "  StaFloodBlacklist  :  201\n"
    "  McFloodEn          :  118\n"
    "  IngSacEn           :  1\n"
    "UsfUserEgressSvc:\n"
    "  EgrCarEn          :  1\n"
    "  EgrStatEn         :  0\n"
    "  EgrIpv4AuthAclEn  :  0\n"
    "  EgrIpv6AuthAclEn  :  1\n"
    "  InnerIsolateEn    :  0\n"
    "  InterIsolateEn    :  1\n"
    "  EgrRmkDscpEn      :  1\n"
    "  EgrRmk8021pEn     :  0\n"
    "  EgrRmkLpEn        :  0\n"
    "  EgrSacEn          :  1\n";

const std::string kParameters =
    "UsfUserSvcParam:\n"
    "  IngCarId            :  4000000036\n"
    "  EgrCarId            :  4000000040\n"
    "  StatId              :  60044\n"
    "  IngIpv4AuthAclGid   :  60046\n"
    "  IngIpv6AuthAclGid   :  60048\n"
    "  EgrIpv4AuthAclGid   :  60050\n"
    "  EgrIpv6AuthAclGid   :  60052\n"
    "  Ipv4RedirectAclGid  :  60054\n"
    "  Ipv6RedirectAclGid  :  60056\n"
    "  IngNewRmkDscp       :  158\n"
    "  IngNewRmk8021p      :  159\n"
    "  IngNewRmkLp         :  160\n"
    "  EgrNewRmkDscp       :  161\n"
    "  EgrNewRmk8021p      :  162\n"
    "  EgrNewRmkLp         :  163\n"
    "  AuthVlanEn          :  0\n"
    "  AuthVlan            :  60068\n"
    "  DenyPushEn          :  1\n"
    "  UserGroupEn         :  1\n"
    "  UserVipFlag         :  0\n"
    "  UserRoamFlag        :  1\n"
    "  WifiUserGlobalId    :  54321\n"
    "  ShrinkUpQueueEn     :  0\n"
    "  Tid6DowngradeEn     :  1\n"
    "  UserPreRoamIpv4Addr :  0xc0a80164\n"
    "  NeedSendUpMsg       :  0\n"
    "  UserGroupId         :  60070\n"
    "  UserPktCacheType    :  172\n"
    "  PeerId              :  60074\n"
    "  PfeVapIdx           :  173\n"
    "  SessionInfo         :  60092\n"
    "  PqmEn               :  1\n"
    "  SacRemarkDefaultEn  :  0\n"
    "  SacId               :  4000000096\n"
    "  SacStatEn           :  1\n"
    "  NormalSendTime      :  10000000000000000128\n";

const std::string kFloodCars =
    "  McbcCarId-OTH-BC    :  60076\n"
    "  McbcCarId-OTH-MC    :  60078\n"
    "  McbcCarId-ARP       :  60080\n"
    "  McbcCarId-IGMP      :  60082\n"
    "  McbcCarId-ND        :  60084\n"
    "  McbcCarId-DHCP      :  60086\n"
    "  McbcCarId-DHCPV6    :  60088\n"
    "  McbcCarId-MDNS      :  60090\n"
    "  TcpWndTurnAct       :  201,202,203,204,205,206,207,208\n";

const std::string kAuthentication =
    "UsfUserAuth:\n"
    "  AuthStatus           :  1\n"
    "  PreAuth              :  0\n"
    "  DenyAll              :  1\n"
    "  HttpSendToL4         :  0\n"
    "  PortalEscape         :  0\n"
    "  Ipv4PreAuthAclEn     :  1\n"
    "  Ipv6PreAuthAclEn     :  1\n"
    "  CheckUserIp          :  0\n"
    "  DenyArpEn            :  1\n"
    "  Ipv4PreAuthAclGid    :  60012\n"
    "  Ipv6PreAuthAclGid    :  60014\n"
    "  UserIpv4Addr         :  10.1.2.3\n"
    "  MngUserIpv4Addr      :  203.0.113.77\n"
    "  ParseEapLog          :  0\n"
    "  EapLogReported       :  1\n";

const std::string kIpv4Traffic =
    "  InPassStatPkt        :  1111000000000000\n"
    "  InPassStatByte       :  2222000000000000\n"
    "  EgrPassStatPkt       :  3333000000000000\n"
    "  EgrPassStatByte      :  4444000000000000\n"
    "  InUnicastPackets     :  5555\n"
    "  InMulticastPackets   :  6666\n"
    "  InBroadcastPackets   :  7777\n"
    "  OutUnicastPackets    :  8888\n"
    "  OutMulticastPackets  :  9999\n"
    "  OutBroadcastPackets  :  11110\n";

const std::string kIpv6Traffic =
    "  InPassStatPkt        :  12221000000000000\n"
    "  InPassStatByte       :  13332000000000000\n"
    "  EgrPassStatPkt       :  14443000000000000\n"
    "  EgrPassStatByte      :  15554000000000000\n"
    "  InUnicastPackets     :  16665\n"
    "  InMulticastPackets   :  17776\n"
    "  InBroadcastPackets   :  18887\n"
    "  OutUnicastPackets    :  19998\n"
    "  OutMulticastPackets  :  21109\n"
    "  OutBroadcastPackets  :  22220\n";

const std::string kCounters = "Ipv4Stat:\n" + kIpv4Traffic + "Ipv6Stat:\n" + kIpv6Traffic;
const std::string kLearnt = "UsfIpLearn:\n  userIp:      0x0a0b0c0d\n";

TEST_F(UsfUserTest, WholeAnswer) {
  platform.AddEntry(kUser, kStation, FullUser().bytes());
  EXPECT_EQ(Query("28", kMac),
            Framed(kServices + kParameters + kFloodCars + kAuthentication + kCounters + kLearnt));
  EXPECT_EQ(Query("28", "a0:01:02:03:04:f6"), "search result not found");
  ExpectFindsOne(NqeTableSearchUsfUser, kUser, FullUser(), "search 45 a001020304f50000", kMac, 7, 8);
  EXPECT_EQ(platform.allocations.front().path, "src/om/nqe_cli/nqe_cli_tbl_query_usf");
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(UsfUserTest, KeysThatAreNoMac) {
  platform.AddEntry(kUser, kStation, FullUser().bytes());
  for (const char *key1 : {"0", "all", "num5", "", "a0:01:02:03:04", "a001-0203-04f5", "g0:01:02:03:04:f5"}) {
    EXPECT_EQ(Query("28", key1), "search is not supported") << key1;
  }
  EXPECT_EQ(Query("28", "num101"), "invalid input param");
  EXPECT_TRUE(platform.searches.empty());
  for (const auto &allocation : platform.allocations) {  // for the digits of num5 and num101
    EXPECT_EQ(allocation.path, "src/om/nqe_cli/nqe_cli_tbl_query");
  }
}

TEST_F(UsfUserTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatUsfUser, 760);
  ExpectBoundedByRoom(NqeTableFormatUsfUser, FullUser());
}

TEST_F(UsfUserTest, NothingSet) { EXPECT_EQ(SetLines(Record(760)), std::vector<std::string>()); }

TEST_F(UsfUserTest, EachIngressBitAlone) {
  ExpectBits(24, {"  IngCarEn           :  1",  "  IngStatEn          :  1",   "  IngPortalPushEn    :  1",
                  "  IngIpv4AuthAclEn   :  1",  "  IngIpv6AuthAclEn   :  1",   "  Ipv4RedirectAclEn  :  1",
                  "  Ipv6RedirectAclEn  :  1",  "  IngRmkDscpEn       :  1",   "  IngRmk8021pEn      :  1",
                  "  IngRmkLpEn         :  1",  "  StaFloodBlacklist  :  1",   "  StaFloodBlacklist  :  2",
                  "  StaFloodBlacklist  :  4",  "  StaFloodBlacklist  :  8",   "  StaFloodBlacklist  :  16",
                  "  StaFloodBlacklist  :  32", "  StaFloodBlacklist  :  64",  "  StaFloodBlacklist  :  128",
                  "  McFloodEn          :  1",  "  McFloodEn          :  2",   "  McFloodEn          :  4",
                  "  McFloodEn          :  8",  "  McFloodEn          :  16",  "  McFloodEn          :  32",
                  "  McFloodEn          :  64", "  McFloodEn          :  128", "  IngSacEn           :  1"});
}

TEST_F(UsfUserTest, EachEgressBitAlone) {
  ExpectBits(28, {"  EgrCarEn          :  1", "  EgrStatEn         :  1", "  EgrIpv4AuthAclEn  :  1",
                  "  EgrIpv6AuthAclEn  :  1", "  InnerIsolateEn    :  1", "  InterIsolateEn    :  1",
                  "  EgrRmkDscpEn      :  1", "  EgrRmk8021pEn     :  1", "  EgrRmkLpEn        :  1",
                  "  EgrSacEn          :  1"});
}

TEST_F(UsfUserTest, EachParameterBitAlone) {
  ExpectBits(
      32,
      {"  AuthVlanEn          :  1",    "  DenyPushEn          :  1",     "  UserGroupEn         :  1",
       "  UserVipFlag         :  1",    "  UserRoamFlag        :  1",     "  NeedSendUpMsg       :  1",
       "  ShrinkUpQueueEn     :  1",    "  Tid6DowngradeEn     :  1",     "  WifiUserGlobalId    :  1",
       "  WifiUserGlobalId    :  2",    "  WifiUserGlobalId    :  4",     "  WifiUserGlobalId    :  8",
       "  WifiUserGlobalId    :  16",   "  WifiUserGlobalId    :  32",    "  WifiUserGlobalId    :  64",
       "  WifiUserGlobalId    :  128",  "  WifiUserGlobalId    :  256",   "  WifiUserGlobalId    :  512",
       "  WifiUserGlobalId    :  1024", "  WifiUserGlobalId    :  2048",  "  WifiUserGlobalId    :  4096",
       "  WifiUserGlobalId    :  8192", "  WifiUserGlobalId    :  16384", "  WifiUserGlobalId    :  32768",
       "  PqmEn               :  1",    "  SacRemarkDefaultEn  :  1",     "  SacStatEn           :  1"});
}

TEST_F(UsfUserTest, EachAuthenticationBitAlone) {
  ExpectBits(8, {"  AuthStatus           :  1", "  PreAuth              :  1", "  DenyAll              :  1",
                 "  HttpSendToL4         :  1", "  PortalEscape         :  1", "  Ipv4PreAuthAclEn     :  1",
                 "  Ipv6PreAuthAclEn     :  1", "  CheckUserIp          :  1", "  DenyArpEn            :  1",
                 "  ParseEapLog          :  1", "  EapLogReported       :  1"});
}

TEST_F(UsfUserTest, CountersOfAllBlocksAreAdded) {
  Record record(760);
  for (const size_t block : {288, 400, 512, 624}) record.U64(block, 1);
  EXPECT_EQ(SetLines(record), std::vector<std::string>{"  InPassStatPkt        :  4"});
}

TEST_F(UsfUserTest, CountersWrapAtTheirOwnWidth) {
  EXPECT_EQ(SetLines(Record(760).U64(288, UINT64_MAX).U64(400, 3)),
            std::vector<std::string>{"  InPassStatPkt        :  2"});
  EXPECT_EQ(SetLines(Record(760).U64(288, UINT32_MAX).U64(400, 3)),
            std::vector<std::string>{"  InPassStatPkt        :  4294967298"});
  // The last 32-bit counter of IPv4, before the first of IPv6, which no carry reaches.
  EXPECT_EQ(SetLines(Record(760).U32(340, UINT32_MAX).U32(452, UINT32_MAX).U32(564, 4)),
            std::vector<std::string>{"  OutBroadcastPackets  :  2"});
}

TEST_F(UsfUserTest, PiecesByThemselves) {
  const Record user = FullUser();
  ExpectWritesAt(NqeTableFormatUsfUserSvc, user, kServices);
  ExpectWritesAt(NqeTableFormatUsfUserSvcParam1, user, kParameters);
  ExpectWritesAt(NqeTableFormatUsfUserSvcParam2, user, kFloodCars);
  ExpectWritesAt(NqeTableFormatUsfUserAuth, user, kAuthentication);
  ExpectWritesAt(NqeTableFormatUsfUserStat, user, kCounters);
  ExpectWritesAt(NqeTableFormmatUsfUserIpLearn, user, kLearnt);
}

TEST_F(UsfUserTest, CounterBlocksByThemselves) {
  const Record user = FullUser();
  const auto *bytes = static_cast<const char *>(user.data());
  std::vector<char> sum(113);  // nothing in it is aligned
  for (const size_t block : {288, 400, 512, 624}) {
    const std::string copy = "#" + std::string(bytes + block, 112);
    NqeTableAddUsfStat(sum.data() + 1, copy.data() + 1);
  }
  ExpectWritesAt(NqeTableShowFormatUsfStat, Record(56).Copy(0, {sum.data() + 1, 56}), kIpv4Traffic);
  ExpectWritesAt(NqeTableShowFormatUsfStat, Record(56).Copy(0, {sum.data() + 57, 56}), kIpv6Traffic);
}

TEST_F(UsfUserTest, AddedCountersWrapApart) {
  const auto counters = [](uint64_t wide, uint32_t narrow) {
    Record record(112);
    for (const size_t family : {0, 56}) {
      for (size_t i = 0; i < 4; ++i) record.U64(family + 8 * i, wide);
      for (size_t i = 0; i < 6; ++i) record.U32(family + 32 + 4 * i, narrow);
    }
    return record.bytes();
  };
  Bytes sum = counters(UINT64_MAX, UINT32_MAX);
  NqeTableAddUsfStat(sum.data(), counters(1, 1).data());
  EXPECT_EQ(sum, Bytes(112));
  NqeTableAddUsfStat(sum.data(), counters(1ull << 32, 5).data());
  EXPECT_EQ(sum, counters(1ull << 32, 5));
}

}  // namespace
}  // namespace qdt::test
