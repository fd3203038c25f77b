#include <algorithm>
#include <cstdio>
#include <string>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/inspect/usage.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::TableUsage;

void PrintColumns(const std::vector<TableUsage> &tables) {
  StandardOut out;
  char line[160];
  std::snprintf(line, sizeof(line), "%-24s %10s %10s %7s %12s\n", "table", "entries", "capacity", "percent",
                "bytes");
  out.Append(line);
  for (const TableUsage &usage : tables) {
    std::snprintf(line, sizeof(line), "%-24s %10u %10u %7.1f %12llu\n",
                  std::string(usage.table->shortName).c_str(), usage.entries, usage.capacity, usage.Percent(),
                  static_cast<unsigned long long>(usage.bytes));
    out.Append(line);
  }
  out.Spill();
}

}  // namespace

ExitCode Usage(const DataWords &words) {
  if (!words.words.empty()) throw host::HostError("usage takes no words; try --help");
  const std::vector<TableUsage> tables = UsageOf(*OpenSource(words.place));
  if (words.format == host::RecordFormat::kJson) {
    WriteWhole([&](StandardOut *out) { host::WriteUsageDocument(out, tables); });
  } else {
    PrintColumns(tables);
  }
  const auto isAbove = [&](const TableUsage &usage) { return usage.IsAbove(words.warn); };
  return words.warn != 0 && std::ranges::any_of(tables, isAbove) ? kFailed : kAnswered;
}

}  // namespace qdt::nqecli
