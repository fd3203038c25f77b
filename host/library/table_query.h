#ifndef HOST_LIBRARY_TABLE_QUERY_H_
#define HOST_LIBRARY_TABLE_QUERY_H_

#include <cstdint>
#include <functional>
#include <string_view>

#include "host/library/entry_points.h"

namespace qdt::host {

// What the diag command asks of one of its tables.
struct TableQuery {
  uint32_t table = 0;  // the diag command's number
  const char *key1 = "0";
  uint32_t key2 = 0, key3 = 0, key4 = 0;
};

// The diag table of the sessions, whose view lists no more than 682 by itself, and its "num" words.
constexpr uint32_t kSessionView = 50;
bool AsksForCount(const TableQuery &ask);

// Answers a query as the diag command does, but at any length: the operation gets as much room as its text
// needs, and sessions are listed to the last one. What comes before the last piece of a long answer goes to
// `write`; the last piece, or the whole answer, is what it returns. Throws what `write` throws.
Answer AnswerTableQuery(const TableQuery &ask, const std::function<void(std::string_view)> &write);

}  // namespace qdt::host

#endif  // HOST_LIBRARY_TABLE_QUERY_H_
