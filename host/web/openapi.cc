#include <algorithm>
#include <string>

#include "host/record/record_json.h"
#include "host/record/schema_documents.h"
#include "host/web/routes.h"

namespace qdt::host {
namespace {

// The documents' schemas stand under "$defs" where nqecli prints them, and here where descriptions have them.
std::string Moved(std::string_view schema) {
  constexpr std::string_view kThere = "#/$defs/", kHere = "#/components/schemas/";
  std::string moved(schema);
  for (size_t at = moved.find(kThere); at != moved.npos; at = moved.find(kThere, at + kHere.size()))
    moved.replace(at, kThere.size(), kHere);
  return moved;
}

class OpenApiWriter {
 public:
  explicit OpenApiWriter(TextOut *out) : out_(*out), json_(*out) {}

  void Write(const Routes &routes, std::string_view version) {
    json_.StartObject();
    Text("openapi", "3.1.0");
    Key("info");
    json_.StartObject();
    Text("title", "Forwarding engines as data");
    Text("version", version);
    Text("description",
         "What engines hold, or held when a snapshot was taken. docs/data.md tells what the data means; "
         "every answer "
         "names in the header Nqe-Command the nqecli command that shows the same.");
    json_.EndObject();
    Key("paths");
    json_.StartObject();
    Paths(routes);
    json_.EndObject();
    Key("components");
    json_.StartObject();
    Key("schemas");
    json_.StartObject();
    for (const SchemaPart &part : SchemaParts()) Raw(part.name, part.schema);
    // What /api/v1/schema says more exactly, table by table.
    Raw("place",
        R"({"description":"a table, with the key of one of its entries, or a region","type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},"key":{"type":"object"},
"region":{"type":"string"}},"oneOf":[{"required":["table","id"]},{"required":["region"]}]})");
    for (const SchemaDocument &document : SchemaDocuments()) {
      if (IsUsed(routes, document.name)) Raw(document.name, document.schema);
    }
    Raw("problem", R"({
"description":"RFC 9457","type":"object","properties":{
"type":{"type":"string"},"title":{"type":"string"},"status":{"type":"integer","minimum":400,"maximum":599},
"detail":{"type":"string"}},"required":["type","title","status","detail"],"additionalProperties":false})");
    json_.EndObject();
    Key("securitySchemes");
    Raw("{\"token\":{\"type\":\"http\",\"scheme\":\"bearer\"}}");
    json_.EndObject();
    json_.EndObject();
    out_.Put('\n');
  }

 private:
  static bool IsUsed(const Routes &routes, std::string_view document) {
    return std::ranges::find(routes.rows(), document, &Route::document) != routes.rows().end();
  }

  void Key(std::string_view key) { JsonKey(&json_, key); }
  void Text(std::string_view key, std::string_view value) {
    Key(key);
    JsonText(&json_, value);
  }
  void Raw(std::string_view schema) {
    const std::string moved = Moved(schema);
    json_.RawValue(moved.data(), moved.size(), rapidjson::kObjectType);
  }
  void Raw(std::string_view key, std::string_view schema) {
    Key(key);
    Raw(schema);
  }

  // Methods of one path stand in one object.
  void Paths(const Routes &routes) {
    std::vector<std::string_view> written;
    for (const Route &route : routes.rows()) {
      if (route.hidden || std::ranges::find(written, route.path) != written.end()) continue;
      written.push_back(route.path);
      Key(route.path);
      json_.StartObject();
      for (const Route &other : routes.rows()) {
        if (!other.hidden && other.path == route.path) Operation(other);
      }
      json_.EndObject();
    }
  }

  void Operation(const Route &route) {
    std::string method(route.method);
    std::ranges::transform(method, method.begin(), [](char c) { return static_cast<char>(c | 0x20); });
    Key(method);
    json_.StartObject();
    Text("summary", route.about);
    Key("parameters");
    json_.StartArray();
    for (const WebParameter &parameter : route.parameters) Parameter(route, parameter);
    json_.EndArray();
    if (!route.body.empty()) Body(route.body);
    if (route.Changes()) {
      Key("security");
      Raw("[{\"token\":[]}]");
    }
    Key("responses");
    json_.StartObject();
    Key("200");
    json_.StartObject();
    Text("description", "the answer");
    Content(route.contentType, route.document);
    json_.EndObject();
    Key("default");
    json_.StartObject();
    Text("description", "what is wrong, and how to mend it");
    Content("application/problem+json", "problem");
    json_.EndObject();
    json_.EndObject();
    json_.EndObject();
  }

  void Content(std::string_view type, std::string_view schema) {
    Key("content");
    json_.StartObject();
    Key(type);
    json_.StartObject();
    Key("schema");
    if (schema.empty()) {
      Raw("{\"type\":\"string\"}");
    } else if (schema.starts_with('{')) {
      Raw(schema);
    } else {
      json_.StartObject();
      Text("$ref", "#/components/schemas/" + std::string(schema));
      json_.EndObject();
    }
    json_.EndObject();
    json_.EndObject();
  }

  void Body(std::string_view schema) {
    Key("requestBody");
    json_.StartObject();
    Key("required");
    json_.Bool(true);
    Content("application/json", schema);
    json_.EndObject();
  }

  void Parameter(const Route &route, const WebParameter &parameter) {
    const bool ofPath = route.path.find("{" + std::string(parameter.name) + "}") != route.path.npos;
    json_.StartObject();
    Text("name", parameter.name);
    Text("in", ofPath ? "path" : "query");
    Text("description", parameter.about);
    Key("required");
    json_.Bool(ofPath || parameter.required);
    Key("schema");
    if (parameter.repeatable) {
      json_.StartObject();
      Text("type", "array");
      Key("items");
    }
    Value(parameter);
    if (parameter.repeatable) {
      json_.EndObject();
      Text("style", "form");
      Key("explode");
      json_.Bool(true);
    }
    if (!parameter.example.empty()) Text("example", parameter.example);
    json_.EndObject();
  }

  void Value(const WebParameter &parameter) {
    json_.StartObject();
    switch (parameter.kind) {
      case WebParameter::Kind::kText:
        Text("type", "string");
        break;
      case WebParameter::Kind::kFlag:
        Text("type", "boolean");
        break;
      case WebParameter::Kind::kNumber:
        Text("type", "integer");
        Key("minimum");
        json_.Uint64(parameter.least);
        Key("maximum");
        json_.Uint64(parameter.most);
        break;
      case WebParameter::Kind::kChoice:
        Choices(parameter.choices);
        break;
    }
    json_.EndObject();
  }

  void Choices(std::string_view choices) {
    Key("enum");
    json_.StartArray();
    while (!choices.empty()) {
      const std::string_view choice = choices.substr(0, choices.find('|'));
      JsonText(&json_, choice);
      choices.remove_prefix(std::min(choice.size() + 1, choices.size()));
    }
    json_.EndArray();
  }

  TextOut &out_;
  JsonWriter json_;
};

}  // namespace

void WriteOpenApi(TextOut *out, const Routes &routes, std::string_view version) {
  OpenApiWriter(out).Write(routes, version);
}

}  // namespace qdt::host
