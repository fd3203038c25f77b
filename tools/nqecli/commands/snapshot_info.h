#ifndef TOOLS_NQECLI_COMMANDS_SNAPSHOT_INFO_H_
#define TOOLS_NQECLI_COMMANDS_SNAPSHOT_INFO_H_

#include <string>

#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {

// Tells when a snapshot was made, of which engine and by which version; of an engine's own file as well.
// Throws HostError as Arena::Look does.
ExitCode PrintSnapshotInfo(const std::string &file, bool asJson);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_COMMANDS_SNAPSHOT_INFO_H_
