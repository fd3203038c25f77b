#ifndef HOST_COMMANDS_NAT_COMMAND_H_
#define HOST_COMMANDS_NAT_COMMAND_H_

#include <span>
#include <string>

#include "host/scenario/nat_policy.h"

namespace qdt::host {

// The engine command "nat": tells a rule of the policy, all of them as a scenario has them, or the use of the
// address groups. `words` are those behind its name; returns the answer. Throws HostError for words that it
// does not know.
std::string RunNatCommand(std::span<const NatPolicyRule> policy, std::span<const std::string> words);

}  // namespace qdt::host

#endif  // HOST_COMMANDS_NAT_COMMAND_H_
