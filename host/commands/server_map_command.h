#ifndef HOST_COMMANDS_SERVER_MAP_COMMAND_H_
#define HOST_COMMANDS_SERVER_MAP_COMMAND_H_

#include <span>
#include <string>

namespace qdt::host {

class Engine;

// The engine command "server-map": ages out the server maps of an address. `words` are those behind its name;
// returns the answer. Throws HostError for words that it does not know.
std::string RunServerMapCommand(Engine &engine, std::span<const std::string> words);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_SERVER_MAP_COMMAND_H_
