#ifndef TOOLS_NQECLI_ATTACH_H_
#define TOOLS_NQECLI_ATTACH_H_

#include <string>
#include <string_view>
#include <vector>

#include "host/arena/arena.h"
#include "host/base/arguments.h"
#include "host/wire/protocol.h"

namespace qdt::nqecli {

// Which arena a tool works on: at most one of the two is given.
struct Place {
  std::string arena;                 // of a running engine; empty: the default one
  std::string snapshot;              // a saved copy
  std::vector<std::string> trusted;  // users whose engines are believed, as they were named
  bool fromEnvironment = false;

  bool saved() const { return !snapshot.empty(); }
};

// Takes --arena PATH, --snapshot FILE, --trust USER or --raw (SetRaw), which every command has, when it
// stands next. Throws HostError when both of the first were given.
bool TakePlace(host::Arguments *arguments, Place *place);

// Where nothing was given, takes the place from NQE_ARENA or NQE_SNAPSHOT. Throws HostError when both are
// set.
void TakeEnvironment(Place *place);

// The help text's lines for these options.
std::string PlaceHelp();

// The library remembers places in the arena that it has seen: a process stays with its first one.
struct EngineReplaced : host::HostError {
  EngineReplaced() : HostError("the engine is another one now") {}
};

// The engine's arena, or a saved one, as what this process works on; its engine is what the library's
// services reach. It is kept for who asks for the same place again; the end of the process takes the mapping
// along. Throws HostError, EngineReplaced when another engine runs where the kept one has gone.
host::Arena &Attach(const Place &place);
// What the engine answers to a command line: newlines inside texts of records as "\n", with --raw as they
// are. Throws HostError.
host::EngineReply EngineAnswer(const host::Arena &arena, std::string_view line);
// Throws EngineReplaced where Attach would.
void CheckKeptEngine();

// "  USAGE   HELP\n", with the help in the column that the tools use.
void AddHelpLine(std::string *text, std::string usage, const std::string &help);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_ATTACH_H_
