#ifndef HOST_LIBRARY_SERVICES_H_
#define HOST_LIBRARY_SERVICES_H_

#include <string>

#include "host/wire/protocol.h"

namespace qdt::host {

// Engine command that clears the statistics of the control-plane rate limits.
constexpr char kClearCpcarCommand[] = "clear cpcar";

// What the engine services of include/platform/engine.h send their command lines to: in a client the engine's
// socket (SocketChannel), in the engine itself its own command table. Without a channel they fail with
// QDT_TBL_NOT_READY, as they do when the engine is gone. To be set before the first service is called.
void SetEngineChannel(EngineChannel channel);

// Whether the engine has refused a command line since this was last asked. The library hands its words on as
// an answer like any other.
bool TakeEngineRefusal();

// Why the last service call got no answer out of the channel; empty when it got one, or after it was told.
std::string TakeEngineFailure();

}  // namespace qdt::host

#endif  // HOST_LIBRARY_SERVICES_H_
