#ifndef HOST_OMCC_AGENT_MODULES_H_
#define HOST_OMCC_AGENT_MODULES_H_

#include "host/omcc/model.h"

namespace qdt::host {

// What the state data of the engine is made by.
void ImplementStateModules(const Model &model);
// Makes a management agent's model whole: all that it speaks of beside the engine. Throws HostError.
void ImplementAgentModules(const Model &model);

}  // namespace qdt::host

#endif  // HOST_OMCC_AGENT_MODULES_H_
