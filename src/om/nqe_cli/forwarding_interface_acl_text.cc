#include "src/om/common/section.h"
#include "src/om/engine/interface.h"
#include "src/om/nqe_cli/bit.h"
#include "src/om/nqe_cli/forwarding_interface_text.h"

// The ACL sections of the forwarding-interface view, in the order in which they are shown.
namespace qdt {
namespace {

void PrintEgressAclEnable(Text &text, const ForwardingInterface &e) {
  text.Print<"EgrFwdifAclEnInfo:\n">();
  Section<29> s(text);
  s.Line<"EgrIfL2AclFilterEn">(Bit(e.egressAcl, 0));
  s.Line<"EgrIfL4AclFilterEn">(Bit(e.egressAcl, 1));
  s.Line<"EgrIfL2L4AclFilterEn">(Bit(e.egressAcl, 2));
  s.Line<"EgrIfIpv6AclFilterEn">(Bit(e.egressAcl, 3));
  s.Line<"EgrIfL2AclCarEn">(Bit(e.egressAcl, 4));
  s.Line<"EgrIfL4AclCarEn">(Bit(e.egressAcl, 5));
  s.Line<"EgrIfL2L4AclCarEn">(Bit(e.egressAcl, 6));
  s.Line<"EgrIfIpv6AclCarEn">(Bit(e.egressAcl, 7));
  s.Line<"EgrIfL2AclRemarkEn">(Bit(e.egressAcl, 8));
  s.Line<"EgrIfL4AclRemarkEn">(Bit(e.egressAcl, 9));
  s.Line<"EgrIfL2L4AclRemarkEn">(Bit(e.egressAcl, 10));
  s.Line<"EgrIfIpv6AclRemarkEn">(Bit(e.egressAcl, 11));
  s.Line<"EgrIfL2AclMirrorEn">(Bit(e.egressAcl, 12));
  s.Line<"EgrIfL4AclMirrorEn">(Bit(e.egressAcl, 13));
  s.Line<"EgrIfL2L4AclMirrorEn">(Bit(e.egressAcl, 14));
  s.Line<"EgrIfIpv6AclMirrorEn">(Bit(e.egressAcl, 15));
  s.Line<"EgrIfL2AclMatchStatEn">(Bit(e.egressAcl, 16));
  s.Line<"EgrIfL4AclMatchStatEn">(Bit(e.egressAcl, 17));
  s.Line<"EgrIfL2L4AclMatchStatEn">(Bit(e.egressAcl, 18));
  s.Line<"EgrIfIpv6AclMatchStatEn">(Bit(e.egressAcl, 19));
}

void PrintIngressAclGroups(Text &text, const ForwardingInterface &e) {
  text.Print<"FwdifIngAclGidInfo:\n">();
  Section<24> s(text);
  s.Line<"IngL2AclFilterGid">(e.ingressAclGroup[0]);
  s.Line<"IngL4AclFilterGid">(e.ingressAclGroup[1]);
  s.Line<"IngL4V6AclFilterGid">(e.ingressAclGroup[2]);
  s.Line<"IngL2L4AclFilterGid">(e.ingressAclGroup[3]);
  s.Line<"IngL2AclMatchStatGid">(e.ingressAclGroup[4]);
  s.Line<"IngL4AclMatchStatGid">(e.ingressAclGroup[5]);
  s.Line<"IngL2AclRedirectGid">(e.ingressAclGroup[6]);
  s.Line<"IngL4AclRedirectGid">(e.ingressAclGroup[7]);
  s.Line<"IngL2AclRemarkGid">(e.ingressAclGroup[8]);
  s.Line<"IngL4AclRemarkGid">(e.ingressAclGroup[9]);
  s.Line<"ingL4V6AclRemarkGid">(e.ingressAclGroup[10]);
  s.Line<"IngL2L4AclRemarkGid">(e.ingressAclGroup[11]);
  s.Line<"IngL2AclCarGid">(e.ingressAclGroup[12]);
  s.Line<"IngL4AclCarGid">(e.ingressAclGroup[13]);
  s.Line<"IngL2AclMirrorGid">(e.ingressAclGroup[14]);
  s.Line<"IngL4AclMirrorGid">(e.ingressAclGroup[15]);
  s.Line<"IngL2AclIptablesGid">(e.ingL2IptablesGroup);
  s.Line<"IngL4AclIptablesGid">(e.ingL4IptablesGroup);
}

void PrintEgressAclGroups(Text &text, const ForwardingInterface &e) {
  text.Print<"FwdifEgrAclGidInfo:\n">();
  Section<24> s(text);
  s.Line<"EgrL2AclFilterGid">(e.egressAclGroup[0]);
  s.Line<"EgrL4AclFilterGid">(e.egressAclGroup[1]);
  s.Line<"EgrL4V6AclFilterGid">(e.egressAclGroup[2]);
  s.Line<"EgrL2L4AclFilterGid">(e.egressAclGroup[3]);
  s.Line<"EgrL2AclMatchStatGid">(e.egressAclGroup[4]);
  s.Line<"EgrL4AclMatchStatGid">(e.egressAclGroup[5]);
  s.Line<"EgrL2AclRemarkGid">(e.egressAclGroup[6]);
  s.Line<"EgrL4AclRemarkGid">(e.egressAclGroup[7]);
  s.Line<"EgrL4V6AclRemarkGid">(e.egressAclGroup[8]);
  s.Line<"EgrL2L4AclRemarkGid">(e.egressAclGroup[9]);
  s.Line<"EgrL2AclCarGid">(e.egressAclGroup[10]);
  s.Line<"EgrL4AclCarGid">(e.egressAclGroup[11]);
  s.Line<"EgrL2AclMirrorGid">(e.egressAclGroup[12]);
  s.Line<"EgrL4AclMirrorGid">(e.egressAclGroup[13]);
}

void PrintAclTypes(Text &text, const uint8_t (&type)[8]) {
  Section<29> s(text);
  s.Line<"L2FilterAclGroupType">(type[0]);
  s.Line<"L4V4FilterAclGroupType">(type[1]);
  s.Line<"L4V6FilterAclGroupType">(type[2]);
  s.Line<"L2L4FilterAclGroupType">(type[3]);
  s.Line<"L2RemarkAclGroupType">(type[4]);
  s.Line<"L4V4RemarkAclGroupType">(type[5]);
  s.Line<"L4V6RemarkAclGroupType">(type[6]);
  s.Line<"L2L4RemarkAclGroupType">(type[7]);
}

}  // namespace

// The order of the lines is not the order of the bits.
void PrintIngressAclEnable(Text &text, const ForwardingInterface &e) {
  text.Print<"IngFwdifAclEnInfo:\n">();
  const IngressAclEnable &acl = e.ingressAcl;
  Section<29> s(text);
  s.Line<"IngIfL2AclFilterEn">(acl.l2Filter);
  s.Line<"IngIfL2AclCarEn">(acl.l2Car);
  s.Line<"IngIfL2AclRemarkEn">(acl.l2Remark);
  s.Line<"IngIfL2AclMirrorEn">(acl.l2Mirror);
  s.Line<"IngIfL2AclRedirectEn">(acl.l2Redirect);
  s.Line<"IngIfL2AclMatchStatEn">(acl.l2MatchStat);
  s.Line<"IngIfL2AclIptablesEn">(acl.l2Iptables);
  s.Line<"IngIfL4AclFilterEn">(acl.l4Filter);
  s.Line<"IngIfL4AclCarEn">(acl.l4Car);
  s.Line<"IngIfL4AclRemarkEn">(acl.l4Remark);
  s.Line<"IngIfL4AclMirrorEn">(acl.l4Mirror);
  s.Line<"IngIfL4AclRedirectEn">(acl.l4Redirect);
  s.Line<"IngIfL4AclMatchStatEn">(acl.l4MatchStat);
  s.Line<"IngIfL4AclIptablesEn">(acl.l4Iptables);
  s.Line<"IngIfL2L4AclFilterEn">(acl.l2l4Filter);
  s.Line<"IngIfL2L4AclCarEn">(acl.l2l4Car);
  s.Line<"IngIfL2L4AclRemarkEn">(acl.l2l4Remark);
  s.Line<"IngIfL2L4AclMirrorEn">(acl.l2l4Mirror);
  s.Line<"IngIfL2L4AclRedirectEn">(acl.l2l4Redirect);
  s.Line<"IngIfL2L4AclMatchStatEn">(acl.l2l4MatchStat);
  s.Line<"IngIfIpv6AclFilterEn">(acl.ipv6Filter);
  s.Line<"IngIfIpv6AclCarEn">(acl.ipv6Car);
  s.Line<"IngIfIpv6AclRemarkEn">(acl.ipv6Remark);
  s.Line<"IngIfIpv6AclMirrorEn">(acl.ipv6Mirror);
  s.Line<"IngIfIpv6AclRedirectEn">(acl.ipv6Redirect);
  s.Line<"IngIfIpv6AclMatchStatEn">(acl.ipv6MatchStat);
}

void PrintInterfaceAclSections(Text &text, const ForwardingInterface &e) {
  PrintIngressAclEnable(text, e);
  PrintEgressAclEnable(text, e);
  PrintIngressAclGroups(text, e);
  PrintEgressAclGroups(text, e);
  text.Print<"FwdifIngAclTypeInfo:\n">();
  PrintAclTypes(text, e.ingressAclType);
  text.Print<"FwdifEgrAclTypeInfo:\n">();
  PrintAclTypes(text, e.egressAclType);
}

}  // namespace qdt
