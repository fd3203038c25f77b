#ifndef HOST_WIRE_SNAPSHOT_COPY_H_
#define HOST_WIRE_SNAPSHOT_COPY_H_

#include <string>

#include "host/arena/arena.h"

namespace qdt::host {

// Copies the arena of a running engine, as it is at one moment, into `fd` (a new, empty regular file). Most
// of it is copied while the engine works; it stands still for the rest alone. Returns false, with the copy
// unfinished, when `interrupted` says so. Throws HostError, with `what` ("cannot write FILE") where the file
// is at fault.
bool CopySnapshot(const Arena &arena, int fd, const std::string &what, bool (*interrupted)());

}  // namespace qdt::host

#endif  // HOST_WIRE_SNAPSHOT_COPY_H_
