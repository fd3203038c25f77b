#include "tools/nqecli/data_words.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/numbers.h"
#include "host/wire/paths.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;
using host::RecordFormat;

struct Flag {
  DataOption option;
  std::string_view name;
  std::string_view value;  // what stands behind it; empty: nothing
  std::string_view help;
};

// In the order of help texts.
constexpr Flag kFlags[] = {
    {kOptionJson, "--json", "", "as one JSON document"},
    {kOptionLines, "--ndjson", "", "as JSON, a record a line"},
    {kOptionCsv, "--csv", "", "as CSV, a record a row behind the names"},
    {kOptionYaml, "--yaml", "", "as a scenario that nqed loads"},
    {kOptionFields, "--fields", "F,..", "these fields alone, in this order (\"nqecli fields TABLE\")"},
    {kOptionSort, "--sort", "F", "in the order of a field; -F backwards"},
    {kOptionLimit, "--limit", "N", "no more than so many"},
    {kOptionCount, "--count", "", "only how many there are"},
    {kOptionCounters, "--counters", "", "compare counters and times as well"},
    {kOptionWarn, "--warn", "PERCENT", "exit code 1 when a table is fuller than that"},
    {kOptionInterval, "-i", "SECONDS", "again and again, with so many seconds between"},
    {kOptionTimes, "--times", "N", "so many times"},
    {kOptionKeys, "--keys", "", "what the diag command takes as keys, and its flag"},
    {kOptionInfo, "--info", "FILE", "tell what a copy is instead of making one"},
};

double ReadSeconds(const std::string &text) {
  double seconds = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (error == std::errc() && stop == end && seconds >= 0.1 && seconds <= 86400) return seconds;
  throw HostError("-i " + Quoted(text) + " is not a number of seconds from 0.1 to 86400");
}

void SetFlag(DataWords *words, const Flag &flag) {
  switch (flag.option) {
    case kOptionJson:
      return SetFormat(&words->format, flag.name, RecordFormat::kJson);
    case kOptionLines:
      return SetFormat(&words->format, flag.name, RecordFormat::kJsonLines);
    case kOptionCsv:
      return SetFormat(&words->format, flag.name, RecordFormat::kCsv);
    case kOptionYaml:
      return SetFormat(&words->format, flag.name, RecordFormat::kYaml);
    case kOptionCount:
      words->count = true;
      return;
    case kOptionKeys:
      words->keys = true;
      return;
    default:
      words->counters = true;
  }
}

void SetValue(DataWords *words, const Flag &flag, const std::string &value) {
  switch (flag.option) {
    case kOptionFields:
      words->fields = value;
      return;
    case kOptionSort:
      words->sort = value;
      return;
    case kOptionLimit:
      words->limit = host::NumberWithin(flag.name, value, 0, UINT64_MAX - 1);
      return;
    case kOptionWarn:
      words->warn = static_cast<uint32_t>(host::NumberWithin(flag.name, value, 1, 100));
      return;
    case kOptionInfo:
      if (!words->info.empty()) throw HostError("snapshot --info takes one file; try --help");
      words->info = value;
      return;
    case kOptionInterval:
      words->interval = ReadSeconds(value);
      return;
    default:
      words->times = host::NumberWithin(flag.name, value, 1, UINT64_MAX);
  }
}

// Such a word is told what is wrong with it where it is used.
bool IsNegativeNumber(std::string_view word) {
  return word.size() > 1 && word[0] == '-' && word[1] >= '0' && word[1] <= '9';
}

bool TakeFlag(host::Arguments *arguments, DataWords *words, uint32_t takes) {
  std::string value;
  for (const Flag &flag : kFlags) {
    if ((takes & flag.option) == 0) continue;
    if (flag.value.empty()) {
      if (!arguments->Take(flag.name)) continue;
      SetFlag(words, flag);
    } else {
      if (!arguments->TakeValue(flag.name, &value)) continue;
      SetValue(words, flag, value);
    }
    return true;
  }
  return false;
}

