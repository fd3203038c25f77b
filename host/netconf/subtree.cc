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

// The namespace that a prefix stands for at the element; empty when it stands for none.
std::string_view SpaceOf(std::string_view prefix, const XmlElement *element) {
  for (; element != nullptr; element = element->parent) {
    for (const auto &[each, space] : element->declared) {
      if (each == prefix) return space;
    }
  }
  return {};
}

// Values with a prefix, which names of identities are, are the same whatever prefix each side has for it.
bool ValuesMatch(const XmlElement &filter, const XmlElement &data) {
  const std::string_view wanted = filter.Value(), value = data.Value();
  if (wanted == value) return true;
  const size_t colon = wanted.find(':'), other = value.find(':');
  if (colon == wanted.npos || other == value.npos || wanted.substr(colon) != value.substr(other))
    return false;
  const std::string_view space = SpaceOf(wanted.substr(0, colon), &filter);
  return !space.empty() && space == SpaceOf(value.substr(0, other), &data);
}

bool ContentMatches(const XmlElement &filter, const XmlElement &parent) {
  return std::ranges::any_of(parent.children, [&](const auto &data) {
    return NamesMatch(filter, *data) && ValuesMatch(filter, *data);
  });
}

// Notes what `filter`, a node of the name of `data`, selects of it.
void Select(const XmlElement &filter, const XmlElement &data, Nodes *selected) {
  if (filter.children.empty()) {
    if (filter.Value().empty() || ValuesMatch(filter, data)) selected->insert(&data);
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
