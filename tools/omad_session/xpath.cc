#include "tools/omad_session/xpath.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "host/netconf/rpc_error.h"
#include "host/omcc/agent_modules.h"
#include "host/omcc/libyang_memory.h"
#include "host/omcc/model.h"

namespace qdt::omad {
namespace {

using host::OwnedTree;
using host::RpcError;

const host::Model &TheModel() {
  static const std::unique_ptr<host::Model> model = [] {
    auto made = std::make_unique<host::Model>();
    host::ImplementAgentModules(*made);
    return made;
  }();
  return *model;
}

RpcError NoPath(const std::string &why) {
  return {RpcError::Layer::kProtocol, "invalid-value", "the filter is no XPath of the data model: " + why};
}

bool IsNameByte(unsigned char c) {
  return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.' || c >= 0x80;
}

// libyang takes modules' names as prefixes; those of the request are its own.
std::string WithModuleNames(const std::string &path, const host::Bindings &bindings) {
  std::string text;
  for (size_t at = 0; at < path.size();) {
    const char c = path[at];
    if (c == '\'' || c == '"') {
      const size_t end = std::min(path.find(c, at + 1), path.size() - 1);
      text.append(path, at, end - at + 1);
      at = end + 1;
      continue;
    }
    if (!IsNameByte(c)) {
      text += c;
      ++at;
      continue;
    }
    size_t end = at;
    while (end < path.size() && IsNameByte(path[end])) ++end;
    std::string word = path.substr(at, end - at);
    at = end;
    const bool isPrefix = end + 1 < path.size() && path[end] == ':' && path[end + 1] != ':';
    if (isPrefix) {
      const auto isOurs = [&](const auto &each) { return each.first == word; };
      const auto found = std::ranges::find_if(bindings, isOurs);
      if (found == bindings.end()) throw NoPath("the prefix \"" + word + "\" stands for no namespace");
      const lys_module *module =
          ly_ctx_get_module_implemented_ns(TheModel().context(), found->second.c_str());
      if (module == nullptr)
        throw NoPath("there is no module of the namespace " + host::Quoted(found->second));
      word = module->name;
    }
    text += word;
  }
  return text;
}

// A copy of the nodes with all below them, and of what they stand in: the parents, and the keys of lists.
OwnedTree CopyOf(const ly_set &nodes) {
  lyd_node *copy = nullptr;
  for (uint32_t i = 0; i < nodes.count; ++i) {
    lyd_node *branch = nullptr;
    if (lyd_dup_single(nodes.dnodes[i], nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_PARENTS, &branch) !=
        LY_SUCCESS)
      continue;
    while (lyd_parent(branch) != nullptr) branch = lyd_parent(branch);
    lyd_merge_siblings(&copy, branch, LYD_MERGE_DESTRUCT);
  }
  return OwnedTree(copy);
}

bool IsNotification(const ly_ctx *context, const std::string &xml) {
  const auto root = host::ReadXmlRoot(xml);
  if (root == nullptr) return false;
  const lys_module *module = ly_ctx_get_module_implemented_ns(context, root->space.c_str());
  return module != nullptr && lys_find_child(nullptr, module, root->name.c_str(), 0, LYS_NOTIF, 0) != nullptr;
}

// Nothing when libyang cannot read it.
OwnedTree Parse(const ly_ctx *context, const std::string &xml) {
  lyd_node *tree = nullptr;
  LY_ERR result = LY_SUCCESS;
  if (IsNotification(context, xml)) {
    ly_in *in = nullptr;
    if (ly_in_new_memory(xml.c_str(), &in) != LY_SUCCESS) return nullptr;
    result = lyd_parse_op(context, nullptr, in, LYD_XML, LYD_TYPE_NOTIF_YANG, &tree, nullptr);
    ly_in_free(in, 0);
  } else {
    result = lyd_parse_data_mem(context, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree);
  }
  OwnedTree owned(tree);
  return result == LY_SUCCESS ? std::move(owned) : nullptr;
}

}  // namespace

std::string SelectXpath(const std::string &path, const host::Bindings &bindings, const std::string &tree) {
  const ly_ctx *context = TheModel().context();
  const std::string wanted = WithModuleNames(path, bindings);
  const host::MemoryWatch memory;
  const OwnedTree data = Parse(context, tree);
  if (data == nullptr) {
    memory.Check();
    throw NoPath("the data cannot be read: " + host::LibyangMessage(context));
  }
  ly_set *found = nullptr;
  const LY_ERR result = lyd_find_xpath(data.get(), wanted.c_str(), &found);
  memory.Check();
  if (result != LY_SUCCESS) throw NoPath(host::LibyangMessage(context));
  const OwnedTree copy = CopyOf(*found);
  memory.Check();
  ly_set_free(found, nullptr);
  return copy == nullptr ? "" : host::Printed(copy.get(), LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS);
}

}  // namespace qdt::omad