[[noreturn]] void FailOption(std::string_view option, uint32_t takes) {
  host::NearName near(option);
  std::string_view nearest;
  for (const std::string_view each : OptionNames(takes)) {
    if (near.Offer(each)) nearest = each;
  }
  throw HostError("unknown option " + Quoted(option) + host::DidYouMean(nearest, "try --help"));
}

}  // namespace

void SetFormat(RecordFormat *format, std::string_view flag, RecordFormat chosen) {
  if (*format != RecordFormat::kColumns && *format != chosen)
    throw HostError(std::string(flag) + " and another form exclude each other; name one");
  *format = chosen;
}

std::vector<std::string_view> OptionNames(uint32_t takes) {
  std::vector<std::string_view> names;
  for (const Flag &flag : kFlags) {
    if ((takes & flag.option) != 0) names.push_back(flag.name);
  }
  return names;
}

std::string_view OptionAbout(std::string_view name) {
  const auto flag = std::ranges::find(kFlags, name, &Flag::name);
  return flag == std::end(kFlags) ? std::string_view() : flag->help;
}

bool OptionHasValue(std::string_view name) {
  const auto flag = std::ranges::find(kFlags, name, &Flag::name);
  return flag != std::end(kFlags) && !flag->value.empty();
}

std::string OptionHelp(uint32_t takes) {
  std::string text;
  for (const Flag &flag : kFlags) {
    if ((takes & flag.option) == 0) continue;
    std::string usage(flag.name);
    if (!flag.value.empty()) usage += ' ' + std::string(flag.value);
    AddHelpLine(&text, std::move(usage), std::string(flag.help));
  }
  return text;
}

DataWords::DataWords(const Place &given, std::span<char *const> all, uint32_t takes) : place(given) {
  host::Arguments arguments(all);
  const bool asTyped = (takes & kOptionsOfOthers) != 0;
  for (bool options = true; !arguments.empty();) {
    if (options && TakePlace(&arguments, &place)) continue;
    if (options && !asTyped && arguments.Take("--")) {
      options = false;
    } else if (asTyped || !options || !arguments.AtOption() || IsNegativeNumber(arguments.front())) {
      words.emplace_back(arguments.front());
      arguments.Take(arguments.front());
    } else if (!TakeFlag(&arguments, this, takes)) {
      FailOption(arguments.front(), takes);
    }
  }
}

std::unique_ptr<host::RecordSource> OpenSource(const Place &place) {
  const host::Layout &layout = host::Layout::BuiltIn();
  if (place.saved()) return host::RecordSource::OfSnapshot(place.snapshot, layout);
  return host::RecordSource::OfEngine(place.arena.empty() ? host::DefaultArena() : place.arena, layout);
}

const host::TableLayout &TableOf(std::string_view name, uint32_t uses) {
  const host::Layout &layout = host::Layout::BuiltIn();
  const host::TableLayout *table = layout.FindTable(name);
  if (table == nullptr) {
    throw HostError("unknown table " + Quoted(name) + TableHint(name, uses, kTablesHelp));
  }
  if (table->fields.empty())
    throw HostError("nothing is known of the fields of table " + std::string(name) +
                    ", so that it cannot be read" + TableHint(name, uses, kTablesHelp));
  return *table;
}

const host::RegionLayout *RegionOf(std::string_view name) {
  const host::RegionLayout *region = host::Layout::BuiltIn().FindRegion(name);
  if (region != nullptr && region->fields.empty()) {
    throw HostError("nothing is known of the fields of region " + std::string(name) +
                    ", so that it cannot be read");
  }
  return region;
}

void AppendPlace(const host::TableLayout *table, const host::RegionLayout *region, const uint8_t *key,
                 std::string *line) {
  *line += region != nullptr ? std::string_view(region->spec.name) : table->shortName;
  *line += "  ";
  if (key != nullptr) {
    const size_t before = line->size();
    host::AppendNamedKey(*table, key, line);
    // A table of one record has a key that is always the same.
    if (line->size() != before) return;
  }
  *line += '-';
}

void StandardOut::Write(std::string_view text) { WriteOut(text); }
void ScreenOut::Write(std::string_view text) { WriteScreen(text); }

uint32_t TerminalWidth() {
  if (CurrentSink() != nullptr && !CurrentSink()->IsTerminal()) return 0;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace qdt::nqecli
