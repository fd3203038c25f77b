#include "tools/nqecli/data_commands.h"

#include "tools/nqecli/command.h"

namespace qdt::nqecli {
namespace {

constexpr Command kCommands[] = {
    {"diff", "diff A B [TABLE ...]",
     "what two snapshots, or a snapshot and the word live, have differently; --counters --json", Diff},
    {"list", "list TABLE [FIELD=VALUE ...]",
     "a table's entries; --json --ndjson --csv --yaml --fields F,.. --sort F --limit N --count", List},
    {"usage", "usage [--warn PERCENT]", "how full the tables are, the fullest first; --json", Usage},
    {"watch", "watch [-i SECONDS] [--times N] COMMAND...",
     "repeat a command: what changes, and what counters count a second; --json", Watch},
};

}  // namespace

std::span<const Command> DataCommands() { return kCommands; }

}  // namespace qdt::nqecli
