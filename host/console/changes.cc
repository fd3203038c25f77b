// Requests that change something in a running engine: each is a few commands of nqecli, of words that are
// checked here and written down.

#include <rapidjson/document.h>
#include <syslog.h>

#include <algorithm>

#include "host/base/host_error.h"
#include "host/base/throwing_heap.h"
#include "host/console/answers.h"
#include "host/console/commands.h"
#include "host/console/console.h"

namespace qdt::host {
namespace {

using Words = std::vector<std::string>;
using Json =
    rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<ThrowingHeap>, ThrowingHeap>;
using JsonValue = Json::ValueType;

constexpr size_t kMostConditions = 32;
constexpr size_t kMostWord = 256;
constexpr char kDryRun[] = "dry_run";

constexpr char kTraceBody[] =
    R"({"type":"object","description":"with set all conditions are new ones; the names are those of nqecli pkt_trace set, those without a value take true","properties":{
"action":{"enum":["set","clear"]}},"required":["action"],
"additionalProperties":{"type":["string","integer","boolean"]}})";
constexpr char kMeasurementBody[] = R"({"type":"object","properties":{
"tasks":{"enum":["time","icache","dcache","task_path","snapshot","clear","disable"]},
"points":{"description":"a mode of the fast statistics, or stop","type":["integer","string"]}},
"minProperties":1,"maxProperties":1,"additionalProperties":false})";
constexpr char kResetBody[] = R"({"type":"object","properties":{
"what":{"enum":["cpcar","session","server-map"],"description":"counters of the control plane's rate limits; sessions or server maps, whose conditions are the parameters of nqecli agent reset-session, reset-server-map"},
"dry_run":{"description":"of sessions and server maps: end nothing, and tell what would end","type":"boolean"}},
"required":["what"],"additionalProperties":{"type":["string","integer"]}})";
constexpr char kChangeSchema[] = R"({"type":"object","properties":{
"commands":{"type":"array","items":{"type":"string"}},"text":{"type":"string"}},
"required":["commands","text"],"additionalProperties":false})";

Json ReadBody(const WebRequest &request) {
  const std::string_view type = request.Header("content-type");
  if (type.substr(0, type.find(';')) != "application/json")
    throw WebProblem(415, "a change is asked for as application/json");
  Json body;
  // Iterative: a stranger's document may be nested as deeply as it is long.
  body.Parse<rapidjson::kParseIterativeFlag>(request.body.data(), request.body.size());
  if (body.HasParseError() || !body.IsObject()) throw WebProblem(400, "the body is no JSON object");
  if (body.MemberCount() > kMostConditions) throw WebProblem(400, "the body has too many members");
  return body;
}

std::string TextOf(const JsonValue &value) { return std::string(value.GetString(), value.GetStringLength()); }

// A word for a command line: no option, nothing that a line could be made of.
std::string CheckedWord(std::string_view name, const std::string &word) {
  const auto isPlain = [](char c) { return static_cast<uint8_t>(c) >= ' ' && c != 0x7f; };
  if (!word.empty() && word.size() <= kMostWord && word.front() != '-' && std::ranges::all_of(word, isPlain))
    return word;
  throw WebProblem(400, std::string(name) + " has a value that cannot be one: " + Quoted(word));
}

std::string CheckedName(const JsonValue &value, bool dashes) {
  std::string name = TextOf(value);
  const auto isPlain = [dashes](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == (dashes ? '-' : '_');
  };
  if (!name.empty() && name.size() <= 64 && name.front() >= 'a' && std::ranges::all_of(name, isPlain))
    return name;
  throw WebProblem(400, "unknown condition " + Quoted(name));
}

// Empty for a condition that stands for itself.
std::string ValueOf(const std::string &name, const JsonValue &value) {
  if (value.IsTrue()) return "";
  if (value.IsUint64()) return std::to_string(value.GetUint64());
  if (!value.IsString()) throw WebProblem(400, name + " takes a text, a number or true");
  return CheckedWord(name, TextOf(value));
}

std::string ActionOf(const Json &body, const char *member) {
  const auto found = body.FindMember(member);
  if (found == body.MemberEnd() || !found->value.IsString())
    throw WebProblem(400, std::string("the member ") + member + " is missing, or no text");
  return TextOf(found->value);
}

std::vector<Words> TraceCommands(const Json &body) {
  const std::string action = ActionOf(body, "action");
  std::vector<Words> commands{{"pkt_trace", "clear"}};
  if (action == "clear") return commands;
  if (action != "set") throw WebProblem(400, "the action is set or clear");
  for (const auto &member : body.GetObject()) {
    const std::string name = CheckedName(member.name, false);
    if (name == "action") continue;
    Words words{"pkt_trace", "set", name};
    if (std::string value = ValueOf(name, member.value); !value.empty()) words.push_back(std::move(value));
    commands.push_back(std::move(words));
  }
  commands.push_back({"pkt_trace", "enable"});
  return commands;
}

