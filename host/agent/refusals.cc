#include "host/agent/refusals.h"

#include "host/library/entry_points.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

enum class Where : uint8_t { kBeginning, kEnd, kWhole };

struct Rule {
  Where where;
  std::string_view text;
};

#define QDT_MESSAGE_RULE(name, code, message) {Where::kWhole, message},
constexpr Rule kRules[] = {
    // Reassembly, asked for the packets of one family with an address of the other.
    {Where::kBeginning, "  Input error, "},
    // Lists of forms: the switches of the application engine without a word that they need, the task trace
    // with a word that it does not know, a line that is none of the diag command's.
    {Where::kEnd, "\n  egn help"},
    {Where::kBeginning, "nqecli perf task "},
    {Where::kBeginning, "diag clear cpcar status\n 0. fwdif "},
    // Queries that failed.
    {Where::kWhole, QDT_UNKNOWN_CODE_MESSAGE},
    QDT_TABLE_CODES(QDT_MESSAGE_RULE)};
#undef QDT_MESSAGE_RULE

bool Fits(const Rule &rule, std::string_view text) {
  switch (rule.where) {
    case Where::kBeginning:
      return text.starts_with(rule.text);
    case Where::kEnd:
      return text.ends_with(rule.text);
    default:
      return text == rule.text;
  }
}

}  // namespace

bool OnlySaysWhatIsWrong(std::string_view text) {
  if (OnlyRefuses(text)) return true;
  while (text.ends_with('\n')) text.remove_suffix(1);
  for (const Rule &rule : kRules) {
    if (Fits(rule, text)) return true;
  }
  return false;
}

}  // namespace qdt::host
