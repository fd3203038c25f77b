#ifndef SRC_OM_OMA_COMMAND_LINE_H_
#define SRC_OM_OMA_COMMAND_LINE_H_

#include <cstdint>

#include "qdt/oma.h"
#include "src/om/common/owned.h"

namespace qdt {

// Room for an engine command line.
constexpr uint32_t kCommandLineRoom = QDT_OMA_CMDLINE_ROOM;

// A zeroed buffer for an engine command line; null on failure.
inline OwnedText AllocateCommandLine(SourceLine where) {
  return AllocateZeroed<char>(where, kCommandLineRoom);
}

// What the engine gave back for a command line. The reply may be null, and may be there without success.
struct EngineAnswer {
  int32_t status;
  OwnedText reply;
};

// Runs `line` through one of the engine's services.
inline EngineAnswer Ask(int32_t (*service)(const char *, char **), const char *line) {
  char *reply = nullptr;
  const int32_t status = service(line, &reply);
  return {status, OwnedText(reply)};
}

// QdtOmaRunCmdline as the packet-trace handlers judge it: of the send's results only -1 is a failure.
int32_t RunTraceCommandLine(const char *line);

}  // namespace qdt

#endif  // SRC_OM_OMA_COMMAND_LINE_H_
