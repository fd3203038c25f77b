// nqecli: asks a running engine, or a saved copy of its arena, through the diagnostics library.

#include <algorithm>
#include <csignal>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/engine/arguments.h"
#include "host/engine/client.h"
#include "host/engine/entry_points.h"
#include "host/engine/paths.h"
#include "host/engine/services.h"
#include "host/engine/words.h"
#include "qdt/tables.h"
#include "tools/nqecli/catalog.h"
#include "tools/nqecli/output.h"
#include "tools/nqecli/query.h"
#include "tools/nqecli/snapshot.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::Arguments;
using host::EntryPoint;
using host::HostError;
using host::Quoted;

struct Options {
  std::string arena;
  std::string snapshot;
};

// A subcommand; the library's command families come beside these. Gets the words behind its name.
struct Command {
  const char *name;
  const char *usage;
  const char *help;
  ExitCode (*run)(const Options &options, std::span<char *const> words);
};

ExitCode Print(const std::string &text) { return WriteAnswer(text) ? kAnswered : kUnusable; }

host::EngineReply NoEngine(std::string_view) {
  throw HostError("only the engine itself can tell, and a saved arena has none");
}

// The engine's arena, or a saved one, as what this process works on.
std::unique_ptr<Arena> Attach(const Options &options) {
  const bool saved = !options.snapshot.empty();
  const std::string path = saved                   ? options.snapshot
                           : options.arena.empty() ? host::kDefaultArena
                                                   : options.arena;
  auto arena = Arena::Attach(path, saved ? Arena::Access::kSnapshot : Arena::Access::kLive);
  Arena::SetCurrent(arena.get());
  // A saved arena still knows the socket of its engine; what is asked of a copy must not reach that engine.
  host::SetEngineChannel(saved ? NoEngine : host::SocketChannel(arena->socketPath()));
  return arena;
}

ExitCode RunDirect(const Options &options, const EntryPoint &entry, std::span<char *const> words) {
  if (entry.run == nullptr) throw HostError(std::string(entry.name) + " is not part of this build yet");
  // A name alone asks for the usage list, which takes no engine.
  std::unique_ptr<Arena> arena;
  if (words.size() > 1) arena = Attach(options);
  return RunFamily(entry, words);
}

ExitCode ShowTables(const Options &, std::span<char *const> words) {
  if (!words.empty()) throw HostError("tables takes no words; try --help");
  const auto pad = [](std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
  };
  std::string text = "id  " + pad("name", 24) + "flag  keys\n";
  const Catalog catalog = Catalog::Load();
  for (const TableInfo &table : catalog.tables()) {
    const bool flag = table.id < QDT_DIAG_TABLE_COUNT && g_qdtTblGetAllItemsOfOneKey[table.id] != 0;
    std::string head = pad(std::to_string(table.id), 4) + pad(table.name, 24) + pad(flag ? "1" : "0", 6);
    for (const KeySyntax &syntax : table.syntax) {
      text += head + syntax.text + '\n';
      head.assign(head.size(), ' ');
    }
  }
  return Print(text);
}

const TableInfo &FindTable(const Catalog &catalog, std::string_view name) {
  if (const TableInfo *table = catalog.Find(name)) return *table;
  const TableInfo *near = catalog.Nearest(name);
  throw HostError(
      "unknown table " + Quoted(name) +
      (near != nullptr ? "; did you mean " + near->name + "?" : "; \"nqecli tables\" lists them"));
}

ExitCode Show(const Options &options, std::span<char *const> words) {
  if (words.empty()) throw HostError("show what? Name a table; \"nqecli tables\" lists them");
  const Catalog catalog = Catalog::Load();
  const TableInfo &table = FindTable(catalog, words[0]);
  std::vector<std::string> query{"diag", "search", "nqpTable", std::to_string(table.id)};
  for (std::string &key : PlaceKeys(table, words.subspan(1))) query.push_back(std::move(key));
  std::vector<char *> pointers;
  for (std::string &word : query) pointers.push_back(word.data());

  const auto arena = Attach(options);
  const ExitCode code = RunFamily(*host::FindEntryPoint("diag"), pointers);
  if (code == kFailed) {
    std::string hint = "the keys of table " + table.name + " are:";
    for (const KeySyntax &syntax : table.syntax) hint += "\n  " + syntax.text;
    WriteError(hint);
  }
  return code;
}

