#ifndef HOST_LIBRARY_TABLE_QUERY_H_
#define HOST_LIBRARY_TABLE_QUERY_H_

#include <cstdint>
#include <functional>
#include <string_view>

#include "host/library/entry_points.h"
#include "qdt/session.h"

namespace qdt::host {

// What the diag command asks of one of its tables.
struct TableQuery {
  uint32_t table = 0;  // the diag command's number
  const char *key1 = "0";
  uint32_t key2 = 0, key3 = 0, key4 = 0;
};

// Whether the first key is the word "num", whatever follows it.
bool AsksForCount(const TableQuery &ask);

// The message of a return code.
const char *CodeMessage(int32_t code);

// The sessions' view lists no more than 682 by itself; who collects its records does not stop there.
constexpr uint32_t kSessionView = 50;
constexpr uint32_t kSessionSize = 192;
// Whether the view takes a first key of this length; others have no SessionSearchKey.
bool IsSessionKey(const TableQuery &ask);
SessionSearchKey SessionKeyOf(const TableQuery &ask);
// Whether such a key is one that a session could match.
bool IsSessionFilter(const TableQuery &ask);

// Answers a query as the diag command does, but at any length: the operation gets as much room as its text
// needs, and sessions are listed to the last one. What comes before the last piece of a long answer goes to
// `write`; the last piece, or the whole answer, is what it returns. Throws what `write` throws.
Answer AnswerTableQuery(const TableQuery &ask, const std::function<void(std::string_view)> &write);

}  // namespace qdt::host

#endif  // HOST_LIBRARY_TABLE_QUERY_H_
