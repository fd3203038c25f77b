#ifndef HOST_COMMANDS_COMMANDS_H_
#define HOST_COMMANDS_COMMANDS_H_

#include <string_view>

#include "host/wire/protocol.h"

namespace qdt::host {

class Engine;

// Runs one command line in the engine: the library's command families and the engine's own commands. "help"
// lists them. Throws HostError for a line that is no command.
EngineReply RunCommandLine(Engine &engine, std::string_view line);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_COMMANDS_H_
