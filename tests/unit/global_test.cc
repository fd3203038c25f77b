#include <sstream>
#include <string>

#include "tests/unit/aging_globals.h"
#include "tests/unit/view_test.h"

// View of the global record and of the session aging times behind it.
namespace qdt::test {
namespace {

constexpr uint32_t kGlobal = 0;
constexpr size_t kSize = 14672;
constexpr char kProtocols[] = "IPP_SESSION_AGING_TIME", kApplications[] = "APP_SESSION_AGING_TIME";

// Every field holds a value of its own; tests/golden/global.txt shows where each belongs.
Record FullRecord() {
  Record record(kSize);
  record.Copy(0, "\xA0\x0B\xC1\x0D\xE2\x0F")
      .U16(6, 40006)
      .U32(8, 40008)
      .Bits(8, 16, 1)
      .Bits(8, 18, 1)
      .Bits(8, 20, 1)
      .U16(12, 40012)
      .U16(14, 40014)
      .U16(16, 40016)
      .U16(18, 40018)
      .U8(22, 222)
      .Copy(24, "\x20\x01\x0D\xB8\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\xFF")
      .U32(40, 0xC0A80128)
      .U32(44, 3000000044u)
      .U32(48, 3000000048u);
  for (uint32_t at = 56; at < 80; at += 4) record.U32(at, 3000000000u + at);
  record.U32(80, 0x0A000050)
      .Copy(84, std::string_view("\xFE\x80\0\x01\x02\x1E\x04\x05\x3C\x07\x50\x09\x64\x0B\xFF\x0D", 16))
      .U32(100, 40100)
      .Bits(100, 16, 1)
      .Bits(100, 18, 1)
      .Bits(100, 20, 1)
      .Bits(100, 22, 1)
      .U8(103, 203);
  for (uint32_t at = 104; at < 120; at += 2) record.U16(at, static_cast<uint16_t>(40000 + at));
  record.U32(120, 0x2A152B16).U32(124, 0x00953A05);
  for (uint32_t at = 128; at < 216; at += 4) record.U32(at, 3000000000u + at);
  return record.U64(216, 91)
      .U64(224, 18000000000000000224u)
      .U64(232, 17000000000000000232u)
      .U64(240, 92)
      .U32(14628, 0xA4628001)
      .U32(14632, 0x000B4632)
      .U32(14636, 2)
      .U64(14640, static_cast<uint64_t>(-9000000000014640))
      .U64(14648, 9000000000014648)
      .U8(14656, 214)
      .U8(14657, 215)
      .Copy(14658, "\xB0\x1B\xD1\x1D\xF2\x1F")
      .U64(14664, 93);
}

class GlobalTest : public ViewTest {
 protected:
  void AddRegions() {
    platform.AddRegion(kProtocols, 6);
    platform.AddRegion(kApplications, 318);
  }
  void AddGlobal(const Record &record) { platform.AddEntry(kGlobal, Key(uint32_t{0}), record.bytes()); }
  void SetProtocolTime(int kind, uint16_t time) {
    static_cast<uint16_t *>(platform.Region(kProtocols))[kind] = time;
  }
  void SetApplicationTime(int id, uint16_t time) {
    static_cast<uint16_t *>(platform.Region(kApplications))[3 * id + 2] = time;
  }

  // The lines that differ from those of a zeroed record, the ACL ones behind their section's title.
  static std::vector<std::string> Changes(const Record &record) {
    std::istringstream before(FormatText(NqeTableFormatGlobal, Record(kSize)));
    std::istringstream after(FormatText(NqeTableFormatGlobal, record));
    std::vector<std::string> changes;
    std::string section, was, is;
    while (std::getline(before, was) && std::getline(after, is)) {
      if (is.ends_with("Info:")) section = is;
      if (is != was) changes.push_back(section + is);
    }
    EXPECT_FALSE(std::getline(after, is)) << is;
    return changes;
  }

