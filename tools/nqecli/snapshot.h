#ifndef TOOLS_NQECLI_SNAPSHOT_H_
#define TOOLS_NQECLI_SNAPSHOT_H_

#include <string>

#include "host/arena/arena.h"

namespace qdt::nqecli {

// Copies the arena of the engine that is attached to the new file `file`, as it is at one moment. The engine
// goes on meanwhile, and stands still only to hand over what has changed last. An existing file is never
// touched, and nothing is left behind on failure. Throws HostError.
void SaveSnapshot(const host::Arena &arena, const std::string &file);

// The same to `to`, a new, empty regular file; `file` is what it will be called, in error lines. Ends early
// when DeferredSignals are on and one arrives.
void CopyEngine(const host::Arena &arena, int to, const std::string &file);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SNAPSHOT_H_
