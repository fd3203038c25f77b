#ifndef HOST_INSPECT_ENTRY_RULES_H_
#define HOST_INSPECT_ENTRY_RULES_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/record/record_json.h"

namespace qdt::host {

enum class Severity : uint8_t {
  kError,    // what is there cannot be right
  kWarning,  // it can, but is likely to surprise
};

struct Problem {
  Severity severity = Severity::kError;
  std::string text;    // one line
  bool stale = false;  // a reference leads to a place where no entry is any more
};

// Something that holds for each record of a table, or of a region, about one of its fields.
class EntryRule {
 public:
  explicit EntryRule(std::string field) : field_(std::move(field)) {}
  virtual ~EntryRule() = default;

  // "l1_services[2].acl_group"; empty when it is about the entry as a whole.
  const std::string &field() const { return field_; }
  // What is wrong with the record; nothing when all is well.
  virtual std::optional<Problem> Look(const RecordBytes &record) const = 0;
  // Forgets what it keeps of other entries.
  virtual void Renew() {}

 private:
  std::string field_;
};

using EntryRuleList = std::vector<std::unique_ptr<EntryRule>>;

// All rules for a table's records, made from its layout and from check_rules.h. They look at other entries of
// the source, which outlives them.
EntryRuleList RulesOf(const RecordSource &source, const TableLayout &table);
EntryRuleList RulesOf(const RecordSource &source, const RegionLayout &region);

}  // namespace qdt::host

#endif  // HOST_INSPECT_ENTRY_RULES_H_
