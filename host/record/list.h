#ifndef HOST_RECORD_LIST_H_
#define HOST_RECORD_LIST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/filter.h"
#include "host/record/record_sinks.h"

namespace qdt::host {

// Where a page of a list ended: behind the record that was shown last, whether it is still there or not.
struct ListPosition {
  uint64_t serial = 0;  // of its entry, in the order of insertion
  // Of a sorted list, its value.
  WideValue number = 0;
  std::string text;

  // "1f", "1f.c000020b", "1f.0.616263": digits and points, for who keeps it outside.
  std::string Text() const;
  // Nothing when it is no such text.
  static std::optional<ListPosition> Parse(std::string_view text);
};

// Which records of a table are wanted.
struct ListRequest {
  const TableLayout *table = nullptr;
  std::vector<Condition> where;  // all of them hold
  std::string sort;              // a field's path, "-" before it for the greatest first; empty: as inserted
  uint64_t limit = UINT64_MAX;
  std::optional<ListPosition> behind;  // the next page, asked with the same conditions and order
};

struct ListResult {
  uint64_t count = 0;
  bool truncated = false;  // more than the limit
  ListPosition last;       // of the record shown last, where there was one
};

// Throws HostError when the order is by no single value of the table.
void CheckSort(const ListRequest &request);

// Gives each wanted record to `sink`, between its Begin and End; a null sink only counts. Where the
// conditions name a whole key the entry is looked up, and of a group or list of one key only that is walked.
// A page of an unsorted list costs what it
// shows; of a sorted one the walk is a whole one each time. Sorting keeps some 40 bytes a record, of the
// limit's at most. Throws HostError as EntryReader does, after sink->Fail.
ListResult RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink);
// The same with *result told before sink->End, for a sink that writes it.
void RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink, ListResult *result);

}  // namespace qdt::host

#endif  // HOST_RECORD_LIST_H_