  AgingGlobals globals_;
};

TEST_F(GlobalTest, WholeAnswer) {
  AddRegions();
  for (int kind = 0; kind < 3; ++kind) SetProtocolTime(kind, static_cast<uint16_t>(301 + kind));
  uint16_t time = 311;
  for (const int id : {1, 3, 2, 10, 6, 15}) SetApplicationTime(id, time++);  // in the order of the lines
  AddGlobal(FullRecord());
  EXPECT_EQ(Query("10", "0"), Golden("global.txt"));
  // No key is looked at.
  EXPECT_EQ(Query("10", "x", "1", "2", "3"), Golden("global.txt"));
  EXPECT_EQ(Query("10", "all", "1", "2", "3"), Golden("global.txt"));
  ExpectBoundedByRoom(NqeTableFormatGlobal, FullRecord());
  ExpectFindsOne(NqeTableSearchGlobal, kGlobal, FullRecord(), "search 0 00000000", "x", 7);
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_global");
  ExpectOneRecordOnly(NqeTableFormatGlobal, kSize);
}

// Each bit of a flag word changes this line; bits that are not listed change none.
struct BitLine {
  int bit;
  std::string line;
};

class GlobalBitTest : public GlobalTest {
 protected:
  static void ExpectBits(size_t offset, const std::vector<BitLine> &lines) {
    for (int bit = 0; bit < 32; ++bit) {
      std::vector<std::string> expected;
      for (const BitLine &line : lines) {
        if (line.bit == bit) expected.push_back(line.line);
      }
      EXPECT_EQ(Changes(Record(kSize).Bits(offset, bit, 1)), expected) << offset << " bit " << bit;
    }
  }

