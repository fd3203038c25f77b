#include "host/tbm/acl_rules.h"
#include "host/tbm/deliver.h"
#include "host/tbm/status.h"
#include "host/tbm/table_view.h"
#include "host/tbm/walk.h"
#include "platform/tbm.h"

namespace qdt::host::tbm {

namespace {

struct GroupKey {
  uint32_t type;
  uint32_t id;
};

// The key of the live group entry that stands at `address`; false when none does, be the address stale or
// wild.
bool KeyOfGroup(const TableView &groups, const void *address, GroupKey *key) {
  static_assert(sizeof(GroupKey) == kWord);
  const uint32_t ref = groups.RefOfAddress(address);
  if (ref == 0 || groups.shape().keySize != sizeof(GroupKey)) return false;
  Head *group = groups.HeadAt(ref);
  const uint64_t serial = group->serial.load(std::memory_order_acquire);
  LoadWords(key, TableView::Key(group), sizeof(*key));
  return serial != 0 && group->serial.load(std::memory_order_relaxed) == serial;
}

// The table that holds the rules of all groups.
int32_t OpenRules(TableView *rules) {
  const int32_t status = TableView::OpenCurrent(0, kAclRuleTable, rules);
  if (status != kTbmOk) return status;
  const TableShape &shape = rules->shape();
  const bool known = shape.keySize == sizeof(AclRuleKey) && shape.groupKeySize == sizeof(GroupKey) &&
                     shape.recordSize == kAclActionSize + kAclContentSize;
  return known ? kTbmOk : kTbmNotSupported;
}

}  // namespace

}  // namespace qdt::host::tbm

using namespace qdt::host;  // the table manager's C interface follows
using namespace qdt::host::tbm;

int32_t TbmAclGroupSearchByPri(void *groupEntry, uint32_t priority, void **action, void **content) {
  TableView groups, rules;
  int32_t status = TableView::OpenCurrent(0, kAclGroupTable, &groups);
  if (status == kTbmOk) status = OpenRules(&rules);
  if (status != kTbmOk) return status;
  if (groupEntry == nullptr || action == nullptr || content == nullptr) return kTbmBadParam;
  GroupKey group;
  if (!KeyOfGroup(groups, groupEntry, &group)) return kTbmNotFound;
  const AclRuleKey key = {group.type, group.id, priority};
  const TableKey ruleKey = rules.KeyOf(&key);
  status = DeliverFound(
      rules, [&](Place *found) { return rules.Find(ruleKey, found); }, action);
  if (status != kTbmOk) return status;
  *content = static_cast<char *>(*action) + kAclActionSize;
  return kTbmOk;
}

int32_t TbmAclGroupActiveRuleNum(uint32_t groupType, uint32_t groupId, uint32_t *count) {
  TableView rules;
  const int32_t status = OpenRules(&rules);
  if (status != kTbmOk) return status;
  if (count == nullptr) return kTbmBadParam;
  const GroupKey group = {groupType, groupId};
  const TableKey key = rules.GroupKeyOf(&group);
  const ChainOrder order(rules, key);
  // Rules that come while they are counted do not count.
  const uint64_t end = rules.state().lastSerial.load(std::memory_order_acquire);
  uint32_t found = 0;
  for (Place place;; ++found) {
    const Step step = order.Next(&place);
    if (step == Step::kLost) return kTbmWalkLost;
    if (step == Step::kEnd || place.serial > end) break;
  }
  *count = found;
  return kTbmOk;
}

int32_t TbmTblAclEntryNum(uint32_t instance, uint32_t table, uint32_t *groups, uint32_t *rules) {
  if (groups == nullptr || rules == nullptr) return kTbmBadParam;
  if (table != kAclGroupTable) return kTbmNotSupported;
  TableView ruleTable;
  const int32_t status = OpenRules(&ruleTable);
  if (status != kTbmOk) return status;
  *rules = ruleTable.EntryNum();
  return TbmTblEntryNum(instance, table, groups);
}
