#include "host/netconf/subtree.h"

#include <algorithm>
#include <unordered_set>

namespace qdt::host {
namespace {

using Nodes = std::unordered_set<const XmlElement *>;

// A node of no namespace stands for each.
bool NamesMatch(const XmlElement &filter, const XmlElement &data) {
  return filter.name == data.name && (filter.space.empty() || filter.space == data.space);
}

bool IsContentMatch(const XmlElement &filter) { return filter.children.empty() && !filter.Value().empty(); }

bool ContentMatches(const XmlElement &filter, const XmlElement &parent) {
  return std::ranges::any_of(parent.children, [&](const auto &data) {
    return NamesMatch(filter, *data) && filter.Value() == data->Value();
  });
}

// Notes what `filter`, a node of the name of `data`, selects of it.
void Select(const XmlElement &filter, const XmlElement &data, Nodes *selected) {
  if (filter.children.empty()) {
    if (filter.Value().empty() || filter.Value() == data.Value()) selected->insert(&data);
    return;
  }
  bool onlyContent = true;
  for (const auto &each : filter.children) {
    if (!IsContentMatch(*each)) {
      onlyContent = false;
    } else if (!ContentMatches(*each, data)) {
      return;
    }
  }
  if (onlyContent) {
    selected->insert(&data);
    return;
  }
  for (const auto &each : filter.children) {
    for (const auto &child : data.children) {
      if (NamesMatch(*each, *child)) Select(*each, *child, selected);
    }
  }
}

// Takes out what is neither selected nor holds what is.
bool Prune(const Nodes &selected, const IsKey &isKey, XmlElement *data) {
  if (selected.contains(data)) return true;
  const Nodes keys = [&] {
    Nodes leaves;
    for (const auto &child : data->children) {
      if (child->children.empty() && isKey(*child)) leaves.insert(child.get());
    }
    return leaves;
  }();
  bool any = false;
  std::erase_if(data->children, [&](const auto &child) {
    const bool stays = Prune(selected, isKey, child.get());
    any |= stays;
    return !stays && !keys.contains(child.get());
  });
  return any;
}

}  // namespace

bool SelectSubtree(const XmlElement &filter, const IsKey &isKey, XmlElement *data) {
  Nodes selected;
  for (const auto &each : filter.children) {
    if (NamesMatch(*each, *data)) Select(*each, *data, &selected);
  }
  return Prune(selected, isKey, data);
}

}  // namespace qdt::host
