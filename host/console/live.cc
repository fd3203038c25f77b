// What goes on in engines: curves of the last minutes, what their cores spend their time with, and events.

#include <algorithm>
#include <atomic>
#include <cstring>

#include "host/base/host_error.h"
#include "host/console/answers.h"
#include "host/console/console.h"
#include "host/console/history.h"
#include "host/console/measurement.h"
#include "host/console/trace_lines.h"

namespace qdt::host {
namespace {

constexpr uint64_t kMostMinutes = 10;
constexpr std::chrono::milliseconds kMoment{500};
constexpr std::chrono::seconds kSign{10};  // of life, where nothing else is to be told

constexpr char kHistorySchema[] =
    R"({"type":"object","description":"what was counted a second, the most first; samples begin when somebody looks","properties":{
"engine":{"type":"string"},"period":{"type":"integer","x-unit":"s"},
"samples":{"type":"array","items":{"type":"object","properties":{
"number":{"type":"integer","minimum":1},"time":{"type":"string"},"seconds":{"type":"number","x-unit":"s"},
"discards":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"total":{"$ref":"#/components/schemas/count"},"per_second":{"type":"number","minimum":0}},
"required":["name","total","per_second"],"additionalProperties":false}},
"interfaces":{"type":"array","items":{"type":"object","properties":{
"if_index":{"$ref":"#/components/schemas/count"},"in_bytes":{"type":"number","minimum":0},
"in_packets":{"type":"number","minimum":0},"out_bytes":{"type":"number","minimum":0},
"out_packets":{"type":"number","minimum":0}},
"required":["if_index","in_bytes","in_packets","out_bytes","out_packets"],"additionalProperties":false}}},
"required":["number","time","seconds","discards","interfaces"],"additionalProperties":false}},
"count":{"$ref":"#/components/schemas/count"}},
"required":["engine","period","samples","count"],"additionalProperties":false})";

void WriteHistory(TextOut *out, const WebEngine &engine, const std::vector<Sample> &samples) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "engine");
  JsonEscaped(&json, engine.name());
  JsonKey(&json, "period");
  json.Uint64(History::kPeriod.count());
  JsonKey(&json, "samples");
  json.StartArray();
  for (const Sample &sample : samples) WriteSample(&json, sample);
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(samples.size());
  json.EndObject();
}

std::string Event(std::string_view name, std::string_view data) {
  return "event: " + std::string(name) + "\ndata: " + std::string(data) + "\n\n";
}

// Tells one listener what happens, until he goes.
class Listener {
 public:
  Listener(WebEngines *engines, WebEngine *engine, History *history, const SendPart &send)
      : engines_(*engines), engine_(*engine), history_(*history), send_(send) {}

  void Run() {
    if (!send_("retry: 2000\n\n")) return;
    while (history_.Wait(&engine_, number_, kMoment)) {
      std::string events = States() + Samples() + Lines();
      const auto now = std::chrono::steady_clock::now();
      if (events.empty() && now - told_ > kSign) events = ": still here\n\n";
      if (!events.empty()) told_ = now;
      if (!send_(events)) return;
    }
  }

 private:
  // One event for each engine whose state is another one than it was, all of them at first.
  std::string States() {
    std::string events;
    size_t i = 0;
    states_.resize(engines_.all().size());
    for (WebEngine &engine : engines_.all()) {
      const EngineLook look = engine.Look();
      const std::string state(StateName(look.state));
      if (std::exchange(states_[i++], state) == state) continue;
      StringOut out;
      JsonWriter json(out);
      json.StartObject();
      JsonKey(&json, "engine");
      JsonEscaped(&json, engine.name());
      JsonKey(&json, "state");
      JsonText(&json, state);
      JsonKey(&json, "message");
      look.message.empty() ? static_cast<void>(json.Null()) : JsonEscaped(&json, look.message);
      json.EndObject();
      events += Event("state", out.Take());
    }
    return events;
  }

  std::string Samples() {
    std::string events;
    if (!history_.Want(&engine_)) return events;
    for (const Sample &sample : history_.Read(&engine_, number_, std::chrono::seconds(kMostMinutes * 60))) {
      StringOut out;
      JsonWriter json(out);
      WriteSample(&json, sample);
      if (number_ != 0 || begun_) events += Event("sample", out.Take());
      number_ = sample.number;
    }
    begun_ = true;
    return events;
  }

  std::string Lines() {
    std::string events;
    for (const std::string &line : trace_.Read(&engine_)) {
      StringOut out;
      JsonWriter json(out);
      json.StartObject();
      JsonKey(&json, "line");
      JsonEscaped(&json, line);
      json.EndObject();
      events += Event("trace", out.Take());
    }
    return events;
  }

  WebEngines &engines_;
  WebEngine &engine_;
  History &history_;
  const SendPart &send_;
  std::vector<std::string> states_;
  uint64_t number_ = 0;
  bool begun_ = false;
  TraceLines trace_;
  std::chrono::steady_clock::time_point told_ = std::chrono::steady_clock::now();
};

}  // namespace

void Console::AddLiveRoutes(Routes *routes) {
  routes->Add({.path = "/api/v1/history",
               .about = "what is discarded and why, and what interfaces carry, over the last minutes",
               .parameters = {{.name = "minutes",
                               .about = "10 unless told otherwise",
                               .kind = WebParameter::Kind::kNumber,
                               .least = 1,
                               .most = kMostMinutes},
                              EngineParameter()},
               .document = kHistorySchema,
               .run = [this](const RouteCall &call) {
                 WebEngine &engine = EngineOf(&engines_, call);
                 engine.Borrow();
                 if (!history_->Want(&engine))
                   throw WebProblem(503,
                                    "the curves of " + std::to_string(History::kEngines) +
                                        " other engines are being looked at; close one",
                                    "busy");
                 const std::chrono::seconds seconds(60 * call.Number("minutes").value_or(kMostMinutes));
                 const std::vector<Sample> samples = history_->Read(&engine, 0, seconds);
                 return DocumentAnswer([&](TextOut *out) { WriteHistory(out, engine, samples); },
                                       CommandText(&engine, {"watch", "statistics"}));
               }});
  routes->Add({.path = "/api/v1/measurement",
               .about = "the scheduler's tasks with what follows them, and the measurement points, as the "
                        "engine counts them",
               .parameters = {EngineParameter()},
               .document = MeasurementSchema(),
               .run = [this](const RouteCall &call) {
                 WebEngine &engine = EngineOf(&engines_, call);
                 const WebEngine::Loan source = engine.Borrow();
                 return DocumentAnswer([&](TextOut *out) { WriteMeasurement(out, *source); },
                                       CommandText(&engine, {"perf", "task", "show"}));
               }});
  routes->Add({.path = "/api/v1/events",
               .about = "server-sent events: `state` of an engine, all of them at first; `sample` as "
                        "/api/v1/history has them; "
                        "`trace`, a line of the packet trace",
               .parameters = {EngineParameter()},
               .contentType = "text/event-stream",
               .run = [this](const RouteCall &call) {
                 WebEngine &engine = EngineOf(&engines_, call);
                 WebAnswer answer;
                 answer.contentType = "text/event-stream";
                 answer.stream = [this, &engine](const SendPart &send) {
                   Listener(&engines_, &engine, history_.get(), send).Run();
                 };
                 return answer;
               }});
}

}  // namespace qdt::host
