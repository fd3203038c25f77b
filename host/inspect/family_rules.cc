#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "host/base/host_error.h"
#include "host/inspect/check_rules.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/rule_makers.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

// Calls `visit` with the key of each entry in the table's order, whose records are not looked at. False when
// the order is damaged, or changes faster than it can be followed.
template <typename Visit>
bool ForEachKey(const tbm::TableView &view, Visit visit) {
  const tbm::TableOrder order(view);
  uint8_t key[tbm::kMaxKeySize];
  for (tbm::Place place;;) {
    const tbm::Step step = order.Next(&place);
    if (step != tbm::Step::kEntry) return step == tbm::Step::kEnd;
    tbm::LoadWords(key, tbm::TableView::Key(view.HeadAt(place.ref)), view.shape().keySize);
    visit(key);
  }
}

// An entry that belongs to another one, which has to be there.
class OwnerRule : public EntryRule {
 public:
  OwnerRule(const RecordSource &source, const TableLayout &owners)
      : EntryRule(""), source_(source), owners_(owners) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    LookupKey owner(owners_);
    for (const Field &field : owners_.key.all()) owner.SetField(field.name, field.ref.Read(record.key));
    if (owner.Exists(source_)) return {};
    return Problem{Severity::kError, owner.Text() + ", which it belongs to, is not there"};
  }

 private:
  const RecordSource &source_;
  const TableLayout &owners_;
};

// The members of a group by their chain in the index, which lookups follow, and by the table's order.
class MemberCountRule : public EntryRule {
 public:
  MemberCountRule(const TableLayout &table, const TableLayout &members, const tbm::TableView &view)
      : EntryRule(""),
        size_(table.spec.keySize),
        limit_(table.spec.groupRuleSpec),
        members_(members),
        view_(view) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    const uint64_t chained = CountChained(record.key);
    if (limit_ != 0 && chained > limit_)
      return Problem{Severity::kError, Shown(chained) + ", and " + std::to_string(limit_) + " is the most"};
    const uint64_t listed = CountListed(record.key);
    if (chained == listed || Moment() != moment_) return {};
    return Problem{Severity::kError,
                   Shown(chained) + " by its chain, but " + std::to_string(listed) + " by the table's order"};
  }

  void Renew() override { known_ = false; }

 private:
  std::string Shown(uint64_t count) const {
    return std::to_string(count) + " entries of " + std::string(members_.shortName);
  }

  // While it stays the same nothing has come or gone.
  std::pair<uint64_t, uint32_t> Moment() const {
    return {view_.state().lastSerial.load(std::memory_order_acquire), view_.EntryNum()};
  }

  uint64_t CountChained(const uint8_t *key) const {
    const tbm::TableKey group = view_.GroupKeyOf(key);
    const tbm::ChainOrder order(view_, group);
    const uint64_t end = view_.state().lastSerial.load(std::memory_order_acquire);
    uint64_t count = 0;
    for (tbm::Place place; order.Next(&place) == tbm::Step::kEntry && place.serial <= end;) ++count;
    return count;
  }

  uint64_t CountListed(const uint8_t *key) const {
    if (!known_) {
      listed_.clear();
      moment_ = Moment();
      ForEachKey(view_, [this](const uint8_t *member) {
        ++listed_[std::string(reinterpret_cast<const char *>(member), size_)];
      });
      known_ = true;
    }
    const auto found = listed_.find(std::string(reinterpret_cast<const char *>(key), size_));
    return found == listed_.end() ? 0 : found->second;
  }

  const size_t size_;  // bytes of the group's key, with which its members' keys begin
  const uint32_t limit_;
  const TableLayout &members_;
  const tbm::TableView &view_;
  mutable std::unordered_map<std::string, uint64_t> listed_;
  mutable std::pair<uint64_t, uint32_t> moment_;
  mutable bool known_ = false;
};

