#include "host/inspect/explain.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "host/inspect/entry_rules.h"
#include "host/inspect/explain_steps.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

// No way through the tables is longer; damaged ones could lead on and on.
constexpr uint32_t kDeepest = 8;

// Takes the first name off a list that commas join.
std::string_view TakeName(std::string_view *list) {
  const std::string_view name = list->substr(0, list->find(','));
  list->remove_prefix(std::min(name.size() + 1, list->size()));
  return name;
}

WideValue LowBits(const FieldRef &ref) {
  return ref.Width() >= 128 ? ~WideValue{0} : (WideValue{1} << ref.Width()) - 1;
}

std::optional<Clue> ClueOf(ValueForm form) {
  switch (form) {
    case ValueForm::kIpv4:
      return Clue::kIpv4;
    case ValueForm::kIpv6:
      return Clue::kIpv6;
    case ValueForm::kMac:
      return Clue::kMac;
    default:
      return std::nullopt;
  }
}

// Something that has been found out and is to be followed.
struct Lead {
  Clue clue;
  WideValue value = 0;                 // an address, or a number
  const TableLayout *table = nullptr;  // of kEntry and kField
  std::optional<LookupKey> key;        // of kEntry
  bool mustBe = false;                 // of kEntry: it has to be there
  bool asked = false;                  // the address that is to be explained
};

class Explanation {
 public:
  Explanation(const RecordSource &source, const ExplainRequest &request, const TellStep &tell)
      : source_(source), request_(request), tell_(tell) {}

  uint64_t Run(const Lead &lead) {
    Follow(lead, 0);
    return found_;
  }

 private:
  void Follow(const Lead &lead, uint32_t depth) {
    if (depth > kDeepest) return;
    if (lead.clue != Clue::kEntry && !followed_.insert({lead.clue, lead.table, lead.value}).second) return;
    for (const ExplainRow &row : kExplainRows) {
      if (row.clue != lead.clue || ((row.flags & kAsked) != 0 && !lead.asked)) continue;
      if (lead.table != nullptr && row.table != lead.table->shortName) continue;
      const TableLayout *table = source_.layout().FindTable(row.table);
      if (table == nullptr || source_.View(*table) == nullptr) continue;
      row.search == Search::kAll ? LookAll(row, lead, *table, depth) : LookUp(row, lead, *table, depth);
    }
  }

  // The one entry of a key, or the route.
  void LookUp(const ExplainRow &row, const Lead &lead, const TableLayout &table, uint32_t depth) {
    EntryReader reader(source_, table);
    ExplainStep step{row.step, depth, &table, {}, row.search == Search::kAll, nullptr, row.shows, {}};
    LookupKey key = lead.key ? *lead.key : LookupKey(table);
    if (!lead.key) {
      key.SetField("vpn", request_.vpn);
      key.SetField(row.fields, lead.value);
    }
    for (const Field &field : table.key.all()) {
      const bool isLength = row.search == Search::kRoute && field.name == "prefix";
      if (!field.constant && !isLength)
        step.asked.push_back({field.name, field.ref, field.ref.Read(key.bytes())});
    }
    const bool found = row.search == Search::kRoute ? FindRoute(&reader, request_.vpn, lead.value)
                                                    : reader.Find(key.bytes());
    if (found) return Found(row, &step, reader);
    if (lead.clue == Clue::kEntry) step.note = lead.mustBe ? "missing" : "not there";
    Nothing(row, step);
  }

