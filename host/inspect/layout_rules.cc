#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/inspect/rule_makers.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

WideValue Highest(const FieldRef &ref) { return (WideValue{1} << ref.Width()) - 1; }

// A number that has to be the key of an entry.
class MustLeadRule : public EntryRule {
 public:
  MustLeadRule(const RecordSource &source, const TableLayout &target, Leaf leaf)
      : EntryRule(leaf.path), source_(source), target_(target), leaf_(std::move(leaf)) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    const uint8_t *bytes = leaf_.inKey ? record.key : record.record;
    if (!HasLeaf(record, leaf_) || !leaf_.IsInUse(bytes)) return {};
    const WideValue number = leaf_.ref.Read(bytes) & Highest(leaf_.ref);
    if (number == 0 || number == Highest(leaf_.ref)) return {};
    LookupKey key(target_);
    key.SetNumber(number);
    if (key.Exists(source_)) return {};
    return Problem{Severity::kError, key.Text() + " is not there"};
  }

 private:
  const RecordSource &source_;
  const TableLayout &target_;
  const Leaf leaf_;
};

// A number of elements that an array has.
class CountRule : public EntryRule {
 public:
  CountRule(Leaf leaf, const Field &array) : EntryRule(leaf.path), leaf_(std::move(leaf)), array_(array) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!HasLeaf(record, leaf_)) return {};
    const WideValue count = leaf_.ref.Read(record.record);
    // A number below zero is a very large one here.
    if (count <= array_.count) return {};
    return Problem{Severity::kError, ValueText(leaf_.ref, count) + ", but " + std::string(array_.name) +
                                         " has " + std::to_string(array_.count) + " places"};
  }

 private:
  const Leaf leaf_;
  const Field &array_;
};

// A value of the key that stands in the record as well.
class TwinRule : public EntryRule {
 public:
  explicit TwinRule(ShapeNode node) : EntryRule("record." + node.name), node_(std::move(node)) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!DiffersFromKey(node_, record)) return {};
    std::string text;
    AppendValue(nullptr, node_.twin->ref, record.record, &text);
    text += ", but the key says ";
    AppendValue(nullptr, node_.field->ref, record.key, &text);
    return Problem{Severity::kError, std::move(text)};
  }

 private:
  const ShapeNode node_;
};

// A pointer to what is attached to the entry.
class StrayRule : public EntryRule {
 public:
  explicit StrayRule(const Field &part) : EntryRule(std::string(part.name)), part_(part) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!record.entry->Has(part_) || !record.entry->IsStrayed(part_)) return {};
    char room[kValueRoom];
    const std::string pointer(room, WriteHex(record.entry->PointerTo(part_), room));
    return Problem{Severity::kError,
                   "its pointer leads to " + pointer + ", which is not the entry's own place for it"};
  }

 private:
  const Field &part_;
};

}  // namespace

void AddCountRules(std::vector<Leaf> counters, EntryRuleList *rules) {
  for (Leaf &leaf : counters) {
    const Field *array = leaf.beside.Find(leaf.field->counts);
    rules->push_back(std::make_unique<CountRule>(std::move(leaf), *array));
  }
}

void AddLayoutRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules) {
  for (ShapeNode &node : RecordShape::Whole(table).nodes) {
    if (node.field->pointer != 0) rules->push_back(std::make_unique<StrayRule>(*node.field));
    if (node.twin != nullptr) rules->push_back(std::make_unique<TwinRule>(std::move(node)));
  }
  AddReferenceRules(source, table, rules);
  for (Leaf &leaf : LeavesOf(table, [](const Field &field) { return field.mustLead; })) {
    const TableLayout *target = source.layout().FindTable(leaf.field->leadsTo);
    if (target != nullptr) rules->push_back(std::make_unique<MustLeadRule>(source, *target, std::move(leaf)));
  }
  AddCountRules(LeavesOf(table, [](const Field &field) { return !field.counts.empty(); }), rules);
}

}  // namespace qdt::host
