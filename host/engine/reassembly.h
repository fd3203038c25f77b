#ifndef HOST_ENGINE_REASSEMBLY_H_
#define HOST_ENGINE_REASSEMBLY_H_

#include "host/layout/layout.h"

namespace qdt::host {

// Makes the packets that a scenario has put into the reassembly regions wait there: links them into their
// region's ring, in their order, and stamps them with the time at which they came. A region without packets
// gets the ring of none. Throws HostError when the file system under the arena is full.
void StartReassembly(const Layout &layout, Arena *arena);

}  // namespace qdt::host

#endif  // HOST_ENGINE_REASSEMBLY_H_
