// What is looked for over the whole of an engine: values, addresses, faults, fullness, differences, counters,
// regions.

#include <optional>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/console/answers.h"
#include "host/console/commands.h"
#include "host/console/console.h"
#include "host/inspect/diff.h"
#include "host/record/record_sinks.h"
#include "host/record/schema.h"

namespace qdt::host {
namespace {

constexpr uint64_t kMostMatches = 10000;
constexpr uint64_t kMatches = 1000;

WebParameter LimitParameter(std::string_view about, uint64_t most) {
  return {.name = "limit", .about = about, .kind = WebParameter::Kind::kNumber, .least = 1, .most = most};
}

WebAnswer AnswerFind(WebEngine &engine, const RouteCall &call) {
  const std::string text(call.Text("value"));
  const SearchValue value(text);
  const WebEngine::Loan source = engine.Borrow();
  MatchCount count{call.Number("limit").value_or(kMatches)};
  std::vector<std::string> words{"find", "--limit", std::to_string(count.limit), "--json"};
  AddAskedWord(text, &words);
  return DocumentAnswer([&](TextOut *out) { WriteFindDocument(out, *source, text, value, &count); },
                        CommandText(&engine, words));
}

WebAnswer AnswerExplain(WebEngine &engine, const RouteCall &call) {
  const std::string address(call.Text("address"));
  ExplainRequest request{SearchValue(address)};
  if (!request.address.IsAddress())
    throw WebProblem(
        400, Quoted(address) + " is no IPv4, IPv6 or MAC address (/api/v1/find looks for other values)");
  request.vpn = static_cast<uint32_t>(call.Number("vpn").value_or(0));
  request.limit = call.Number("limit").value_or(request.limit);
  const WebEngine::Loan source = engine.Borrow();
  return DocumentAnswer([&](TextOut *out) { WriteExplainDocument(out, *source, address, request); },
                        CommandText(&engine, {"explain", address, "vpn=" + std::to_string(request.vpn),
                                              "--limit", std::to_string(request.limit), "--json"}));
}

WebAnswer AnswerUsage(WebEngine &engine, const RouteCall &call) {
  const WebEngine::Loan source = engine.Borrow();
  std::vector<TableUsage> tables = UsageOf(*source);
  const std::optional<uint64_t> warn = call.Number("warn");
  // The tool tells all tables, and what is above by its exit code.
  const std::string command = warn ? "" : CommandText(&engine, {"usage", "--json"});
  if (warn)
    std::erase_if(tables,
                  [&](const TableUsage &table) { return !table.IsAbove(static_cast<uint32_t>(*warn)); });
  return DocumentAnswer([&](TextOut *out) { WriteUsageDocument(out, tables); }, command);
}

WebAnswer AnswerStatistics(WebEngine &engine, const RouteCall &call) {
  const std::string pattern(call.Text("pattern"));
  const WebEngine::Loan source = engine.Borrow();
  std::vector<std::string> words{"statistics", "--json"};
  if (!pattern.empty()) AddAskedWord(pattern, &words);
  return DocumentAnswer([&](TextOut *out) { WriteStatisticsDocument(out, ReadCounters(*source, pattern)); },
                        CommandText(&engine, words));
}

WebAnswer AnswerRegion(WebEngine &engine, const RouteCall &call) {
  const std::string name(call.Text("name"));
  const WebEngine::Loan source = engine.Borrow();
  const RegionLayout *const found = source->layout().FindRegion(name);
  if (found == nullptr)
    throw WebProblem(404, "unknown region " + Quoted(name) + " (/api/v1/regions lists them)");
  const RegionLayout &region = *found;
  if (region.fields.empty())
    throw WebProblem(404, "nothing is known of the fields of region " + name + ", so that it cannot be read");
  const std::vector<uint8_t> bytes = source->ReadRegion(region);
  if (bytes.empty()) throw WebProblem(404, "this engine has no region " + name);
  const RecordShape shape = RecordShape::Whole(region);
  return DocumentAnswer(
      [&](TextOut *out) {
        const auto sink = MakeSink(RecordFormat::kJson, out, {"region", region.spec.name}, shape,
                                   region.fields, 0, nullptr);
        sink->Begin();
        sink->Record(RecordBytes(*source, bytes.data()));
        sink->End(1, false);
      },
      CommandText(&engine, {"regions", name, "--json"}));
}

// "nqecli diff A B", where a running engine is called live.
std::string DiffCommand(const WebEngine &a, const WebEngine &b, bool counters) {
  std::vector<std::string> words{"diff", a.saved() ? a.path() : "live", b.saved() ? b.path() : "live",
                                 "--json"};
  if (counters) words.emplace_back("--counters");
  const WebEngine *live = !a.saved() ? &a : !b.saved() ? &b : nullptr;
  return CommandText(live, words);
}

WebAnswer AnswerDiff(WebEngines *engines, const RouteCall &call) {
  WebEngine &a = engines->Find(call.Text("a"));
  WebEngine &b = engines->Find(call.Text("b"));
  DiffRequest request = DiffRequest::Whole(Layout::BuiltIn());
  if (call.Flag("counters")) request.volatiles = Volatile::kCompared;
  const WebEngine::Loan from = a.Borrow();
  const WebEngine::Loan to = b.Borrow();
  const bool both = !a.saved() && !b.saved();
  return DocumentAnswer([&](TextOut *out) { RunDiff(*from, *to, request, MakeDiffJson(out).get()); },
                        both ? "" : DiffCommand(a, b, call.Flag("counters")));
}

WebAnswer AnswerSchema(std::string_view name) {
  const RegionLayout *region = Layout::BuiltIn().FindRegion(name);
  const TableLayout *table = region == nullptr ? &ReadableTable(name) : nullptr;
  return DocumentAnswer(
      [&](TextOut *out) {
        region != nullptr ? WriteRegionSchema(out, Layout::BuiltIn(), *region)
                          : WriteTableSchema(out, Layout::BuiltIn(), *table);
      },
      CommandText(nullptr, {"schema", std::string(name)}));
}

}  // namespace

void Console::AddInspectRoutes(Routes *routes) {
  const auto on = [this](auto answer) {
    return [this, answer](const RouteCall &call) { return answer(EngineOf(&engines_, call), call); };
  };
  routes->Add(
      {.path = "/api/v1/find",
       .about = "every field that holds a value",
       .parameters = {{.name = "value",
                       .about =
                           "an address, prefix, MAC address, interface index or text, * for any characters",
                       .required = true,
                       .example = "192.0.2.11"},
                      LimitParameter("fields at most, 1000 unless told otherwise", kMostMatches),
                      EngineParameter()},
       .document = "find",
       .run = on(AnswerFind),
       .heavy = true});
  routes->Add({.path = "/api/v1/explain",
               .about = "an address, followed through the tables",
               .parameters = {{.name = "address",
                               .about = "an IPv4, IPv6 or MAC address",
                               .required = true,
                               .example = "192.0.2.11"},
                              {.name = "vpn",
                               .about = "VPN of neighbours and routes",
                               .kind = WebParameter::Kind::kNumber,
                               .most = UINT16_MAX},
                              LimitParameter("entries of one step, 10 unless told otherwise", 1000),
                              EngineParameter()},
               .document = "explain",
               .run = on(AnswerExplain),
               .heavy = true});
  routes->Add({.path = "/api/v1/check",
               .about = "what cannot be true in the engine's tables",
               .parameters = {EngineParameter()},
               .document = "check",
               .run = on([](WebEngine &engine, const RouteCall &) {
                 const WebEngine::Loan source = engine.Borrow();
                 return DocumentAnswer([&](TextOut *out) { WriteCheckDocument(out, *source); },
                                       CommandText(&engine, {"check", "--json"}));
               }),
               .heavy = true});
  routes->Add({.path = "/api/v1/usage",
               .about = "how full the tables are, the fullest first",
               .parameters = {{.name = "warn",
                               .about = "only those that are more than so many percent full",
                               .kind = WebParameter::Kind::kNumber,
                               .least = 1,
                               .most = 100},
                              EngineParameter()},
               .document = "usage",
               .run = on(AnswerUsage)});
  routes->Add({.path = "/api/v1/diff",
               .about = "what two engines or saved arenas have differently",
               .parameters = {{.name = "a", .about = "the name of an engine", .required = true},
                              {.name = "b", .about = "of another", .required = true},
                              {.name = "counters",
                               .about = "whether counters and times are compared as well",
                               .kind = WebParameter::Kind::kFlag}},
               .document = "diff",
               .run = [this](const RouteCall &call) { return AnswerDiff(&engines_, call); },
               .heavy = true});
  routes->Add({.path = "/api/v1/statistics",
               .about = "the engine's counters by name",
               .parameters = {{.name = "pattern",
                               .about = "of names, in which * stands for any characters",
                               .example = "*arp*"},
                              EngineParameter()},
               .document = "statistics",
               .run = on(AnswerStatistics)});
  routes->Add({.path = "/api/v1/regions",
               .about = "the shared regions",
               .parameters = {EngineParameter()},
               .document = "regions",
               .run = on([](WebEngine &engine, const RouteCall &) {
                 const WebEngine::Loan source = engine.Borrow();
                 return DocumentAnswer([&](TextOut *out) { WriteRegionsDocument(out, RegionsOf(*source)); },
                                       CommandText(&engine, {"regions", "--json"}));
               })});
  routes->Add(
      {.path = "/api/v1/regions/{name}",
       .about = "the fields of one region; /api/v1/schema/{table} has the schema",
       .parameters = {{.name = "name", .about = "the region's name", .example = "IPP_SESSION_AGING_TIME"},
                      EngineParameter()},
       .document = R"({"type":"object","required":["region","records","count","truncated"]})",
       .run = on(AnswerRegion)});
  routes->Add({.path = "/api/v1/schema",
               .about = "JSON Schema of all that nqecli prints as JSON",
               .document = R"({"type":"object","required":["$schema","$defs"]})",
               .run = [](const RouteCall &) {
                 return DocumentAnswer([](TextOut *out) { WriteWholeSchema(out, Layout::BuiltIn()); },
                                       CommandText(nullptr, {"schema"}));
               }});
  routes->Add({.path = "/api/v1/schema/{table}",
               .about = "JSON Schema of a table's or region's records",
               .parameters = {{.name = "table", .about = "its name", .example = "arp"}},
               .document = R"({"type":"object","required":["$schema","$defs"]})",
               .run = [](const RouteCall &call) { return AnswerSchema(call.Text("table")); }});
}

}  // namespace qdt::host
