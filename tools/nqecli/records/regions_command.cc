#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/record/record_rows.h"
#include "host/record/record_sinks.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::RecordFormat;
using host::RecordShape;
using host::RecordSource;
using host::RegionLayout;

void PrintColumns(const std::vector<const RegionLayout *> &regions, StandardOut *out) {
  char line[64];
  std::snprintf(line, sizeof(line), "%-24s %8s  ", "name", "size");
  out->Append(line);
  out->Append("about\n");
  for (const RegionLayout *region : regions) {
    std::snprintf(line, sizeof(line), "%-24s %8u  ", std::string(region->spec.name).c_str(),
                  region->spec.size);
    out->Append(line);
    out->Append(region->about);
    out->Put('\n');
  }
}

const RegionLayout &NamedRegion(std::string_view name) {
  if (const RegionLayout *region = RegionOf(name)) return *region;
  throw HostError(
      "unknown region " + host::Quoted(name) +
      host::DidYouMean(host::Layout::BuiltIn().NearestRegion(name), "\"nqecli regions\" lists them"));
}

// A line for each value, arrays whole.
void PrintValues(const host::RecordBytes &record, const RecordShape &shape, const host::FieldSet &fields,
                 StandardOut *out) {
  const std::vector<host::RowColumn> columns = ColumnsOf(shape, fields);
  size_t width = 0;
  for (const host::RowColumn &column : columns) width = std::max(width, column.path.size());
  host::CellWriter cells;
  for (const host::RowColumn &column : columns) {
    std::string line = column.path;
    line.resize(width + 2, ' ');
    cells.Append(record, column, &line);
    out->Append(line);
    out->Put('\n');
  }
}

ExitCode ListRegions(const RecordSource &source, RecordFormat format) {
  const std::vector<const RegionLayout *> regions = host::RegionsOf(source);
  StandardOut out;
  format == RecordFormat::kJson ? host::WriteRegionsDocument(&out, regions) : PrintColumns(regions, &out);
  out.Spill();
  return kAnswered;
}

ExitCode ShowRegion(const RecordSource &source, const DataWords &words) {
  const RegionLayout &region = NamedRegion(words.words.front());
  const RecordShape shape = RecordShape::Chosen(region, words.fields);
  const std::vector<uint8_t> bytes = source.ReadRegion(region);
  if (bytes.empty()) throw HostError("this engine has no region " + std::string(region.spec.name));
  const host::RecordBytes record(source, bytes.data());
  StandardOut out;
  if (words.format == RecordFormat::kColumns) {
    PrintValues(record, shape, region.fields, &out);
  } else {
    const auto sink =
        MakeSink(words.format, &out, {"region", region.spec.name, 0}, shape, region.fields, 0, nullptr);
    sink->Begin();
    sink->Record(record);
    sink->End(1, false);
  }
  out.Spill();
  return kAnswered;
}

}  // namespace

ExitCode Regions(const DataWords &words) {
  if (words.words.size() > 1) throw HostError("regions takes the name of one region");
  const bool one = !words.words.empty();
  if (!one && (!words.fields.empty() ||
               (words.format != RecordFormat::kColumns && words.format != RecordFormat::kJson)))
    throw HostError("the list of regions comes in columns or as --json (name a region for more)");
  const auto source = OpenSource(words.place);
  return one ? ShowRegion(*source, words) : ListRegions(*source, words.format);
}

}  // namespace qdt::nqecli
