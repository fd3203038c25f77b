#ifndef HOST_CONSOLE_TRACE_LINES_H_
#define HOST_CONSOLE_TRACE_LINES_H_

#include <memory>
#include <string>
#include <vector>

#include "host/web/engines.h"
#include "host/wire/client.h"

namespace qdt::host {

// Follows the packet trace of a running engine, which keeps its last lines.
class TraceLines {
 public:
  // The lines that have come since the last call; none at first, and where the engine does not tell.
  std::vector<std::string> Read(WebEngine *engine);

 private:
  uint64_t identity_ = 0;  // of the engine
  uint64_t last_ = 0;
  bool told_ = true;  // whether the engine has such lines to tell
  std::unique_ptr<EngineClient> client_;
};

}  // namespace qdt::host

#endif  // HOST_CONSOLE_TRACE_LINES_H_
