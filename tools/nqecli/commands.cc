#include <algorithm>
#include <cctype>
#include <string>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/library/entry_points.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/companion.h"
#include "tools/nqecli/completion.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/query.h"

namespace qdt::nqecli {
namespace {

using host::EntryPoint;
using host::HostError;
using host::Quoted;

constexpr char kQueryFailed[] = "the query failed: the answer is one of the error messages";
constexpr char kCommandFailed[] = "the command failed";

constexpr Command kCommands[] = {
    {"tables", "tables [WORD ...]", "the tables and what they hold, or those that the words are told of",
     kOptionKeys | kOptionsNoPlace, WordKind::kTableWord,
     "The words are looked for in names and meanings. `ask` says which of show and list can read a table.",
     "nqecli tables\nnqecli tables station\nnqecli tables --keys acl", "no table is told of by these words",
     Tables},
    {"show", "show NAME [KEYS...]", "query a table by its name or id; keys left out are 0",
     kOptionForms | kOptionFields, WordKind::kShowTable,
     "Keys fill the places that \"nqecli tables --keys NAME\" shows, in their order.",
     "nqecli show fwdif 2001\nnqecli show session dip:192.0.2.1\nnqecli show arp 192.0.2.11 --json",
     kQueryFailed, Show},
    {"list", "list TABLE [FIELD=VALUE ...]", "a table's entries, those that pass all filters", kListOptions,
     WordKind::kListTable,
     "Besides FIELD=VALUE there are != < <= > >=; texts may have * for any characters, addresses a prefix.",
     "nqecli list arp\nnqecli list fib prefix=24 --fields destination,nhp_index\nnqecli list usf_user "
     "--count",
     kCommandFailed, List},
    {"fields", "fields TABLE", "a table's or region's fields and what they mean",
     kOptionJson | kOptionsNoPlace, WordKind::kFieldsOf, "It takes no engine.", "nqecli fields fib",
     kCommandFailed, Fields},
    {"usage", "usage", "how full the tables are, the fullest first", kOptionJson | kOptionWarn,
     WordKind::kOther, "", "nqecli usage\nnqecli usage --warn 80", "a table is fuller than --warn says",
     Usage},
    {"find", "find VALUE", "every field that holds an address, prefix, MAC address, interface index or text",
     kOptionJson | kOptionLimit, WordKind::kValue, "In texts, * stands for any characters.",
     "nqecli find 02:00:5e:30:00:04\nnqecli find 192.0.2.0/24", "nothing holds it", Find, nullptr, nullptr,
     true},
    {"explain", "explain ADDRESS [vpn=N]", "follow an IPv4, IPv6 or MAC address through the tables",
     kOptionJson | kOptionLimit, WordKind::kAddress, "", "nqecli explain 203.0.113.200", "nothing was found",
     Explain, nullptr, nullptr, true},
    {"check", "check", "hold the tables against each other, a line for each fault", kOptionJson,
     WordKind::kOther, "", "nqecli check", "a fault was found", Check, nullptr, nullptr, true},
    {"diff", "diff A B [TABLE ...]", "what two snapshots, or a snapshot and the word live, have differently",
     kOptionJson | kOptionCounters, WordKind::kSides, "",
     "nqecli diff monday.arena tuesday.arena\nnqecli diff monday.arena live arp fib", "there is a difference",
     Diff, nullptr, nullptr, true},
    {"regions", "regions [NAME]", "the shared regions, or one's fields", kOptionForms | kOptionFields,
     WordKind::kRegion, "", "nqecli regions IPP_SESSION_AGING_TIME", kCommandFailed, Regions},
    {"statistics", "statistics [PATTERN]", "the engine's counters by name, their sums and those of each core",
     kOptionJson | kOptionCsv, WordKind::kOther, "In the pattern, * stands for any characters.",
     "nqecli statistics '*arp*'", "no counter has such a name", Statistics},
    {"export", "export FILE", "all that the engine holds as a scenario that nqed loads; - is standard output",
     0, WordKind::kFile, "FILE must not exist.", "nqecli export site.yaml", kCommandFailed, Export, nullptr,
     nullptr, true},
    {"watch", "watch [-i SECONDS] [--times N] COMMAND...",
     "repeat a command: what changes, and what counters count a second", kOptionsOfOthers, WordKind::kCommand,
     "-i SECONDS is the time between two answers, 2 unless told otherwise; --times N ends after so many; "
     "--json\n"
     "is a document each time.",
     "nqecli watch usage\nnqecli watch -i 1 list fwdif if_index=101", kCommandFailed, Watch},
    {"schema", "schema [TABLE]", "JSON Schema of what list, and all other commands, print with --json",
     kOptionJson | kOptionsNoPlace, WordKind::kFieldsOf, "It takes no engine.", "nqecli schema fib",
     kCommandFailed, Schema},
    {"snapshot", "snapshot FILE", "save a copy of the running engine's arena, or tell what a copy is",
     kOptionInfo | kOptionJson, WordKind::kFile, "FILE must not exist.",
     "nqecli snapshot evening.arena\nnqecli snapshot --info evening.arena", kCommandFailed, Snapshot, nullptr,
     nullptr, true},
    {"engine", "engine WORDS...", "send the running engine a command line and print its reply",
     kOptionsOfOthers, WordKind::kEngine, "\"nqecli engine help\" lists the engine's commands.",
     "nqecli engine status", "the engine refused the command", AskEngine},
    {"agent", "agent [HANDLER ...]",
     "run a management command, NAME=VALUE each parameter; alone it lists them", kOptionsOfOthers,
     WordKind::kAgent, "", "", "", nullptr, "nqecli-agent", "libyang2-dev"},
    {"sql", "sql [STATEMENTS]", "ask the tables in SQL; --json --ndjson --csv --frozen --schema [TABLE]",
     kOptionsOfOthers, WordKind::kOther, "", "", "", nullptr, "nqecli-sql", "libsqlite3-dev"},
};

// A help text's lines, each led by `lead`.
void AppendLines(std::string_view lines, const std::string &lead, std::string *text) {
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    *text += lead;
    *text += lines.substr(0, end);
    *text += '\n';
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
}

std::string Sentence(std::string text) {
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + ".\n";
}

std::string ExitCodes(const std::string &failure) {
  return "\nexit codes: 0 an answer, 1 " + failure + ", 2 bad usage or no engine\n";
}

// All of a family's words are the library's own, but this one.
bool AsksForHelpAlone(std::span<char *const> words) {
  return words.size() == 2 && words[1] == std::string_view("--help");
}

std::string HelpOf(const EntryPoint &entry) {
  const std::string name = entry.name;
  std::string text = "usage: nqecli [OPTIONS] " + name + " WORDS...\n\n" + Sentence(entry.help);
  text += "\"nqecli " + name + "\" alone lists the forms. All words behind it are the device's own.\n";
  text += "\noptions:\n" + PlaceHelp() + "\nexamples:\n";
  AppendLines(entry.examples, "  nqecli ", &text);
  return text + ExitCodes(kQueryFailed);
}

bool AsksForHelp(std::span<char *const> words) {
  for (const std::string_view word : words) {
    if (word == "--") return false;
    if (word == "--help") return true;
  }
  return false;
}

ExitCode RunLibrary(Place place, const EntryPoint &entry, std::span<char *const> words) {
  // A name alone asks for the usage list, which takes no engine unless the family stands on a region.
  if (words.size() > 1 || entry.onRegion) {
    TakeEnvironment(&place);
    Attach(place);
  }
  return RunFamily(entry, words);
}

[[noreturn]] void FailCommand(std::string_view name) {
  host::NearName near(name);
  std::string_view nearest;
  for (const EntryPoint &entry : host::EntryPoints()) {
    if (near.Offer(entry.name)) nearest = entry.name;
  }
  for (const Command &command : kCommands) {
    if (near.Offer(command.name)) nearest = command.name;
  }
  throw HostError("unknown command " + Quoted(name) + host::DidYouMean(nearest, "try --help"));
}

}  // namespace

std::span<const Command> Commands() { return kCommands; }

const Command *FindCommand(std::string_view name) {
  const auto found = std::ranges::find(kCommands, name, &Command::name);
  return found == std::end(kCommands) ? nullptr : found;
}

bool HasJson(std::string_view name) {
  const Command *command = FindCommand(name);
  if (command == nullptr) return false;
  return (command->options & kOptionJson) != 0 || name == "sql" || name == "watch";
}

std::string HelpOf(const Command &command) {
  std::string text =
      std::string("usage: nqecli ") + command.usage + " [OPTIONS]\n\n" + Sentence(command.help);
  if (*command.more != 0) text += std::string(command.more) + '\n';
  text += "\noptions:\n" + OptionHelp(command.options) + PlaceHelp();
  text += "\nexamples:\n";
  AppendLines(command.examples, "  ", &text);
  return text + ExitCodes(command.failure);
}

ExitCode RunCommand(const Place &given, std::span<char *const> words) {
  const std::string_view name = words.front();
  if (const EntryPoint *entry = host::FindEntryPoint(name))
    return AsksForHelpAlone(words) ? Print(HelpOf(*entry)) : RunLibrary(given, *entry, words);
  const Command *command = FindCommand(name);
  words = words.subspan(1);
  // What completion files ask.
  if (command == nullptr && name == "complete") {
    Place place = given;
    TakeEnvironment(&place);
    return Print(CompletionLines(place, words));
  }
  if (command == nullptr) FailCommand(name);
  if (command->companion != nullptr) RunCompanion(given, command->companion, command->needs, words);
  if (AsksForHelp(words)) return Print(HelpOf(*command));
  DataWords read(given, words, command->options);
  if ((command->options & kOptionsNoPlace) == 0) TakeEnvironment(&read.place);
  return command->run(read);
}

}  // namespace qdt::nqecli
