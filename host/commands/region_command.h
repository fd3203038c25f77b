#ifndef HOST_COMMANDS_REGION_COMMAND_H_
#define HOST_COMMANDS_REGION_COMMAND_H_

#include <span>
#include <string>

namespace qdt::host {

class Engine;

// The engine command "region": without words the names of the shared regions, with a region's name its
// values, with a value's name and a new value that change, made at once for everybody who maps the region.
// Returns the answer. Throws HostError for what is not there and for values that do not fit.
std::string RunRegionCommand(const Engine &engine, std::span<const std::string> words);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_REGION_COMMAND_H_
