#include "src/om/nqe_cli/acl_rule_text.h"

#include <algorithm>
#include <string_view>

#include "src/om/common/section.h"

namespace qdt {
namespace {

// A field's name in a block: `Prefix` ahead of it, and `Suffix` behind it, which is ahead of an index ("[0]")
// or of another name for the same field ("/V6-rsv").
template <format::Format Prefix, format::Format Name, format::Format Suffix>
consteval auto LabelOf() {
  constexpr std::string_view kName(Name.text, Name.kLength);
  constexpr size_t kEnd = std::min(kName.find_first_of("[/"), kName.size());
  char label[Prefix.kLength + Name.kLength + Suffix.kLength + 1]{};
  size_t at = 0;
  const auto append = [&](std::string_view text) {
    for (const char c : text) label[at++] = c;
  };
  append({Prefix.text, Prefix.kLength});
  append(kName.substr(0, kEnd));
  append({Suffix.text, Suffix.kLength});
  append(kName.substr(kEnd));
  return format::Format(label);
}

// The lines of one key or mask block. A mask's lines are its key's, with "Mask" as the names' suffix.
template <size_t kWidth, format::Format Suffix, format::Format Prefix>
class MatchLines {
 public:
  explicit MatchLines(Text &text) : section_(text) {}

  void L2(const AclL2Match &m) {
    MacLine<"DstMac">(m.dmac);
    MacLine<"SrcMac">(m.smac);
    Line<"EthType", "%hu">(m.etherType);
    Line<"VlanId", "%hu">(m.vlanId);
    Line<"Dot1p">(m.dot1p);
  }

  void IpVersion(const AclL4Tail &t) {
    Line<"IsIpv4">(t.isIpv4);
    Line<"IsIpv6">(t.isIpv6);
  }

  void Addresses(const AclL4Match &m) {
    Line<"DstIpAddr">(m.dstAddress);
    Line<"SrcIpAddr">(m.srcAddress);
  }

  void Addresses(const AclL4V6Match &m) {
    Line<"SrcIpv6Addr[0]", "0x%x">(m.srcAddress[0]);
    Line<"SrcIpv6Addr[1]", "0x%x">(m.srcAddress[1]);
    Line<"SrcIpv6Addr[2]", "0x%x">(m.srcAddress[2]);
    Line<"SrcIpv6Addr[3]", "0x%x">(m.srcAddress[3]);
    Line<"DstIpv6Addr[0]", "0x%x">(m.dstAddress[0]);
    Line<"DstIpv6Addr[1]", "0x%x">(m.dstAddress[1]);
    Line<"DstIpv6Addr[2]", "0x%x">(m.dstAddress[2]);
    Line<"DstIpv6Addr[3]", "0x%x">(m.dstAddress[3]);
  }

  // The three fields that IPv6 has no use for are named by the block.
  template <format::Format TtlExpired = "TtlExpired", format::Format SrcUserGroup = "SrcUsrGroupId",
            format::Format DstUserGroup = "DstUsrGroupId">
  void Tail(const AclL4Tail &t) {
    Line<"SrcPort", "%hu">(t.srcPort);
    Line<"DstPort", "%hu">(t.dstPort);
    Line<"Protocol", "%hhu">(t.protocol);
    Line<"Tos", "%hhu">(t.tos);
    Line<TtlExpired, "%hhu">(t.ttlExpired);
    Line<"DomainFlag", "%hhu">(t.domain);
    Line<"FragFlag", "%hhu">(t.fragment);
    Line<"TcpFlag", "%hhu">(t.tcpFlags);
    Line<"VrfIndex", "%hu">(t.vrfIndex);
    Line<SrcUserGroup, "%hu">(t.srcUserGroup);
    Line<DstUserGroup, "%hu">(t.dstUserGroup);
  }

 private:
  template <format::Format Name, format::Format Conversion = "%u", typename Value>
  void Line(Value value) {
    section_.template Line<LabelOf<Prefix, Name, Suffix>(), Conversion>(value);
  }

  template <format::Format Name>
  void MacLine(const MacAddress &mac) {
    section_.template MacLine<LabelOf<Prefix, Name, Suffix>()>(mac);
  }

