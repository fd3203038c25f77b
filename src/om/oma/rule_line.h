#ifndef SRC_OM_OMA_RULE_LINE_H_
#define SRC_OM_OMA_RULE_LINE_H_

namespace qdt {

// Sets the heading of a listing off from its rows.
constexpr char kRuleLine[] = "-----------------------------------------------------------------";
static_assert(sizeof(kRuleLine) == 65 + 1);

}  // namespace qdt

#endif  // SRC_OM_OMA_RULE_LINE_H_
