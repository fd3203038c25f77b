#ifndef HOST_COMMANDS_EGN_COMMAND_H_
#define HOST_COMMANDS_EGN_COMMAND_H_

#include <span>
#include <string>

namespace qdt::host {

class Engine;

// The engine command "egn": shows and switches the application-identification engine. `words` are those
// behind its name; returns the answer. Throws HostError for words that it does not know.
std::string RunEgnCommand(Engine &engine, std::span<const std::string> words);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_EGN_COMMAND_H_
