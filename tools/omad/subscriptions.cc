// What sessions hear of without asking each time (RFC 5277, RFC 6470): the part of Daemon that knows the
// events.

#include <algorithm>
#include <utility>

#include "host/base/time_text.h"
#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"
#include "host/session/link.h"
#include "tools/omad/daemon.h"

namespace qdt::omad {
namespace {

using host::RpcError;
using host::XmlLeaf;
using Time = std::chrono::system_clock::time_point;
using Layer = RpcError::Layer;

constexpr char kModule[] = "ietf-netconf-notifications";
constexpr char kSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-notifications";
constexpr char kManagementSpace[] = "urn:ietf:params:xml:ns:netmod:notification";

RpcError Wrong(const Call &call, const char *tag, const std::string &about, const std::string &why) {
  return RpcError(Layer::kProtocol, tag, why)
      .At("/nc:rpc/op:" + call.operation + "/op:" + about, call.space)
      .With("bad-element", about);
}

Time ReadTime(const Call &call, const std::string &name, const std::string &text) {
  const auto time = host::ReadTime(text);
  if (!time) {
    throw Wrong(call, "invalid-value", name,
                host::Quoted(text) + " is no time (it takes one as in 2026-11-22T10:00:00Z)");
  }
  return Time(std::chrono::nanoseconds(*time));
}

// One that the session asks for all the same, whatever it wants to hear of.
std::string ManagementEvent(const char *name) {
  return host::Joined({"<", name, " xmlns=\"", kManagementSpace, "\"/>"});
}

}  // namespace

void Daemon::Subscribe(Client *client, const Call &call) {
  const Time now = std::chrono::system_clock::now();
  std::optional<Time> start, stop;
  for (const auto &[name, value] : call.parameters) {
    if (name == "stream") {
      if (value != "NETCONF")
        throw Wrong(call, "invalid-value", name,
                    "there is no stream " + host::Quoted(value) + " (it takes NETCONF)");
    } else {
      (name == "startTime" ? start : stop) = ReadTime(call, name, value);
    }
  }
  if (stop && !start) throw Wrong(call, "missing-element", "startTime", "a stopTime goes with a startTime");
  if (start && *start > now) throw Wrong(call, "bad-element", "startTime", "the startTime is still to come");
  if (stop && *stop < *start)
    throw Wrong(call, "bad-element", "stopTime", "the stopTime is before the startTime");
  if (client->subscription) {
    throw RpcError(Layer::kProtocol, "operation-failed", "this session has a subscription already")
        .At("/nc:rpc/op:" + call.operation, call.space);
  }
  Subscription wanted{events_.end(), {}, stop};
  if (start) {
    wanted.next = events_.Since(*start);
    wanted.replayedTo = events_.end();
  }
  client->Tell(host::kTellOk, {});
  client->subscription = wanted;
  TellEvent(client);
}

bool Daemon::MayReceive(const Client &client, const host::Event &event) const {
  const lys_module *module = ly_ctx_get_module_implemented(model_.context(), event.module.c_str());
  const lysc_node *node =
      module == nullptr ? nullptr : lys_find_child(nullptr, module, event.name.c_str(), 0, LYS_NOTIF, 0);
  const bool denied = node != nullptr && host::IsDeniedByDefault(node);
  return host::NacmUser(rules_, client.user).MayReceive(event.module, event.name, denied);
}

void Daemon::TellEvent(Client *client) {
  if (!client->subscription || client->eventUnderWay || client->closing) return;
  Subscription &wanted = *client->subscription;
  const Time now = std::chrono::system_clock::now();
  // No rule and no filter keeps back how a subscription itself goes on.
  const auto tellAlways = [&](const char *name) {
    client->Tell(host::kTellEvent, {TimeText(now), ManagementEvent(name), ""});
    client->eventUnderWay = true;
  };
  // What has fallen out of the log is lost to those who are slower than that.
  wanted.next = std::max(wanted.next, events_.begin());
  while (!client->eventUnderWay) {
    if (wanted.replayedTo && wanted.next >= *wanted.replayedTo) {
      wanted.replayedTo.reset();
      return tellAlways("replayComplete");
    }
    const bool isThere = wanted.next < events_.end();
    const bool isOver =
        wanted.stop && (isThere ? events_.At(wanted.next).time > *wanted.stop : now > *wanted.stop);
    if (isOver && wanted.replayedTo) {
      wanted.next = *wanted.replayedTo;
      continue;
    }
    if (isOver) {
      client->subscription.reset();
      client->moved = Clock::now();
      return tellAlways("notificationComplete");
    }
    if (!isThere) return;
    const host::Event &event = events_.At(wanted.next++);
    if (!MayReceive(*client, event)) {
      ++counters_.deniedNotifications;
      continue;
    }
    ++counters_.notifications;
    client->Tell(host::kTellEvent, {TimeText(event.time), event.body});
    client->eventUnderWay = true;
  }
}

void Daemon::EndSubscriptions() {
  const Time now = std::chrono::system_clock::now();
  for (Client &each : clients_) {
    if (each.subscription && each.subscription->stop && *each.subscription->stop < now)
      OrBreak(&each, [&] { TellEvent(&each); });
  }
}

// Where memory is short nobody hears of it, which is no reason not to go on.
void Daemon::Publish(host::Event event) {
  const auto publish = [&] { return events_.Publish(std::move(event)), true; };
  if (!host::UnlessShort(false, publish)) return;
  for (Client &each : clients_) OrBreak(&each, [&] { TellEvent(&each); });
}

void Daemon::PublishSession(const Client &client, bool begins) {
  host::UnlessShort(false, [&] {
    const char *name = begins ? "netconf-session-start" : "netconf-session-end";
    std::string body = host::Joined({"<", name, " xmlns=\"", kSpace, "\">"}) +
                       XmlLeaf("username", client.user) + XmlLeaf("session-id", client.number);
    if (!client.address.empty()) body += XmlLeaf("source-host", client.address);
    if (!begins) {
      if (client.end.killedBy != 0) body += XmlLeaf("killed-by", client.end.killedBy);
      body += XmlLeaf("termination-reason", client.end.reason);
    }
    body += host::Joined({"</", name, ">"});
    Publish({std::chrono::system_clock::now(), kModule, name, std::move(body)});
    return true;
  });
}

// The rules are the only configuration, and whoever has written them is none of the sessions.
void Daemon::PublishRules() {
  host::UnlessShort(false, [&] {
    Publish({std::chrono::system_clock::now(), kModule, "netconf-config-change",
             host::Joined(
                 {"<netconf-config-change xmlns=\"", kSpace,
                  "\"><changed-by><server/></changed-by><datastore>running</datastore><edit>"
                  "<target xmlns:nacm=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\">/nacm:nacm</target>"
                  "<operation>replace</operation></edit></netconf-config-change>"})});
    return true;
  });
}

}  // namespace qdt::omad
