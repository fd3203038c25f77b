#include "host/omcc/agent_modules.h"

namespace qdt::host {

void ImplementAgentModules(const Model &model) {
  const char *xpath[] = {"xpath", nullptr};
  model.Implement("ietf-netconf", xpath);
  for (const char *name : {"ietf-netconf-acm", "ietf-netconf-monitoring"}) model.Implement(name);
}

}  // namespace qdt::host
