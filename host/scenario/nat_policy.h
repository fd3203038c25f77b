#ifndef HOST_SCENARIO_NAT_POLICY_H_
#define HOST_SCENARIO_NAT_POLICY_H_

#include <cstdint>
#include <string>

namespace qdt::host {

// A rule of the NAT policy. Unlike everything else that fills an engine, rules stand in no table: the engine
// keeps them and tells them by name.
struct NatPolicyRule {
  std::string name;  // one word
  std::string text;  // what the engine answers: a line for each property, no newline at the end
  bool translates = false;
  uint64_t addressGroup = 0;  // whose addresses a rule that translates takes
  uint64_t hits = 0;
  std::string entry{};  // the rule as a scenario has it, "{name: 'web', action: 'no-nat'}"
};

}  // namespace qdt::host

#endif  // HOST_SCENARIO_NAT_POLICY_H_
