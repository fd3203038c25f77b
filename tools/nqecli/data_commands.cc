#include "tools/nqecli/data_commands.h"

#include "tools/nqecli/command.h"

namespace qdt::nqecli {
namespace {

constexpr Command kCommands[] = {
    {"fields", "fields TABLE", "a table's or region's fields and what they mean; --json", Fields},
    {"list", "list TABLE [FIELD=VALUE ...]",
     "a table's entries; --json --ndjson --csv --yaml --fields F,.. --sort F --limit N --count", List},
    {"schema", "schema [TABLE]", "JSON Schema of what list, and all other commands, print with --json",
     Schema},
    {"usage", "usage [--warn PERCENT]", "how full the tables are, the fullest first; --json", Usage},
};

}  // namespace

std::span<const Command> DataCommands() { return kCommands; }

}  // namespace qdt::nqecli