  Section<kWidth> section_;
};

// A key block and its mask block, whose lines are those that `print` prints.
template <size_t kWidth, format::Format KeyTitle, format::Format MaskTitle, format::Format Prefix = "",
          typename Match, typename Print>
void PrintKeyAndMask(Text &text, const AclKeyAndMask<Match> &m, Print print) {
  text.Print<KeyTitle>();
  print(MatchLines<kWidth, "", Prefix>(text), m.key);
  text.Print<MaskTitle>();
  print(MatchLines<kWidth, "Mask", Prefix>(text), m.mask);
}

void PrintL4(Text &text, const AclKeyAndMask<AclL4Match> &match) {
  PrintKeyAndMask<17, "AclL4RuleInfo:\n", "AclL4RuleInfoMask:\n">(text, match,
                                                                  [](auto lines, const AclL4Match &m) {
                                                                    lines.IpVersion(m.tail);
                                                                    lines.Addresses(m);
                                                                    lines.Tail(m.tail);
                                                                  });
}

void PrintL4V6(Text &text, const AclKeyAndMask<AclL4V6Match> &match) {
  PrintKeyAndMask<21, "AclL4V6RuleInfo1:\n", "AclL4V6RuleInfoMask1:\n">(
      text, match, [](auto lines, const AclL4V6Match &m) {
        lines.Addresses(m);
        lines.IpVersion(m.tail);
      });
  PrintKeyAndMask<31, "AclL4V6RuleInfo2:\n", "AclL4V6RuleInfoMask2:\n">(
      text, match, [](auto lines, const AclL4V6Match &m) {
        lines.template Tail<"V6-rsv1", "V6-rsv2", "V6-rsv3">(m.tail);
      });
}

void PrintL2(Text &text, const AclKeyAndMask<AclL2Match> &match) {
  PrintKeyAndMask<17, "AclL2RuleInfo:\n", "AclL2RuleInfoMask:\n">(
      text, match, [](auto lines, const AclL2Match &m) { lines.L2(m); });
}

void PrintL2L4(Text &text, const AclKeyAndMask<AclL2L4Match> &match) {
  PrintKeyAndMask<21, "AclL2L4RuleInfoL2:\n", "AclL2L4RuleInfoL2Mask:\n", "L2L4">(
      text, match, [](auto lines, const AclL2L4Match &m) { lines.L2(m.l2); });
  PrintKeyAndMask<21, "AclL2L4RuleInfoL4:\n", "AclL2L4RuleInfoMaskL4:\n", "L2L4">(
      text, match, [](auto lines, const AclL2L4Match &m) {
        lines.Addresses(m.l4);
        lines.Tail(m.l4.tail);
      });
}

void PrintL4Ports(Text &text, const AclKeyAndMask<AclL4Tail> &match) {
  PrintKeyAndMask<31, "AclL4Info:\n", "AclL4InfoMask:\n">(text, match, [](auto lines, const AclL4Tail &t) {
    lines.IpVersion(t);
    lines.template Tail<"V4-TtlExpired/V6-rsv", "V4-SrcUsrGroupId/V6-rsv", "V4-DstUsrGroupId/V6-rsv">(t);
  });
}

}  // namespace

void PrintAclRuleContent(Text &text, const AclRuleContent &e) {
  text.Print<"AclRuleCommonInfo:\n  Priority     :  %u\n  GroupType    :  %u\n">(e.priority, e.groupType);
  switch (e.groupType) {
    case kAclGroupL4:
      return PrintL4(text, e.KeyAndMask<AclL4Match>());
    case kAclGroupL4V6:
      return PrintL4V6(text, e.KeyAndMask<AclL4V6Match>());
    case kAclGroupL2:
      return PrintL2(text, e.KeyAndMask<AclL2Match>());
    case kAclGroupL2L4: {
      const auto match = e.KeyAndMask<AclL2L4Match>();
      if (match.key.l4.tail.isIpv6 != 0) return PrintL4V6(text, e.KeyAndMask<AclL4V6Match>());
      return PrintL2L4(text, match);
    }
    case kAclGroupL4Ports:
      return PrintL4Ports(text, e.KeyAndMask<AclL4Tail>());
    default:
      return;
  }
}

void PrintAclAction(Text &text, const AclAction &e) {
  text.Print<"AclAction:\n">();
  Section<25> s(text);
  s.Line<"IfDeny">(e.deny);
  s.Line<"Rmk8021p">(e.remark8021p);
  s.Line<"RmkDscp">(e.remarkDscp);
  s.Line<"CarEn">(e.car);
  s.Line<"StatEn">(e.stat);
  s.Line<"RedirectNhp">(e.redirectNextHop);
  s.Line<"RedirectCP">(e.redirectCp);
  s.Line<"Mirror">(e.mirror);
  s.Line<"NewDscp">(e.newDscp);
  s.Line<"ObserveIdx">(e.observeIndex);
  s.Line<"New8021p">(e.new8021p);
  s.Line<"RedirectNhpV6">(e.redirectNextHopV6);
  s.Line<"AclMatchStatEn">(e.matchStat);
  s.Line<"LoadBalanceRedirectEn">(e.loadBalanceRedirect);
  s.Line<"IptablesAccept">(e.iptablesAccept);
  s.Line<"Rsv2">(e.reserved28);
  s.Line<"CarId">(e.carId);
  s.Line<"RedirectIP">(e.redirectIp);
  s.Line<"RedirectIPV6[0]">(e.redirectIpv6[0]);
  s.Line<"RedirectIPV6[1]">(e.redirectIpv6[1]);
  s.Line<"RedirectIPV6[2]">(e.redirectIpv6[2]);
  s.Line<"RedirectIPV6[3]">(e.redirectIpv6[3]);
  s.Line<"RedirectFwdif">(e.redirectFwdIf);
  s.Line<"StatId">(e.statId);
  s.Line<"LoadBalanceRedirectFwdif">(e.loadBalanceFwdIf);
  s.Line<"RedirectToLocalPort">(e.redirectToLocalPort);
  s.Line<"DomainID">(e.domainId);
}

}  // namespace qdt
