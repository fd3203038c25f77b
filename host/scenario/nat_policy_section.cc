#include "host/scenario/nat_policy_section.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/layout/field.h"
#include "host/tbm/route_key.h"

namespace qdt::host {
namespace {

constexpr char kSourceNat[] = "source-nat";
constexpr FieldRef kNumber{0, 8, FieldKind::kUnsigned, 0, 0};

// Each takes the value as written and gives what is wrong with it, or nothing.
std::string CheckWord(const std::string &value) {
  // The name travels as one word of a command line.
  constexpr size_t kMaxName = 63;
  const bool isWord = !value.empty() && value.size() <= kMaxName &&
                      std::all_of(value.begin(), value.end(),
                                  [](char c) { return c > ' ' && c != '\'' && c != '"' && c != '\x7f'; });
  return isWord ? "" : " is not one word of at most 63 characters, without quotation marks";
}

std::string CheckPrefix(const std::string &value) {
  if (value == "any") return "";
  const char *wrong = " is not a prefix (such as 192.0.2.0/24, no bits behind it) or any";
  const size_t slash = value.find('/');
  if (slash == value.npos) return wrong;
  std::string problem;
  const FieldRef field{4, 4, FieldKind::kIpv4Net, 0, 0};
  const auto address = ParseValue(field, value.substr(0, slash), &problem);
  uint16_t length = 0;
  const char *end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data() + slash + 1, end, length);
  if (!address || error != std::errc() || stop != end) return wrong;
  uint8_t key[8] = {};
  std::memcpy(key, &length, sizeof length);
  field.Write(key, *address);
  return IsGoodKey(Lookup::kPrefix4, key) ? "" : wrong;
}

std::string CheckNumber(const std::string &value) {
  std::string problem;
  return ParseValue(kNumber, value, &problem) ? "" : " is not a number (decimal or 0x...)";
}

std::string CheckAction(const std::string &value) {
  const bool known = value == kSourceNat || value == "no-nat";
  return known ? "" : " is no action (source-nat or no-nat)";
}

// It stands in one line of the engine's answers.
std::string CheckText(const std::string &value) {
  const bool isLine = std::ranges::none_of(
      value, [](char c) { return (static_cast<unsigned char>(c) < ' ') || c == '\x7f'; });
  return isLine ? "" : " has control characters (write one line of text)";
}

// As YAML has a text of one line, whatever its characters mean there.
std::string InQuotes(const std::string &value) {
  std::string quoted = "'";
  for (const char c : value) quoted += c == '\'' ? "''" : std::string(1, c);
  return quoted + "'";
}

struct Property {
  const char *name;
  const char *label;
  const char *otherwise;  // the value of a rule that leaves the property out; null: it may not
  std::string (*check)(const std::string &value);
};

constexpr Property kProperties[] = {
    {"name", "RuleName", nullptr, CheckWord},
    {"source", "Source", "any", CheckPrefix},
    {"destination", "Destination", "any", CheckPrefix},
    {"service", "Service", "any", CheckText},
    {"egress", "EgressIfIdx", "0", CheckNumber},
    {"action", "Action", nullptr, CheckAction},
    {"address_group", "AddressGroup", "0", CheckNumber},
    {"hits", "Hits", "0", CheckNumber},
};

class NatPolicyReader {
 public:
  NatPolicyReader(const YamlTree &tree, Mistakes *mistakes) : tree_(tree), mistakes_(mistakes) {}

  std::vector<NatPolicyRule> Read(const YamlNode &section, const YamlNode &rules) {
    if (!rules.IsList() && !rules.IsNull()) Fail(section, "", "not a list of rules (write - {name: ...})");
    for (const YamlNode *rule : rules.items) Attempt(mistakes_, [&] { ReadRule(*rule); });
    return std::move(rules_);
  }

 private:
  [[noreturn]] void Fail(const YamlNode &node, const std::string &property, const std::string &what) const {
    tree_.Fail(node.line,
               std::string(kNatPolicySection) + (property.empty() ? "" : "." + property) + ": " + what);
  }

  void ReadRule(const YamlNode &node) {
    if (!node.IsMap()) Fail(node, "", "a rule that is not a mapping (write {name: ..., action: ...})");
    const size_t mistakes = CountOf(mistakes_);
    CheckNames(node);
    NatPolicyRule rule;
    // What seems to be missing may just be written wrong.
    const bool hasItsNames = CountOf(mistakes_) == mistakes && !node.isFaulty;
    for (const Property &property : kProperties) {
      if (hasItsNames || node.Get(property.name) != nullptr)
        Attempt(mistakes_, [&] { AddProperty(property, Value(node, property), &rule); });
    }
    if (CountOf(mistakes_) != mistakes || node.isFaulty) return;
    rule.entry += '}';
    rule.translates = ValueOf(node, "action") == kSourceNat;
    rule.addressGroup = Number(ValueOf(node, "address_group"));
    rule.hits = Number(ValueOf(node, "hits"));
    for (const NatPolicyRule &other : rules_) {
      if (other.name == rule.name) Fail(node, "name", Quoted(rule.name) + " is a rule already (rename one)");
    }
    rules_.push_back(std::move(rule));
  }

  static void AddProperty(const Property &property, const std::string &value, NatPolicyRule *rule) {
    std::string label = property.label;
    label.resize(13, ' ');
    rule->text += (rule->text.empty() ? "  " : "\n  ") + label + ":  " + value;
    if (rule->name.empty()) rule->name = value;
    if (property.otherwise == nullptr || value != property.otherwise)
      rule->entry += (rule->entry.empty() ? "{" : ", ") + (property.name + (": " + InQuotes(value)));
  }

  void CheckNames(const YamlNode &node) const {
    for (size_t i = 0; i < node.items.size(); i += 2) Attempt(mistakes_, [&] { CheckName(*node.items[i]); });
  }

  void CheckName(const YamlNode &node) const {
    const std::string &name = node.text;
    NearName near(name);
    std::string_view nearest;
    for (const Property &property : kProperties) {
      if (property.name == name) return;
      if (near.Offer(property.name)) nearest = property.name;
    }
    Fail(node, name.substr(0, 64), "no such property" + DidYouMean(nearest, "remove it"));
  }

  std::string Value(const YamlNode &rule, const Property &property) const {
    const YamlNode *given = rule.Get(property.name);
    if (given == nullptr) {
      if (property.otherwise == nullptr) Fail(rule, property.name, "missing (every rule has one)");
      return property.otherwise;
    }
    if (!given->IsScalar()) Fail(*given, property.name, "not a single value");
    const std::string problem = property.check(given->text);
    if (!problem.empty()) Fail(*given, property.name, Quoted(given->text) + problem);
    return given->text;
  }

  // For a value that Value has checked.
  static std::string_view ValueOf(const YamlNode &rule, std::string_view name) {
    const YamlNode *given = rule.Get(name);
    return given == nullptr ? "0" : std::string_view(given->text);
  }
  static uint64_t Number(std::string_view value) {
    std::string problem;
    return static_cast<uint64_t>(*ParseValue(kNumber, value, &problem));
  }

  const YamlTree &tree_;
  Mistakes *mistakes_;
  std::vector<NatPolicyRule> rules_;
};

}  // namespace

std::vector<NatPolicyRule> ReadNatPolicy(const YamlTree &tree, const YamlNode &section, const YamlNode &rules,
                                         Mistakes *mistakes) {
  return NatPolicyReader(tree, mistakes).Read(section, rules);
}

}  // namespace qdt::host
