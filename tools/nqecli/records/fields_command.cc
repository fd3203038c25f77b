#include <algorithm>
#include <string>
#include <vector>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/record/schema.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

// "path  in  kind  bits  offset  unit  meaning", each as wide as its widest cell.
void PrintColumns(const std::vector<host::FieldRow> &rows) {
  std::vector<std::vector<std::string>> lines{{"field", "in", "kind", "bits", "offset", "unit", "meaning"}};
  for (const host::FieldRow &row : rows) {
    lines.push_back({row.path, row.in, host::KindText(*row.field), host::BitsText(row.field->ref),
                     std::to_string(row.offset), std::string(row.field->unit),
                     std::string(row.field->about)});
  }
  std::vector<size_t> widths(lines.front().size());
  for (const auto &line : lines) {
    for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  StandardOut out;
  for (const auto &line : lines) {
    std::string text;
    for (size_t i = 0; i < line.size(); ++i) {
      text += line[i];
      if (i + 1 < line.size()) text.append(widths[i] - line[i].size() + 2, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out.Append(text + "\n");
  }
  out.Spill();
}

}  // namespace

ExitCode Fields(const DataWords &words) {
  if (words.words.size() != 1)
    throw host::HostError(
        "fields takes the name of a table or region; \"nqecli tables\" and \"nqecli regions\" list them");
  const std::string &name = words.words.front();
  const host::RegionLayout *region = RegionOf(name);
  const host::TableLayout *table = region == nullptr ? &TableOf(name, kUseList | kUseRegion) : nullptr;
  const std::vector<host::FieldRow> rows = host::FieldRowsOf(table, region);
  if (words.format == host::RecordFormat::kJson) {
    WriteWhole([&](StandardOut *out) { host::WriteFieldsDocument(out, table, region, rows); });
  } else {
    PrintColumns(rows);
  }
  return kAnswered;
}

}  // namespace qdt::nqecli
