#include "host/session/places.h"

#include <algorithm>

namespace qdt::host {
namespace {

bool IsNameByte(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '.' || c >= 0x80;
}

std::string_view NameAtStart(std::string_view text) {
  size_t end = 0;
  while (end < text.size() && IsNameByte(text[end])) ++end;
  return text.substr(0, end);
}

// Numbers that are written in one way only, which is then that of the data.
bool IsPlainNumber(std::string_view text) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return !text.empty() && text.size() < 20 && std::ranges::all_of(text, isDigit) &&
         (text[0] != '0' || text.size() == 1);
}

void SkipBlanks(std::string_view *text) {
  while (text->starts_with(' ')) text->remove_prefix(1);
}

// Takes a text from the beginning where it stands there.
bool Take(std::string_view *text, std::string_view wanted) {
  if (!text->starts_with(wanted)) return false;
  text->remove_prefix(wanted.size());
  return true;
}

// The branches of a path: what stands between the bars that are in no predicate, parentheses or text. Nothing
// when its brackets or quotes do not close.
std::vector<std::string_view> BranchesOf(std::string_view path) {
  std::vector<std::string_view> branches;
  size_t start = 0, depth = 0;
  for (size_t at = 0; at < path.size(); ++at) {
    const char c = path[at];
    if (c == '\'' || c == '"') {
      at = path.find(c, at + 1);
      if (at == path.npos) return {};
    } else if (c == '[' || c == '(') {
      ++depth;
    } else if (c == ']' || c == ')') {
      if (depth-- == 0) return {};
    } else if (c == '|' && depth == 0) {
      branches.push_back(path.substr(start, at - start));
      start = at + 1;
    }
  }
  if (depth != 0) return {};
  branches.push_back(path.substr(start));
  return branches;
}

// Takes "PREFIX:NAME" from the beginning, as namespace and name; empty, and nothing taken, when none is
// there.
std::pair<std::string, std::string> TakeName(std::string_view *path, const Bindings &bindings) {
  std::string_view rest = *path;
  const std::string_view prefix = NameAtStart(rest);
  rest.remove_prefix(prefix.size());
  if (prefix.empty() || !Take(&rest, ":")) return {};
  const std::string_view node = NameAtStart(rest);
  rest.remove_prefix(node.size());
  const auto isOurs = [&](const auto &each) { return each.first == prefix; };
  const auto found = std::ranges::find_if(bindings, isOurs);
  const bool ends = rest.empty() || std::string_view("/[ =").find(rest[0]) != std::string_view::npos;
  if (node.empty() || found == bindings.end() || !ends) return {};
  *path = rest;
  return {found->second, std::string(node)};
}

// The same of a step "/PREFIX:NAME".
std::pair<std::string, std::string> TakeStep(std::string_view *path, const Bindings &bindings) {
  std::string_view rest = *path;
  if (!Take(&rest, "/")) return {};
  auto step = TakeName(&rest, bindings);
  if (!step.second.empty()) *path = rest;
  return step;
}

// "LEAF=7" of a predicate "[PREFIX:LEAF='7']" of this namespace at the beginning; empty for any other.
std::string ConditionOf(std::string_view path, const std::string &space, const Bindings &bindings) {
  if (!Take(&path, "[")) return {};
  SkipBlanks(&path);
  const auto [leafSpace, leaf] = TakeName(&path, bindings);
  SkipBlanks(&path);
  if (leaf.empty() || leafSpace != space || !Take(&path, "=")) return {};
  SkipBlanks(&path);
  const char quote = path.empty() ? '\0' : path[0];
  const bool quoted = quote == '\'' || quote == '"';
  if (quoted) path.remove_prefix(1);
  const std::string_view value = NameAtStart(path);
  path.remove_prefix(value.size());
  if (quoted && !Take(&path, {&quote, 1})) return {};
  SkipBlanks(&path);
  return Take(&path, "]") && IsPlainNumber(value) ? leaf + '=' + std::string(value) : "";
}

// Likewise of the one list that a filter's container holds.
std::string ConditionOf(const XmlElement &container) {
  if (container.children.size() != 1) return {};
  for (const auto &leaf : container.children[0]->children) {
    if (leaf->space == container.space && leaf->children.empty() && IsPlainNumber(leaf->Value()))
      return leaf->name + '=' + std::string(leaf->Value());
  }
  return {};
}

}  // namespace

std::vector<std::string> PlacesOfXpath(std::string_view path, const Bindings &bindings) {
  // What is within predicates chooses among the nodes; what goes up or calls functions may lead anywhere.
  if (path.find("..") != path.npos || path.find("::") != path.npos) return {};
  std::vector<std::string> places;
  for (std::string_view branch : BranchesOf(path)) {
    SkipBlanks(&branch);
    const auto [space, top] = TakeStep(&branch, bindings);
    if (top.empty()) return {};
    std::string place = '{' + space + '}' + top;
    const auto [innerSpace, inner] = TakeStep(&branch, bindings);
    if (!inner.empty() && innerSpace == space) {
      place += '/' + inner;
      const auto [listSpace, list] = TakeStep(&branch, bindings);
      const std::string condition = listSpace == space ? ConditionOf(branch, space, bindings) : "";
      if (!condition.empty()) place += '?' + condition;
    }
    // An operator makes something else of the path.
    const size_t bare = branch.find_first_not_of(' ');
    if (bare != branch.npos && bare != 0) return {};
    places.push_back(std::move(place));
  }
  return places;
}

// A node that holds a value is for all that stands beside it.
void AddPlacesOfSubtree(const XmlElement &node, std::vector<std::string> *places) {
  const std::string top = '{' + node.space + '}' + node.name;
  const auto isPlain = [&](const auto &child) {
    return child->space == node.space && (!child->children.empty() || child->Value().empty());
  };
  if (node.children.empty() || !std::ranges::all_of(node.children, isPlain)) return places->push_back(top);
  for (const auto &child : node.children) {
    const std::string condition = ConditionOf(*child);
    places->push_back(top + '/' + child->name + (condition.empty() ? "" : '?' + condition));
  }
}

}  // namespace qdt::host
