// What clients ask omad for: the part of Daemon that knows the operations.

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "host/agent/handlers.h"
#include "host/base/host_error.h"
#include "host/netconf/rpc_error.h"
#include "host/omcc/libyang_memory.h"
#include "host/session/fields.h"
#include "host/session/link.h"
#include "tools/omad/daemon.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::RequestError;
using host::RpcError;
using Layer = RpcError::Layer;
using Severity = host::Record::Severity;

constexpr char kMonitoringSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring";

std::string PathOf(const Call &call, const std::string &parameter = {}) {
  return "/nc:rpc/op:" + call.operation + (parameter.empty() ? "" : "/op:" + parameter);
}

RpcError AsRpcError(const Call &call, const RequestError &error) {
  using Kind = RequestError::Kind;
  constexpr std::pair<Kind, const char *> kTags[] = {{Kind::kUnknownOperation, "operation-not-supported"},
                                                     {Kind::kUnknownParameter, "unknown-element"},
                                                     {Kind::kGivenTwice, "bad-element"},
                                                     {Kind::kMissingParameter, "missing-element"},
                                                     {Kind::kInvalidValue, "invalid-value"}};
  const auto isIt = [&](const auto &each) { return each.first == error.kind(); };
  RpcError told(Layer::kApplication, std::ranges::find_if(kTags, isIt)->second, error.what());
  // A name that the model does not know may be anything.
  const bool known = error.kind() != Kind::kUnknownParameter;
  told.At(PathOf(call, known ? error.parameter() : ""), call.space);
  if (error.kind() != Kind::kInvalidValue && !error.parameter().empty())
    told.With("bad-element", error.parameter());
  return told;
}

RpcError NotSupported(const Call &call, const std::string &why) {
  return RpcError(Layer::kProtocol, "operation-not-supported", why).At(PathOf(call), call.space);
}

RpcError Failed(const Call &call, const std::string &why) {
  return RpcError(Layer::kApplication, "operation-failed", why).At(PathOf(call), call.space);
}

const std::string *ParameterOf(const Call &call, std::string_view name) {
  for (const auto &[each, value] : call.parameters) {
    if (each == name) return &value;
  }
  return nullptr;
}

