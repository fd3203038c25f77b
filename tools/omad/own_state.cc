#include "tools/omad/own_state.h"

#include <charconv>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "host/base/host_error.h"
#include "host/netconf/xml_text.h"
#include "host/omcc/libyang_memory.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::Model;
using host::OwnedTree;
using host::StateSink;
using host::StateSource;

constexpr char kMonitoring[] = "ietf-netconf-monitoring";
constexpr char kMonitoringSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring";
constexpr char kAccessSpace[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-acm";

std::string Element(const char *name, const std::string &text) {
  return std::string("<") + name + '>' + host::XmlEscaped(text) + "</" + name + '>';
}
std::string Element(const char *name, uint32_t number) { return Element(name, std::to_string(number)); }

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
    xml += "<schema>" + Element("identifier", std::string(name)) +
           Element("version", std::string(revision != nullptr ? revision : "")) + "<format>yang</format>" +
           Element("namespace", std::string(space)) + "<location>NETCONF</location></schema>";
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
  return Element("netconf-start-time", TimeText(counters.start)) + "<in-bad-hellos>0</in-bad-hellos>" +
         Element("in-sessions", counters.sessions) + Element("dropped-sessions", counters.lostSessions) +
         Element("in-rpcs", counters.calls) + Element("out-rpc-errors", counters.errors);
}

std::string SessionText(const SessionState &session) {
  return "<session>" + Element("session-id", session.number) + "<transport>netconf-ssh</transport>" +
         Element("username", session.user) +
         (session.address.empty() ? std::string() : Element("source-host", session.address)) +
         Element("login-time", TimeText(session.since)) + "</session>";
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point time) {
  const time_t seconds = std::chrono::system_clock::to_time_t(time);
  tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::vector<StateSource> OwnStateSources(
    const Model &model, std::vector<std::string> capabilities, const Counters *counters,
    std::function<std::vector<SessionState>(uint32_t from, size_t most)> sessionsFrom) {
  std::vector<StateSource> sources = LibrarySources(model);
  std::string list;
  for (const std::string &each : capabilities) list += Element("capability", each);
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
  sources.push_back({"ietf-netconf-acm", "nacm", [counters](std::string_view, StateSink *sink) {
                       sink->Take({kAccessSpace, "nacm",
                                   Element("denied-operations", counters->deniedOperations) +
                                       "<denied-data-writes>0</denied-data-writes>" +
                                       Element("denied-notifications", counters->deniedNotifications)});
                       return std::string();
                     }});
  return sources;
}

}  // namespace qdt::omad
