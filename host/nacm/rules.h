#ifndef HOST_NACM_RULES_H_
#define HOST_NACM_RULES_H_

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/netconf/xml.h"

namespace qdt::host {

// Who may do what: the rules of NACM (RFC 8341), with their module's defaults as long as nobody has written
// any. There is no recovery session.

enum class NacmAccess : uint8_t { kCreate = 1, kRead = 2, kUpdate = 4, kDelete = 8, kExec = 16 };

// A step of a rule's path: a node, and of a list's entries those with these keys.
struct NacmStep {
  std::string module;
  std::string node;
  std::vector<std::pair<std::string, std::string>> keys;
};

struct NacmRule {
  enum class What : uint8_t { kAny, kOperation, kNotification, kData };

  std::string name;
  std::string module;  // "*": all
  What what = What::kAny;
  std::string subject;         // of an operation or a notification: its name, or "*"
  std::vector<NacmStep> path;  // of data
  uint8_t accesses = 0;        // bits of NacmAccess
  bool permits = false;
};

struct NacmRuleList {
  std::string name;
  std::vector<std::string> groups;  // "*": all
  std::vector<NacmRule> rules;
};

struct NacmRules {
  bool enabled = true;
  bool readByDefault = true;
  bool execByDefault = true;
  std::vector<std::pair<std::string, std::vector<std::string>>> groups;  // name and users
  std::vector<NacmRuleList> lists;
};

// What the rules say of one user.
class NacmUser {
 public:
  NacmUser(const NacmRules &rules, std::string_view user);

  // `denied`: the model wants a rule that permits it.
  bool MayRun(std::string_view module, std::string_view operation, bool denied) const;
  bool MayReceive(std::string_view module, std::string_view notification, bool denied) const;

  // What of a tree of state data may be read. `moduleOf` names the module of a namespace; `denied` tells
  // whether the model wants a rule that permits reading this node. False when nothing may.
  struct Schema {
    std::function<std::string(std::string_view space)> moduleOf;
    std::function<bool(const XmlElement &node)> denied;
  };
  bool Prune(const Schema &schema, XmlElement *root) const;
  // Whether Prune looks at what stands below `root`: otherwise its answer for the root is one for all of it.
  bool LooksInto(std::string_view module) const;

 private:
  // The verdict of the first rule that `fits`.
  template <typename Fits>
  const NacmRule *FirstRule(NacmAccess access, std::string_view module, Fits fits) const;
  bool MayReadNode(const Schema &schema, const XmlElement &node) const;
  bool PruneChildren(const Schema &schema, XmlElement *node) const;

  const NacmRules &rules_;
  std::vector<const NacmRuleList *> lists_;  // those of the user's groups
};

}  // namespace qdt::host

#endif  // HOST_NACM_RULES_H_
