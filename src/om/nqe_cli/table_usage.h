#ifndef SRC_OM_NQE_CLI_TABLE_USAGE_H_
#define SRC_OM_NQE_CLI_TABLE_USAGE_H_

namespace qdt {

// One line of the diag command's usage list: a table's name, and the words that follow "diag search
// nqpTable".
struct TableUsage {
  const char *name;
  const char *keys;
};

constexpr int kTableUsageCount = 100;
TableUsage UsageOf(int line);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_TABLE_USAGE_H_
