#ifndef HOST_LAYOUT_NAT_POLICY_H_
#define HOST_LAYOUT_NAT_POLICY_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/yaml_tree.h"

namespace qdt::host {

// A rule of the NAT policy. Unlike everything else that a scenario tells, rules stand in no table: the engine
// keeps them and tells them by name.
struct NatPolicyRule {
  std::string name;  // one word
  std::string text;  // what the engine answers: a line for each property, no newline at the end
  bool translates = false;
  uint64_t addressGroup = 0;  // whose addresses a rule that translates takes
  uint64_t hits = 0;
};

// The section of a scenario that lists the rules.
constexpr std::string_view kNatPolicySection = "nat_policy";

// Reads the rules under `section`. Throws HostError as Scenario::Load tells.
std::vector<NatPolicyRule> ReadNatPolicy(const YamlTree &tree, const YamlNode &section,
                                         const YamlNode &rules);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_NAT_POLICY_H_
