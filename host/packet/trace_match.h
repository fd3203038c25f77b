#ifndef HOST_PACKET_TRACE_MATCH_H_
#define HOST_PACKET_TRACE_MATCH_H_

#include "host/packet/trace_block.h"
#include "host/packet/traffic_packet.h"

namespace qdt::host {

// Whether the packet is one that the conditions ask for: it meets all whose bit is set, or, with the flag
// kTraceNot, not all of them. Without conditions every packet is. docs/nqed.md tells how each one is judged.
bool MatchesTrace(const TraceBlock &conditions, const Packet &packet);

}  // namespace qdt::host

#endif  // HOST_PACKET_TRACE_MATCH_H_
