#ifndef SRC_OM_NQE_CLI_ACL_RULE_TEXT_H_
#define SRC_OM_NQE_CLI_ACL_RULE_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/acl.h"

namespace qdt {

// What the rule matches: its priority and group type, then key and mask in the blocks of that type. Nothing
// follows for a type that is not known.
void PrintAclRuleContent(Text &text, const AclRuleContent &e);

// What it does to the packets that it matches.
void PrintAclAction(Text &text, const AclAction &e);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_ACL_RULE_TEXT_H_
