#include "host/agent/engine_state.h"

#include <cstdlib>
#include <string>

#include "host/agent/handlers.h"
#include "host/base/host_error.h"
#include "host/omcc/libyang_memory.h"
#include "host/omcc/model.h"

namespace qdt::host {
namespace {

constexpr char kModule[] = "tavrix-software-fwd";
constexpr char kTop[] = "software-fwd";

OwnedTree ReadDocument(const Model &model, const char *rpc) {
  const Handler &handler = *FindHandler(rpc);
  const HandlerAnswer answer = RunHandler(handler, model.MakeRequest(rpc, {}).get());
  if (answer.result != 0)
    throw HostError(std::string(handler.function) + " failed; the system log has the reason");
  lyd_node *tree = nullptr;
  if (lyd_parse_data_mem(model.context(), answer.text.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                         &tree) != LY_SUCCESS) {
    throw HostError(std::string(handler.function) + " answered with no document of the data model");
  }
  return OwnedTree(tree);
}

// The two documents of the library have one entry in common, which cannot be told twice.
std::string WalkDocuments(std::string_view, StateSink *sink) {
  const Model &model = *Model::Current();
  lyd_node *tree = ReadDocument(model, "packet-drop-nobuff").release();
  lyd_merge_siblings(&tree, ReadDocument(model, "memory-usage").release(), LYD_MERGE_DESTRUCT);
  const OwnedTree owned(tree);
  sink->Take({model.module()->ns, kTop, Printed(lyd_child(tree), LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS)});
  return "";
}

}  // namespace

std::span<const StateSource> EngineStateSources() {
  static const StateSource kSources[] = {{kModule, kTop, WalkDocuments}};
  return kSources;
}

}  // namespace qdt::host
