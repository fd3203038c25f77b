#ifndef TOOLS_NQECLI_COMMAND_H_
#define TOOLS_NQECLI_COMMAND_H_

#include <span>

#include "tools/nqecli/attach.h"
#include "tools/nqecli/output.h"

namespace qdt::nqecli {

// A subcommand; the library's command families come beside these. Gets the words behind its name.
struct Command {
  const char *name;
  const char *usage;
  const char *help;
  ExitCode (*run)(const Place &place, std::span<char *const> words);
};

// The commands that show the engine's state as data.
std::span<const Command> DataCommands();

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_COMMAND_H_