  static void AddNumber(std::vector<BitLine> &lines, int first, int bits, const std::string &label) {
    for (int i = 0; i < bits; ++i) lines.push_back({first + i, label + std::to_string(1 << i)});
  }
};

TEST_F(GlobalBitTest, ForwardingFlags) {
  AddRegions();
  std::vector<BitLine> lines = {
      {16, "  PortalEnable           :  1"}, {17, "  ArpGatewayDupEnable    :  1"},
      {18, "  HostModeEn             :  1"}, {19, "  IgmpSnpEnable          :  1"},
      {20, "  DnsSnpEnable           :  1"}, {21, "  NdSnpEnable            :  1"},
  };
  AddNumber(lines, 0, 16, "  EthProtIpNum           :  ");
  ExpectBits(8, lines);
}

TEST_F(GlobalBitTest, ServiceFlags) {
  AddRegions();
  std::vector<BitLine> lines = {
      {16, "  LocalManageEn          :  1"}, {17, "  HttpsPortalEn          :  1"},
      {18, "  DomainFreeRuleEn       :  1"}, {19, "  PortalDnsDisable       :  1"},
      {20, "  CpCarEn                :  1"}, {21, "  DenyDnsRqFromWan       :  1"},
      {22, "  StaIpv6SvcEnable       :  1"},
  };
  AddNumber(lines, 0, 16, "  HttpsPortalDstPort     :  ");
  AddNumber(lines, 24, 8, "  McbcCarEn              :  ");
  ExpectBits(100, lines);
}

TEST_F(GlobalBitTest, TrunkHashFlags) {
  AddRegions();
  ExpectBits(14636, {{0, "  EthTrunkL2HashType     :  1"}, {1, "  EthTrunkL3HashType     :  1"}});
}

TEST_F(GlobalBitTest, IngressAclFlags) {
  AddRegions();
  const std::string in = "IngGlobalAclEnInfo:";
  ExpectBits(120, {
                      {0, in + "  L2GlobalAclFilterEn           :  1"},
                      {1, in + "  L2GlobalAclCarEn              :  1"},
                      {2, in + "  L2GlobalAclRemarkEn           :  1"},
                      {3, in + "  L2GlobalAclRedirectEn         :  1"},
                      {4, in + "  L2GlobalAclMatchStatEn        :  1"},
                      {5, in + "  L2GlobalAclMirrorEn           :  1"},
                      {8, in + "  L4GlobalAclFilterEn           :  1"},
                      {9, in + "  L4GlobalAclCarEn              :  1"},
                      {10, in + "  L4GlobalAclRemarkEn           :  1"},
                      {11, in + "  L4GlobalAclRedirectEn         :  1"},
                      {12, in + "  L4GlobalAclMatchStatEn        :  1"},
                      {13, in + "  L4GlobalAclMirrorEn           :  1"},
                      {16, in + "  L2L4GlobalAclFilterEn         :  1"},
                      {17, in + "  L2L4GlobalAclCarEn            :  1"},
                      {18, in + "  L2L4GlobalAclRemarkEn         :  1"},
                      {19, in + "  L2L4GlobalAclRedirectEn       :  1"},
                      {20, in + "  L2L4GlobalAclMatchStatEn      :  1"},
                      {21, in + "  L2L4GlobalAclMirrorEn         :  1"},
                      {24, in + "  Ipv6GlobalAclFilterEn         :  1"},
                      {25, in + "  Ipv6GlobalAclCarEn            :  1"},
                      {26, in + "  Ipv6GlobalAclRemarkEn         :  1"},
                      {27, in + "  Ipv6GlobalAclRedirectEn       :  1"},
                      {28, in + "  Ipv6GlobalAclMatchStatEn      :  1"},
                      {29, in + "  Ipv6GlobalAclMirrorEn         :  1"},
                  });
}

TEST_F(GlobalBitTest, EgressAclFlags) {
  AddRegions();
  const std::string out = "EgrGlobalAclEnInfo:";
  ExpectBits(124, {
                      {0, out + "  L2GlobalAclFilterEn           :  1"},
                      {1, out + "  L4GlobalAclFilterEn           :  1"},
                      {2, out + "  L2L4GlobalAclFilterEn         :  1"},
                      {3, out + "  Ipv6GlobalAclFilterEn         :  1"},
                      {8, out + "  L2GlobalAclCarEn              :  1"},
                      {9, out + "  L4GlobalAclCarEn              :  1"},
                      {10, out + "  L2L4GlobalAclCarEn            :  1"},
                      {11, out + "  Ipv6GlobalAclCarEn            :  1"},
                      {12, out + "  L2GlobalAclRemarkEn           :  1"},
                      {13, out + "  L4GlobalAclRemarkEn           :  1"},
                      {14, out + "  L2L4GlobalAclRemarkEn         :  1"},
                      {15, out + "  Ipv6GlobalAclRemarkEn         :  1"},
                      {16, out + "  L2GlobalAclMirrorEn           :  1"},
                      {17, out + "  L4GlobalAclMirrorEn           :  1"},
                      {18, out + "  L2L4GlobalAclMirrorEn         :  1"},
                      {19, out + "  Ipv6GlobalAclMirrorEn         :  1"},
                      {20, out + "  L2GlobalAclMatchStatEn        :  1"},
                      {21, out + "  L4GlobalAclMatchStatEn        :  1"},
                      {22, out + "  L2L4GlobalAclMatchStatEn      :  1"},
                      {23, out + "  Ipv6GlobalAclMatchStatEn      :  1"},
                  });
}

TEST_F(GlobalTest, NumbersAtTheirLimits) {
  AddRegions();
  using Lines = std::vector<std::string>;
  // The maps are decimal behind a hexadecimal mark.
  EXPECT_EQ(Changes(Record(kSize).U64(224, 16)), Lines{"  FwdIngMap              :  0x16"});
  EXPECT_EQ(Changes(Record(kSize).U64(232, UINT64_MAX)),
            Lines{"  FwdEgrMap              :  0x18446744073709551615"});
  EXPECT_EQ(Changes(Record(kSize).U32(14628, UINT32_MAX)), Lines{"  EthTrunkL2HashField    :  0xffffffff"});
  EXPECT_EQ(Changes(Record(kSize).U64(14640, UINT64_MAX)), Lines{"  SacGlobalVersion       :  -1"});
  EXPECT_EQ(Changes(Record(kSize).U64(14648, UINT64_MAX)), Lines{"  SacGlobalSessNum       :  -1"});
  EXPECT_EQ(Changes(Record(kSize).U32(80, UINT32_MAX)), Lines{"  ManageIpAddr           :  255.255.255.255"});
  EXPECT_EQ(Changes(Record(kSize).Copy(84, std::string(16, '\xFF'))),
            Lines{"  ManageIpv6Addr         :  255255:255255:255255:255255:255255:255255:255255:255255"});
  EXPECT_EQ(Changes(Record(kSize).Copy(24, std::string(16, '\xFF'))),
            Lines{"  PortalServerIpv6       :  ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"});
  EXPECT_EQ(FormatText(NqeTableFormatGlobal, Record(kSize))
                    .find("  ManageIpv6Addr         :  00:00:00:00:00:00:00:00\n") != std::string::npos,
            true);
}

TEST_F(GlobalTest, FieldsThatAreNotShown) {
  AddRegions();
  Record record(kSize);
  record.U16(20, 0xFFFF).U8(23, 0xFF).U32(52, UINT32_MAX).U64(216, UINT64_MAX).U16(14664, 0xFFFF);
  for (size_t at = 240; at < 14628; ++at) record.U8(at, 0xFF);
  EXPECT_EQ(Changes(record), std::vector<std::string>{});
}

// Aging times.

class GlobalAgingTest : public GlobalTest {
 protected:
  void SetUp() override {
    GlobalTest::SetUp();
    AddGlobal(Record(kSize));
  }

