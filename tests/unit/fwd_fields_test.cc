#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/fake_platform/fake_platform.h"

// Each bit of a forwarding interface alone: it changes the one line of its field, and nothing when it belongs
// to no field. The table states where the engine keeps what, in the order of the lines.
namespace qdt::test {
namespace {

enum Kind { kDecimal, kHex8, kHex16, kMac, kCounter };

struct Field {
  const char *label;
  int offset, shift, bits;  // a counter stands in four blocks of 152 bytes
  Kind kind;
};

struct FieldSection {
  const char *title;  // empty where the section before it goes on
  int width;
  std::vector<Field> fields;
};

const FieldSection kSections[] = {
    {"CommonInfo",
     18,
     {
         {"IfIndex", 0, 0, 32, kDecimal},
         {"IfType", 4, 0, 16, kDecimal},
         {"Enable", 4, 16, 1, kDecimal},
         {"Down", 4, 17, 1, kDecimal},
         {"VirtIf", 4, 18, 1, kDecimal},
         {"L2l3", 4, 19, 1, kDecimal},
         {"PctIndex", 8, 0, 32, kDecimal},
         {"CtrlIfIdx", 12, 0, 32, kDecimal},
         {"Flag", 16, 0, 32, kHex8},
         {"FatherFwdIfIndex", 848, 0, 32, kDecimal},
         {"IsWan", 4, 21, 1, kDecimal},
     }},
    {"PhyInfo",
     13,
     {
         {"TagType", 20, 0, 8, kDecimal},
         {"DrvPortType", 21, 0, 8, kDecimal},
         {"DrvSubType", 22, 0, 8, kDecimal},
         {"Tb", 24, 0, 16, kDecimal},
         {"Tp", 26, 0, 16, kDecimal},
         {"Port", 28, 0, 32, kDecimal},
     }},
    {"LinkInfo",
     18,
     {
         {"LinkType", 32, 0, 32, kDecimal},
         {"Smac", 36, 0, 48, kMac},
         {"Pvid", 42, 0, 16, kDecimal},
         {"Brid", 44, 0, 32, kDecimal},
         {"MacLearnEn", 48, 0, 1, kDecimal},
         {"MacLimitEn", 48, 1, 1, kDecimal},
         {"MacLimitAlarmEn", 48, 2, 1, kDecimal},
         {"IsEapolKeyToCp", 48, 3, 1, kDecimal},
         {"IgmpSnpEnable", 48, 4, 1, kDecimal},
         {"ProtocolToTunnel", 49, 0, 8, kDecimal},
         {"MacLimitAction", 50, 0, 8, kDecimal},
         {"MacLearnEnAction", 51, 0, 8, kDecimal},
         {"MacLimitNum", 52, 0, 16, kDecimal},
         {"VlanId", 54, 0, 16, kDecimal},
         {"CurMacNum", 56, 0, 32, kDecimal},
         {"VapType", 60, 0, 3, kDecimal},
         {"DownLink", 60, 3, 1, kDecimal},
         {"VapIndex", 61, 0, 8, kDecimal},
         {"LinkId", 62, 0, 8, kDecimal},
         {"FwdMode", 60, 24, 3, kDecimal},
         {"IsTrunkMember", 60, 27, 1, kDecimal},
         {"PortIsolate", 60, 28, 1, kDecimal},
         {"TunnIndex", 72, 0, 16, kDecimal},
         {"TrunkId", 74, 0, 16, kDecimal},
         {"BroadPeerId", 76, 0, 16, kDecimal},
         {"BroadSessionInfo", 78, 0, 16, kDecimal},
         {"BroadPfeVapIdx", 80, 0, 8, kDecimal},
         {"isNaviAcVap", 64, 13, 1, kDecimal},
         {"PppoeEn", 92, 0, 8, kDecimal},
         {"PppoeCode", 93, 0, 8, kDecimal},
         {"PppoeVer", 94, 0, 8, kDecimal},
         {"PppoeType", 95, 0, 8, kDecimal},
         {"PppoeSessionId", 96, 0, 16, kDecimal},
         {"PppoeDmac", 98, 0, 48, kMac},
         {"PppVlanIf", 104, 0, 32, kDecimal},
         {"PppDialerIf", 108, 0, 32, kDecimal},
         {"PvidVlanAccept", 48, 5, 1, kDecimal},
         {"Mc2ucEnable", 48, 6, 1, kDecimal},
         {"WifiUserGlobalId", 786, 0, 16, kDecimal},
         {"isIotPort", 64, 11, 1, kDecimal},
     }},
    {"",
     18,
     {
         {"StpEn", 60, 29, 1, kDecimal},
         {"StpBlock", 60, 30, 1, kDecimal},
         {"StpFwdEn", 60, 31, 1, kDecimal},
         {"ErpsEn", 64, 12, 1, kDecimal},
         {"Bc2UcArpEn", 64, 0, 1, kDecimal},
         {"Bc2UcDhcpEn", 64, 1, 1, kDecimal},
         {"Bc2UcNdEn", 64, 2, 1, kDecimal},
         {"Bc2UcMdnsEn", 64, 4, 1, kDecimal},
         {"Bc2UcMissDrop", 64, 5, 1, kDecimal},
         {"McBcDeny", 64, 6, 1, kDecimal},
         {"MdnsDeny", 64, 7, 1, kDecimal},
         {"ArpProxyEn", 64, 8, 1, kDecimal},
         {"NdProxyEn", 64, 9, 1, kDecimal},
         {"CaptureEn", 64, 10, 1, kDecimal},
     }},
    {"TunnelInfo",
     17,
     {
         {"TunnelType", 112, 0, 8, kDecimal},
         {"TunnelId", 116, 0, 32, kDecimal},
         {"ApWiredMac", 84, 0, 48, kMac},
         {"ApWiredPortType", 90, 0, 8, kDecimal},
         {"ApWiredPortId", 91, 0, 8, kDecimal},
     }},
    {"Ipv4Info",
     14,
     {
         {"Vpn", 126, 0, 16, kDecimal},
         {"Mtu", 128, 0, 16, kDecimal},
         {"IpLearnEn", 120, 1, 1, kDecimal},
         {"DhcpStrict", 120, 2, 1, kDecimal},
         {"AddBlackList", 120, 3, 1, kDecimal},
         {"Nat", 120, 4, 1, kDecimal},
         {"Aspf", 120, 5, 1, kDecimal},
         {"TcpMssEn", 120, 6, 1, kDecimal},
         {"TcpMss", 122, 0, 16, kDecimal},
         {"DhcpTrust", 124, 0, 1, kDecimal},
         {"DhcpServerEn", 124, 1, 1, kDecimal},
         {"DhcpClientEn", 124, 2, 1, kDecimal},
     }},
    {"Ipv6Info",
     16,
     {
         {"Ipv6LearnEn", 132, 4, 1, kDecimal},
         {"Dhcpv6Strict", 132, 5, 1, kDecimal},
         {"Dhcpv6Slaac", 132, 6, 1, kDecimal},
         {"V6AddBlackList", 132, 7, 1, kDecimal},
         {"Dhcpv6ServerEn", 132, 0, 1, kDecimal},
         {"Dhcpv6ClientEn", 132, 1, 1, kDecimal},
         {"NdSnpEn", 132, 3, 1, kDecimal},
         {"NdTrust", 132, 2, 1, kDecimal},
         {"Vpn", 136, 0, 16, kDecimal},
         {"Mtu", 138, 0, 16, kDecimal},
     }},
    {"MapInfo",
     12,
     {
         {"LinkIngMap", 144, 0, 64, kHex16},
         {"FwdIngMap", 152, 0, 64, kHex16},
         {"LinkEgrMap", 160, 0, 64, kHex16},
         {"FwdEgrMap", 168, 0, 64, kHex16},
     }},
    {"SvcInfo",
     20,
     {
         {"InterfaceIngCarEn", 804, 4, 1, kDecimal},
         {"InterfaceEgrCarEn", 804, 5, 1, kDecimal},
         {"IngInterfaceCarid", 836, 0, 32, kDecimal},
         {"EgrInterfaceCarid", 840, 0, 32, kDecimal},
         {"InPkts", 184, 0, 64, kCounter},
         {"InUcPkts", 192, 0, 64, kCounter},
         {"InMcPkts", 200, 0, 64, kCounter},
         {"InBcPkts", 208, 0, 64, kCounter},
         {"OutPkts", 256, 0, 64, kCounter},
         {"OutUcPkts", 264, 0, 64, kCounter},
         {"OutMcPkts", 272, 0, 64, kCounter},
         {"OutBcPkts", 280, 0, 64, kCounter},
         {"InBytes", 176, 0, 64, kCounter},
         {"OutBytes", 248, 0, 64, kCounter},
         {"MacAuth", 784, 0, 1, kDecimal},
         {"Dot1xAuth", 784, 1, 1, kDecimal},
         {"Dot1xPortAuth", 784, 2, 1, kDecimal},
         {"PortalAuth", 784, 3, 1, kDecimal},
         {"Ipv6PortalAuth", 784, 4, 1, kDecimal},
         {"EgrUserIdt", 784, 5, 1, kDecimal},
         {"FreeRuleGid", 788, 0, 32, kDecimal},
         {"Ipv6FreeRuleGid", 792, 0, 32, kDecimal},
         {"StaticFreeRuleGid", 796, 0, 32, kDecimal},
         {"WebProxyPortalParse", 800, 0, 1, kDecimal},
         {"ApPortalEn", 800, 23, 1, kDecimal},
     }},
    {"",
     20,
     {
         {"SacEn", 800, 30, 1, kDecimal},
         {"SacRemarkDefaultEn", 800, 31, 1, kDecimal},
         {"InterfaceCarType", 800, 24, 3, kDecimal},
         {"InterfaceCarid-BC", 816, 0, 32, kDecimal},
         {"InterfaceCarid-MC", 820, 0, 32, kDecimal},
         {"InterfaceCarid-UNUC", 824, 0, 32, kDecimal},
         {"IngVapCarid", 828, 0, 32, kDecimal},
         {"EgrVapCarid", 832, 0, 32, kDecimal},
         {"SacId", 844, 0, 32, kDecimal},
         {"SacStatEn:", 804, 3, 1, kDecimal},
     }},
    {"",
     20,
     {
         {"PqmEn", 800, 28, 1, kDecimal},
         {"DiversionEn", 800, 29, 1, kDecimal},
     }},
    {"QosInfo",
     20,
     {
         {"IngUp2DscpEn", 800, 5, 1, kDecimal},
         {"IngUpTo8021pEn", 800, 6, 1, kDecimal},
         {"IngDscpTo8021pEn", 800, 7, 1, kDecimal},
         {"IngUp2TnlDscpEn", 800, 9, 1, kDecimal},
         {"IngUp2Tnl8021pEn", 800, 10, 1, kDecimal},
         {"IngDscpToTnl8021pEn", 800, 11, 1, kDecimal},
         {"IngDscpToTnlDscpEn", 800, 12, 1, kDecimal},
         {"Egr8021p2UpEn", 800, 19, 1, kDecimal},
         {"EgrDscp2UpEn", 800, 20, 1, kDecimal},
         {"MultiMediaEn", 804, 0, 1, kDecimal},
         {"TcpWndTurnEn", 804, 1, 1, kDecimal},
         {"ArpSimTestEn", 804, 2, 1, kDecimal},
     }},
    {"UsrIsolateInfo",
     20,
     {
         {"UsrIsolate", 800, 1, 1, kDecimal},
         {"UsrIsolateMode", 800, 2, 2, kDecimal},
     }},
    {"IngFwdifAclEnInfo",
     29,
     {
         {"IngIfL2AclFilterEn", 852, 0, 1, kDecimal},      {"IngIfL2AclCarEn", 852, 1, 1, kDecimal},
         {"IngIfL2AclRemarkEn", 852, 2, 1, kDecimal},      {"IngIfL2AclMirrorEn", 852, 5, 1, kDecimal},
         {"IngIfL2AclRedirectEn", 852, 3, 1, kDecimal},    {"IngIfL2AclMatchStatEn", 852, 4, 1, kDecimal},
         {"IngIfL2AclIptablesEn", 852, 6, 1, kDecimal},    {"IngIfL4AclFilterEn", 852, 8, 1, kDecimal},
         {"IngIfL4AclCarEn", 852, 9, 1, kDecimal},         {"IngIfL4AclRemarkEn", 852, 10, 1, kDecimal},
         {"IngIfL4AclMirrorEn", 852, 13, 1, kDecimal},     {"IngIfL4AclRedirectEn", 852, 11, 1, kDecimal},
         {"IngIfL4AclMatchStatEn", 852, 12, 1, kDecimal},  {"IngIfL4AclIptablesEn", 852, 14, 1, kDecimal},
         {"IngIfL2L4AclFilterEn", 852, 16, 1, kDecimal},   {"IngIfL2L4AclCarEn", 852, 17, 1, kDecimal},
         {"IngIfL2L4AclRemarkEn", 852, 18, 1, kDecimal},   {"IngIfL2L4AclMirrorEn", 852, 21, 1, kDecimal},
         {"IngIfL2L4AclRedirectEn", 852, 19, 1, kDecimal}, {"IngIfL2L4AclMatchStatEn", 852, 20, 1, kDecimal},
         {"IngIfIpv6AclFilterEn", 852, 24, 1, kDecimal},   {"IngIfIpv6AclCarEn", 852, 25, 1, kDecimal},
         {"IngIfIpv6AclRemarkEn", 852, 26, 1, kDecimal},   {"IngIfIpv6AclMirrorEn", 852, 29, 1, kDecimal},
         {"IngIfIpv6AclRedirectEn", 852, 27, 1, kDecimal}, {"IngIfIpv6AclMatchStatEn", 852, 28, 1, kDecimal},
     }},
    {"EgrFwdifAclEnInfo",
     29,
     {
         {"EgrIfL2AclFilterEn", 856, 0, 1, kDecimal},       {"EgrIfL4AclFilterEn", 856, 1, 1, kDecimal},
         {"EgrIfL2L4AclFilterEn", 856, 2, 1, kDecimal},     {"EgrIfIpv6AclFilterEn", 856, 3, 1, kDecimal},
         {"EgrIfL2AclCarEn", 856, 4, 1, kDecimal},          {"EgrIfL4AclCarEn", 856, 5, 1, kDecimal},
         {"EgrIfL2L4AclCarEn", 856, 6, 1, kDecimal},        {"EgrIfIpv6AclCarEn", 856, 7, 1, kDecimal},
         {"EgrIfL2AclRemarkEn", 856, 8, 1, kDecimal},       {"EgrIfL4AclRemarkEn", 856, 9, 1, kDecimal},
         {"EgrIfL2L4AclRemarkEn", 856, 10, 1, kDecimal},    {"EgrIfIpv6AclRemarkEn", 856, 11, 1, kDecimal},
         {"EgrIfL2AclMirrorEn", 856, 12, 1, kDecimal},      {"EgrIfL4AclMirrorEn", 856, 13, 1, kDecimal},
         {"EgrIfL2L4AclMirrorEn", 856, 14, 1, kDecimal},    {"EgrIfIpv6AclMirrorEn", 856, 15, 1, kDecimal},
         {"EgrIfL2AclMatchStatEn", 856, 16, 1, kDecimal},   {"EgrIfL4AclMatchStatEn", 856, 17, 1, kDecimal},
         {"EgrIfL2L4AclMatchStatEn", 856, 18, 1, kDecimal}, {"EgrIfIpv6AclMatchStatEn", 856, 19, 1, kDecimal},
     }},
    {"FwdifIngAclGidInfo",
     24,
     {
         {"IngL2AclFilterGid", 860, 0, 32, kDecimal},
         {"IngL4AclFilterGid", 864, 0, 32, kDecimal},
         {"IngL4V6AclFilterGid", 868, 0, 32, kDecimal},
         {"IngL2L4AclFilterGid", 872, 0, 32, kDecimal},
         {"IngL2AclMatchStatGid", 876, 0, 32, kDecimal},
         {"IngL4AclMatchStatGid", 880, 0, 32, kDecimal},
         {"IngL2AclRedirectGid", 884, 0, 32, kDecimal},
         {"IngL4AclRedirectGid", 888, 0, 32, kDecimal},
         {"IngL2AclRemarkGid", 892, 0, 32, kDecimal},
         {"IngL4AclRemarkGid", 896, 0, 32, kDecimal},
         {"ingL4V6AclRemarkGid", 900, 0, 32, kDecimal},
         {"IngL2L4AclRemarkGid", 904, 0, 32, kDecimal},
         {"IngL2AclCarGid", 908, 0, 32, kDecimal},
         {"IngL4AclCarGid", 912, 0, 32, kDecimal},
         {"IngL2AclMirrorGid", 916, 0, 32, kDecimal},
         {"IngL4AclMirrorGid", 920, 0, 32, kDecimal},
         {"IngL2AclIptablesGid", 980, 0, 32, kDecimal},
         {"IngL4AclIptablesGid", 984, 0, 32, kDecimal},
     }},
    {"FwdifEgrAclGidInfo",
     24,
     {
         {"EgrL2AclFilterGid", 924, 0, 32, kDecimal},
         {"EgrL4AclFilterGid", 928, 0, 32, kDecimal},
         {"EgrL4V6AclFilterGid", 932, 0, 32, kDecimal},
         {"EgrL2L4AclFilterGid", 936, 0, 32, kDecimal},
         {"EgrL2AclMatchStatGid", 940, 0, 32, kDecimal},
         {"EgrL4AclMatchStatGid", 944, 0, 32, kDecimal},
         {"EgrL2AclRemarkGid", 948, 0, 32, kDecimal},
         {"EgrL4AclRemarkGid", 952, 0, 32, kDecimal},
         {"EgrL4V6AclRemarkGid", 956, 0, 32, kDecimal},
         {"EgrL2L4AclRemarkGid", 960, 0, 32, kDecimal},
         {"EgrL2AclCarGid", 964, 0, 32, kDecimal},
         {"EgrL4AclCarGid", 968, 0, 32, kDecimal},
         {"EgrL2AclMirrorGid", 972, 0, 32, kDecimal},
         {"EgrL4AclMirrorGid", 976, 0, 32, kDecimal},
     }},
    {"FwdifIngAclTypeInfo",
     29,
     {
         {"L2FilterAclGroupType", 988, 0, 8, kDecimal},
         {"L4V4FilterAclGroupType", 989, 0, 8, kDecimal},
         {"L4V6FilterAclGroupType", 990, 0, 8, kDecimal},
         {"L2L4FilterAclGroupType", 991, 0, 8, kDecimal},
         {"L2RemarkAclGroupType", 992, 0, 8, kDecimal},
         {"L4V4RemarkAclGroupType", 993, 0, 8, kDecimal},
         {"L4V6RemarkAclGroupType", 994, 0, 8, kDecimal},
         {"L2L4RemarkAclGroupType", 995, 0, 8, kDecimal},
     }},
    {"FwdifEgrAclTypeInfo",
     29,
     {
         {"L2FilterAclGroupType", 996, 0, 8, kDecimal},
         {"L4V4FilterAclGroupType", 997, 0, 8, kDecimal},
         {"L4V6FilterAclGroupType", 998, 0, 8, kDecimal},
         {"L2L4FilterAclGroupType", 999, 0, 8, kDecimal},
         {"L2RemarkAclGroupType", 1000, 0, 8, kDecimal},
         {"L4V4RemarkAclGroupType", 1001, 0, 8, kDecimal},
         {"L4V6RemarkAclGroupType", 1002, 0, 8, kDecimal},
         {"L2L4RemarkAclGroupType", 1003, 0, 8, kDecimal},
     }},
};

// The line of a field in which only this bit is set.
std::string LineOf(const FieldSection &section, const Field &field, int bit) {
  char value[32];
  const unsigned long long number = bit < 0 ? 0 : 1ull << bit;
  switch (field.kind) {
    case kDecimal:
      std::snprintf(value, sizeof(value), "%llu", number);
      break;
    case kHex8:
      std::snprintf(value, sizeof(value), "%08llx", number);
      break;
    case kHex16:
      std::snprintf(value, sizeof(value), "0x%016llx", number);
      break;
    case kCounter:
      std::snprintf(value, sizeof(value), "%lld", static_cast<long long>(number));
      break;
    case kMac:
      for (int i = 0; i < 6; ++i) {
        std::snprintf(value + 3 * i, 4, i < 5 ? "%02x:" : "%02x",
                      static_cast<unsigned>(number >> (8 * i) & 0xFF));
      }
      break;
  }
  char line[100];
  std::snprintf(line, sizeof(line), "  %-*s:  %s", section.width, field.label, value);
  return line;
}

// What a bit of the record changes: the line's number in the text, and the line.
struct Effect {
  size_t number = 0;
  std::string line;
};

// By bit of the record; an empty line where nothing changes.
std::vector<Effect> Effects() {
  std::vector<Effect> effects(1544 * 8);
  size_t number = 0;
  for (const FieldSection &section : kSections) {
    if (section.title[0] != '\0') ++number;
    for (const Field &field : section.fields) {
      for (int block = 0; block < (field.kind == kCounter ? 4 : 1); ++block) {
        for (int bit = 0; bit < field.bits; ++bit) {
          Effect &effect = effects[(field.offset + 152 * block) * 8 + field.shift + bit];
          EXPECT_EQ(effect.line, "") << field.label << " overlaps " << effect.line;
          effect = {number, LineOf(section, field, bit)};
        }
      }
      ++number;
    }
  }
  return effects;
}

std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(FwdFieldsTest, TableAgreesWithTheGolden) {
  std::vector<std::string> lines;
  for (const FieldSection &section : kSections) {
    if (section.title[0] != '\0') lines.push_back(std::string(section.title) + ":");
    for (const Field &field : section.fields) lines.push_back(LineOf(section, field, -1));
  }
  lines.push_back("IngSvcSet:");
  EXPECT_EQ(lines, Lines(Golden("fwdif_zero.txt")));
}

TEST(FwdFieldsTest, EachBitAlone) {
  const std::vector<std::string> zero = Lines(Golden("fwdif_zero.txt"));
  const std::vector<Effect> effects = Effects();
  std::vector<char> out(20000);
  for (size_t bit = 0; bit < effects.size(); ++bit) {
    // The numbers of services add lines; fwd_service_test.cc sets them.
    if (bit / 32 == 1008 / 4 || bit / 32 == 1400 / 4) continue;
    const Record record = Record(1544).U8(bit / 8, static_cast<uint8_t>(1 << bit % 8));
    ASSERT_GT(NqeTableFormatFwdif(out.data(), 20000, record.data(), 1544), 0);
    std::vector<std::string> expected = zero;
    const Effect &effect = effects[bit];
    if (!effect.line.empty()) expected[effect.number] = effect.line;
    ASSERT_EQ(Lines(out.data()), expected) << "bit " << bit % 32 << " of the word at " << bit / 32 * 4;
  }
}

// The line that starts with this label.
std::string LineWith(const Record &record, const std::string &label) {
  std::vector<char> out(20000);
  EXPECT_GT(NqeTableFormatFwdif(out.data(), 20000, record.data(), 1544), 0);
  for (const std::string &line : Lines(out.data())) {
    if (line.compare(0, label.size() + 3, "  " + label + " ") == 0) return line;
  }
  return "";
}

TEST(FwdCounterTest, SumsOfFourBlocks) {
  struct Case {
    uint64_t block[4];
    const char *line;
  };
  constexpr uint64_t kMax = 0x7FFFFFFFFFFFFFFF;
  constexpr uint64_t kMin = 0x8000000000000000;
  constexpr uint64_t kMinusOne = 0xFFFFFFFFFFFFFFFF;
  const Case cases[] = {
      {{1, 20, 300, 4000}, "  OutPkts             :  4321"},
      {{kMax, 0, 0, 0}, "  OutPkts             :  9223372036854775807"},
      {{kMax, 1, 0, 0}, "  OutPkts             :  -9223372036854775808"},
      {{kMax, kMax, 1, 1}, "  OutPkts             :  0"},
      {{kMin, kMin, 0, 5}, "  OutPkts             :  5"},
      {{kMinusOne, kMinusOne, kMinusOne, kMinusOne}, "  OutPkts             :  -4"},
      {{kMinusOne, 1, 0, 0}, "  OutPkts             :  0"},
      {{kMin, kMinusOne, 0, 0}, "  OutPkts             :  9223372036854775807"},
  };
  for (const Case &c : cases) {
    Record record(1544);
    for (int i = 0; i < 4; ++i) record.U64(176 + 152 * i + 80, c.block[i]);
    EXPECT_EQ(LineWith(record, "OutPkts"), c.line);
  }
}

}  // namespace
}  // namespace qdt::test
