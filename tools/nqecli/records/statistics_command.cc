#include <cstdio>
#include <string>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/query/statistics.h"
#include "host/record/csv_out.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::Counter;
using host::CounterList;

void PrintCsv(const CounterList &list, StandardOut *out) {
  host::CsvOut csv(out);
  for (const char *name : {"number", "name", "class", "sum"}) csv.Cell(name);
  for (uint32_t core = 0; core < list.cores; ++core) csv.Cell("cores[" + std::to_string(core) + "]");
  csv.EndLine();
  for (const Counter &counter : list.counters) {
    csv.Cell(std::to_string(counter.number));
    csv.Cell(counter.name);
    csv.Cell(counter.kind);
    csv.Cell(std::to_string(counter.sum));
    for (const uint64_t value : counter.cores) csv.Cell(std::to_string(value));
    csv.EndLine();
  }
}

// The names, which are long and of any length, stand last.
void PrintColumns(const CounterList &list, StandardOut *out) {
  const auto number = [&](const std::string &text, int width) {
    char cell[32];
    std::snprintf(cell, sizeof(cell), "%*s  ", width, text.c_str());
    out->Append(cell);
  };
  constexpr int kWidth = 12;
  if (list.counters.empty()) return;
  out->Append("number  class    ");
  number("sum", kWidth);
  for (uint32_t core = 0; core < list.cores; ++core) number("core " + std::to_string(core), kWidth);
  out->Append("name\n");
  for (const Counter &counter : list.counters) {
    char head[32];
    std::snprintf(head, sizeof(head), "%6u  %-7.*s  ", counter.number, static_cast<int>(counter.kind.size()),
                  counter.kind.data());
    out->Append(head);
    number(std::to_string(counter.sum), kWidth);
    for (const uint64_t value : counter.cores) number(std::to_string(value), kWidth);
    out->Append(counter.name.empty() ? "-" : counter.name);
    out->Put('\n');
  }
}

}  // namespace

ExitCode Statistics(const DataWords &words) {
  if (words.words.size() > 1)
    throw host::HostError("statistics takes one pattern of names (quote one with blanks)");
  const std::string pattern = words.words.empty() ? "" : words.words.front();
  const CounterList list = ReadCounters(*OpenSource(words.place), pattern);
  StandardOut out;
  switch (words.format) {
    case host::RecordFormat::kJson:
      host::WriteStatisticsDocument(&out, list);
      break;
    case host::RecordFormat::kCsv:
      PrintCsv(list, &out);
      break;
    default:
      PrintColumns(list, &out);
  }
  out.Spill();
  return list.counters.empty() ? kFailed : kAnswered;
}

}  // namespace qdt::nqecli
