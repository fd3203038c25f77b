#include "tools/omad/own_state.h"

#include <charconv>
#include <cstdlib>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/netconf/xml_text.h"
#include "host/omcc/libyang_memory.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::Model;
using host::OwnedTree;
using host::StateSink;
using host::StateSource;
using host::XmlLeaf;

constexpr char kMonitoring[] = "ietf-netconf-monitoring";
constexpr char kMonitoringSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring";
constexpr char kAccessSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-acm";

// The top-level nodes of the YANG library, one source each. They do not change.
std::vector<StateSource> LibrarySources(const Model &model) {
  lyd_node *library = nullptr;
  if (ly_ctx_get_yanglib_data(model.context(), &library, "%u", ly_ctx_get_change_count(model.context())) !=
      LY_SUCCESS)
    throw HostError("cannot tell the YANG library: " + host::LibyangMessage(model.context()));
  const OwnedTree owned(library);
  std::vector<StateSource> sources;
  for (const lyd_node *node = library; node != nullptr; node = node->next) {
    sources.push_back({"ietf-yang-library", LYD_NAME(node),
                       [body = host::Printed(node, LYD_PRINT_SHRINK)](std::string_view, StateSink *sink) {
                         sink->Take({"urn:ietf:params:xml:ns:yang:ietf-yang-library", "", body});
                         return std::string();
                       }});
  }
  return sources;
}

std::string SchemasOf(const Model &model) {
  std::string xml;
  const auto add = [&](const char *name, const char *revision, const char *space) {
    xml += "<schema>" + XmlLeaf("identifier", name) +
           XmlLeaf("version", revision != nullptr ? revision : "") + "<format>yang</format>" +
           XmlLeaf("namespace", space) + "<location>NETCONF</location></schema>";
  };
  uint32_t index = 0;
  while (const lys_module *module = ly_ctx_get_module_iter(model.context(), &index)) {
    add(module->name, module->revision, module->ns);
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(module->parsed->includes, i) {
      const lysp_submodule *part = module->parsed->includes[i].submodule;
      add(part->name, part->revs != nullptr ? part->revs[0].date : nullptr, module->ns);
    }
  }
  return xml;
}

std::string StatisticsText(const Counters &counters) {
  return XmlLeaf("netconf-start-time", TimeText(counters.start)) + XmlLeaf("in-sessions", counters.sessions) +
         XmlLeaf("dropped-sessions", counters.lostSessions) + XmlLeaf("in-rpcs", counters.calls) +
         XmlLeaf("out-rpc-errors", counters.errors) + XmlLeaf("out-notifications", counters.notifications);
}

// The one stream, whose log begins with the agent.
std::string StreamText(const Counters &counters) {
  return "<stream><name>NETCONF</name><description>alarms, sessions and changes of the configuration"
         "</description><replaySupport>true</replaySupport>" +
         XmlLeaf("replayLogCreationTime", TimeText(counters.start)) + "</stream>";
}

std::string SessionText(const SessionState &session) {
  return "<session>" + XmlLeaf("session-id", session.number) + "<transport>netconf-ssh</transport>" +
         XmlLeaf("username", session.user) +
         (session.address.empty() ? std::string() : XmlLeaf("source-host", session.address)) +
         XmlLeaf("login-time", TimeText(session.since)) + "</session>";
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
  return host::UtcText(static_cast<uint64_t>(since.count()));
}

std::vector<StateSource> OwnStateSources(
    const Model &model, std::vector<std::string> capabilities, const Counters *counters,
    std::function<std::vector<SessionState>(uint32_t from, size_t most)> sessionsFrom) {
  std::vector<StateSource> sources = LibrarySources(model);
  std::string list;
  for (const std::string &each : capabilities) list += XmlLeaf("capability", each);
  const auto monitoring = [&](auto walk) {
    sources.push_back({kMonitoring, "netconf-state", std::move(walk)});
  };
  monitoring([list, schemas = SchemasOf(model)](std::string_view, StateSink *sink) {
    sink->Take({kMonitoringSpace, "netconf-state/capabilities", list});
    sink->Take({kMonitoringSpace, "netconf-state/schemas", schemas});
    return std::string();
  });
  monitoring([sessionsFrom](std::string_view from, StateSink *sink) {
    uint32_t number = 0;
    std::from_chars(from.data(), from.data() + from.size(), number);
    while (!sink->full()) {
      const auto sessions = sessionsFrom(number, 100);
      if (sessions.empty()) return std::string();
      for (const SessionState &each : sessions)
        sink->Take({kMonitoringSpace, "netconf-state/sessions", SessionText(each)});
      number = sessions.back().number + 1;
    }
    return std::to_string(number);
  });
  monitoring([counters](std::string_view, StateSink *sink) {
    sink->Take({kMonitoringSpace, "netconf-state/statistics", StatisticsText(*counters)});
    return std::string();
  });
  sources.push_back(
      {"nc-notifications", "netconf", [counters](std::string_view, StateSink *sink) {
         sink->Take({"urn:ietf:params:xml:ns:netmod:notification", "netconf/streams", StreamText(*counters)});
         return std::string();
       }});
  sources.push_back({"ietf-netconf-acm", "nacm", [counters](std::string_view, StateSink *sink) {
                       sink->Take({kAccessSpace, "nacm",
                                   XmlLeaf("denied-operations", counters->deniedOperations) +
                                       "<denied-data-writes>0</denied-data-writes>" +
                                       XmlLeaf("denied-notifications", counters->deniedNotifications)});
                       return std::string();
                     }});
  return sources;
}

}  // namespace qdt::omad
