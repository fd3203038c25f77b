#ifndef HOST_SCENARIO_NAT_POLICY_SECTION_H_
#define HOST_SCENARIO_NAT_POLICY_SECTION_H_

#include <string_view>
#include <vector>

#include "host/layout/yaml_tree.h"
#include "host/scenario/mistakes.h"
#include "host/scenario/nat_policy.h"

namespace qdt::host {

// The section of a scenario that lists the rules of the NAT policy.
constexpr std::string_view kNatPolicySection = "nat_policy";

// Reads the rules under `section`. Throws HostError as Scenario::Load tells, or notes the mistakes of rules.
std::vector<NatPolicyRule> ReadNatPolicy(const YamlTree &tree, const YamlNode &section, const YamlNode &rules,
                                         Mistakes *mistakes = nullptr);

}  // namespace qdt::host

#endif  // HOST_SCENARIO_NAT_POLICY_SECTION_H_