  void LookAll(const ExplainRow &row, const Lead &lead, const TableLayout &table, uint32_t depth) {
    std::vector<Leaf> leaves;
    for (std::string_view fields = row.fields; !fields.empty();) {
      for (Leaf &leaf : LeavesAt(table, TakeName(&fields))) leaves.push_back(std::move(leaf));
    }
    EntryReader reader(source_, table);
    uint64_t count = 0;
    while (reader.Next()) {
      ExplainStep step{row.step, depth, &table, {}, row.search == Search::kAll, nullptr, row.shows, {}};
      const RecordBytes record(source_, reader);
      for (const Leaf &leaf : leaves) {
        if (Holds(record, leaf, lead))
          step.asked.push_back({leaf.path, ShownRef(leaf.ref, lead), lead.value});
      }
      if (!step.asked.empty() && ++count <= request_.limit) Found(row, &step, reader);
    }
    if (count != 0 && count <= request_.limit) return;
    ExplainStep step{row.step, depth, &table, {}, row.search == Search::kAll, nullptr, row.shows, {}};
    for (const Leaf &leaf : leaves) step.asked.push_back({leaf.path, ShownRef(leaf.ref, lead), lead.value});
    if (count == 0) return Nothing(row, step);
    step.note = std::to_string(count - request_.limit) + " more (--limit)";
    tell_(step);
  }

  static bool Holds(const RecordBytes &record, const Leaf &leaf, const Lead &lead) {
    const uint8_t *bytes = leaf.inKey ? record.key : record.record;
    const FieldRef ref = leaf.ref.kind == FieldKind::kAddress ? NarrowAddressIn(leaf.ref, bytes) : leaf.ref;
    if (lead.clue != Clue::kField && ClueOf(FormOf(ref.kind)) != lead.clue) return false;
    return ref.Read(bytes) == lead.value && HasLeaf(record, leaf);
  }

  // A field of several kinds is shown as the kind that was looked for.
  static FieldRef ShownRef(const FieldRef &ref, const Lead &lead) {
    if (ref.kind != FieldKind::kAddress) return ref;
    if (lead.clue == Clue::kIpv4) return {0, 4, FieldKind::kIpv4, 0, 0};
    if (lead.clue == Clue::kIpv6) return {0, 16, FieldKind::kIpv6, 0, 0};
    return {0, 6, FieldKind::kMac, 0, 0};
  }

  void Nothing(const ExplainRow &row, const ExplainStep &step) {
    if ((row.flags & kQuiet) == 0) tell_(step);
  }

  // Each entry is told once; what it leads to comes behind it.
  void Found(const ExplainRow &row, ExplainStep *step, const EntryReader &reader) {
    if (!row.follows.empty() && !told_.insert(reader.entry().address).second) return;
    const RecordBytes record(source_, reader);
    step->found = &record;
    NoteState(record, &step->note);
    if (row.clue != Clue::kField) NoteClaims(record, &step->note);
    NoteProblems(record, &step->note);
    ++found_;
    tell_(*step);
    for (const Lead &lead : LeadsOf(row, record)) Follow(lead, step->depth + 1);
  }

  static void AddNote(const std::string &text, std::string *note) {
    if (!note->empty()) *note += "; ";
    *note += text;
  }

  static void NoteState(const RecordBytes &record, std::string *note) {
    const TableLayout &table = record.entry->table();
    for (const StateNote &state : kStateNotes) {
      if (state.table == table.shortName && table.At(state.field).Get(record.record) == state.value)
        AddNote(std::string(state.note), note);
    }
  }

  // Who has the address and where that is: whoever says another thing than those before is told.
  struct Claim {
    std::string_view what;
    WideValue value = 0;
    std::string text;
    std::string_view table;
  };

  void NoteClaims(const RecordBytes &record, std::string *note) {
    for (const ClaimField &field : kMacClaims) NoteClaim(record, field, &mac_, note);
    for (const ClaimField &field : kInterfaceClaims) NoteClaim(record, field, &interface_, note);
  }

  static void NoteClaim(const RecordBytes &record, const ClaimField &field, Claim *claim, std::string *note) {
    const TableLayout &table = record.entry->table();
    if (field.table != table.shortName) return;
    const bool inKey = table.key.Find(field.field) != nullptr;
    const FieldRef ref = table.At(field.field);
    const uint8_t *bytes = inKey && table.fields.Find(field.field) == nullptr ? record.key : record.record;
    const WideValue value = ref.Read(bytes) & LowBits(ref);
    if (value == 0 || value == LowBits(ref)) return;
    if (claim->table.empty()) {
      claim->value = value;
      claim->text = ValueText(ref, value);
      claim->table = table.shortName;
    } else if (value != claim->value) {
      AddNote("another " + std::string(claim->what) + " than " + std::string(claim->table) + " says, " +
                  claim->text,
              note);
    }
  }

