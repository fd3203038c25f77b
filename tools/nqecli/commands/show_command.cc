#include <array>
#include <span>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/library/services.h"
#include "host/query/view_records.h"
#include "qdt/cli.h"
#include "tools/nqecli/catalog.h"
#include "tools/nqecli/commands/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/query.h"
#include "tools/nqecli/table_names.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;
using host::RecordShape;
using host::TableQuery;

TableInfo FindView(std::string_view name) {
  if (auto table = Catalog().Find(name)) return *table;
  throw HostError("unknown table " + Quoted(name) + TableHint(name, kUseShow, kTablesHelp));
}

// `keys` outlive the query.
TableQuery QueryOf(const TableInfo &table, const std::array<std::string, kKeyCount> &keys) {
  uint8_t ok = 0;
  return {table.id, keys[0].c_str(), QdtCliParseUint(keys[1].c_str(), &ok),
          QdtCliParseUint(keys[2].c_str(), &ok), QdtCliParseUint(keys[3].c_str(), &ok)};
}

void SayKeys(const TableInfo &table) {
  std::string hint = "the keys of table " + std::string(table.name) + " are:";
  for (const KeySyntax &syntax : table.syntax) hint += "\n  " + std::string(syntax.text);
  WriteError(hint);
}

// The records of the query in the form that was asked for.
ExitCode ShowRecords(const TableQuery &ask, const TableInfo &table, const DataWords &words) {
  const host::Layout &layout = host::Layout::BuiltIn();
  const host::ViewLayout &view = *layout.FindView(table.id);
  const host::TableLayout records = RecordLayoutOf(layout, view);
  const RecordShape shape =
      words.fields.empty() ? RecordShape::Whole(records) : RecordShape::Select(records, words.fields);
  const auto source = OpenSource(words.place);
  StandardOut out;
  const auto sink =
      MakeSink(words.format, &out, {"view", view.name, view.id}, shape, records.fields, 0, nullptr);
  host::ViewAnswer answer;
  try {
    answer = WriteViewRecords(*source, view, ask, sink.get());
  } catch (const HostError &) {
    out.Spill();
    throw;
  }
  out.Spill();
  // The library only learns that the engine could not be asked.
  if (const std::string failure = host::TakeEngineFailure(); !failure.empty()) throw HostError(failure);
  if (answer.code == 0) return kAnswered;
  WriteError(host::CodeMessage(answer.code));
  return kFailed;
}

}  // namespace

ExitCode Show(const DataWords &words) {
  if (words.words.empty()) throw HostError("show what? Name a table; " + std::string(kTablesHelp));
  const bool asText = words.format == host::RecordFormat::kColumns;
  if (asText && !words.fields.empty())
    throw HostError("--fields chooses fields of records (add --json, --ndjson or --csv)");
  const TableInfo table = FindView(words.words.front());
  std::vector<char *> given;
  for (const std::string &word : std::span(words.words).subspan(1))
    given.push_back(const_cast<char *>(word.c_str()));
  const std::array<std::string, kKeyCount> keys = PlaceKeys(table, given);
  const TableQuery ask = QueryOf(table, keys);
  Attach(words.place);
  const ExitCode code = asText ? RunTableQuery(ask) : ShowRecords(ask, table, words);
  if (code == kFailed) SayKeys(table);
  return code;
}

}  // namespace qdt::nqecli
