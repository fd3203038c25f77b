#ifndef HOST_INSPECT_RULE_MAKERS_H_
#define HOST_INSPECT_RULE_MAKERS_H_

#include "host/inspect/entry_rules.h"

// Parts of RulesOf.
namespace qdt::host {

// What the layout says of the fields: references, numbers that lead to entries, counts, twins, pointers.
void AddLayoutRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules);
void AddCountRules(std::vector<Leaf> counters, EntryRuleList *rules);
// Where a reference leads, be it bound by fields beside it or of the key.
void AddReferenceRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules);
// What check_rules.h says, but for references.
void AddTableRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules);
// Entries that belong together: groups and their rules, lists and their heads.
void AddFamilyRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules);

// What is wrong with a reference that should lead to `should`, a text such as "nhp/5"; without it the
// reference only has to lead to an entry.
Problem WrongReference(const Reference &to, std::span<const std::string_view> targets,
                       const std::string &should);

}  // namespace qdt::host

#endif  // HOST_INSPECT_RULE_MAKERS_H_
