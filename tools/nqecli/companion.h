#ifndef TOOLS_NQECLI_COMPANION_H_
#define TOOLS_NQECLI_COMPANION_H_

#include <span>
#include <string>

#include "tools/nqecli/attach.h"

// Programs that stand beside this one. Management documents take a library that has no archive to link with,
// SQL takes threads, the shell takes a terminal library: so that the tool itself goes on starting at once,
// companions speak of them.
namespace qdt::nqecli {

// Where the program of that name stands: the tool itself or one of its companions.
std::string PathOf(const char *name);

// Runs a companion in this program's place. `needs` names what it is built with.
[[noreturn]] void RunCompanion(const Place &place, const char *name, const char *needs,
                               std::span<char *const> words);

// What a companion writes to standard output; nothing when it cannot be run.
std::string OutputOfCompanion(const char *name, std::span<const std::string> words);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_COMPANION_H_
