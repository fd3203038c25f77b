#ifndef SRC_OM_NQE_CLI_FORWARDING_INTERFACE_TEXT_H_
#define SRC_OM_NQE_CLI_FORWARDING_INTERFACE_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/interface.h"

namespace qdt {

// The sections of a forwarding interface from CommonInfo to UsrIsolateInfo.
void PrintInterfaceSections(Text &text, const ForwardingInterface &e);

// The sections on ACL functions, groups and group types.
void PrintInterfaceAclSections(Text &text, const ForwardingInterface &e);

// The first of them, which is also offered on its own.
void PrintIngressAclEnable(Text &text, const ForwardingInterface &e);

// The list of ingress services.
void PrintIngressServices(Text &text, const ForwardingInterface &e);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_FORWARDING_INTERFACE_TEXT_H_
