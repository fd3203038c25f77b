// nqecli: asks a running engine, or a saved copy of its arena, through the diagnostics library.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/base/arguments.h"
#include "host/base/words.h"
#include "host/library/entry_points.h"
#include "host/wire/client.h"
#include "qdt/tables.h"
#include "tools/nqecli/attach.h"
#include "tools/nqecli/catalog.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/output.h"
#include "tools/nqecli/query.h"
#include "tools/nqecli/snapshot.h"
#include "tools/nqecli/snapshot_info.h"

namespace qdt::nqecli {
namespace {

using host::Arguments;
using host::EntryPoint;
using host::HostError;
using host::Quoted;

ExitCode RunDirect(const Place &place, const EntryPoint &entry, std::span<char *const> words) {
  // A name alone asks for the usage list, which takes no engine unless the family stands on a region.
  if (words.size() > 1 || entry.onRegion) Attach(place);
  return RunFamily(entry, words);
}

ExitCode ShowTables(const Place &, std::span<char *const> words) {
  if (!words.empty()) throw HostError("tables takes no words; try --help");
  const auto pad = [](std::string_view word, size_t width) {
    std::string text(word);
    text.resize(std::max(text.size(), width), ' ');
    return text;
  };
  std::string text = "id  " + pad("name", 24) + "flag  keys\n";
  for (const TableInfo &table : Catalog().Tables()) {
    const bool flag = table.id < QDT_DIAG_TABLE_COUNT && g_qdtTblGetAllItemsOfOneKey[table.id] != 0;
    std::string head = pad(std::to_string(table.id), 4) + pad(table.name, 24) + pad(flag ? "1" : "0", 6);
    for (const KeySyntax &syntax : table.syntax) {
      text += head;
      text += syntax.text;
      text += '\n';
      head.assign(head.size(), ' ');
    }
  }
  return Print(text);
}

ExitCode SnapshotInfo(const Place &place, std::span<char *const> words) {
  std::string file;
  bool asJson = false;
  for (Arguments arguments(words); !arguments.empty();) {
    if (arguments.Take("--json")) {
      asJson = true;
    } else if (!file.empty() || !arguments.TakeValue("--info", &file)) {
      throw HostError("snapshot --info takes one file and --json; try --help");
    }
  }
  if (place.saved()) throw HostError("snapshot --info names its file itself; leave --snapshot out");
  return PrintSnapshotInfo(file, asJson);
}

ExitCode Snapshot(const Place &place, std::span<char *const> words) {
  if (std::ranges::any_of(words,
                          [](const char *word) { return std::string_view(word).starts_with("--info"); }))
    return SnapshotInfo(place, words);
  if (words.size() != 1 || *words[0] == 0)
    throw HostError("snapshot takes the name of the file to write; try --help");
  if (place.saved()) throw HostError("snapshot takes a running engine; a saved arena can just be copied");
  SaveSnapshot(Attach(place), words[0]);
  return kAnswered;
}

// Sends a command line to the running engine and prints its reply.
ExitCode AskEngine(const Place &place, std::span<char *const> words) {
  if (words.empty())
    throw HostError("engine takes a command of the engine; \"nqecli engine help\" lists them");
  if (place.saved()) throw HostError("engine takes a running engine, not a saved arena");
  const host::EngineReply reply = host::EngineClient(Attach(place).socketPath()).Run(host::JoinWords(words));
  if (reply.fd.ok()) throw HostError("that reply is a file; use nqecli snapshot FILE");
  if (reply.status == host::kReplyOk) return Print(reply.text);
  WriteError(reply.text.empty() ? "the engine's code is " + std::to_string(reply.status) : reply.text);
  return kFailed;
}

// Runs a program that stands beside this one in this one's place.
[[noreturn]] void RunCompanion(const Place &place, const char *name, const char *needs,
                               std::span<char *const> words) {
  const std::string companion = std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
  std::vector<std::string> arguments{companion};
  if (!place.arena.empty()) arguments.push_back("--arena=" + place.arena);
  if (place.saved()) arguments.push_back("--snapshot=" + place.snapshot);
  for (const std::string &user : place.trusted) arguments.push_back("--trust=" + user);
  arguments.insert(arguments.end(), words.begin(), words.end());
  std::vector<char *> pointers;
  for (std::string &argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv(companion.c_str(), pointers.data());
  throw HostError("cannot run " + companion + " (" + std::strerror(errno) + "); it is built where " + needs +
                  " is installed");
}

// Management documents take a library that has no archive to link with, SQL takes threads. So that this tool
// goes on starting at once, companions speak of them.
ExitCode Agent(const Place &place, std::span<char *const> words) {
  RunCompanion(place, "nqecli-agent", "libyang2-dev", words);
}

ExitCode Sql(const Place &place, std::span<char *const> words) {
  RunCompanion(place, "nqecli-sql", "libsqlite3-dev", words);
}

constexpr Command kCommands[] = {
    {"tables", "tables", "list the tables with flag (1: always all entries of one key) and keys", ShowTables},
    {"show", "show NAME [KEYS...]",
     "query a table by its name or id; keys left out are 0; --json --ndjson --csv --fields F,..", Show},
    {"snapshot", "snapshot FILE",
     "save a copy of the running engine's arena; --info FILE [--json]: what a copy is", Snapshot},
    {"engine", "engine WORDS...", "send the running engine a command line; engine help lists its commands",
     AskEngine},
    {"agent", "agent [HANDLER ...]",
     "run a management command, NAME=VALUE each parameter; alone it lists them", Agent},
    {"sql", "sql [STATEMENTS]", "ask the tables in SQL; --json --ndjson --csv --frozen --schema [TABLE]",
     Sql},
};

std::string Help() {
  std::string text =
      "usage: nqecli [--arena PATH | --snapshot FILE] COMMAND [WORDS...]\n"
      "\n"
      "Asks a running forwarding engine, or a saved copy of its arena.\n"
      "\n";
  for (const EntryPoint &entry : host::EntryPoints()) {
    AddHelpLine(&text, std::string(entry.name) + " WORDS...", entry.help);
  }
  for (const std::span<const Command> commands : {std::span<const Command>(kCommands), DataCommands()}) {
    for (const Command &command : commands) AddHelpLine(&text, command.usage, command.help);
  }
  text += "\n" + PlaceHelp();
  AddHelpLine(&text, "--help, --version", "this text; version and how the tool was built");
  text += "\nexit codes: 0 an answer, 1 the query failed, 2 bad usage or no engine\n";
  return text;
}

ExitCode Run(Arguments arguments) {
  Place place;
  while (arguments.AtOption()) {
    if (arguments.Take("--help")) return Print(Help());
    if (arguments.Take("--version")) return Print("nqecli " + host::BuildInfo(QDT_STATIC_LINK));
    if (!TakePlace(&arguments, &place)) {
      throw HostError("unknown option " + Quoted(arguments.front()) + "; try --help");
    }
  }
  if (arguments.empty()) throw HostError("no command; try --help");
  if (const EntryPoint *entry = host::FindEntryPoint(arguments.front())) {
    return RunDirect(place, *entry, arguments.rest());
  }
  for (const std::span<const Command> commands : {std::span<const Command>(kCommands), DataCommands()}) {
    for (const Command &command : commands) {
      if (arguments.Take(command.name)) return command.run(place, arguments.rest());
    }
  }
  throw HostError("unknown command " + Quoted(arguments.front()) + "; try --help");
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run); }
