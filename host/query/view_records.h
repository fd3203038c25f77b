#ifndef HOST_QUERY_VIEW_RECORDS_H_
#define HOST_QUERY_VIEW_RECORDS_H_

#include <cstdint>
#include <vector>

#include "host/layout/layout.h"
#include "host/library/table_query.h"
#include "host/record/record_sinks.h"
#include "host/record/record_source.h"
#include "host/tbm/table_view.h"

namespace qdt::host {

// The layout of the records that a view shows: its table's; a region and records of its own are as a table
// without keys. Throws HostError when the layout says nothing of the view.
TableLayout RecordLayoutOf(const Layout &layout, const ViewLayout &view);

struct ViewAnswer {
  int32_t code = 0;  // with which the query failed before it had a record, and then nothing was written
  uint64_t count = 0;
  bool truncated = false;  // the view stops before the end of what was asked for
};

// Runs a query of the diag command on the arena that this process works on, and writes the records that it
// shows, in their order. `source` is of the same arena: where the view shows a table's entries, they are read
// there, as they are now. Sessions are shown to the last one. Throws HostError, after telling the sink, when
// a query fails that has shown records.
ViewAnswer WriteViewRecords(const RecordSource &source, const ViewLayout &view, const TableQuery &ask,
                            RecordSink *sink);

// Where those entries stand that a query of a view of a table would show; none when it fails.
std::vector<tbm::Place> ViewPlaces(const RecordSource &source, const ViewLayout &view, const TableQuery &ask);

}  // namespace qdt::host

#endif  // HOST_QUERY_VIEW_RECORDS_H_
