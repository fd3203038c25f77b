#ifndef TOOLS_NQECLI_DATA_COMMANDS_H_
#define TOOLS_NQECLI_DATA_COMMANDS_H_

#include <span>

#include "tools/nqecli/attach.h"
#include "tools/nqecli/output.h"

// The commands that show the engine's state as data, one source each. They get the words behind their name.
namespace qdt::nqecli {

ExitCode Check(const Place &place, std::span<char *const> words);
ExitCode Diff(const Place &place, std::span<char *const> words);
ExitCode Explain(const Place &place, std::span<char *const> words);
ExitCode Export(const Place &place, std::span<char *const> words);
ExitCode Fields(const Place &place, std::span<char *const> words);
ExitCode Find(const Place &place, std::span<char *const> words);
ExitCode List(const Place &place, std::span<char *const> words);
ExitCode Regions(const Place &place, std::span<char *const> words);
ExitCode Schema(const Place &place, std::span<char *const> words);
ExitCode Show(const Place &place, std::span<char *const> words);
ExitCode Statistics(const Place &place, std::span<char *const> words);
ExitCode Usage(const Place &place, std::span<char *const> words);
ExitCode Watch(const Place &place, std::span<char *const> words);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_DATA_COMMANDS_H_
