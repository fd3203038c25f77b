#include "host/omcc/model.h"

#include "host/base/host_error.h"
#include "host/omcc/embedded_model.h"

namespace qdt::host {
namespace {

const Model *g_model = nullptr;

// A union is told by its members: an enumeration's names, and that other texts are taken.
std::string TypeText(const lysc_type *type) {
  switch (type->basetype) {
    case LY_TYPE_UINT8:
      return "0..255";
    case LY_TYPE_UINT16:
      return "0..65535";
    case LY_TYPE_UINT32:
      return "0..4294967295";
    case LY_TYPE_BOOL:
      return "true|false";
    case LY_TYPE_ENUM: {
      const auto *names = reinterpret_cast<const lysc_type_enum *>(type);
      std::string text;
      for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(names->enums); ++i)
        text += (i > 0 ? "|" : "") + std::string(names->enums[i].name);
      return text;
    }
    case LY_TYPE_UNION: {
      const auto *members = reinterpret_cast<const lysc_type_union *>(type);
      return TypeText(members->types[0]) + "|TEXT";
    }
    default:
      return "TEXT";
  }
}

}  // namespace

std::string LibyangMessage(const ly_ctx *context) {
  const char *message = ly_errmsg(context);
  return message != nullptr ? message : "libyang gave no reason";
}

const lyd_node *FindChild(const lyd_node *parent, std::string_view name) {
  const lyd_node *child = lyd_child(parent);
  while (child != nullptr && name != LYD_NAME(child)) child = child->next;
  return child;
}

Model::Model(const std::string &searchPath) {
  ly_log_options(LY_LOSTORE_LAST);  // what goes wrong is told by whoever asked
  ly_ctx *context = nullptr;
  const char *path = searchPath.empty() ? nullptr : searchPath.c_str();
  if (ly_ctx_new(path, 0, &context) != LY_SUCCESS)
    throw HostError("cannot read YANG modules" + (path != nullptr ? " from " + searchPath : std::string()));
  context_.reset(context);
  lys_module *module = nullptr;
  if (lys_parse_mem(context, EmbeddedModel(), LYS_IN_YANG, &module) != LY_SUCCESS)
    throw HostError("the management data model does not load: " + LibyangMessage(context));
  module_ = module;
  g_model = this;
}

Model::~Model() { g_model = nullptr; }

const Model *Model::Current() { return g_model; }

const lysc_node *Model::FindRpc(std::string_view rpc) const {
  const lysc_node *node = lys_find_child(nullptr, module_, std::string(rpc).c_str(), rpc.size(), LYS_RPC, 0);
  if (node == nullptr) throw HostError("the management data model has no rpc " + std::string(rpc));
  return node;
}

std::vector<Parameter> Model::ParametersOf(std::string_view rpc) const {
  std::vector<Parameter> parameters;
  const auto *action = reinterpret_cast<const lysc_node_action *>(FindRpc(rpc));
  for (const lysc_node *child = action->input.child; child != nullptr; child = child->next)
    parameters.emplace_back(child->name, TypeText(reinterpret_cast<const lysc_node_leaf *>(child)->type));
  return parameters;
}

const lysc_node_leaf *Model::FindLeaf(std::string_view rpc, std::string_view parameter) const {
  const lysc_node *leaf =
      lys_find_child(FindRpc(rpc), module_, std::string(parameter).c_str(), 0, LYS_LEAF, 0);
  if (leaf == nullptr) throw HostError(std::string(rpc) + " has no parameter " + Quoted(parameter));
  return reinterpret_cast<const lysc_node_leaf *>(leaf);
}

std::string Model::AboutOf(std::string_view rpc) const {
  const char *about = FindRpc(rpc)->dsc;
  return about == nullptr ? "" : about;
}

std::string Model::AboutOf(std::string_view rpc, std::string_view parameter) const {
  const char *about = FindLeaf(rpc, parameter)->dsc;
  return about == nullptr ? "" : about;
}

std::vector<Parameter> Model::WordsOf(std::string_view rpc, std::string_view parameter) const {
  const lysc_type *type = FindLeaf(rpc, parameter)->type;
  if (type->basetype == LY_TYPE_UNION) type = reinterpret_cast<const lysc_type_union *>(type)->types[0];
  std::vector<Parameter> words;
  if (type->basetype != LY_TYPE_ENUM) return words;
  const auto *names = reinterpret_cast<const lysc_type_enum *>(type);
  for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(names->enums); ++i) {
    const char *about = names->enums[i].dsc;
    words.emplace_back(names->enums[i].name, about == nullptr ? "" : about);
  }
  return words;
}

OwnedTree Model::MakeRequest(std::string_view rpc, const std::vector<Parameter> &parameters) const {
  const lysc_node *schema = FindRpc(rpc);
  lyd_node *tree = nullptr;
  if (lyd_new_inner(nullptr, module_, schema->name, 0, &tree) != LY_SUCCESS)
    throw HostError("cannot make a request: " + LibyangMessage(context()));
  OwnedTree request(tree);
  for (const auto &[name, value] : parameters) {
    if (lys_find_child(schema, module_, name.c_str(), 0, LYS_LEAF, 0) == nullptr) {
      std::string known;
      for (const Parameter &each : ParametersOf(rpc)) known += (known.empty() ? "" : ", ") + each.first;
      throw HostError(std::string(rpc) + " has no parameter \"" + name + "\"; " +
                      (known.empty() ? "it takes none" : "it takes: " + known));
    }
    if (FindChild(tree, name) != nullptr) throw HostError("the parameter \"" + name + "\" is given twice");
    if (lyd_new_term(tree, module_, name.c_str(), value.c_str(), 0, nullptr) != LY_SUCCESS)
      throw HostError("\"" + value + "\" is no value for \"" + name + "\": " + LibyangMessage(context()));
  }
  return request;
}

}  // namespace qdt::host
