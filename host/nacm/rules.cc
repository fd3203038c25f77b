#include "host/nacm/rules.h"

#include <algorithm>

namespace qdt::host {
namespace {

bool IsOrAll(std::string_view word, std::string_view wanted) { return word == "*" || word == wanted; }

bool StepFits(const NacmUser::Schema &schema, const NacmStep &step, const XmlElement &node) {
  if (step.node != node.name || step.module != schema.moduleOf(node.space)) return false;
  return std::ranges::all_of(step.keys, [&](const auto &key) {
    const XmlElement *leaf = node.Find(node.space, key.first);
    return leaf != nullptr && leaf->Value() == key.second;
  });
}

// Whether the node is the path's, or stands below it.
bool PathFits(const NacmUser::Schema &schema, const std::vector<NacmStep> &path, const XmlElement &node) {
  std::vector<const XmlElement *> way;
  for (const XmlElement *each = &node; each != nullptr; each = each->parent) way.push_back(each);
  if (way.size() < path.size()) return false;
  for (size_t i = 0; i < path.size(); ++i) {
    if (!StepFits(schema, path[i], *way[way.size() - 1 - i])) return false;
  }
  return true;
}

}  // namespace

NacmUser::NacmUser(const NacmRules &rules, std::string_view user) : rules_(rules) {
  std::vector<std::string_view> groups;
  for (const auto &[group, users] : rules.groups) {
    if (std::ranges::count(users, user) != 0) groups.push_back(group);
  }
  // Rules for all groups are none for a user without one (RFC 8341, section 3.4.4).
  if (groups.empty()) return;
  for (const NacmRuleList &list : rules.lists) {
    const auto isOurs = [&](const std::string &name) {
      return name == "*" || std::ranges::count(groups, name) != 0;
    };
    if (std::ranges::any_of(list.groups, isOurs)) lists_.push_back(&list);
  }
}

template <typename Fits>
const NacmRule *NacmUser::FirstRule(NacmAccess access, std::string_view module, Fits fits) const {
  for (const NacmRuleList *list : lists_) {
    for (const NacmRule &rule : list->rules) {
      if (IsOrAll(rule.module, module) && (rule.accesses & static_cast<uint8_t>(access)) != 0 && fits(rule))
        return &rule;
    }
  }
  return nullptr;
}

bool NacmUser::MayRun(std::string_view module, std::string_view operation, bool denied) const {
  if (!rules_.enabled) return true;
  const NacmRule *rule = FirstRule(NacmAccess::kExec, module, [&](const NacmRule &each) {
    return each.what == NacmRule::What::kAny ||
           (each.what == NacmRule::What::kOperation && IsOrAll(each.subject, operation));
  });
  return rule != nullptr ? rule->permits : !denied && rules_.execByDefault;
}

bool NacmUser::MayReceive(std::string_view module, std::string_view notification, bool denied) const {
  if (!rules_.enabled) return true;
  const NacmRule *rule = FirstRule(NacmAccess::kRead, module, [&](const NacmRule &each) {
    return each.what == NacmRule::What::kAny ||
           (each.what == NacmRule::What::kNotification && IsOrAll(each.subject, notification));
  });
  return rule != nullptr ? rule->permits : !denied && rules_.readByDefault;
}

bool NacmUser::MayReadNode(const Schema &schema, const XmlElement &node) const {
  const NacmRule *rule = FirstRule(NacmAccess::kRead, schema.moduleOf(node.space), [&](const NacmRule &each) {
    return each.what == NacmRule::What::kAny ||
           (each.what == NacmRule::What::kData && PathFits(schema, each.path, node));
  });
  if (rule != nullptr) return rule->permits;
  // What the model denies goes for all below as well.
  for (const XmlElement *each = &node; each != nullptr; each = each->parent) {
    if (schema.denied(*each)) return false;
  }
  return rules_.readByDefault;
}

bool NacmUser::PruneChildren(const Schema &schema, XmlElement *node) const {
  std::erase_if(node->children, [&](const auto &child) {
    return !MayReadNode(schema, *child) || !PruneChildren(schema, child.get());
  });
  return true;
}

bool NacmUser::Prune(const Schema &schema, XmlElement *root) const {
  if (!rules_.enabled) return true;
  return MayReadNode(schema, *root) && PruneChildren(schema, root);
}

bool NacmUser::LooksInto(std::string_view module) const {
  if (!rules_.enabled) return false;
  return std::ranges::any_of(lists_, [&](const NacmRuleList *list) {
    return std::ranges::any_of(list->rules, [&](const NacmRule &rule) {
      return rule.what == NacmRule::What::kData && IsOrAll(rule.module, module) && rule.path.size() > 1;
    });
  });
}

}  // namespace qdt::host
