#include "tools/nqecli/data_commands.h"

#include "tools/nqecli/command.h"

namespace qdt::nqecli {
namespace {

// In the order in which people meet them.
constexpr Command kCommands[] = {
    {"list", "list TABLE [FIELD=VALUE ...]",
     "a table's entries; --json --ndjson --csv --yaml --fields F,.. --sort F --limit N --count", List},
    {"fields", "fields TABLE", "a table's or region's fields and what they mean; --json", Fields},
    {"usage", "usage [--warn PERCENT]", "how full the tables are, the fullest first; --json", Usage},
    {"find", "find VALUE",
     "every field that holds an address, prefix, MAC address, interface index or text; --json --limit N",
     Find},
    {"explain", "explain ADDRESS [vpn=N]",
     "follow an IPv4, IPv6 or MAC address through the tables; --json --limit N", Explain},
    {"check", "check", "hold the tables against each other, a line for each fault; --json", Check},
    {"diff", "diff A B [TABLE ...]",
     "what two snapshots, or a snapshot and the word live, have differently; --counters --json", Diff},
    {"regions", "regions [NAME]", "the shared regions, or one's fields; --json --ndjson --csv --fields F,..",
     Regions},
    {"statistics", "statistics [PATTERN]",
     "the engine's counters by name, their sums and those of each core; --json --csv", Statistics},
    {"export", "export FILE", "all that the engine holds as a scenario that nqed loads; - is standard output",
     Export},
    {"schema", "schema [TABLE]", "JSON Schema of what list, and all other commands, print with --json",
     Schema},
    {"watch", "watch [-i SECONDS] [--times N] COMMAND...",
     "repeat a command: what changes, and what counters count a second; --json", Watch},
};

}  // namespace

std::span<const Command> DataCommands() { return kCommands; }

}  // namespace qdt::nqecli