std::vector<Words> MeasurementCommands(const Json &body) {
  if (body.MemberCount() != 1) throw WebProblem(400, "the body has one member, tasks or points");
  const auto &member = *body.MemberBegin();
  const std::string name = TextOf(member.name);
  const std::string value = ValueOf(name, member.value);
  if (name == "tasks" && (value == "clear" || value == "disable")) return {{"perf", "task", value}};
  if (name == "tasks") return {{"perf", "task", "set", CheckedWord(name, value)}};
  if (name == "points") return {{"pmc", CheckedWord(name, value)}};
  throw WebProblem(400, "the body has one member, tasks or points");
}

std::vector<Words> ResetCommands(const Json &body) {
  const std::string what = ActionOf(body, "what");
  const auto dryRun = body.FindMember(kDryRun);
  if (dryRun != body.MemberEnd() && (what == "cpcar" || !dryRun->value.IsBool()))
    throw WebProblem(400, "dry_run is true or false, of sessions and server maps");
  if (what == "cpcar") return {{"diag", "clear", "cpcar", "status"}};
  if (what != "session" && what != "server-map")
    throw WebProblem(400, "what is reset is cpcar, session or server-map");
  Words words{"agent", "reset-" + what};
  for (const auto &member : body.GetObject()) {
    if (TextOf(member.name) == kDryRun) continue;
    const std::string name = CheckedName(member.name, true);
    if (name == "what") continue;
    words.push_back(name + "=" + ValueOf(name, member.value));
  }
  words.emplace_back(dryRun != body.MemberEnd() && dryRun->value.GetBool() ? "--dry-run" : "--yes");
  return {words};
}

class Changer {
 public:
  Changer(const ConsoleOptions &options, WebEngine *engine) : options_(options), engine_(*engine) {}

  WebAnswer Run(const std::vector<Words> &commands) {
    if (engine_.saved()) throw WebProblem(409, "a saved arena has no engine that could be changed");
    engine_.Borrow();
    Words texts;
    std::string all;
    for (const Words &words : commands) {
      texts.push_back(CommandText(&engine_, words));
      all += RunOne(words, texts.back());
    }
    return DocumentAnswer(
        [&](TextOut *out) {
          JsonWriter json(*out);
          json.StartObject();
          JsonKey(&json, "commands");
          json.StartArray();
          for (const std::string &text : texts) JsonText(&json, text);
          json.EndArray();
          JsonKey(&json, "text");
          JsonLines(&json, all);
          json.EndObject();
        },
        texts.back());
  }

 private:
  std::string RunOne(const Words &words, const std::string &text) {
    syslog(LOG_NOTICE, "change: %s", text.c_str());
    ChildLimits limits = options_.child;
    limits.memory = 0;  // the engine's tables are mapped privately
    const ChildAnswer answer = RunTool(options_, engine_, "nqecli", words, "", limits);
    // How many there were is a remark.
    if (answer.code == 0) return answer.output + answer.errors;
    if (answer.late) throw WebProblem(504, "the engine did not take it in time", "time-limit");
    std::string why = answer.errors.empty() ? answer.output : answer.errors;
    why.resize(std::min(why.find('\n'), why.size()));
    throw WebProblem(409, "refused: " + (why.empty() ? text : why), "refused");
  }

  const ConsoleOptions &options_;
  WebEngine &engine_;
};

}  // namespace

void Console::AddChangeRoutes(Routes *routes) {
  const auto add = [&](std::string_view path, std::string_view about, std::string_view body,
                       auto commandsOf) {
    routes->Add({.method = "POST",
                 .path = path,
                 .about = about,
                 .parameters = {EngineParameter()},
                 .document = kChangeSchema,
                 .run =
                     [this, commandsOf](const RouteCall &call) {
                       const std::vector<Words> commands = commandsOf(ReadBody(call.request()));
                       return Changer(options_, &EngineOf(&engines_, call)).Run(commands);
                     },
                 .body = body});
  };
  add("/api/v1/trace", "sets or clears the conditions of the packet trace, whose lines come as events",
      kTraceBody, TraceCommands);
  add("/api/v1/measurement", "starts and ends a measurement", kMeasurementBody, MeasurementCommands);
  add("/api/v1/reset", "sets counters to 0, or ends sessions or server maps", kResetBody, ResetCommands);
}

}  // namespace qdt::host
