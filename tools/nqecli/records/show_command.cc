#include <string>

#include "host/base/host_error.h"
#include "host/library/services.h"
#include "host/query/view_records.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/query.h"
#include "tools/nqecli/records/view_query.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::RecordShape;
using host::TableQuery;

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
  const RecordShape shape = RecordShape::Chosen(records, words.fields);
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
  const ViewQuery query(words.words);
  const bool asText = words.format == host::RecordFormat::kColumns;
  if (asText && !words.fields.empty())
    throw HostError("--fields chooses fields of records (add --json, --ndjson or --csv)");
  Attach(words.place);
  const ExitCode code = asText ? RunTableQuery(query.Ask()) : ShowRecords(query.Ask(), query.view(), words);
  if (code == kFailed) SayKeys(query.view());
  return code;
}

}  // namespace qdt::nqecli
