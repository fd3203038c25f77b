#ifndef HOST_TBM_ACL_RULES_H_
#define HOST_TBM_ACL_RULES_H_

#include <cstdint>

// How the rules of access-control lists are kept: one table for all groups, whose entries are grouped by the
// first eight bytes of their keys, the key of the group. A rule's record is what TbmAclGroupSearchByPri
// points into: the action, and the content behind it.
namespace qdt::host {

constexpr uint32_t kAclGroupTable = 24;
constexpr uint32_t kAclRuleTable = 35;

struct AclRuleKey {
  uint32_t groupType;
  uint32_t groupId;
  uint32_t priority;
};

constexpr uint32_t kAclActionSize = 48;
constexpr uint32_t kAclContentSize = 208;

}  // namespace qdt::host

#endif  // HOST_TBM_ACL_RULES_H_
