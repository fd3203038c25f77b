#ifndef TOOLS_OMAD_STATE_H_
#define TOOLS_OMAD_STATE_H_

#include "host/agent/worker.h"
#include "host/omcc/model.h"

namespace qdt::omad {

// All state data that the agent serves: the engine's statistics from the two document handlers, the YANG
// library (RFC 8525) and the list of schemas for <get-schema> (RFC 6022). Throws HostError when the engine
// does not answer.
host::OwnedTree ReadState(const host::Model &model, host::AgentWorker *worker);

// The same without the engine's part, for requests that do not look at it.
host::OwnedTree ReadOwnState(const host::Model &model);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_STATE_H_
