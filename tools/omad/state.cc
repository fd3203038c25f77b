#include "tools/omad/state.h"

#include <string>

#include "host/agent/handlers.h"
#include "host/base/host_error.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::Model;
using host::OwnedTree;

void Merge(OwnedTree from, OwnedTree *into) {
  lyd_node *tree = into->release();
  lyd_merge_siblings(&tree, from.release(), LYD_MERGE_DESTRUCT);
  into->reset(tree);
}

OwnedTree ReadDocument(const Model &model, host::AgentWorker *worker, const char *rpc) {
  const host::Handler &handler = *host::FindHandler(rpc);
  const host::HandlerAnswer answer = worker->Run(handler, model.MakeRequest(rpc, {}).get());
  if (answer.result != 0)
    throw HostError(std::string(handler.function) + " failed; the system log has the reason");
  lyd_node *tree = nullptr;
  if (lyd_parse_data_mem(model.context(), answer.text.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                         &tree) != LY_SUCCESS) {
    throw HostError(std::string(handler.function) + " answered with no document of the data model");
  }
  return OwnedTree(tree);
}

void AddLeaf(lyd_node *parent, const char *name, const char *value) {
  lyd_new_term(parent, nullptr, name, value, 0, nullptr);
}

OwnedTree ReadSchemas(const Model &model) {
  const lys_module *monitoring = ly_ctx_get_module_implemented(model.context(), "ietf-netconf-monitoring");
  lyd_node *state = nullptr;
  lyd_node *schemas = nullptr;
  if (monitoring == nullptr || lyd_new_inner(nullptr, monitoring, "netconf-state", 0, &state) != LY_SUCCESS)
    return {};
  OwnedTree tree(state);
  lyd_new_inner(state, nullptr, "schemas", 0, &schemas);
  const auto add = [&](const char *name, const char *revision, const char *space) {
    lyd_node *schema = nullptr;
    lyd_new_list(schemas, nullptr, "schema", 0, &schema, name, revision != nullptr ? revision : "", "yang");
    AddLeaf(schema, "namespace", space);
    AddLeaf(schema, "location", "NETCONF");
  };
  uint32_t index = 0;
  while (const lys_module *module = ly_ctx_get_module_iter(model.context(), &index)) {
    add(module->name, module->revision, module->ns);
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(module->parsed->includes, i) {
      const lysp_submodule *part = module->parsed->includes[i].submodule;
      add(part->name, part->revs != nullptr ? part->revs[0].date : nullptr, module->ns);
    }
  }
  return tree;
}

}  // namespace

OwnedTree ReadOwnState(const Model &model) {
  lyd_node *library = nullptr;
  if (ly_ctx_get_yanglib_data(model.context(), &library, "%u", ly_ctx_get_change_count(model.context())) !=
      LY_SUCCESS)
    throw HostError("cannot tell the YANG library: " + host::LibyangMessage(model.context()));
  OwnedTree state(library);
  Merge(ReadSchemas(model), &state);
  return state;
}

OwnedTree ReadState(const Model &model, host::AgentWorker *worker) {
  OwnedTree state = ReadOwnState(model);
  Merge(ReadDocument(model, worker, "packet-drop-nobuff"), &state);
  Merge(ReadDocument(model, worker, "memory-usage"), &state);
  return state;
}

}  // namespace qdt::omad
