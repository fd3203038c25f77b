#ifndef SRC_OM_NQE_CLI_NQE_CLI_PKT_TRACE_H_
#define SRC_OM_NQE_CLI_NQE_CLI_PKT_TRACE_H_

#include "qdt/trace.h"
#include "src/om/engine/packet_trace.h"

namespace qdt {

// The command's block; PktTraceAttach has succeeded.
PacketTraceBlock &CommandTraceBlock();

// Appends one line for each condition that can be set.
void PrintSetterHelp(OutputBuffer *out);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_NQE_CLI_PKT_TRACE_H_
