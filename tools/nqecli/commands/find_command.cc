#include <string>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/inspect/find.h"
#include "host/record/record_rows.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Match;

void PrintLines(StandardOut *out, const host::RecordSource &source, const host::SearchValue &value,
                host::MatchCount *count) {
  std::string line;
  FindValue(source, value, [&](const Match &match) {
    if (!count->Take()) return false;
    line.clear();
    AppendPlace(match.table, match.region, match.key, &line);
    line += "  ";
    line += match.path;
    line += "  ";
    if (match.ref.kind == host::FieldKind::kReference) {
      AppendReference(source.Resolve(match.field.targets, match.ref.Get(match.bytes)), &line);
    } else {
      AppendValue(&source, match.ref, match.bytes, &line);
    }
    line += '\n';
    out->Append(line);
    return true;
  });
}

}  // namespace

ExitCode Find(const DataWords &words) {
  if (words.words.size() != 1) {
    throw host::HostError(
        "find takes one value: an IPv4 or IPv6 address or prefix, a MAC address, an interface index or a "
        "text");
  }
  const std::string &text = words.words.front();
  const host::SearchValue value(text);
  const auto source = OpenSource(words.place);
  host::MatchCount count{words.limit};
  const bool asJson = words.format == host::RecordFormat::kJson;
  WriteWhole([&](StandardOut *out) {
    asJson ? host::WriteFindDocument(out, *source, text, value, &count)
           : PrintLines(out, *source, value, &count);
  });
  if (count.truncated && !asJson)
    WriteAside("more fields follow behind these " + std::to_string(count.found) + "; raise --limit\n");
  return count.found != 0 || count.truncated ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