  // The aging section of an answer.
  static std::string Aging(const std::string &answer) {
    const size_t begin = answer.find("SessionAgingTime:\n");
    if (begin == answer.npos) return answer;
    return answer.substr(begin, answer.find("IngGlobalAclEnInfo:") - begin);
  }
};

constexpr char kDefaults[] =
    "SessionAgingTime:\n"
    "  Session aging time tcp        : 240\n"
    "  Session aging time udp        : 120\n"
    "  Session aging time icmp       : 20\n"
    "  Session aging time http       : 240\n"
    "  Session aging time ftp        : 240\n"
    "  Session aging time dns        : 30\n"
    "  Session aging time sip        : 600\n"
    "  Session aging time rtsp       : 240\n"
    "  Session aging time pptp       : 240\n";

TEST_F(GlobalAgingTest, DefaultsThenWhatTheEngineSets) {
  AddRegions();
  EXPECT_EQ(Aging(Query("10", "0")), kDefaults);
  SetProtocolTime(0, 300);
  SetApplicationTime(2, 65535);
  EXPECT_EQ(Aging(Query("10", "0")),
            "SessionAgingTime:\n"
            "  Session aging time tcp        : 300\n"
            "  Session aging time udp        : 120\n"
            "  Session aging time icmp       : 20\n"
            "  Session aging time http       : 240\n"
            "  Session aging time ftp        : 240\n"
            "  Session aging time dns        : 65535\n"
            "  Session aging time sip        : 600\n"
            "  Session aging time rtsp       : 240\n"
            "  Session aging time pptp       : 240\n");
}

TEST_F(GlobalAgingTest, MissingRegionsAreTriedAgain) {
  const std::string first = "IPP_SESSION_AGING_TIME 6", second = "APP_SESSION_AGING_TIME 318";
  std::vector<std::string> expected;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Query("10", "0"), "parse data format fail");
    expected.push_back(first);
    EXPECT_EQ(platform.attaches, expected);
    EXPECT_EQ(g_sessInfoInitCnt, 0u);
    EXPECT_EQ(g_qdtProtoTtlDefault[0], 240);  // the defaults are set before
    EXPECT_EQ(g_qdtAppTtlDefault[10][2], 600);
  }
  platform.AddRegion(kProtocols, 6);
  EXPECT_EQ(Query("10", "0"), "parse data format fail");
  expected.insert(expected.end(), {first, second});
  EXPECT_EQ(platform.attaches, expected);
  EXPECT_EQ(g_sessInfoInitCnt, 0u);

  platform.AddRegion(kApplications, 318);
  EXPECT_EQ(Aging(Query("10", "0")), kDefaults);
  expected.insert(expected.end(), {first, second});
  EXPECT_EQ(platform.attaches, expected);
  EXPECT_EQ(g_sessInfoInitCnt, 1u);
}

TEST_F(GlobalAgingTest, SetUpOnce) {
  AddRegions();
  EXPECT_EQ(Aging(Query("10", "0")), kDefaults);
  g_qdtProtoTtlDefault[1] = 121;
  EXPECT_NE(Query("10", "0").find("  Session aging time udp        : 121\n"), std::string::npos);
  EXPECT_EQ(platform.attaches.size(), 2u);
  EXPECT_EQ(g_sessInfoInitCnt, 1u);
}

TEST_F(GlobalAgingTest, AnyCountMeansSetUp) {
  uint16_t protocols[3] = {1, 2, 3};
  uint16_t applications[53][3] = {};
  g_qdtProtoTtlCur = protocols;
  g_qdtAppTtlCur = applications;
  g_sessInfoInitCnt = 5;
  EXPECT_NE(Query("10", "0").find("tcp        : 1\n  Session aging time udp        : 2\n"),
            std::string::npos);
  EXPECT_TRUE(platform.attaches.empty());
  EXPECT_EQ(g_sessInfoInitCnt, 5u);
  EXPECT_EQ(g_qdtProtoTtlDefault[0], 0);
}

TEST_F(GlobalAgingTest, NothingIsSetUpWhenTheTextBeforeDoesNotFit) {
  AddRegions();
  const Record record(kSize);
  char area[1000];
  EXPECT_EQ(NqeTableFormatGlobal(area, sizeof(area), record.data(), record.size()), QDT_TBL_FORMAT);
  EXPECT_TRUE(platform.attaches.empty());
  EXPECT_EQ(g_sessInfoInitCnt, 0u);
}

}  // namespace
}  // namespace qdt::test
