#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/acl_rule_fixture.h"

// What ACL rules match and do: the blocks of each group type, and every bit of them alone.
namespace qdt::test {
namespace {

const std::string kNoStat = "  AclStatEntry             :  Error(-7)\n";

class AclRuleContentTest : public PlatformTest {
 protected:
  static std::string RuleText(const Record &content) {
    return FormatText(NqeTableFormatAclRule, Rule(Action(nullptr), content));
  }
};

TEST_F(AclRuleContentTest, Layer4) {
  EXPECT_EQ(RuleText(Ipv4Content()), Golden("acl_rule_l4.txt") + kActionText + kNoStat);
}

TEST_F(AclRuleContentTest, Ipv6) {
  Record content = Content(1);
  PutIpv6(content);
  EXPECT_EQ(RuleText(content), Golden("acl_rule_l4v6.txt") + kActionText + kNoStat);
}

TEST_F(AclRuleContentTest, Layer2) {
  Record content = Content(2);
  PutL2(content, 16, 40);
  EXPECT_EQ(RuleText(content), Golden("acl_rule_l2.txt") + kActionText + kNoStat);
}

TEST_F(AclRuleContentTest, Layer2And4) {
  Record content = Content(3);
  PutL2(content, 16, 64);
  PutIpv4(content, 40, 88);
  EXPECT_EQ(RuleText(content), Golden("acl_rule_l2l4.txt") + kActionText + kNoStat);
}

// The key's flag decides, not the mask's (which the rule above has set).
TEST_F(AclRuleContentTest, Layer2And4OfIpv6ShowsNoMacAddresses) {
  Record content = Content(3);
  PutIpv6(content);
  EXPECT_EQ(RuleText(content), Golden("acl_rule_l2l4_ipv6.txt") + kActionText + kNoStat);
}

TEST_F(AclRuleContentTest, PortsAlone) {
  Record content = Content(4);
  PutIpv4Tail(content, 16, 32);
  EXPECT_EQ(RuleText(content), Golden("acl_rule_l4_ports.txt") + kActionText + kNoStat);
}

TEST_F(AclRuleContentTest, OtherTypesHaveNoBlocks) {
  for (const uint16_t type : {5, 6, 255, 256, 65535}) {
    Record content = Content(type);
    PutIpv4(content, 16, 40);
    EXPECT_EQ(RuleText(content), "AclRuleCommonInfo:\n  Priority     :  50001\n  GroupType    :  " +
                                     std::to_string(type) + "\n" + kActionText + kNoStat);
  }
}

// The rule's own type decides, not the one that was asked for.
TEST_F(AclRuleContentTest, TheContentsGroupTypeCounts) {
  EXPECT_EQ(FormatText(NqeTableFormatAclRule, Rule(Action(nullptr), Ipv4Content(), 2, 7, 9)),
            Golden("acl_rule_l4.txt") + kActionText + kNoStat);
}

// One field of a rule: what its line shows is the `bits` bits at byte `offset`, from bit `shift` on.
enum Kind { kDecimal, kHex, kMac };
struct Field {
  std::string label;
  int offset, shift, bits;
  Kind kind = kDecimal;
};

std::string Line(const Field &field, int width, int bit) {
  char value[32];
  if (field.kind == kMac) {
    uint8_t mac[6] = {};
    if (bit >= 0) mac[bit / 8] = static_cast<uint8_t>(1 << bit % 8);
    std::snprintf(value, sizeof(value), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                  mac[4], mac[5]);
  } else {
    std::snprintf(value, sizeof(value), field.kind == kHex ? "0x%x" : "%u", bit < 0 ? 0 : 1u << bit);
  }
  char line[100];
  std::snprintf(line, sizeof(line), "  %-*s:  %s", width, field.label.c_str(), value);
  return line;
}

std::vector<std::string> Lines(const std::string &text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// One block of lines: its fields and their width.
struct Block {
  int width;
  std::vector<Field> fields;
};

std::string Named(const std::string &prefix, const std::string &name, const std::string &suffix) {
  const size_t end = std::min(name.find_first_of("[/"), name.size());
  return prefix + name.substr(0, end) + suffix + name.substr(end);
}

std::vector<Field> L2Fields(int at, const std::string &prefix, const std::string &suffix) {
  const auto name = [&](const char *n) { return Named(prefix, n, suffix); };
  return {{name("DstMac"), at, 0, 48, kMac},
          {name("SrcMac"), at + 6, 0, 48, kMac},
          {name("EthType"), at + 12, 0, 16},
          {name("VlanId"), at + 14, 0, 16},
          {name("Dot1p"), at + 16, 0, 3}};
}

std::vector<Field> VersionFields(int at, const std::string &suffix) {
  return {{Named("", "IsIpv4", suffix), at + 6, 4, 1}, {Named("", "IsIpv6", suffix), at + 6, 5, 1}};
}

std::vector<Field> Ipv4Fields(int at, const std::string &prefix, const std::string &suffix) {
  return {{Named(prefix, "DstIpAddr", suffix), at, 0, 32},
          {Named(prefix, "SrcIpAddr", suffix), at + 4, 0, 32}};
}

std::vector<Field> Ipv6Fields(int at, const std::string &suffix) {
  std::vector<Field> fields;
  for (const char *name : {"SrcIpv6Addr[0]", "SrcIpv6Addr[1]", "SrcIpv6Addr[2]", "SrcIpv6Addr[3]",
                           "DstIpv6Addr[0]", "DstIpv6Addr[1]", "DstIpv6Addr[2]", "DstIpv6Addr[3]"}) {
    fields.push_back({Named("", name, suffix), at, 0, 32, kHex});
    at += 4;
  }
  return fields;
}

std::vector<Field> TailFields(int at, const std::string &prefix, const std::string &suffix,
                              const char *ttl = "TtlExpired", const char *srcGroup = "SrcUsrGroupId",
                              const char *dstGroup = "DstUsrGroupId") {
  const auto name = [&](const char *n) { return Named(prefix, n, suffix); };
  return {
      {name("SrcPort"), at, 0, 16},     {name("DstPort"), at + 2, 0, 16}, {name("Protocol"), at + 4, 0, 8},
      {name("Tos"), at + 5, 0, 8},      {name(ttl), at + 6, 0, 1},        {name("DomainFlag"), at + 6, 1, 1},
      {name("FragFlag"), at + 6, 2, 2}, {name("TcpFlag"), at + 7, 0, 8},  {name("VrfIndex"), at + 8, 0, 16},
      {name(srcGroup), at + 10, 0, 16}, {name(dstGroup), at + 12, 0, 16}};
}

std::vector<Field> operator+(std::vector<Field> a, const std::vector<Field> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::vector<Block> Ipv6Blocks() {
  return {{21, Ipv6Fields(16, "") + VersionFields(48, "")},
          {21, Ipv6Fields(64, "Mask") + VersionFields(96, "Mask")},
          {31, TailFields(48, "", "", "V6-rsv1", "V6-rsv2", "V6-rsv3")},
          {31, TailFields(96, "", "Mask", "V6-rsv1", "V6-rsv2", "V6-rsv3")}};
}

std::vector<Block> BlocksOf(uint16_t groupType) {
  switch (groupType) {
    case 0:
      return {{17, VersionFields(24, "") + Ipv4Fields(16, "", "") + TailFields(24, "", "")},
              {17, VersionFields(48, "Mask") + Ipv4Fields(40, "", "Mask") + TailFields(48, "", "Mask")}};
    case 1:
      return Ipv6Blocks();
    case 2:
      return {{17, L2Fields(16, "", "")}, {17, L2Fields(40, "", "Mask")}};
    case 3:
      return {{21, L2Fields(16, "L2L4", "")},
              {21, L2Fields(64, "L2L4", "Mask")},
              {21, Ipv4Fields(40, "L2L4", "") + TailFields(48, "L2L4", "")},
              {21, Ipv4Fields(88, "L2L4", "Mask") + TailFields(96, "L2L4", "Mask")}};
    case 4:
      return {
          {31, VersionFields(16, "") + TailFields(16, "", "", "V4-TtlExpired/V6-rsv",
                                                  "V4-SrcUsrGroupId/V6-rsv", "V4-DstUsrGroupId/V6-rsv")},
          {31, VersionFields(32, "Mask") + TailFields(32, "", "Mask", "V4-TtlExpired/V6-rsv",
                                                      "V4-SrcUsrGroupId/V6-rsv", "V4-DstUsrGroupId/V6-rsv")}};
    default:
      return {};
  }
}

constexpr int kNoBit = -1;

std::string RecordText(const Bytes &bytes) {
  static char area[20000];
  EXPECT_GT(NqeTableFormatAclRule(area, sizeof(area), bytes.data(), static_cast<int32_t>(bytes.size())), 0);
  return area;
}

// Inverting one bit of the record's bytes `from` to `to`, counted from `at`, changes the line of the bit's
// field to that of the bit alone, and no other line. One bit may be left out.
void ExpectBits(const Record &base, size_t at, int from, int to, const std::vector<Block> &blocks,
                int skipped = kNoBit) {
  const std::vector<std::string> before = Lines(RecordText(base.bytes()));
  for (int bit = from * 8; bit < to * 8; ++bit) {
    if (bit == skipped) continue;
    std::vector<std::string> expected;
    for (const Block &block : blocks) {
      for (const Field &field : block.fields) {
        const int inField = bit - (field.offset * 8 + field.shift);
        if (inField >= 0 && inField < field.bits) expected.push_back(Line(field, block.width, inField));
      }
    }
    Bytes bytes = base.bytes();
    bytes[at + bit / 8] ^= 1 << bit % 8;
    const std::vector<std::string> after = Lines(RecordText(bytes));
    ASSERT_EQ(after.size(), before.size()) << "byte " << bit / 8 << " bit " << bit % 8;
    std::vector<std::string> changed;
    for (size_t i = 0; i < after.size(); ++i) {
      if (after[i] != before[i]) changed.push_back(after[i]);
    }
    EXPECT_EQ(changed, expected) << "byte " << bit / 8 << " bit " << bit % 8;
  }
}

Record ZeroRule(uint16_t groupType) { return Record(268).U16(kRuleContent + 10, groupType); }

TEST_F(AclRuleContentTest, EachBitOfAMatchAlone) {
  for (const uint16_t type : {0, 1, 2, 4, 5}) {
    SCOPED_TRACE("group type " + std::to_string(type));
    ExpectBits(ZeroRule(type), kRuleContent, 16, 208, BlocksOf(type));
  }
}

TEST_F(AclRuleContentTest, EachBitOfALayer2And4MatchAlone) {
  constexpr int kIpv6Flag = 54 * 8 + 5;  // the one that chooses other blocks
  ExpectBits(ZeroRule(3), kRuleContent, 16, 208, BlocksOf(3), kIpv6Flag);
  ExpectBits(ZeroRule(3).U8(kRuleContent + 54, 1 << 5), kRuleContent, 16, 208, Ipv6Blocks(), kIpv6Flag);
}

TEST_F(AclRuleContentTest, EachBitOfTheHeaderAlone) {
  const Field groupType = {"GroupType", 10, 0, 16};
  ExpectBits(ZeroRule(5), kRuleContent, 0, 10, {{13, {{"Priority", 8, 0, 16}}}});
  ExpectBits(ZeroRule(5), kRuleContent, 12, 16, {});
  for (int bit = 3; bit < 16; ++bit) {  // types that have no blocks
    const std::string text = RecordText(ZeroRule(static_cast<uint16_t>(1 << bit)).bytes());
    EXPECT_NE(text.find(Line(groupType, 13, bit) + "\nAclAction:\n"), std::string::npos) << bit;
  }
}

TEST_F(AclRuleContentTest, EachBitOfTheActionAlone) {
  const Block action = {25,
                        {{"IfDeny", 0, 0, 1},
                         {"Rmk8021p", 0, 1, 1},
                         {"RmkDscp", 0, 2, 1},
                         {"CarEn", 0, 3, 1},
                         {"StatEn", 0, 4, 1},
                         {"RedirectNhp", 0, 5, 1},
                         {"RedirectCP", 0, 6, 1},
                         {"Mirror", 0, 7, 1},
                         {"NewDscp", 0, 8, 6},
                         {"ObserveIdx", 0, 14, 2},
                         {"New8021p", 0, 16, 3},
                         {"RedirectNhpV6", 0, 19, 1},
                         {"AclMatchStatEn", 0, 20, 1},
                         {"LoadBalanceRedirectEn", 0, 21, 1},
                         {"IptablesAccept", 0, 23, 1},
                         {"Rsv2", 0, 28, 4},
                         {"CarId", 4, 0, 32},
                         {"RedirectIP", 8, 0, 32},
                         {"RedirectIPV6[0]", 12, 0, 32},
                         {"RedirectIPV6[1]", 16, 0, 32},
                         {"RedirectIPV6[2]", 20, 0, 32},
                         {"RedirectIPV6[3]", 24, 0, 32},
                         {"RedirectFwdif", 28, 0, 16},
                         {"StatId", 30, 0, 16},
                         {"LoadBalanceRedirectFwdif", 32, 0, 16},
                         {"RedirectToLocalPort", 34, 0, 16},
                         {"DomainID", 36, 0, 16}}};
  ExpectBits(ZeroRule(5), kRuleAction, 0, 48, {action});
}

}  // namespace
}  // namespace qdt::test
