#include <string>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/inspect/check.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Finding;

uint64_t PrintLines(StandardOut *out, const host::RecordSource &source) {
  std::string line;
  const uint64_t count = CheckArena(source, [&](const Finding &finding) {
    line = NameOf(finding.severity);
    line += "  ";
    AppendPlace(finding.table, finding.region, finding.key, &line);
    line += "  ";
    line += finding.field.empty() ? "-" : finding.field;
    line += "  ";
    line += finding.problem;
    line += '\n';
    out->Append(line);
  });
  return count;
}

}  // namespace

ExitCode Check(const DataWords &words) {
  if (!words.words.empty()) throw host::HostError("check takes no words; try --help");
  const auto source = OpenSource(words.place);
  uint64_t count = 0;
  WriteWhole([&](StandardOut *out) {
    count = words.format == host::RecordFormat::kJson ? host::WriteCheckDocument(out, *source)
                                                      : PrintLines(out, *source);
  });
  return count == 0 ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
