#include "host/console/console.h"

#include <algorithm>

#include "host/answers/documents.h"
#include "host/arena/arena_layout.h"
#include "host/base/arguments.h"
#include "host/base/time_text.h"
#include "host/console/answers.h"
#include "host/console/history.h"

namespace qdt::host {
namespace {

constexpr char kEnginesSchema[] = R"({"type":"object","properties":{
"engines":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"path":{"type":"string"},"saved":{"type":"boolean"},
"state":{"enum":["up","saved","missing","ended","damaged","version","unreadable"]},
"message":{"type":["string","null"]}},
"required":["name","path","saved","state","message"],"additionalProperties":false}},
"count":{"$ref":"#/components/schemas/count"},"changes":{"type":"boolean"}},
"required":["engines","count","changes"],"additionalProperties":false})";

constexpr char kOverviewSchema[] = R"({"type":"object","properties":{
"engine":{"type":"string"},"state":{"enum":["up","saved"]},
"snapshot":{"type":"object","properties":{
"file":{"type":"string"},"kind":{"enum":["snapshot","running","left"]},"saved":{"type":"string"},
"version":{"type":"string"},"engine":{"type":"object","properties":{
"pid":{"type":"integer"},"started":{"type":"string"},"arena":{"type":"string"},"socket":{"type":"string"}},
"required":["pid","started","socket"],"additionalProperties":false},
"entries":{"$ref":"#/components/schemas/count"},"tables":{"$ref":"#/components/schemas/count"}},
"required":["file","kind","version","engine","entries","tables"],"additionalProperties":false},
"seconds":{"type":["integer","null"],"minimum":0,"x-unit":"s",
"description":"since the engine was started; null for a saved arena"},
"totals":{"type":"object","properties":{
"tables":{"$ref":"#/components/schemas/count"},"entries":{"$ref":"#/components/schemas/count"},
"capacity":{"$ref":"#/components/schemas/count"},"bytes":{"$ref":"#/components/schemas/count"}},
"required":["tables","entries","capacity","bytes"],"additionalProperties":false},
"health":{"type":"object","properties":{
"full":{"type":"array","items":{"type":"string"},"description":"tables that are more than 80 % full"},
"discarded":{"type":["integer","null"],"minimum":0,"description":"packets, over all reasons"},
"errors":{"type":["integer","null"],"minimum":0}},
"required":["full","discarded","errors"],"additionalProperties":false}},
"required":["engine","state","snapshot","seconds","totals","health"],"additionalProperties":false})";

constexpr uint32_t kFull = 80;  // percent

class Overview {
 public:
  Overview(TextOut *out, const WebEngine &engine, const RecordSource &source)
      : json_(*out), engine_(engine), source_(source), usage_(UsageOf(source)) {}

  void Write() {
    json_.StartObject();
    JsonKey(&json_, "engine");
    JsonEscaped(&json_, engine_.name());
    JsonKey(&json_, "state");
    JsonText(&json_, StateName(engine_.saved() ? EngineState::kSaved : EngineState::kUp));
    Identity();
    Totals();
    Health();
    json_.EndObject();
  }

 private:
  void Number(std::string_view name, uint64_t value) {
    JsonKey(&json_, name);
    json_.Uint64(value);
  }

  void Identity() {
    ArenaInfo info{source_.arena()};
    for (const TableUsage &table : usage_) {
      info.entries += table.entries;
      info.tables += table.entries != 0;
    }
    JsonKey(&json_, "snapshot");
    WriteArenaInfo(&json_, info, engine_.path());
    JsonKey(&json_, "seconds");
    constexpr uint64_t kNanoseconds = 1000000000;
    const auto now = static_cast<uint64_t>(time(nullptr));
    const uint64_t started = info.header().startTime / kNanoseconds;
    engine_.saved() ? static_cast<void>(json_.Null())
                    : static_cast<void>(json_.Uint64(now > started ? now - started : 0));
  }

  void Totals() {
    uint64_t entries = 0, capacity = 0, bytes = 0;
    for (const TableUsage &table : usage_) {
      entries += table.entries;
      capacity += table.capacity;
      bytes += table.bytes;
    }
    JsonKey(&json_, "totals");
    json_.StartObject();
    Number("tables", usage_.size());
    Number("entries", entries);
    Number("capacity", capacity);
    Number("bytes", bytes);
    json_.EndObject();
  }