// A head whose list has no entries.
class EmptyListRule : public EntryRule {
 public:
  EmptyListRule(const RecordSource &source, const ListRule &rule, const FieldRef &list,
                const TableLayout &entries)
      : EntryRule(std::string(rule.list)), source_(source), list_(list), entries_(entries) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    const WideValue list = list_.Read(record.record);
    LookupKey key(entries_);
    key.SetNumber(list);
    if (list == 0 || key.Exists(source_)) return {};
    return Problem{Severity::kWarning, key.Text() + " has no entries"};
  }

 private:
  const RecordSource &source_;
  const FieldRef list_;
  const TableLayout &entries_;
};

// A list that no head leads to; said once, at its first entry.
class HeadlessListRule : public EntryRule {
 public:
  HeadlessListRule(const RecordSource &source, const ListRule &rule, const TableLayout &heads,
                   const Field &list, const tbm::TableView &view)
      : EntryRule(std::string(rule.list)), source_(source), heads_(heads), list_(list), view_(view) {}

  std::optional<Problem> Look(const RecordBytes &record) const override {
    if (!known_) known_ = Load();
    if (!known_) return {};
    const auto number = static_cast<uint64_t>(list_.ref.Read(record.key));
    if (std::ranges::binary_search(lists_, number) || !IsFirst(record)) return {};
    return Problem{Severity::kError, "no entry of " + std::string(heads_.shortName) + " leads to the list"};
  }

  void Renew() override { known_ = false; }

 private:
  // False when the heads cannot be read, which is said of their own table.
  bool Load() const {
    lists_.clear();
    const FieldRef head = heads_.At(list_.name);
    try {
      EntryReader reader(source_, heads_);
      while (reader.Next()) lists_.push_back(head.Get(reader.entry().record));
    } catch (const HostError &) {
      return false;
    }
    std::ranges::sort(lists_);
    return true;
  }

  bool IsFirst(const RecordBytes &record) const {
    const tbm::TableKey key = view_.KeyOf(record.key);
    tbm::Place place;
    return tbm::ChainOrder(view_, key).Next(&place) == tbm::Step::kEntry &&
           place.serial == record.entry->entry().place.serial;
  }

  const RecordSource &source_;
  const TableLayout &heads_;
  const Field &list_;
  const tbm::TableView &view_;
  mutable std::vector<uint64_t> lists_;
  mutable bool known_ = false;
};

}  // namespace

void AddFamilyRules(const RecordSource &source, const TableLayout &table, EntryRuleList *rules) {
  const Layout &layout = source.layout();
  if (const TableLayout *owners = layout.FindTable(table.partOf))
    rules->push_back(std::make_unique<OwnerRule>(source, *owners));
  for (const TableLayout &members : layout.tables()) {
    if (members.partOf != table.shortName) continue;
    const tbm::TableView *view = source.View(members);
    if (view == nullptr || view->shape().groupKeySize != table.spec.keySize) continue;
    rules->push_back(std::make_unique<MemberCountRule>(table, members, *view));
  }
  for (const ListRule &rule : kListRules) {
    const TableLayout *heads = layout.FindTable(rule.heads);
    const TableLayout *entries = layout.FindTable(rule.entries);
    const tbm::TableView *view = source.View(*entries);
    if (source.View(*heads) == nullptr || view == nullptr) continue;
    if (heads == &table)
      rules->push_back(std::make_unique<EmptyListRule>(source, rule, table.At(rule.list), *entries));
    if (entries == &table)
      rules->push_back(
          std::make_unique<HeadlessListRule>(source, rule, *heads, *table.key.Find(rule.list), *view));
  }
}

EntryRuleList RulesOf(const RecordSource &source, const TableLayout &table) {
  EntryRuleList rules;
  AddLayoutRules(source, table, &rules);
  AddTableRules(source, table, &rules);
  AddFamilyRules(source, table, &rules);
  return rules;
}

EntryRuleList RulesOf(const RecordSource &, const RegionLayout &region) {
  EntryRuleList rules;
  AddCountRules(LeavesOf(region, [](const Field &field) { return !field.counts.empty(); }), &rules);
  return rules;
}

}  // namespace qdt::host
