#include "host/omcc/model.h"

#include <cstring>

#include "host/base/host_error.h"
#include "host/omcc/embedded_modules.h"
#include "host/omcc/libyang_memory.h"

namespace qdt::host {
namespace {

const Model *g_model = nullptr;

// What users call the types that patterns make.
constexpr std::pair<std::string_view, const char *> kTypeNames[] = {
    {"inet:ip-address-no-zone", "an IPv4 or IPv6 address"},
    {"inet:ipv4-address-no-zone", "an IPv4 address"},
    {"mac-text", "a MAC address, as in 00e0-fc12-3456"},
    {"ether-type", "hexadecimal digits, as in 0800"},
};

std::string NumberText(const lysc_type *type, uint64_t most) {
  const lysc_range *range = reinterpret_cast<const lysc_type_num *>(type)->range;
  if (range == nullptr || LY_ARRAY_COUNT(range->parts) == 0) return "0.." + std::to_string(most);
  return std::to_string(range->parts[0].min_u64) + ".." + std::to_string(range->parts[0].max_u64);
}

std::string TypeText(const lysc_node_leaf *leaf) {
  const auto *parsed = static_cast<const lysp_node_leaf *>(leaf->priv);
  for (const auto &[name, text] : kTypeNames) {
    if (parsed != nullptr && name == parsed->type.name) return text;
  }
  switch (leaf->type->basetype) {
    case LY_TYPE_UINT8:
      return NumberText(leaf->type, UINT8_MAX);
    case LY_TYPE_UINT16:
      return NumberText(leaf->type, UINT16_MAX);
    case LY_TYPE_UINT32:
      return NumberText(leaf->type, UINT32_MAX);
    case LY_TYPE_BOOL:
      return "true|false";
    case LY_TYPE_ENUM: {
      const auto *names = reinterpret_cast<const lysc_type_enum *>(leaf->type);
      std::string text;
      for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(names->enums); ++i)
        text += (i > 0 ? "|" : "") + std::string(names->enums[i].name);
      return text;
    }
    default:
      return "TEXT";
  }
}

LY_ERR GiveModule(const char *name, const char *, const char *part, const char *, void *,
                  LYS_INFORMAT *format, const char **text, void (**release)(void *, void *)) {
  for (const EmbeddedModule &each : EmbeddedModules()) {
    if (part != nullptr || std::strcmp(each.name, name) != 0) continue;
    *format = LYS_IN_YANG;
    *text = each.text;
    *release = nullptr;
    return LY_SUCCESS;
  }
  return LY_ENOTFOUND;
}

}  // namespace

std::string LibyangMessage(const ly_ctx *context) {
  const char *message = ly_errmsg(context);
  return message != nullptr ? message : "libyang gave no reason";
}

RequestError InvalidValue(std::string_view name, std::string_view value, std::string_view wanted) {
  return {RequestError::Kind::kInvalidValue, std::string(name),
          Quoted(value) + " is no value for \"" + std::string(name) + "\" (it takes " + std::string(wanted) +
              ')'};
}

bool IsDeniedByDefault(const lysc_node *node) {
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(node->exts, i) {
    const lysc_ext *definition = node->exts[i].def;
    if (std::strcmp(definition->module->name, "ietf-netconf-acm") == 0 &&
        std::strcmp(definition->name, "default-deny-all") == 0)
      return true;
  }
  return false;
}

const lyd_node *FindChild(const lyd_node *parent, std::string_view name) {
  const lyd_node *child = lyd_child(parent);
  while (child != nullptr && name != LYD_NAME(child)) child = child->next;
  return child;
}

Model::Model() {
  ly_log_options(LY_LOSTORE_LAST);  // what goes wrong is told by whoever asked
  ly_ctx *context = nullptr;
  constexpr uint16_t kOptions =
      LY_CTX_DISABLE_SEARCHDIRS | LY_CTX_DISABLE_SEARCHDIR_CWD | LY_CTX_SET_PRIV_PARSED;
  CheckRoomForModel();
  const MemoryWatch memory;
  if (ly_ctx_new(nullptr, kOptions, &context) != LY_SUCCESS) {
    memory.Check();
    throw HostError("cannot make room for YANG modules");
  }
  context_.reset(context);
  ly_ctx_set_module_imp_clb(context, GiveModule, nullptr);
  module_ = Implement(EmbeddedModules()[0].name);
  g_model = this;
}

