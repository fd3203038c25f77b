#include "tools/omad/rpcs.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "host/agent/handlers.h"
#include "host/base/host_error.h"
#include "tools/omad/state.h"
#include "tools/omad/subtree.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::OwnedTree;

const host::Model *g_model = nullptr;
host::AgentWorker *g_worker = nullptr;

nc_server_reply *Error(NC_ERR tag, const std::string &message) {
  lyd_node *error = nc_err(g_model->context(), tag, NC_ERR_TYPE_APP);
  nc_err_set_msg(error, message.c_str(), "en");
  return nc_server_reply_err(error);
}

nc_server_reply *Output(lyd_node *output) {
  return nc_server_reply_data(output, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
}

lyd_node *OutputOf(const lyd_node *rpc) {
  lyd_node *output = nullptr;
  if (lyd_dup_single(rpc, nullptr, 0, &output) != LY_SUCCESS) throw HostError("memory is short");
  return output;
}

nc_server_reply *RunCommand(const lyd_node *rpc) {
  const host::Handler *handler = host::FindHandler(LYD_NAME(rpc));
  if (handler == nullptr) return Error(NC_ERR_OP_NOT_SUPPORTED, "there is no such command");
  const host::HandlerAnswer answer = g_worker->Run(*handler, rpc);
  if (!answer.sent) {
    if (answer.result == 0) return nc_server_reply_ok();
    return Error(NC_ERR_OP_FAILED, std::string(handler->rpc) + " failed (" + std::to_string(answer.result) +
                                       "); the agent's system log has the reason");
  }
  OwnedTree output(OutputOf(rpc));
  if (lyd_new_term(output.get(), nullptr, "text", answer.text.c_str(), 1, nullptr) != LY_SUCCESS)
    throw HostError("the answer is no text of the data model: " + host::LibyangMessage(g_model->context()));
  return Output(output.release());
}

// The filter of <get> and <get-config>: null when there is none.
const lyd_node_any *FilterOf(const lyd_node *rpc) {
  return reinterpret_cast<const lyd_node_any *>(host::FindChild(rpc, "filter"));
}

const char *AttributeOf(const lyd_node_any *node, const char *name) {
  const lyd_meta *meta = lyd_find_meta(node->meta, nullptr, name);
  return meta != nullptr ? lyd_get_meta_value(meta) : nullptr;
}

OwnedTree SelectByXpath(const char *path, OwnedTree state) {
  ly_set *found = nullptr;
  if (lyd_find_xpath(state.get(), path, &found) != LY_SUCCESS)
    throw HostError("the filter is no XPath of the data model: " + host::LibyangMessage(g_model->context()));
  const std::vector<const lyd_node *> nodes(found->dnodes, found->dnodes + found->count);
  ly_set_free(found, nullptr);
  return CopyOf(nodes);
}

OwnedTree Select(const lyd_node_any *filter, OwnedTree state) {
  if (filter == nullptr) return state;
  const char *type = AttributeOf(filter, "ietf-netconf:type");
  if (type != nullptr && std::strcmp(type, "xpath") == 0) {
    const char *path = AttributeOf(filter, "ietf-netconf:select");
    if (path == nullptr) throw HostError("an xpath filter needs its attribute select");
    return SelectByXpath(path, std::move(state));
  }
  if (filter->value_type != LYD_ANYDATA_DATATREE) return {};  // an empty filter selects nothing
  return CopyOf(SelectSubtrees(filter->value.tree, state.get()));
}

OwnedTree SelectState(const lyd_node_any *filter) {
  try {
    return Select(filter, ReadState(*g_model, g_worker));
  } catch (const HostError &) {
    // Without an engine there is still an answer for whoever asks about the agent alone.
    OwnedTree own = filter != nullptr ? Select(filter, ReadOwnState(*g_model)) : OwnedTree();
    if (own == nullptr) throw;
    return own;
  }
}

nc_server_reply *Get(const lyd_node *rpc, bool withState) {
  OwnedTree state = withState ? SelectState(FilterOf(rpc)) : OwnedTree();
  OwnedTree output(OutputOf(rpc));
  if (lyd_new_any(output.get(), nullptr, "data", state.release(), 1, LYD_ANYDATA_DATATREE, 1, nullptr) !=
      LY_SUCCESS)
    throw HostError("memory is short");
  return Output(output.release());
}

const char *ParameterOf(const lyd_node *rpc, const char *name) {
  const lyd_node *leaf = host::FindChild(rpc, name);
  return leaf != nullptr ? lyd_get_value(leaf) : nullptr;
}

// RFC 6022, section 3.1. libnetconf2 has an answer of its own, but releases the text before it has been sent.
nc_server_reply *GetSchema(lyd_node *rpc, nc_session *) {
  const char *identifier = ParameterOf(rpc, "identifier");
  const char *version = ParameterOf(rpc, "version");
  const char *format = ParameterOf(rpc, "format");
  if (version != nullptr && *version == '\0') version = nullptr;
  if (identifier == nullptr ||
      (format != nullptr && std::strcmp(format, "ietf-netconf-monitoring:yang") != 0))
    return Error(NC_ERR_INVALID_VALUE, "schemas are served by identifier and in the format yang");
  const lys_module *module = version != nullptr ? ly_ctx_get_module(g_model->context(), identifier, version)
                                                : ly_ctx_get_module_latest(g_model->context(), identifier);
  if (module == nullptr) return Error(NC_ERR_INVALID_VALUE, std::string("there is no schema ") + identifier);
  char *text = nullptr;
  if (lys_print_mem(&text, module, LYS_OUT_YANG, 0) != LY_SUCCESS)
    return Error(NC_ERR_OP_FAILED, std::string("the schema ") + identifier + " cannot be printed");
  lyd_node *output = OutputOf(rpc);
  lyd_new_any(output, nullptr, "data", text, 0, LYD_ANYDATA_STRING, 1, nullptr);
  std::free(text);
  return Output(output);
}

}  // namespace

void SetUpRpcs(const host::Model *model, host::AgentWorker *worker) {
  g_model = model;
  g_worker = worker;
  if (auto *getSchema = const_cast<lysc_node *>(
          lys_find_path(model->context(), nullptr, "/ietf-netconf-monitoring:get-schema", 0)))
    nc_set_rpc_callback(getSchema, reinterpret_cast<void *>(GetSchema));
}

nc_server_reply *RunRpc(lyd_node *rpc, nc_session *) {
  try {
    const std::string_view name = LYD_NAME(rpc);
    if (rpc->schema->module == g_model->module()) return RunCommand(rpc);
    if (name == "get") return Get(rpc, true);
    if (name == "get-config") return Get(rpc, false);  // the agent has no configuration
    return Error(NC_ERR_OP_NOT_SUPPORTED,
                 std::string(name) + " is not supported: the agent has no configuration");
  } catch (const std::exception &error) {
    return Error(NC_ERR_OP_FAILED, error.what());
  }
}

}  // namespace qdt::omad
