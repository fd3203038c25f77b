#ifndef TOOLS_NQECLI_DATA_COMMANDS_H_
#define TOOLS_NQECLI_DATA_COMMANDS_H_

#include <span>

#include "tools/nqecli/attach.h"
#include "tools/nqecli/output.h"

// The commands that show the engine's state as data, one source each. They get the words behind their name.
namespace qdt::nqecli {

ExitCode Diff(const Place &place, std::span<char *const> words);
ExitCode List(const Place &place, std::span<char *const> words);
ExitCode Usage(const Place &place, std::span<char *const> words);
ExitCode Watch(const Place &place, std::span<char *const> words);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_DATA_COMMANDS_H_
