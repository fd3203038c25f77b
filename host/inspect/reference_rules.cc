#include <algorithm>

#include "host/inspect/check_rules.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/inspect/rule_makers.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

std::string Joined(std::span<const std::string_view> names) {
  std::string text;
  for (const std::string_view name : names) {
    if (!text.empty()) text += " or ";
    text += name;
  }
  return text;
}

// Where a reference has to lead: to the entry of one of `targets` whose key is told by other fields.
struct Binding {
  std::vector<LookupKey::Said> said;
  FieldRef flag;                   // which of two targets; of size 0 when any will do
  std::string_view flagTarget[2];  // by its value
  FieldRef needed;                 // whether it has to lead anywhere; of size 0: where the key is not 0
};

class ReferenceRule : public EntryRule {
 public:
  ReferenceRule(const RecordSource &source, Leaf leaf, Binding binding)
      : EntryRule(leaf.path), source_(source), leaf_(std::move(leaf)), binding_(std::move(binding)) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!HasLeaf(record, leaf_) || !leaf_.IsInUse(record.record)) return {};
    const Field &field = *leaf_.field;
    const Reference to = source_.Resolve(field.targets, leaf_.ref.Get(record.record));
    if (binding_.said.empty()) return LookFree(to);
    std::span<const std::string_view> targets = field.targets;
    if (binding_.flag.size != 0) targets = {&binding_.flagTarget[binding_.flag.Get(record.record) != 0], 1};
    // A place of one of the tables tells at least that table.
    if (targets.size() > 1 && to.kind == Reference::Kind::kStale) targets = {&to.table->shortName, 1};
    return LookBound(record, to, targets);
  }

 private:
  std::optional<Problem> LookFree(const Reference &to) const {
    // A place of an array that counts as used has to lead somewhere.
    const bool mayBeNull = leaf_.field->count == 0 || leaf_.counter.size == 0;
    if (to.kind == Reference::Kind::kEntry || (to.kind == Reference::Kind::kNone && mayBeNull)) return {};
    return WrongReference(to, leaf_.field->targets, "");
  }

  std::optional<Problem> LookBound(const RecordBytes &record, const Reference &to,
                                   std::span<const std::string_view> targets) const {
    std::string should;
    bool exists = false;
    for (const std::string_view target : targets) {
      const TableLayout *table = source_.layout().FindTable(target);
      if (table == nullptr) continue;
      LookupKey key(*table);
      key.Set(record, binding_.said);
      if (to.kind == Reference::Kind::kEntry && to.table == table && key.Equals(to.key)) return {};
      const bool needed = binding_.needed.size == 0 ? !key.IsZero() : binding_.needed.Get(record.record) != 0;
      if (to.kind == Reference::Kind::kNone && !needed) return {};
      exists = exists || key.Exists(source_);
      should += (should.empty() ? "" : " or ") + key.Text();
    }
    Problem problem = WrongReference(to, leaf_.field->targets, should);
    if (!exists) problem.text += ", which is not there";
    return problem;
  }

  const RecordSource &source_;
  const Leaf leaf_;
  const Binding binding_;
};

// The fields beside a reference that tell its key; of arrays each element has its own.
void BindByLayout(const Leaf &leaf, Binding *binding) {
  for (const std::string_view name : leaf.field->agreesWith) {
    const Field *says = leaf.beside.Find(name);
    const uint32_t at = leaf.base + (says->count != 0 ? leaf.element * says->stride : 0);
    binding->said.push_back({says->ref.At(at), leaf.inKey});
  }
}

void BindByRules(const TableLayout &table, const Leaf &leaf, Binding *binding) {
  for (const TargetRule &rule : kTargetRules) {
    if (rule.table != table.shortName || rule.reference != leaf.path) continue;
    binding->flag = table.At(rule.flag);
    std::ranges::copy(rule.target, binding->flagTarget);
  }
  for (const BindingRule &rule : kBindingRules) {
    if (rule.table != table.shortName || rule.reference != leaf.path) continue;
    binding->needed = table.At(rule.flag);
    for (const std::string_view name : rule.key) {
      if (const Field *field = table.key.Find(name)) binding->said.push_back({field->ref, true});
    }
  }
}

}  // namespace

Problem WrongReference(const Reference &to, std::span<const std::string_view> targets,
                       const std::string &should) {
  std::string text;
  switch (to.kind) {
    case Reference::Kind::kNone:
      text = "leads nowhere";
      break;
    case Reference::Kind::kStale:
      text = "stale, leads to a place of " + std::string(to.table->shortName) + " where no entry is any more";
      break;
    case Reference::Kind::kWild: {
      char room[kValueRoom];
      text = "leads to " + std::string(room, WriteHex(to.address, room)) + ", which is no place of " +
             Joined(targets);
      break;
    }
    case Reference::Kind::kEntry:
      text = "leads to ";
      AppendReference(to, &text);
      break;
  }
  if (!should.empty()) text += ", should lead to " + should;
  return {Severity::kError, std::move(text), to.kind == Reference::Kind::kStale};
}

void AddReferenceRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules) {
  const auto isReference = [](const Field &field) { return field.ref.kind == FieldKind::kReference; };
  for (Leaf &leaf : LeavesOf(table, isReference)) {
    const bool isRoute = std::ranges::any_of(kRouteRules, [&](const RouteRule &rule) {
      return rule.table == table.shortName && rule.reference == leaf.path;
    });
    if (isRoute) continue;
    Binding binding;
    BindByLayout(leaf, &binding);
    BindByRules(table, leaf, &binding);
    rules->push_back(std::make_unique<ReferenceRule>(source, std::move(leaf), std::move(binding)));
  }
}

}  // namespace qdt::host
