#ifndef TOOLS_NQECLI_COMMAND_H_
#define TOOLS_NQECLI_COMMAND_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/nqecli/attach.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {

// What a command's words are, for who completes them.
enum class WordKind : uint8_t {
  kOther,
  kShowTable,  // a view, then its keys
  kListTable,  // a table, then filters
  kFieldsOf,   // a table or region
  kTableWord,  // words of tables
  kRegion,
  kFile,
  kSides,    // files or the word live, then tables
  kValue,    // anything that is looked for
  kAddress,  // an address
  kEngine,   // the engine's own commands
  kAgent,    // a management command and its parameters
  kCommand,  // options of the command's own, then another command and its words
};

// A subcommand; the library's command families come beside these. Help, reading and refusal of words, and
// completion all come from its row.
struct Command {
  const char *name;
  const char *usage;
  const char *help;      // one line
  uint32_t options;      // DataOption bits
  WordKind first;        // what its words are
  const char *more;      // what else is to be said, lines; may be empty
  const char *examples;  // lines behind "nqecli"
  const char *failure;   // what exit code 1 says
  ExitCode (*run)(const DataWords &words);
  const char *companion = nullptr;  // program that runs it, with a help text of its own
  const char *needs = nullptr;      // what that program is built with
  bool isLong = false;              // may take its time before it says anything
};

// In the order of help texts.
std::span<const Command> Commands();
// Null when there is no such command.
const Command *FindCommand(std::string_view name);
std::string HelpOf(const Command &command);
// Whether the command of that name knows --json; those of the library's families know text alone.
bool HasJson(std::string_view name);

// Runs a command, or one of the library's families; words[0] is its name. `given` is where it works unless
// its words, or else the environment, say another place. Throws HostError.
ExitCode RunCommand(const Place &given, std::span<char *const> words);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_COMMAND_H_
