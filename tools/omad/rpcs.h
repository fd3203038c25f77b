#ifndef TOOLS_OMAD_RPCS_H_
#define TOOLS_OMAD_RPCS_H_

#include <libyang/libyang.h>
#include <nc_server.h>

#include "host/agent/worker.h"
#include "host/omcc/model.h"

namespace qdt::omad {

// Makes RunRpc answer with these, which must live as long as the server, and <get-schema> as well. To be
// called after nc_server_init.
void SetUpRpcs(const host::Model *model, host::AgentWorker *worker);

// Answers every rpc that libnetconf2 does not answer itself: the management commands, <get> and <get-config>.
// Others are refused as not supported. Called by the sessions' threads.
nc_server_reply *RunRpc(lyd_node *rpc, nc_session *session);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_RPCS_H_
