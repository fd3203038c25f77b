#include "tools/omad/state_data.h"

#include <algorithm>
#include <memory>

#include "host/agent/engine_state.h"
#include "host/netconf/rpc_error.h"
#include "host/netconf/xml.h"
#include "host/netconf/xml_text.h"
#include "host/session/fields.h"

namespace qdt::omad {
namespace {

using host::StateRecord;
using host::XmlElement;

// "LIST:KEY,KEY;..." of the lists below the node.
void AppendKeys(const lysc_node *node, std::string *keys) {
  if (node->nodetype == LYS_LIST) {
    std::string list;
    for (const lysc_node *child = lysc_node_child(node); child != nullptr; child = child->next) {
      if (lysc_is_key(child)) list += (list.empty() ? "" : ",") + std::string(child->name);
    }
    if (!list.empty()) *keys += std::string(node->name) + ':' + list + ';';
  }
  for (const lysc_node *child = lysc_node_child(node); child != nullptr; child = child->next)
    AppendKeys(child, keys);
}

std::string PathOf(const XmlElement &node) {
  if (node.parent == nullptr) return '{' + node.space + "}/" + node.name;
  return PathOf(*node.parent) + '/' + node.name;
}

std::string ContentOf(const XmlElement &element, const std::string &space) {
  std::string text;
  for (const auto &child : element.children) AppendXml(*child, space, &text);
  return text;
}

}  // namespace

StateData::StateData(const host::Model &model, std::vector<host::StateSource> own)
    : model_(model), own_(own.size()) {
  for (const host::StateSource &each : host::EngineStateSources()) own.push_back(each);
  uint32_t index = 0;
  while (const lys_module *module = ly_ctx_get_module_iter(model.context(), &index)) {
    if (module->compiled == nullptr) continue;
    for (const lysc_node *node = module->compiled->data; node != nullptr; node = node->next)
      NoteDenied(node, std::string("{") + module->ns + "}/" + node->name);
  }
  for (host::StateSource &each : own) {
    const std::string path = '/' + each.module + ':' + each.node;
    const lysc_node *node = lys_find_path(model.context(), nullptr, path.c_str(), 0);
    if (node == nullptr) throw host::HostError("the data model has no state data " + path);
    Source source{std::move(each), node->module->ns, {}, false};
    AppendKeys(node, &source.keys);
    const std::string below = '{' + source.space + "}/" + node->name + '/';
    const auto next = denied_.lower_bound(below);
    source.looksInto = next != denied_.end() && next->starts_with(below);
    sources_.push_back(std::move(source));
  }
  schema_.moduleOf = [this](std::string_view space) -> std::string {
    const lys_module *module = ly_ctx_get_module_implemented_ns(model_.context(), std::string(space).c_str());
    return module != nullptr ? module->name : "";
  };
  schema_.denied = [this](const XmlElement &node) { return denied_.contains(PathOf(node)); };
}

void StateData::NoteDenied(const lysc_node *node, const std::string &path) {
  if (host::IsDeniedByDefault(node)) denied_.insert(path);
  for (const lysc_node *child = lysc_node_child(node); child != nullptr; child = child->next)
    NoteDenied(child, path + '/' + child->name);
}

std::vector<DataWalk::Part> StateData::Wanted(const std::vector<std::string> &places,
                                              const host::NacmUser &user) const {
  std::vector<DataWalk::Part> parts;
  for (size_t i = 0; i < sources_.size(); ++i) {
    const host::StateSource &source = sources_[i].source;
    size_t matches = 0;
    std::string condition;
    for (const std::string &wanted : places) {
      const size_t name = std::min(wanted.find('}'), wanted.size());
      const size_t slash = std::min(wanted.find('/', name), wanted.size());
      const size_t mark = std::min(wanted.find('?', slash), wanted.size());
      const std::string top = wanted.substr(0, slash);
      if (top != "{}" + source.node && top != '{' + sources_[i].space + '}' + source.node) continue;
      if (slash != wanted.size() && !source.part.empty() &&
          wanted.substr(slash + 1, mark - slash - 1) != source.part)
        continue;
      ++matches;
      condition = wanted.substr(std::min(mark + 1, wanted.size()));
    }
    if (matches == 0 && !places.empty()) continue;
    // One condition for a part; of several places with one each all of it is walked.
    if (matches != 1 || !MayReadWhole(sources_[i], user)) condition.clear();
    parts.push_back({i, std::move(condition)});
  }
  return parts;
}

bool StateData::MayReadWhole(const Source &source, const host::NacmUser &user) const {
  return !source.looksInto && !user.LooksInto(schema_.moduleOf(source.space));
}

bool StateData::MayRead(const Source &source, const host::NacmUser &user, StateRecord *record) const {
  if (MayReadWhole(source, user)) {
    XmlElement top;
    top.space = source.space;
    top.name = source.source.node;
    return user.Prune(schema_, &top);
  }
  std::string before, after;
  size_t depth = 0;
  for (std::string_view rest = record->path; !rest.empty(); ++depth) {
    const size_t end = std::min(rest.find('/'), rest.size());
    const std::string name(rest.substr(0, end));
    before += '<' + name + (depth == 0 ? " xmlns=\"" + host::XmlEscaped(record->space) + '"' : "") + '>';
    after = "</" + name + '>' + after;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  // Top-level elements may stand side by side.
  const auto forest =
      host::ReadXml("<forest>" + before + record->body + after + "</forest>", {.elements = 1u << 20});
  for (auto &child : forest->children) child->parent = nullptr;
  std::erase_if(forest->children, [&](const auto &child) { return !user.Prune(schema_, child.get()); });
  const XmlElement *inner = forest.get();
  for (size_t i = 0; i < depth && inner != nullptr; ++i)
    inner = inner->children.empty() ? nullptr : inner->children[0].get();
  if (inner == nullptr) return false;
  record->body = ContentOf(*inner, depth == 0 ? std::string(host::kNetconfSpace) : record->space);
  return !record->body.empty();
}

std::string StateData::Piece(size_t place, const host::NacmUser &user,
                             std::vector<StateRecord> records) const {
  const Source &source = sources_[place];
  std::string piece;
  host::AppendField(source.keys, &piece);
  for (StateRecord &record : records) {
    if (!MayRead(source, user, &record)) continue;
    for (const std::string *field : {&record.space, &record.path, &record.body})
      host::AppendField(*field, &piece);
  }
  return piece;
}

}  // namespace qdt::omad