const lys_module *Model::Implement(const char *name, const char **features) const {
  const MemoryWatch memory;
  const lys_module *module = ly_ctx_load_module(context(), name, nullptr, features);
  if (module != nullptr) return module;
  memory.Check();
  throw HostError(std::string("the YANG module ") + name + " does not load: " + LibyangMessage(context()));
}

Model::~Model() { g_model = nullptr; }

const Model *Model::Current() { return g_model; }

const lysc_node *Model::FindRpc(std::string_view rpc) const {
  const lysc_node *node = lys_find_child(nullptr, module_, std::string(rpc).c_str(), rpc.size(), LYS_RPC, 0);
  if (node == nullptr)
    throw RequestError(RequestError::Kind::kUnknownOperation, {}, "there is no operation " + Quoted(rpc));
  return node;
}

std::vector<Parameter> Model::ParametersOf(std::string_view rpc) const {
  std::vector<Parameter> parameters;
  const auto *action = reinterpret_cast<const lysc_node_action *>(FindRpc(rpc));
  for (const lysc_node *child = action->input.child; child != nullptr; child = child->next)
    parameters.emplace_back(child->name, TypeText(reinterpret_cast<const lysc_node_leaf *>(child)));
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
  std::vector<Parameter> words;
  if (type->basetype != LY_TYPE_ENUM) return words;
  const auto *names = reinterpret_cast<const lysc_type_enum *>(type);
  for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(names->enums); ++i) {
    const char *about = names->enums[i].dsc;
    words.emplace_back(names->enums[i].name, about == nullptr ? "" : about);
  }
  return words;
}

bool Model::Changes(std::string_view rpc) const { return IsDeniedByDefault(FindRpc(rpc)); }

void Model::AddParameter(lyd_node *request, const Parameter &parameter) const {
  const auto &[name, value] = parameter;
  const std::string rpc = LYD_NAME(request);
  const lysc_node *schema = lys_find_child(request->schema, module_, name.c_str(), 0, LYS_LEAF, 0);
  if (schema == nullptr) {
    std::string known;
    for (const Parameter &each : ParametersOf(rpc)) known += (known.empty() ? "" : ", ") + each.first;
    throw RequestError(RequestError::Kind::kUnknownParameter, name,
                       rpc + " has no parameter " + Quoted(name) + "; " +
                           (known.empty() ? "it takes none" : "it takes: " + known));
  }
  if (FindChild(request, name) != nullptr) {
    throw RequestError(RequestError::Kind::kGivenTwice, name,
                       "the parameter " + Quoted(name) + " is given twice");
  }
  const MemoryWatch memory;
  if (lyd_new_term(request, module_, name.c_str(), value.c_str(), 0, nullptr) == LY_SUCCESS) return;
  memory.Check();
  throw InvalidValue(name, value, TypeText(reinterpret_cast<const lysc_node_leaf *>(schema)));
}

void Model::CheckMissing(const lyd_node *request) const {
  const auto *action = reinterpret_cast<const lysc_node_action *>(request->schema);
  for (const lysc_node *child = action->input.child; child != nullptr; child = child->next) {
    if ((child->flags & LYS_MAND_TRUE) == 0 || FindChild(request, child->name) != nullptr) continue;
    throw RequestError(RequestError::Kind::kMissingParameter, child->name,
                       std::string(LYD_NAME(request)) + " needs the parameter " + Quoted(child->name));
  }
}

OwnedTree Model::MakeRequest(std::string_view rpc, const std::vector<Parameter> &parameters) const {
  const lysc_node *schema = FindRpc(rpc);
  lyd_node *tree = nullptr;
  const MemoryWatch memory;
  if (lyd_new_inner(nullptr, module_, schema->name, 0, &tree) != LY_SUCCESS) {
    memory.Check();
    throw HostError("cannot make a request: " + LibyangMessage(context()));
  }
  OwnedTree request(tree);
  for (const Parameter &each : parameters) AddParameter(tree, each);
  CheckMissing(tree);
  return request;
}

}  // namespace qdt::host
