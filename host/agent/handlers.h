#ifndef HOST_AGENT_HANDLERS_H_
#define HOST_AGENT_HANDLERS_H_

#include <libyang/libyang.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "qdt/oma.h"

namespace qdt::host {

// One management command: the rpc of the data model, and the library's handler that answers it.
struct Handler {
  const char *rpc;
  const char *function;
  // One of the two: an answer sent with QdtOmSendMsg, or a document handed back.
  int32_t (*run)(AgentRequest request);
  int32_t (*document)(char **text);
  // Whether it changes what the engine has published, for which this process must be allowed to write there.
  bool writes = false;
  // Throws RequestError for what the model cannot say is wrong; null where it can.
  void (*check)(const lyd_node *request) = nullptr;
  // What it ends ("session"), of which it may be all; null for other handlers.
  const char *ends = nullptr;
  // Of those: whether a request means only some.
  bool (*hasFilter)(const lyd_node *request) = nullptr;
};

// In the order of help texts.
std::span<const Handler> Handlers();
// By the rpc's or the function's name; null when there is none.
const Handler *FindHandler(std::string_view name);

// What a handler did. Several sends stand in `text` in their order.
struct HandlerAnswer {
  int32_t result;
  bool sent;  // false when nothing was sent, which an empty text does not tell
  std::string text;
  uint64_t ended = 0;  // entries of a running engine that are told to end, or would be
  // Whether the text only says what was wrong with the request, though the handler calls that an answer.
  bool refused = false;
};

// Runs the handler on a request of its rpc. Throws HostError when it refuses the request, and when it writes
// and this process may only read the arena. One handler runs at a time in a process: others wait for it,
// since some handlers share state. With `dryRun` nothing that it ends gets to the engine.
HandlerAnswer RunHandler(const Handler &handler, lyd_node *request, bool dryRun = false);

}  // namespace qdt::host

#endif  // HOST_AGENT_HANDLERS_H_
