#include "host/agent/engine_state.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/agent/entry_list.h"
#include "host/agent/handlers.h"
#include "host/agent/measured_state.h"
#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "host/inspect/usage.h"
#include "host/netconf/xml_text.h"
#include "host/omcc/libyang_memory.h"
#include "host/omcc/model.h"
#include "host/query/statistics.h"

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

// The number in the leaf of this name, the only one in a document.
uint64_t FigureOf(const lyd_node *document, std::string_view name) {
  const lyd_node *node = nullptr;
  LYD_TREE_DFS_BEGIN(document, node) {
    if (name == LYD_NAME(node)) return std::strtoull(lyd_get_value(node), nullptr, 10);
    LYD_TREE_DFS_END(document, node);
  }
  throw HostError("a document has no " + std::string(name));
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

constexpr char kStateModule[] = "tavrix-engine-state";
constexpr char kStateTop[] = "engine";
constexpr char kStateSpace[] = "urn:tavrix:params:xml:ns:yang:tavrix-engine-state";

std::string WalkTables(std::string_view, StateSink *sink) {
  const auto source = EngineSource();
  std::vector<TableUsage> tables = UsageOf(*source);
  std::ranges::sort(tables, {}, [](const TableUsage &usage) { return usage.table->spec.id; });
  for (const TableUsage &usage : tables) {
    char percent[16];
    std::snprintf(percent, sizeof percent, "%.1f", usage.Percent());
    std::string body =
        "<table>" + XmlLeaf("name", usage.table->shortName) + XmlLeaf("id", usage.table->spec.id);
    if (!usage.table->about.empty()) body += XmlLeaf("about", usage.table->about);
    body += XmlLeaf("entries", usage.entries) + XmlLeaf("capacity", usage.capacity) +
            XmlLeaf("percent", percent) + XmlLeaf("bytes", usage.bytes) + "</table>";
    sink->Take({kStateSpace, "engine/tables", std::move(body)});
  }
  return "";
}

std::string CounterText(const Counter &counter) {
  std::string body = "<counter>" + XmlLeaf("number", counter.number) + XmlLeaf("class", counter.kind);
  if (!counter.name.empty()) body += XmlLeaf("name", XmlText(counter.name));
  body += XmlLeaf("sum", counter.sum);
  for (size_t core = 0; core < counter.cores.size(); ++core)
    body += "<core>" + XmlLeaf("core", core) + XmlLeaf("value", counter.cores[core]) + "</core>";
  return body + "</counter>";
}

// A walk stands at a place in the list, which is the same each time.
std::string WalkStatistics(std::string_view from, StateSink *sink) {
  const CounterList list = ReadCounters(*EngineSource(), {});
  size_t place = 0;
  std::from_chars(from.data(), from.data() + from.size(), place);
  for (; place < list.counters.size(); ++place) {
    if (sink->full()) return std::to_string(place);
    sink->Take({kStateSpace, "engine/statistics", CounterText(list.counters[place])});
  }
  return "";
}

// Walks through a table as the model's list at "engine/CONTAINER/LIST" tells it.
auto TableWalk(const char *table, const char *container, const char *list) {
  return [table, container, list](std::string_view from, StateSink *sink) {
    const std::string path = std::string(kStateTop) + '/' + container;
    const std::string schemaPath = std::string("/") + kStateModule + ':' + path + '/' + list;
    const lysc_node *schema = lys_find_path(Model::Current()->context(), nullptr, schemaPath.c_str(), 0);
    const TableLayout *layout = Layout::BuiltIn().FindTable(table);
    if (schema == nullptr || layout == nullptr)
      throw HostError(std::string("the data model has no list of the table ") + table);
    return EntryList(*layout, schema).Walk(*EngineSource(), path, from, sink);
  };
}

std::string WalkMeasurements(std::string_view, StateSink *sink) {
  TellMeasurements(*Arena::Current(), kStateSpace, "engine/measurements", sink);
  return "";
}

}  // namespace

// Made anew each time: what it says of times is told from the moment at which it was made.
std::unique_ptr<RecordSource> EngineSource() {
  return RecordSource::OfEngine(Arena::Current()->path(), Layout::BuiltIn());
}

EngineFigures ReadEngineFigures(const Model &model) {
  EngineFigures figures;
  figures.drops = FigureOf(ReadDocument(model, "packet-drop-nobuff").get(), "packet-drop-nobuff");
  try {
    figures.memoryPercent =
        static_cast<uint32_t>(FigureOf(ReadDocument(model, "memory-usage").get(), "fwd-memory-usage"));
  } catch (const HostError &) {
    // An engine without the partition has no such figure, which is no reason not to look at the others.
  }
  return figures;
}

std::span<const StateSource> EngineStateSources() {
  static const StateSource kSources[] = {
      {kModule, kTop, WalkDocuments},
      {kStateModule, kStateTop, WalkTables, "tables"},
      {kStateModule, kStateTop, WalkStatistics, "statistics"},
      {kStateModule, kStateTop, TableWalk("fwdif", "interfaces", "interface"), "interfaces"},
      {kStateModule, kStateTop, TableWalk("session", "sessions", "session"), "sessions"},
      {kStateModule, kStateTop, WalkMeasurements, "measurements"},
  };
  return kSources;
}

}  // namespace qdt::host
