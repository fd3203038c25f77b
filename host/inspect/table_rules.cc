#include <algorithm>
#include <string>

#include "host/inspect/check_rules.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/inspect/rule_makers.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

// The first field of a table's key that is not constant.
const Field *FirstKeyField(const TableLayout &table) {
  const auto fields = table.key.all();
  const auto free = std::ranges::find_if(fields, [](const Field &field) { return !field.constant; });
  return free == fields.end() ? nullptr : &*free;
}

std::string ShownValue(const FieldRef &ref, const uint8_t *bytes) {
  std::string text;
  AppendValue(nullptr, ref, bytes, &text);
  return text;
}

class ServiceKindRule : public EntryRule {
 public:
  ServiceKindRule(const ServiceRule &rule, const Field &services, Leaf type)
      : EntryRule(type.path.substr(0, type.path.rfind('.'))), rule_(rule), type_(std::move(type)) {
    group_ = services.fields.Find("acl_group_type")->ref.At(type_.base);
    bound_ = services.fields.Find("acl_group")->ref.At(type_.base);
    id_ = services.fields.Find("acl_group_id")->ref.At(type_.base);
  }

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!type_.IsInUse(record.record)) return {};
    const uint64_t type = type_.ref.Get(record.record);
    const std::string service = "service " + std::to_string(type);
    if (type == 0 || type > rule_.last)
      return Problem{Severity::kError, service + " is none of 1 to " + std::to_string(rule_.last)};
    const bool layer2 = (rule_.layer2 >> type & 1) != 0;
    if (!layer2 && (rule_.ipv4 >> type & 1) == 0) return {};
    const uint64_t wanted = layer2 ? kAclTypeLayer2 : kAclTypeIpv4;
    const uint64_t has = group_.Get(record.record);
    const std::string takes = service + " takes an ACL group of type " + std::to_string(wanted);
    if (has != wanted) return Problem{Severity::kError, takes + ", has one of type " + std::to_string(has)};
    if (id_.Get(record.record) == 0 && bound_.Get(record.record) == 0)
      return Problem{Severity::kError, takes + ", has none"};
    return {};
  }

 private:
  const ServiceRule &rule_;
  const Leaf type_;
  FieldRef group_;
  FieldRef bound_;
  FieldRef id_;
};

class RouteInForceRule : public EntryRule {
 public:
  RouteInForceRule(const RecordSource &source, const RouteRule &rule, const TableLayout &table,
                   const TableLayout &routes)
      : EntryRule(std::string(rule.reference)),
        source_(source),
        reference_(*table.fields.Find(rule.reference)),
        address_(table.At(rule.address)),
        routes_(source, routes) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    const WideValue address = address_.Read(record.record);
    const Reference to = source_.Resolve(reference_.targets, reference_.ref.Get(record.record));
    const bool inForce = address != 0 && FindRoute(&routes_, 0, address);
    if (!inForce && to.kind == Reference::Kind::kNone) return {};
    std::string should;
    if (inForce) {
      if (to.kind == Reference::Kind::kEntry && SameKey(routes_.table(), to.key, routes_.entry().key))
        return {};
      should = routes_.table().shortName;
      should += '/';
      AppendKeyText(routes_.table(), routes_.entry().key, &should);
    }
    Problem problem = WrongReference(to, reference_.targets, should);
    if (!inForce) problem.text += ", but there is no route to " + ShownValue(address_, record.record);
    return problem;
  }

 private:
  const RecordSource &source_;
  const Field &reference_;
  const FieldRef address_;
  mutable EntryReader routes_;
};

class SaidAgainRule : public EntryRule {
 public:
  SaidAgainRule(Leaf leaf, const Field &first)
      : EntryRule(leaf.path), leaf_(std::move(leaf)), first_(first) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!HasLeaf(record, leaf_)) return {};
    const WideValue again = leaf_.ref.Read(record.record);
    if (again == first_.ref.Read(record.record)) return {};
    return Problem{Severity::kError, ValueText(leaf_.ref, again) + ", but " + std::string(first_.name) +
                                         " says " + ShownValue(first_.ref, record.record)};
  }

 private:
  const Leaf leaf_;
  const Field &first_;
};

class NamesBackRule : public EntryRule {
 public:
  NamesBackRule(const RecordSource &source, const BackRule &rule, const TableLayout &table,
                const TableLayout &target)
      : EntryRule(std::string(rule.field)),
        number_(table.At(rule.field)),
        own_(FirstKeyField(table)->ref),
        back_(target.At(rule.back)),
        backName_(rule.back),
        targets_(source, target) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    const WideValue number = number_.Read(record.record);
    LookupKey key(targets_.table());
    key.SetNumber(number);
    if (number == 0 || !targets_.Find(key.bytes())) return {};
    const WideValue back = back_.Read(targets_.entry().record);
    if (back == 0 || back == own_.Read(record.key)) return {};
    return Problem{Severity::kWarning, key.Text() + " names another " + std::string(backName_) + ", " +
                                           ShownValue(back_, targets_.entry().record)};
  }

 private:
  const FieldRef number_;
  const FieldRef own_;
  const FieldRef back_;
  const std::string_view backName_;
  mutable EntryReader targets_;
};

void AddServiceRules(const TableLayout &table, EntryRuleList *rules) {
  for (const ServiceRule &rule : kServiceRules) {
    if (rule.table != table.shortName) continue;
    const Field *services = table.fields.Find(rule.services);
    const Field *type = services->fields.Find("type");
    for (Leaf &leaf : LeavesOf(table, [&](const Field &field) { return &field == type; }))
      rules->push_back(std::make_unique<ServiceKindRule>(rule, *services, std::move(leaf)));
  }
}

}  // namespace

void AddTableRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules) {
  const Layout &layout = source.layout();
  AddServiceRules(table, rules);
  for (const RouteRule &rule : kRouteRules) {
    if (rule.table != table.shortName) continue;
    const TableLayout *routes = layout.FindTable(table.fields.Find(rule.reference)->targets.front());
    if (source.View(*routes) == nullptr) continue;
    rules->push_back(std::make_unique<RouteInForceRule>(source, rule, table, *routes));
  }
  for (const AgainRule &rule : kAgainRules) {
    if (rule.table != table.shortName) continue;
    for (Leaf &leaf : LeavesAt(table, rule.field))
      rules->push_back(std::make_unique<SaidAgainRule>(std::move(leaf), *table.fields.Find(rule.first)));
  }
  for (const BackRule &rule : kBackRules) {
    if (rule.table != table.shortName) continue;
    const TableLayout *target = layout.FindTable(table.fields.Find(rule.field)->leadsTo);
    if (source.View(*target) == nullptr) continue;
    rules->push_back(std::make_unique<NamesBackRule>(source, rule, table, *target));
  }
}

}  // namespace qdt::host
