#include "host/commands/nat_command.h"

#include <map>
#include <optional>

#include "host/base/command_text.h"
#include "host/base/host_error.h"
#include "host/layout/field.h"

namespace qdt::host {
namespace {

using Words = std::span<const std::string>;

constexpr size_t kLabels = 12;  // columns, as in the rules' texts

// The NAT policy's rules are asked for by name; the view of NAT policies sends this line.
std::string QueryPolicy(std::span<const NatPolicyRule> policy, Words words) {
  if (words.size() != 2 || words[0] != "ruleName")
    throw HostError("nat query-nat-policy what? The engine answers: nat query-nat-policy ruleName NAME");
  for (const NatPolicyRule &rule : policy) {
    if (rule.name == words[1]) return rule.text;
  }
  throw HostError("the NAT policy has no rule " + Quoted(words[1]));
}

// The whole policy as a scenario has it, an entry a line.
std::string ExportPolicy(std::span<const NatPolicyRule> policy, Words words) {
  if (!words.empty()) throw HostError("too many words (nat export-nat-policy)");
  std::string text;
  for (const NatPolicyRule &rule : policy) text += rule.entry + '\n';
  return text;
}

// The rules that take their addresses from one group.
struct GroupUse {
  std::string rules;
  uint64_t hits = 0;
};

std::optional<uint64_t> ReadGroup(Words words) {
  if (words.empty()) return {};
  if (words.size() != 2 || words[0] != "id")
    throw HostError("nat query-nat-address-group-usage what? A group is named: id NUMBER");
  std::string problem;
  const auto id = ParseValue(FieldRef{0, 4}, words[1], &problem);
  if (!id) throw HostError("nat query-nat-address-group-usage id: " + problem);
  return static_cast<uint64_t>(*id);
}

std::string QueryGroups(std::span<const NatPolicyRule> policy, Words words) {
  const std::optional<uint64_t> wanted = ReadGroup(words);
  std::map<uint64_t, GroupUse> groups;
  for (const NatPolicyRule &rule : policy) {
    if (!rule.translates || (wanted && rule.addressGroup != *wanted)) continue;
    GroupUse &use = groups[rule.addressGroup];
    use.rules += (use.rules.empty() ? "" : ", ") + rule.name;
    use.hits += rule.hits;
  }
  if (groups.empty()) {
    return wanted ? "no rule of the NAT policy takes addresses from group " + std::to_string(*wanted) + "\n"
                  : "no rule of the NAT policy takes addresses from a group\n";
  }
  std::string text;
  for (const auto &[id, use] : groups) {
    if (!text.empty()) text += '\n';
    AppendValue(&text, "AddressGroup", std::to_string(id), kLabels);
    AppendValue(&text, "Rules", use.rules, kLabels);
    AppendValue(&text, "Hits", std::to_string(use.hits), kLabels);
  }
  return text;
}

}  // namespace

std::string RunNatCommand(std::span<const NatPolicyRule> policy, std::span<const std::string> words) {
  constexpr const char *kQueries[] = {"query-nat-policy", "query-nat-address-group-usage",
                                      "export-nat-policy"};
  constexpr decltype(&QueryPolicy) kAnswers[] = {QueryPolicy, QueryGroups, ExportPolicy};
  return kAnswers[FindWord("nat", kQueries, words.empty() ? "" : words[0])](policy, words.subspan(1));
}

}  // namespace qdt::host