// "protocol=17 type=ipv6"
// A value that could pass for another parameter stands in quotes.
std::string ValueText(const std::string &value) {
  if (value.find_first_of(" \t\r\n\"=") == value.npos) return value;
  std::string text = "\"";
  for (const char c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

std::string ParametersText(const Call &call) {
  std::string text;
  for (const auto &[name, value] : call.parameters)
    text += (text.empty() ? "" : " ") + name + '=' + ValueText(value);
  return text;
}

// Of an operation of NETCONF: each parameter is one of the model's, and comes once. Their values are looked
// at where they are used.
void CheckParameters(const Call &call, const lysc_node *operation) {
  using Kind = RequestError::Kind;
  std::vector<std::string_view> seen;
  for (const auto &[name, value] : call.parameters) {
    if (lys_find_child(operation, operation->module, name.c_str(), name.size(), 0, 0) == nullptr) {
      throw RequestError(Kind::kUnknownParameter, name,
                         call.operation + " has no parameter " + host::Quoted(name));
    }
    if (std::ranges::count(seen, name) != 0)
      throw RequestError(Kind::kGivenTwice, name, "the parameter " + host::Quoted(name) + " is given twice");
    seen.push_back(name);
  }
}

}  // namespace

void Daemon::Refuse(Client *client, const RpcError &error) {
  ++counters_.errors;
  client->TellError(error);
}

void Daemon::RecordCommand(const Who &who, const Call &call, const std::string &result) {
  const bool done = result == "ok";
  Write(done ? Severity::kNotice : Severity::kWarning, "COMMAND", who,
        {{"operation", call.operation}, {"parameters", ParametersText(call)}, {"result", result}},
        done ? "a command has changed something" : "a command that would have changed something");
}

void Daemon::TakeCall(Client *client, const host::Frame &frame) {
  const auto fields = host::ReadFields(frame.text, host::kCallFields);
  if (!fields || fields->size() < 2 || fields->size() % 2 != 0) {
    client->broken = true;
    return;
  }
  ++counters_.calls;
  client->walk.reset();
  Call call{fields->at(0), fields->at(1), {}};
  for (size_t i = 2; i < fields->size(); i += 2)
    call.parameters.emplace_back(fields->at(i), fields->at(i + 1));
  const lys_module *module = ly_ctx_get_module_implemented_ns(model_.context(), call.space.c_str());
  const lysc_node *operation = module == nullptr ? nullptr
                                                 : lys_find_child(nullptr, module, call.operation.c_str(),
                                                                  call.operation.size(), LYS_RPC, 0);
  if (operation == nullptr) {
    return Refuse(client,
                  NotSupported(call, "there is no operation " + host::Quoted(call.operation) +
                                         (module == nullptr ? " of the namespace " + host::Quoted(call.space)
                                                            : std::string(" in ") + module->name)));
  }
  // RFC 8341, section 3.2.1: these are for nobody unless a rule says so.
  const bool denied = host::IsDeniedByDefault(operation) ||
                      (call.space == host::kNetconfSpace &&
                       (call.operation == "kill-session" || call.operation == "delete-config"));
  if (!host::NacmUser(rules_, client->user).MayRun(module->name, call.operation, denied)) {
    ++counters_.deniedOperations;
    Write(Severity::kWarning, "REFUSED", *client,
          {{"operation", call.operation}, {"parameters", ParametersText(call)}, {"result", "access-denied"}},
          "the rules do not permit it");
    return Refuse(client, RpcError(Layer::kApplication, "access-denied",
                                   client->user + " may not run " + call.operation)
                              .At(PathOf(call), call.space));
  }
  const auto recordRefused = [&](const HostError &error) {
    if (module == model_.module() && denied)
      RecordCommand(*client, call, std::string("refused: ") + error.what());
  };
  try {
    Run(client, call, operation);
  } catch (const RpcError &error) {
    recordRefused(error);
    Refuse(client, error);
  } catch (const RequestError &error) {
    recordRefused(error);
    Refuse(client, AsRpcError(call, error));
  } catch (const HostError &error) {
    Refuse(client, Failed(call, error.what()));
  }
}

void Daemon::Run(Client *client, const Call &call, const lysc_node *operation) {
  if (operation->module == model_.module())
    return RunCommand(client, call, host::IsDeniedByDefault(operation));
  const std::string_view name = call.operation;
  if (call.space == host::kNetconfSpace && name == "get") return Get(client, call);
  CheckParameters(call, operation);
  // The agent has no configuration.
  if (call.space == host::kNetconfSpace && name == "get-config") return client->Tell(host::kTellDataEnd, {});
  if (call.space == host::kNetconfSpace && name == "kill-session") return KillSession(client, call);
  if (call.space == kMonitoringSpace && name == "get-schema") return GetSchema(client, call);
  if (call.space == host::kNotificationSpace && name == "create-subscription") return Subscribe(client, call);
  Refuse(client, NotSupported(call, call.operation + " is not supported: the agent has no configuration"));
}

void Daemon::RunCommand(Client *client, const Call &call, bool changes) {
  const host::Handler *handler = host::FindHandler(call.operation);
  if (handler == nullptr || call.operation != handler->rpc)
    return Refuse(client, NotSupported(call, "there is no such command"));
  const host::OwnedTree request = model_.MakeRequest(call.operation, call.parameters);
  if (handler->check != nullptr) handler->check(request.get());
  // Where nothing runs the first one begins as soon as all that has come is taken.
  const size_t waiting = waitingCommands_ - (!running_ && waitingCommands_ != 0);
  if (waiting >= options_.limits.waiting) {
    throw RpcError(Layer::kApplication, "resource-denied",
                   std::to_string(waiting) + " commands wait already; ask again later")
        .At(PathOf(call), call.space);
  }
  ++waitingCommands_;
  waiting_.push_back({*client, host::WorkerJob::Run(*handler, request.get()), call, changes});
  client->asking = true;
}

void Daemon::TellAnswer(Client *client, const Work &work, const host::WorkerAnswer &answer) {
  if (!work.command) {
    if (!answer.failure.empty()) {
      client->walk.reset();
      return Refuse(client, Failed({host::kNetconfSpace, "get", {}}, answer.failure));
    }
    std::vector<host::StateRecord> records;
    const auto fields = host::ReadFields(answer.handler.text, answer.handler.text.size());
    for (size_t i = 0; fields && i + 3 <= fields->size(); i += 3)
      records.push_back({(*fields)[i], (*fields)[i + 1], (*fields)[i + 2]});
    return TellRecords(client, std::move(records), answer.next);
  }
  const Call &call = *work.command;
  if (!answer.failure.empty()) return Refuse(client, Failed(call, answer.failure));
  if (!answer.handler.sent) {
    if (answer.handler.result == 0) return client->Tell(host::kTellOk, {});
    return Refuse(client, Failed(call, call.operation + " failed (" + std::to_string(answer.handler.result) +
                                           "); the agent's system log has the reason"));
  }
  const std::string_view text = answer.handler.text;
  for (size_t at = 0; at < text.size(); at += host::kPieceSize)
    client->TellText(host::kTellText, text.substr(at, host::kPieceSize));
  client->Tell(host::kTellTextEnd, {call.space, "text"});
}

void Daemon::Get(Client *client, const Call &call) {
  std::vector<std::string> places;
  for (const auto &[name, value] : call.parameters) {
    if (name != "want")
      throw RequestError(RequestError::Kind::kUnknownParameter, name,
                         "get has no parameter " + host::Quoted(name));
    places.push_back(value);
  }
  client->walk = DataWalk{state_.Wanted(places, host::NacmUser(rules_, client->user)), {}};
  std::ranges::reverse(client->walk->parts);
  WalkOn(client);
}

// Tells the next piece of the walk, or has it fetched.
void Daemon::WalkOn(Client *client) {
  if (!client->walk || client->asking) return;
  if (client->walk->parts.empty()) {
    client->walk.reset();
    return client->Tell(host::kTellDataEnd, {});
  }
  const auto &[place, condition] = client->walk->parts.back();
  if (state_.IsOfEngine(place)) {
    waiting_.push_back({*client,
                        host::WorkerJob::Walk(state_.EnginePlace(place), client->walk->from, condition),
                        {},
                        false});
    client->asking = true;
    return;
  }
  host::StateSink sink(host::kPieceSize);
  std::string next = state_.source(place).walk(client->walk->from, &sink);
  TellRecords(client, std::move(sink.records()), std::move(next));
}

void Daemon::TellRecords(Client *client, std::vector<host::StateRecord> records, std::string next) {
  if (!client->walk) return;
  const std::string piece = state_.Piece(client->walk->parts.back().source,
                                         host::NacmUser(rules_, client->user), std::move(records));
  if (next.empty()) client->walk->parts.pop_back();
  client->walk->from = std::move(next);
  if (piece.size() > host::kFrameLimit) {
    client->walk.reset();
    return Refuse(client, Failed({host::kNetconfSpace, "get", {}}, "an entry is too long to be told"));
  }
  client->TellText(host::kTellData, piece);
}

// RFC 6022, section 3.1.
void Daemon::GetSchema(Client *client, const Call &call) {
  const std::string *identifier = ParameterOf(call, "identifier");
  if (identifier == nullptr) {
    throw RequestError(RequestError::Kind::kMissingParameter, "identifier",
                       "get-schema needs the parameter \"identifier\"");
  }
  const std::string *version = ParameterOf(call, "version");
  const std::string *format = ParameterOf(call, "format");
  if (format != nullptr && format->substr(format->find(':') + 1) != "yang")
    throw host::InvalidValue("format", *format, "yang");
  const ly_ctx *context = model_.context();
  const lys_module *module = version != nullptr && !version->empty()
                                 ? ly_ctx_get_module(context, identifier->c_str(), version->c_str())
                                 : ly_ctx_get_module_latest(context, identifier->c_str());
  if (module == nullptr) {
    throw RequestError(
        RequestError::Kind::kInvalidValue, version != nullptr ? "version" : "identifier",
        "there is no schema " + host::Quoted(*identifier) +
            (version != nullptr && !version->empty() ? " of version " + host::Quoted(*version) : ""));
  }
  const std::string schema = host::Printed(module);
  for (size_t at = 0; at < schema.size(); at += host::kPieceSize)
    client->TellText(host::kTellText, std::string_view(schema).substr(at, host::kPieceSize));
  client->Tell(host::kTellTextEnd, {kMonitoringSpace, "data"});
}

void Daemon::KillSession(Client *client, const Call &call) {
  const std::string *text = ParameterOf(call, "session-id");
  if (text == nullptr) {
    throw RequestError(RequestError::Kind::kMissingParameter, "session-id",
                       "kill-session needs the parameter \"session-id\"");
  }
  uint32_t number = 0;
  const char *const last = text->data() + text->size();
  const auto [stop, error] = std::from_chars(text->data(), last, number);
  Client *other = error == std::errc() && stop == last && number != 0 ? Find(number) : nullptr;
  if (other == nullptr || other == client) {
    RecordCommand(*client, call, "refused: no such session");
    throw host::InvalidValue("session-id", *text, "the number of another session");
  }
  RecordCommand(*client, call, "ok");
  other->Bye("session " + std::to_string(client->number) + " of " + client->user + " has ended it",
             {"killed", client->number});
  client->Tell(host::kTellOk, {});
}

}  // namespace qdt::omad