  void Health() {
    JsonKey(&json_, "health");
    json_.StartObject();
    JsonKey(&json_, "full");
    json_.StartArray();
    for (const TableUsage &table : usage_) {
      if (table.IsAbove(kFull)) JsonText(&json_, table.table->shortName);
    }
    json_.EndArray();
    CountedAs("discarded", "discard");
    CountedAs("errors", "error");
    json_.EndObject();
  }

  // Null where the engine keeps no statistics.
  void CountedAs(std::string_view name, std::string_view kind) {
    JsonKey(&json_, name);
    try {
      uint64_t sum = 0;
      for (const Counter &counter : ReadCounters(source_, "").counters) {
        if (counter.kind == kind) sum += counter.sum;
      }
      json_.Uint64(sum);
    } catch (const HostError &) {
      json_.Null();
    }
  }

  JsonWriter json_;
  const WebEngine &engine_;
  const RecordSource &source_;
  const std::vector<TableUsage> usage_;
};

void WriteEngines(TextOut *out, WebEngines *engines, bool allowChanges) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "engines");
  json.StartArray();
  for (WebEngine &engine : engines->all()) {
    const EngineLook look = engine.Look();
    json.StartObject();
    JsonKey(&json, "name");
    JsonEscaped(&json, engine.name());
    JsonKey(&json, "path");
    JsonEscaped(&json, engine.path());
    JsonKey(&json, "saved");
    json.Bool(engine.saved());
    JsonKey(&json, "state");
    JsonText(&json, StateName(look.state));
    JsonKey(&json, "message");
    look.message.empty() ? static_cast<void>(json.Null()) : JsonEscaped(&json, look.message);
    json.EndObject();
  }
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(engines->all().size());
  JsonKey(&json, "changes");
  json.Bool(allowChanges);
  json.EndObject();
}

}  // namespace

Console::Console(ConsoleOptions options, WebEngines *engines)
    : options_(std::move(options)), engines_(*engines), history_(std::make_unique<History>()) {
  for (WebEngine &engine : engines->all()) {
    if (options_.curves && !engine.saved()) history_->Keep(&engine);
  }
}
Console::~Console() = default;
void Console::Stop() { history_->Stop(); }

void Console::AddTo(Routes *routes) {
  Routes own;
  AddEngineRoutes(&own, routes);
  AddTableRoutes(&own);
  AddInspectRoutes(&own);
  AddCommandRoutes(&own);
  AddLiveRoutes(&own);
  AddChangeRoutes(&own);
  // A page that shows an engine names it in all that it asks.
  for (Route route : own.rows()) {
    const bool takesEngine =
        std::ranges::find(route.parameters, "engine", &WebParameter::name) != route.parameters.end();
    if (!takesEngine) route.parameters.push_back(EngineParameter());
    route.run = [this, run = std::move(route.run)](const RouteCall &call) {
      EngineOf(&engines_, call);
      return run(call);
    };
    routes->Add(std::move(route));
  }
}

void Console::AddEngineRoutes(Routes *routes, const Routes *all) {
  routes->Add(
      {.path = "/api/v1/engines",
       .about = "the engines that this server shows, how each is found now, and whether it may change them",
       .document = kEnginesSchema,
       .run = [this](const RouteCall &) {
         return DocumentAnswer([this](TextOut *out) { WriteEngines(out, &engines_, options_.allowChanges); },
                               "");
       }});
  routes->Add({.path = "/api/v1/overview",
               .about = "what engine this is, since when, its version, how much it holds and how it is",
               .parameters = {EngineParameter()},
               .document = kOverviewSchema,
               .run = [this](const RouteCall &call) {
                 WebEngine &engine = EngineOf(&engines_, call);
                 const WebEngine::Loan source = engine.Borrow();
                 return DocumentAnswer([&](TextOut *out) { Overview(out, engine, *source).Write(); },
                                       CommandText(nullptr, {"snapshot", "--info", engine.path(), "--json"}));
               }});
  routes->Add({.path = "/api/v1/openapi.json",
               .about = "this description",
               .document = R"({"type":"object","required":["openapi","info","paths"]})",
               .run = [all](const RouteCall &) {
                 return DocumentAnswer([all](TextOut *out) { WriteOpenApi(out, *all, ProgramVersion()); },
                                       "");
               }});
}

}  // namespace qdt::host
