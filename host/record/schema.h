#ifndef HOST_RECORD_SCHEMA_H_
#define HOST_RECORD_SCHEMA_H_

#include <string_view>

#include "host/layout/layout.h"
#include "host/record/text_out.h"

namespace qdt::host {

// JSON Schemas (2020-12) of what the writers of records print, one document each, on one line. What a schema
// cannot say of a field stands beside it in members that begin with "x-": docs/data.md lists them.

// Of "list TABLE --json", whichever fields are chosen. "$defs" has the record under the table's name, one
// that is whole under NAME.whole, and the keys of tables under NAME.key.
void WriteTableSchema(TextOut *out, const Layout &layout, const TableLayout &table);
// Of "regions NAME --json".
void WriteRegionSchema(TextOut *out, const Layout &layout, const RegionLayout &region);
// Of all that is printed as JSON: "$defs" has the records and keys as above, under list.NAME, region.NAME and
// view.NAME the documents of tables, regions and views, those of the other commands under their names, and
// any of them as "document". Records that a view alone has are view.NAME.record.
void WriteWholeSchema(TextOut *out, const Layout &layout);

// "3" or "3-5", the bits of the word that hold the value; empty when it is the whole word.
std::string BitsText(const FieldRef &field);

}  // namespace qdt::host

#endif  // HOST_RECORD_SCHEMA_H_
