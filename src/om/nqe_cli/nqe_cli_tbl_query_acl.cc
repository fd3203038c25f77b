#include <cstring>

#include "qdt/tables.h"
#include "src/om/common/table_descriptor.h"
#include "src/om/engine/acl.h"
#include "src/om/nqe_cli/acl_rule_text.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// Views of the access-control lists: groups, rules, what rules have counted, and how many fit the device.
using qdt::AclCounters;
using qdt::AclGroupEntry;
using qdt::AclGroupKey;
using qdt::AclRuleRecord;
using qdt::AclStatEntry;
using qdt::AclStatKey;

NQE_TABLE_SEARCH(AclGroup) {
  if (search.loopNum != 0) return search.NextOf<AclGroupEntry>(qdt::kTableAclGroup);
  AclGroupEntry group = {{search.key2, search.key3}, {}};
  // The table manager keeps a group's data behind its key, and finds the data.
  if (const int32_t code = qdt::ReadEntry(qdt::kTableAclGroup, group.key, group.data); code != 0) return code;
  return search.Deliver(&group, sizeof(group));
}

// A group's priorities are shown as a range that follows from the number of its rules alone.
static int32_t PrintGroup(qdt::Text &text, const AclGroupEntry &e) {
  uint32_t rules = 0;
  const int32_t code = TbmAclGroupActiveRuleNum(e.key.groupType, e.key.groupId, &rules);
  if (code != 0) return code;
  if (rules == 0) {
    text.Print<
        "  KeyGroupType         :  %u\n"
        "  KeyGroupId           :  %u\n"
        "  DataInstanceId       :  %u\n"
        "  DataGroupType        :  %u\n"
        "  DataGroupId          :  %u\n"
        "  RuleNum              :  %u\n\n">(e.key.groupType, e.key.groupId, e.data.instanceId,
                                            e.data.groupType, e.data.groupId, rules);
  } else {
    text.Print<
        "  KeyGroupType         :  %u\n"
        "  KeyGroupId           :  %u\n"
        "  DataInstanceId       :  %u\n"
        "  DataGroupType        :  %u\n"
        "  DataGroupId          :  %u\n"
        "  RuleNum              :  %u\n"
        "  PriorityBegin        :  %u\n"
        "  PriorityEnd          :  %u\n\n">(e.key.groupType, e.key.groupId, e.data.instanceId,
                                            e.data.groupType, e.data.groupId, rules, 0u, rules - 1);
  }
  return 0;
}

NQE_TABLE_FORMAT_WHOLE(AclGroup, AclGroupEntry) {
  if (const int32_t code = PrintGroup(text, e); code != 0) text.Fail(code);
}

NQE_TABLE_SEARCH(AclRule) {
  AclRuleRecord rule = {{search.key2, search.key3}, search.key4, {}, {}};
  void *group = nullptr, *action = nullptr, *content = nullptr;
  int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableAclGroup, &rule.group, &group);
  if (code == 0) code = group == nullptr ? int32_t{QDT_TBL_MEMORY} : 0;
  if (code == 0) code = TbmAclGroupSearchByPri(group, rule.priority, &action, &content);
  if (code == 0) code = qdt::CopyEntry(&rule.action, action, sizeof(rule.action));
  if (code == 0) code = qdt::CopyEntry(&rule.content, content, sizeof(rule.content));
  if (code != 0) return code;
  return search.Deliver(&rule, sizeof(rule));
}

NQE_TABLE_FORMAT_FIRST(AclRule, AclRuleRecord) {
  qdt::PrintAclRuleContent(text, e.content);
  qdt::PrintAclAction(text, e.action);
  if (text.failed()) return;
  const AclStatKey key = {e.group, e.priority};
  const qdt::BoundEntry stat = qdt::CheckBoundEntry(qdt::kTableAclStat, key, e.action.boundStat);
  if (stat.same) {
    text.Print<"  AclStatEntry             :  OK\n">();
  } else {
    text.Print<"  AclStatEntry             :  Error(%d)\n">(stat.code);
  }
}

NQE_TABLE_SEARCH(AclStat) {
  if (search.loopNum != 0) return search.NextOf<AclStatEntry>(qdt::kTableAclStat);
  return search.FindOne<AclStatEntry>(qdt::kTableAclStat,
                                      AclStatKey{{search.key2, search.key3}, search.key4});
}

NQE_TABLE_FORMAT_WHOLE(AclStat, AclStatEntry) {
  AclCounters sum{};
  for (const AclCounters &block : e.counters) sum += block;
  text.Print<
      "  GroupType        :  %u\n"
      "  GroupId          :  %u\n"
      "  StatId           :  %u\n"
      "  AclPassPktCnt    :  %lu\n"
      "  AclPassByte      :  %lu\n"
      "  AclFilterPktCnt  :  %lu\n"
      "  AclFilterByte    :  %lu\n"
      "  AclMatchPktCnt   :  %lu\n"
      "  AclMatchByte     :  %lu\n\n">(e.key.group.groupType, e.key.group.groupId, e.key.statId,
                                       sum.passPackets, sum.passBytes, sum.filterPackets, sum.filterBytes,
                                       sum.matchPackets, sum.matchBytes);
}

// The capacities are the table manager's, of which the format asks itself.
NQE_TABLE_SEARCH(AclTbmRule) { return 0; }

// Descriptor of the ACL group table; null when the table manager does not list it.
static const TbmTableDesc *GroupTable() {
  for (const TbmTableDesc &table : qdt::EngineTableDescriptors()) {
    if (table.name != nullptr && std::strcmp(table.name, "CAP_TABLE_ACL_GROUP") == 0) return &table;
  }
  return nullptr;
}

int32_t NqeTableFormatAclTbmRule(char *out, uint32_t room, const void *, int32_t) {
  const TbmTableDesc *const table = GroupTable();
  uint32_t groups = 0, rules = 0;
  if (table == nullptr ||
      TbmTblAclEntryNum(qdt::kEngineInstance, qdt::kTableAclGroup, &groups, &rules) != 0) {
    return QDT_TBL_UNSUPPORTED;
  }
  qdt::Text text(out, room);
  text.Print<
      "AclTbmRule:\n"
      "  AclGroupSpec         :  %u\n"
      "  AclGroupNum          :  %u\n"
      "  AclGroupRuleSpec     :  %u\n"
      "  AclRuleNum           :  %u\n">(table->spec, groups, table->groupRuleSpec, rules);
  return text.Result();
}
