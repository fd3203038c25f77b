#include "host/omcc/agent_modules.h"

namespace qdt::host {

void ImplementStateModules(const Model &model) { model.Implement("tavrix-engine-state"); }

void ImplementAgentModules(const Model &model) {
  const char *xpath[] = {"xpath", nullptr};
  const char *alarms[] = {"alarm-history", "alarm-summary", nullptr};
  ImplementStateModules(model);
  model.Implement("ietf-netconf", xpath);
  model.Implement("ietf-alarms", alarms);
  for (const char *name : {"ietf-netconf-acm", "ietf-netconf-monitoring", "ietf-netconf-notifications",
                           "notifications", "nc-notifications", "tavrix-alarms"})
    model.Implement(name);
}

}  // namespace qdt::host