  // What a check finds in the record.
  void NoteProblems(const RecordBytes &record, std::string *note) {
    const TableLayout &table = record.entry->table();
    auto rules = rules_.find(&table);
    if (rules == rules_.end()) rules = rules_.emplace(&table, RulesOf(source_, table)).first;
    for (const auto &rule : rules->second) {
      const std::optional<Problem> problem = rule->Look(record);
      if (problem) AddNote(rule->field() + (rule->field().empty() ? "" : ": ") + problem->text, note);
    }
  }

  std::vector<Lead> LeadsOf(const ExplainRow &row, const RecordBytes &record) const {
    std::vector<Lead> leads;
    for (std::string_view names = row.follows; !names.empty();) {
      const std::string_view name = TakeName(&names);
      const size_t arrow = name.find('>');
      const TableLayout *other =
          arrow == name.npos ? nullptr : source_.layout().FindTable(name.substr(arrow + 1));
      for (const Leaf &leaf : LeavesAt(record.entry->table(), name.substr(0, arrow))) {
        const uint8_t *bytes = leaf.inKey ? record.key : record.record;
        if (!HasLeaf(record, leaf) || !leaf.IsInUse(bytes)) continue;
        if (std::optional<Lead> lead = LeadOf(leaf, bytes, other)) leads.push_back(std::move(*lead));
      }
    }
    return leads;
  }

  std::optional<Lead> LeadOf(const Leaf &leaf, const uint8_t *bytes, const TableLayout *other) const {
    const WideValue value = leaf.ref.Read(bytes) & LowBits(leaf.ref);
    if (value == 0) return {};
    if (other != nullptr) return Lead{Clue::kField, value, other, {}, false, false};
    if (const std::optional<Clue> clue = ClueOf(FormOf(leaf.ref.kind))) {
      // Of a station all addresses are of interest; of an address those that its station has besides are not.
      if (*clue != Clue::kMac && request_.address.kind() != SearchValue::Kind::kMac) return {};
      return Lead{*clue, value, nullptr, {}, false, false};
    }
    const TableLayout *target = source_.layout().FindTable(leaf.field->leadsTo);
    Lead lead{Clue::kEntry, value, target, {}, leaf.field->mustLead, false};
    if (leaf.ref.kind == FieldKind::kReference) {
      const Reference to = source_.Resolve(leaf.field->targets, static_cast<uint64_t>(value));
      // What is wrong with others has been said of the record itself.
      if (to.kind != Reference::Kind::kEntry) return {};
      lead.table = to.table;
      lead.key.emplace(*to.table, to.key);
    } else {
      if (target == nullptr || value == LowBits(leaf.ref)) return {};
      lead.key.emplace(*target);
      lead.key->SetNumber(value);
    }
    return lead;
  }

  const RecordSource &source_;
  const ExplainRequest &request_;
  const TellStep &tell_;
  uint64_t found_ = 0;
  std::set<std::tuple<Clue, const TableLayout *, WideValue>> followed_;
  std::set<uint64_t> told_;  // addresses of entries
  std::map<const TableLayout *, EntryRuleList> rules_;
  Claim mac_{"MAC address", 0, {}, {}};
  Claim interface_{"interface", 0, {}, {}};
};

}  // namespace

uint64_t ExplainAddress(const RecordSource &source, const ExplainRequest &request, const TellStep &tell) {
  Lead lead{Clue::kMac, request.address.value(), nullptr, {}, false, true};
  if (request.address.kind() == SearchValue::Kind::kIpv4) lead.clue = Clue::kIpv4;
  if (request.address.kind() == SearchValue::Kind::kIpv6) lead.clue = Clue::kIpv6;
  return Explanation(source, request, tell).Run(lead);
}

}  // namespace qdt::host
