#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/record/list.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::RecordFormat;
using host::RecordShape;
using host::TableLayout;

void PrintCount(const TableLayout &table, const host::ListResult &result, RecordFormat format) {
  StandardOut out;
  if (format == RecordFormat::kColumns) {
    out.Append(std::to_string(result.count) + "\n");
  } else {
    host::JsonWriter json(out);
    json.StartObject();
    host::JsonKey(&json, "table");
    host::JsonText(&json, table.shortName);
    host::JsonKey(&json, "id");
    json.Uint(table.spec.id);
    host::JsonKey(&json, "count");
    json.Uint64(result.count);
    if (result.truncated) {
      host::JsonKey(&json, "truncated");
      json.Bool(true);
    }
    json.EndObject();
    out.Put('\n');
  }
  out.Spill();
  if (format == RecordFormat::kColumns && result.truncated)
    WriteAside("there are more than these " + std::to_string(result.count) + "; leave out --limit\n");
}

}  // namespace

ExitCode List(const DataWords &words) {
  if (words.words.empty()) throw HostError("list what? Name a table; " + std::string(kTablesHelp));
  const TableLayout &table = TableOf(words.words.front());
  host::ListRequest request;
  request.table = &table;
  for (size_t i = 1; i < words.words.size(); ++i) request.where.emplace_back(table, words.words[i]);
  request.sort = words.sort;
  request.limit = words.limit;
  if (words.count && (words.format == RecordFormat::kCsv || words.format == RecordFormat::kYaml))
    throw HostError("--count tells a number, with --json a document; leave out " +
                    std::string(words.format == RecordFormat::kCsv ? "--csv" : "--yaml"));
  const RecordShape shape = RecordShape::Chosen(table, words.fields);
  const auto source = OpenSource(words.place);
  if (words.count) {
    PrintCount(table, RunList(*source, request, nullptr), words.format);
    return kAnswered;
  }
  StandardOut out;
  std::string aside;
  const auto sink = MakeSink(words.format, &out, {"table", table.shortName, table.spec.id}, shape,
                             table.fields, TerminalWidth(), &aside);
  try {
    RunList(*source, request, sink.get());
  } catch (const HostError &) {
    out.Spill();
    throw;
  }
  out.Spill();
  WriteAside(aside);
  return kAnswered;
}

}  // namespace qdt::nqecli
