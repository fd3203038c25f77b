#include "src/om/nqe_cli/next_hop_text.h"

#include "src/om/common/address.h"
#include "src/om/engine/acl.h"
#include "src/om/engine/table_ids.h"
#include "src/om/nqe_cli/route_text.h"
#include "src/om/nqe_cli/table_entry.h"

namespace qdt {
namespace {

// Layer-1 egress service types up to this one use an ACL group: odd ones a layer-2 group, even ones a layer-4
// group. The two behind it use none.
constexpr uint8_t kLastAclService = 16;
constexpr uint8_t kLastL1Service = 18;

bool L1ServiceIsIntact(const EgressService &service) {
  if (service.type == 0 || service.type > kLastL1Service) return false;
  if (service.type > kLastAclService) return true;
  const AclGroupKey key = {service.argument1, service.argument3};
  return CheckBoundEntry(kTableAclGroup, key, service.boundEntry).same &&
         key.groupType == (service.type % 2 == 1 ? kAclGroupL2 : kAclGroupL4);
}

bool L3ServiceIsIntact(const EgressService &service) {
  return CheckBoundEntry(kTableFwdIf, service.argument3, service.boundEntry).same;
}

void PrintEncapsulation(Text &text, const NextHopExtension &e) {
  if (e.encapSize > kMaxEncapsulation) return text.Fail();
  text.Print<"  EncapData:">();
  for (int i = 0; i < e.encapSize; ++i) {
    if (i % 8 == 0) {
      text.Print<"\n   %02x">(e.encapsulation[i]);
    } else if (i % 4 == 0) {
      text.Print<"  %02x">(e.encapsulation[i]);
    } else {
      text.Print<" %02x">(e.encapsulation[i]);
    }
  }
  text.Print<"\r\n">();
}

void PrintL2AclKey(Text &text, const NextHopExtension &e) {
  text.Print<"  L2AclKey:\n">();
  text.Print<
      "    Dmac    : %02x:%02x:%02x:%02x:%02x:%02x\n"
      "    Smac    : %02x:%02x:%02x:%02x:%02x:%02x\n"
      "    EthType : 0x%04x\n"
      "    VlanId  : 0x%04x\n">(Mac(e.dmac), Mac(e.smac), e.etherType, e.vlanId);
}

void PrintServices(Text &text, const NextHopExtension &e) {
  if (e.l3ServiceCount > kMaxL3EgressServices || e.l1ServiceCount > kMaxL1EgressServices) return text.Fail();
  text.Print<"  Egress Service:\n">();
  for (int i = 0; i < e.l3ServiceCount && !text.failed(); ++i) {
    const EgressService &s = e.l3Service[i];
    const auto index = static_cast<int32_t>(s.argument3);
    if (L3ServiceIsIntact(s)) {
      text.Print<"    [%d]L3Svc:%d, a1=%d, a2=%d, a3=%d\n">(i, s.type, s.argument1, s.argument2, index);
    } else {
      text.Print<"    [%d]L3Svc:%d, a1=%d, a2=%d, a3=%d, a4=Error\n">(i, s.type, s.argument1, s.argument2,
                                                                      index);
    }
  }
  for (int i = 0; i < e.l1ServiceCount && !text.failed(); ++i) {
    const EgressService &s = e.l1Service[i];
    const auto group = static_cast<int32_t>(s.argument3);
    if (L1ServiceIsIntact(s)) {
      text.Print<"    [%d]L1Svc:%d, a1=%d, a2=%d, a3=%d\n">(i, s.type, s.argument1, s.argument2, group);
    } else {
      text.Print<"    [%d]L1Svc:%d, a1=%d, a2=%d, a3=%d, a4=Error\n">(i, s.type, s.argument1, s.argument2,
                                                                      group);
    }
  }
}

}  // namespace

void PrintNextHopExtension(Text &text, const NextHopExtension &e) {
  text.Print<
      "  PortId    : %d\n"
      "  Mtu       : %d\n"
      "  ArpMiss   : %d\n"
      "  arpFake   : %d\n"
      "  EncapType : %d\n"
      "  EncapSize : %d\n"
      "  L3SvcNum  : %d\n"
      "  L1SvcNum  : %d\n"
      "  LinkSvcNum: %d\n"
      "  FwdIfNum  : %d\n">(e.portId, e.mtu, e.arpMiss, e.arpFake, e.encapType, e.encapSize, e.l3ServiceCount,
                            e.l1ServiceCount, e.linkServiceCount, e.outputInterfaceCount);
  PrintEncapsulation(text, e);
  PrintL2AclKey(text, e);
  PrintServices(text, e);
  PrintOutputInterfaces(text, e.outputInterfaceCount, e.outputInterface);
}

}  // namespace qdt
