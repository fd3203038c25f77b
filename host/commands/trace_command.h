#ifndef HOST_COMMANDS_TRACE_COMMAND_H_
#define HOST_COMMANDS_TRACE_COMMAND_H_

#include <span>
#include <string>

#include "host/engine/switches.h"

namespace qdt::host {

// The engine command "trace-pkt-nqe": sets and shows the conditions of the engine's own packet trace. `words`
// are those behind its name; returns the answer. Throws HostError for words that it does not know and for
// values that do not fit.
std::string RunTraceCommand(Switches *switches, std::span<const std::string> words);

// The engine command "trace-tail [N]": the number of the last line of the packet trace, then the lines behind
// number N that are still known.
std::string RunTraceTailCommand(const TraceTail &tail, std::span<const std::string> words);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_TRACE_COMMAND_H_
