#include "host/session/data_writer.h"

#include <algorithm>

#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"

namespace qdt::host {
namespace {

std::vector<std::string> SplitAt(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const size_t end = std::min(text.find(separator), text.size());
    parts.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

IsKey KeysOf(const std::string &keys) {
  return [lists = SplitAt(keys, ';')](const XmlElement &leaf) {
    if (leaf.parent == nullptr) return false;
    for (const std::string &list : lists) {
      const size_t colon = list.find(':');
      if (colon == list.npos || leaf.parent->name != std::string_view(list).substr(0, colon)) continue;
      if (std::ranges::count(SplitAt(std::string_view(list).substr(colon + 1), ','), leaf.name) != 0)
        return true;
    }
    return false;
  };
}

}  // namespace

void DataWriter::Open(const std::string &space, const Names &names, std::string *xml) {
  size_t common = 0;
  if (space == openSpace_) {
    while (common < names.size() && common < open_.size() && names[common] == open_[common]) ++common;
  }
  while (open_.size() > common) {
    *xml += "</" + open_.back() + '>';
    open_.pop_back();
  }
  for (size_t i = common; i < names.size(); ++i) {
    *xml += '<' + names[i] + (i == 0 ? " xmlns=\"" + XmlEscaped(space) + '"' : "") + '>';
    open_.push_back(names[i]);
  }
  openSpace_ = space;
}

void DataWriter::AddTree(const std::string &keys, const std::string &space, const Names &names,
                         const std::string &tree, std::string *xml) {
  std::string text = tree;
  if (filter_.kind == DataFilter::Kind::kXpath) text = selectXpath_(filter_.xpath, filter_.bindings, tree);
  if (text.empty()) return;
  // Several elements may stand side by side where there are no containers.
  const auto forest = ReadXml("<forest>" + text + "</forest>", {.elements = size_t{1} << 20});
  for (const auto &root : forest->children) {
    root->parent = nullptr;
    if (filter_.kind == DataFilter::Kind::kSubtree &&
        !SelectSubtree(*filter_.subtree, KeysOf(keys), root.get()))
      continue;
    const XmlElement *inner = root.get();
    Names kept;
    for (size_t i = 0; i < names.size() && inner != nullptr; ++i) {
      kept.push_back(inner->name);
      if (i + 1 < names.size()) inner = inner->children.empty() ? nullptr : inner->children[0].get();
    }
    Open(space, kept, xml);
    if (names.empty()) {
      AppendXml(*root, kNetconfSpace, xml);
    } else if (inner != nullptr) {
      for (const auto &child : inner->children) AppendXml(*child, space, xml);
    }
  }
}

void DataWriter::Add(const std::string &keys, const std::string &space, const std::string &path,
                     const std::string &body, std::string *xml) {
  const Names names = SplitAt(path, '/');
  if (filter_.kind == DataFilter::Kind::kNone) {
    Open(space, names, xml);
    *xml += body;
    return;
  }
  std::string tree;
  for (const std::string &name : names)
    tree += '<' + name + (&name == &names[0] ? " xmlns=\"" + XmlEscaped(space) + '"' : "") + '>';
  tree += body;
  for (auto name = names.rbegin(); name != names.rend(); ++name) tree += "</" + *name + '>';
  AddTree(keys, space, names, tree, xml);
}

}  // namespace qdt::host
