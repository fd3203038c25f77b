#include "src/om/engine/acl.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/table_ids.h"
#include "src/om/nqe_cli/forwarding_interface_text.h"
#include "src/om/nqe_cli/table_entry.h"

// The ingress services of a forwarding interface, each checked against the ACL group that it is bound to.
namespace qdt {
namespace {

// Ingress service types. Those that use an ACL group carry its type and id; which types there are depends on
// whether the group matches layer-2 or layer-4 fields.
enum IngressServiceType : uint8_t {
  kServiceNone = 0,
  kServiceWithoutAcl = 1,
  kServiceL2Filter = 2,
  kServiceL4Filter = 3,
  kServiceFirstL2 = 4,
  kServiceFirstL4 = 9,
  kServiceFirstLateL2 = 14,
  kServiceFirstLateL4 = 19,
  kServiceLastAcl = 23,
  kServiceLast = 25,
};

// The group type that a service of this type works with.
AclGroupType GroupTypeOf(uint8_t type) {
  if (type <= kServiceL4Filter) return type == kServiceL2Filter ? kAclGroupL2 : kAclGroupL4;
  const bool l2 = type < kServiceFirstL4 || (type >= kServiceFirstLateL2 && type < kServiceFirstLateL4);
  return l2 ? kAclGroupL2 : kAclGroupL4;
}

bool ServiceIsIntact(const IngressService &service) {
  if (service.type == kServiceNone || service.type > kServiceLast) return false;
  if (service.type == kServiceWithoutAcl || service.type > kServiceLastAcl) return true;
  const AclGroupKey key = {service.aclGroupType, service.aclGroupId};
  return CheckBoundEntry(kTableAclGroup, key, service.boundAclGroup).same &&
         service.aclGroupType == GroupTypeOf(service.type);
}

}  // namespace

void PrintIngressServices(Text &text, const ForwardingInterface &e) {
  text.Print<"IngSvcSet:\n">();
  for (int i = 0; i < e.l1ServiceCount && i < kMaxL1IngressServices && !text.failed(); ++i) {
    const IngressService &s = e.l1Service[i];
    if (ServiceIsIntact(s)) {
      text.Print<"  [%2d]L1Svc=%d, %u, %u, %u, aptr(OK)\n">(i, s.type, s.parameter, s.aclGroupType,
                                                            s.aclGroupId);
    } else {
      text.Print<"  [%2d]L1Svc=%d, %u, %u, %u, aptr(Error)\n">(i, s.type, s.parameter, s.aclGroupType,
                                                               s.aclGroupId);
    }
  }
  for (int i = 0; i < e.l3ServiceCount && i < kMaxL3IngressServices; ++i) {
    const IngressService &s = e.l3Service[i];
    text.Print<"  [%2d]L3Svc=%d, %u, %u, %u, aptr(unknown)\n">(i, s.type, s.parameter, s.aclGroupType,
                                                               s.aclGroupId);
  }
}

}  // namespace qdt
