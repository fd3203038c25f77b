#ifndef HOST_LIBRARY_TABLE_LINES_H_
#define HOST_LIBRARY_TABLE_LINES_H_

#include <cstdint>
#include <span>
#include <string_view>

namespace qdt::host {

// One way to ask a table, as the library's usage list shows it behind "diag search nqpTable".
struct TableLine {
  uint32_t id;
  std::string_view name;  // the table's
  std::string_view keys;  // without the table's id
};

// All lines by id, those of one table in the list's order and each once. The library is the source: a test
// holds these lines against what it prints. They stand here as well because asking for one table must not
// cost the printing of all of them.
std::span<const TableLine> TableLines();

}  // namespace qdt::host

#endif  // HOST_LIBRARY_TABLE_LINES_H_
