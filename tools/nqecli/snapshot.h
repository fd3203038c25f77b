#ifndef TOOLS_NQECLI_SNAPSHOT_H_
#define TOOLS_NQECLI_SNAPSHOT_H_

#include <string>

namespace qdt::nqecli {

// Has the engine that listens at `socketPath` hand over a copy of its arena and keeps it as the new file
// `file`. An existing file is never touched, and nothing is left behind on failure. Throws HostError.
void SaveSnapshot(const std::string &socketPath, const std::string &file);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SNAPSHOT_H_
