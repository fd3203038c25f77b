#ifndef TOOLS_NQECLI_QUERY_H_
#define TOOLS_NQECLI_QUERY_H_

#include <span>
#include <string_view>

#include "host/library/entry_points.h"
#include "host/library/table_query.h"
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {

// Runs one of the library's command families on the current arena and writes its answer. words[0] is its
// name.
ExitCode RunFamily(const host::EntryPoint &entry, std::span<char *const> words);

// Runs a query of a table and writes its answer, however long.
ExitCode RunTableQuery(const host::TableQuery &ask);

// Whether an answer can end with the family's usage list, whose last line names the family, so that it has to
// be compared with it: printing that list takes longer than most queries.
bool MayBeUsage(const host::EntryPoint &entry, std::string_view answer);

// Whether an answer is nothing but the message of a failed query.
bool IsErrorMessage(std::string_view answer);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_QUERY_H_