ExitCode Snapshot(const Options &options, std::span<char *const> words) {
  if (words.size() != 1 || *words[0] == 0)
    throw HostError("snapshot takes the name of the file to write; try --help");
  if (!options.snapshot.empty())
    throw HostError("snapshot takes a running engine; a saved arena can just be copied");
  SaveSnapshot(Attach(options)->socketPath(), words[0]);
  return kAnswered;
}

// Sends a command line to the running engine and prints its reply.
ExitCode AskEngine(const Options &options, std::span<char *const> words) {
  if (words.empty())
    throw HostError("engine takes a command of the engine; \"nqecli engine help\" lists them");
  if (!options.snapshot.empty()) throw HostError("engine takes a running engine, not a saved arena");
  const host::EngineReply reply =
      host::EngineClient(Attach(options)->socketPath()).Run(host::JoinWords(words));
  if (reply.fd.ok()) throw HostError("that reply is a file; use nqecli snapshot FILE");
  if (reply.status == host::kReplyOk) return Print(reply.text);
  WriteError(reply.text.empty() ? "the engine's code is " + std::to_string(reply.status) : reply.text);
  return kFailed;
}

constexpr Command kCommands[] = {
    {"tables", "tables", "list the tables with flag (1: always all entries of one key) and keys", ShowTables},
    {"show", "show NAME [KEYS...]", "query a table by its name or id; keys left out are 0", Show},
    {"snapshot", "snapshot FILE", "save a copy of the running engine's arena", Snapshot},
    {"engine", "engine WORDS...", "send the running engine a command line; engine help lists its commands",
     AskEngine},
};

std::string Help() {
  std::string text =
      "usage: nqecli [--arena PATH | --snapshot FILE] COMMAND [WORDS...]\n"
      "\n"
      "Asks a running forwarding engine, or a saved copy of its arena.\n"
      "\n";
  const auto add = [&text](std::string usage, const char *help) {
    usage.resize(std::max<size_t>(usage.size(), 20), ' ');
    text += "  " + usage + ' ' + help + '\n';
  };
  for (const EntryPoint &entry : host::EntryPoints()) {
    add(std::string(entry.name) + " WORDS...",
        (std::string(entry.help) + (entry.run == nullptr ? " (not part of this build yet)" : "")).c_str());
  }
  for (const Command &command : kCommands) add(command.usage, command.help);
  text += "\n";
  add("--arena PATH",
      (std::string("the engine's arena, ") + host::kDefaultArena + " unless told otherwise").c_str());
  add("--snapshot FILE", "answer from a saved arena; nothing that changes there is kept");
  add("--help, --version", "this text; version and how the tool was built");
  text += "\nexit codes: 0 an answer, 1 the query failed, 2 bad usage or no engine\n";
  return text;
}

ExitCode Run(Arguments arguments) {
  Options options;
  while (arguments.AtOption()) {
    if (arguments.Take("--help")) return Print(Help());
    if (arguments.Take("--version")) return Print("nqecli " + host::BuildInfo(QDT_STATIC_LINK));
    if (!arguments.TakeValue("--arena", &options.arena) &&
        !arguments.TakeValue("--snapshot", &options.snapshot)) {
      throw HostError("unknown option " + Quoted(arguments.front()) + "; try --help");
    }
  }
  if (!options.arena.empty() && !options.snapshot.empty()) {
    throw HostError("--arena and --snapshot exclude each other; name one");
  }
  if (arguments.empty()) throw HostError("no command; try --help");
  if (const EntryPoint *entry = host::FindEntryPoint(arguments.front())) {
    return RunDirect(options, *entry, arguments.rest());
  }
  for (const Command &command : kCommands) {
    if (arguments.Take(command.name)) return command.run(options, arguments.rest());
  }
  throw HostError("unknown command " + Quoted(arguments.front()) + "; try --help");
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) {
  qdt::host::KeepStandardFds();
  // What these would end is an error of a system call instead, which cleans up and says so.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return qdt::nqecli::Run(qdt::host::Arguments(argc, argv));
  } catch (const std::exception &error) {
    qdt::nqecli::WriteError(error.what());
    return qdt::nqecli::kUnusable;
  }
}
