#include "host/console/console.h"

#include "host/base/arguments.h"
#include "host/console/answers.h"

namespace qdt::host {
namespace {

constexpr char kEnginesSchema[] = R"({"type":"object","properties":{
"engines":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"path":{"type":"string"},"saved":{"type":"boolean"},
"state":{"enum":["up","saved","missing","ended","damaged","version","unreadable"]},
"message":{"type":["string","null"]}},
"required":["name","path","saved","state","message"],"additionalProperties":false}},
"count":{"$ref":"#/components/schemas/count"}},
"required":["engines","count"],"additionalProperties":false})";

WebAnswer AnswerEngines(WebEngines *engines) {
  const auto write = [engines](TextOut *out) {
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
    json.EndObject();
    out->Put('\n');
  };
  return DocumentAnswer(write, "");
}

}  // namespace

void AddApi(Routes *routes, WebEngines *engines) {
  Route route;
  route.path = "/api/v1/engines";
  route.about = "the engines that this server shows, and how each is found now";
  route.document = kEnginesSchema;
  route.run = [engines](const RouteCall &) { return AnswerEngines(engines); };
  routes->Add(route);

  Route description;
  description.path = "/api/v1/openapi.json";
  description.about = "this description";
  description.document = R"({"type":"object"})";
  description.run = [routes](const RouteCall &) {
    return DocumentAnswer([routes](TextOut *out) { WriteOpenApi(out, *routes, ProgramVersion()); }, "");
  };
  routes->Add(std::move(description));
}

}  // namespace qdt::host
