#include "tools/omad/subtree.h"

#include <cstring>
#include <string_view>

namespace qdt::omad {
namespace {

// Empty for a node of no namespace, which stands for each.
std::string_view NamespaceOf(const lyd_node *node) {
  if (node->schema != nullptr) return node->schema->module->ns;
  const char *name = reinterpret_cast<const lyd_node_opaq *>(node)->name.module_ns;
  return name != nullptr ? name : "";
}

std::string_view Trimmed(std::string_view text) {
  constexpr char kBlanks[] = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  return first == text.npos ? std::string_view()
                            : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view ValueOf(const lyd_node *node) {
  const char *value = lyd_get_value(node);
  return value != nullptr ? Trimmed(value) : std::string_view();
}

bool NamesMatch(const lyd_node *filter, const lyd_node *data) {
  const std::string_view space = NamespaceOf(filter);
  return std::strcmp(LYD_NAME(filter), LYD_NAME(data)) == 0 && (space.empty() || space == NamespaceOf(data));
}

bool IsContentMatch(const lyd_node *filter) {
  return lyd_child(filter) == nullptr && !ValueOf(filter).empty();
}

bool ContentMatches(const lyd_node *filter, const lyd_node *siblings) {
  for (const lyd_node *data = siblings; data != nullptr; data = data->next) {
    if (NamesMatch(filter, data) && ValueOf(filter) == ValueOf(data)) return true;
  }
  return false;
}

// Appends what `filter`, a node of the name of `data`, selects of it.
void Select(const lyd_node *filter, const lyd_node *data, std::vector<const lyd_node *> *selected) {
  const lyd_node *const conditions = lyd_child(filter);
  if (conditions == nullptr) {
    if (ValueOf(filter).empty() || ValueOf(filter) == ValueOf(data)) selected->push_back(data);
    return;
  }
  bool onlyContent = true;
  for (const lyd_node *each = conditions; each != nullptr; each = each->next) {
    if (!IsContentMatch(each)) {
      onlyContent = false;
    } else if (!ContentMatches(each, lyd_child(data))) {
      return;
    }
  }
  if (onlyContent) {
    selected->push_back(data);
    return;
  }
  for (const lyd_node *each = conditions; each != nullptr; each = each->next) {
    for (const lyd_node *child = lyd_child(data); child != nullptr; child = child->next) {
      if (NamesMatch(each, child)) Select(each, child, selected);
    }
  }
}

}  // namespace

std::vector<const lyd_node *> SelectSubtrees(const lyd_node *filter, const lyd_node *data) {
  std::vector<const lyd_node *> selected;
  for (const lyd_node *each = filter; each != nullptr; each = each->next) {
    for (const lyd_node *tree = data; tree != nullptr; tree = tree->next) {
      if (NamesMatch(each, tree)) Select(each, tree, &selected);
    }
  }
  return selected;
}

host::OwnedTree CopyOf(const std::vector<const lyd_node *> &nodes) {
  lyd_node *copy = nullptr;
  for (const lyd_node *node : nodes) {
    lyd_node *branch = nullptr;
    if (lyd_dup_single(node, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_PARENTS, &branch) != LY_SUCCESS)
      continue;
    while (lyd_parent(branch) != nullptr) branch = lyd_parent(branch);
    lyd_merge_siblings(&copy, branch, LYD_MERGE_DESTRUCT);
  }
  return host::OwnedTree(copy);
}

}  // namespace qdt::omad
