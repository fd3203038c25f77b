#include "tools/nqecli/data_commands.h"

#include "tools/nqecli/command.h"

namespace qdt::nqecli {
namespace {

constexpr Command kCommands[] = {
    {"list", "list TABLE [FIELD=VALUE ...]",
     "a table's entries; --json --ndjson --csv --yaml --fields F,.. --sort F --limit N --count", List},
    {"export", "export FILE", "all that the engine holds as a scenario that nqed loads; - is standard output",
     Export},
    {"usage", "usage [--warn PERCENT]", "how full the tables are, the fullest first; --json", Usage},
};

}  // namespace

std::span<const Command> DataCommands() { return kCommands; }

}  // namespace qdt::nqecli
