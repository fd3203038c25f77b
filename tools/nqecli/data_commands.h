#ifndef TOOLS_NQECLI_DATA_COMMANDS_H_
#define TOOLS_NQECLI_DATA_COMMANDS_H_

#include <string_view>

#include "tools/nqecli/output/output.h"

// The commands that run in the tool itself, one source each. They get the words behind their name.
namespace qdt::nqecli {

struct DataWords;

ExitCode AskEngine(const DataWords &words);
ExitCode Check(const DataWords &words);
ExitCode Diff(const DataWords &words);
ExitCode Explain(const DataWords &words);
ExitCode Export(const DataWords &words);
ExitCode Fields(const DataWords &words);
ExitCode Find(const DataWords &words);
ExitCode List(const DataWords &words);
ExitCode Regions(const DataWords &words);
ExitCode Schema(const DataWords &words);
ExitCode Snapshot(const DataWords &words);
ExitCode Show(const DataWords &words);
ExitCode Statistics(const DataWords &words);
ExitCode Tables(const DataWords &words);
ExitCode Usage(const DataWords &words);
ExitCode Watch(const DataWords &words);

// Whether it makes sense to repeat the command.
bool CanBeWatched(std::string_view command);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_DATA_COMMANDS_H_
