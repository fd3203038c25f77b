#ifndef HOST_RECORD_LIST_H_
#define HOST_RECORD_LIST_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/record/filter.h"
#include "host/record/record_sinks.h"

namespace qdt::host {

// Which records of a table are wanted.
struct ListRequest {
  const TableLayout *table = nullptr;
  std::vector<Condition> where;  // all of them hold
  std::string sort;              // a field's path, "-" before it for the greatest first; empty: as inserted
  uint64_t limit = UINT64_MAX;
};

struct ListResult {
  uint64_t count = 0;
  bool truncated = false;  // more than the limit
};

// Gives each wanted record to `sink`, between its Begin and End; a null sink only counts. Where the
// conditions name a whole key the entry is looked up, and of a group or list of one key only that is walked.
// Sorting keeps some 40 bytes a record. Throws HostError as EntryReader does, after sink->Fail.
ListResult RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink);

}  // namespace qdt::host

#endif  // HOST_RECORD_LIST_H_
