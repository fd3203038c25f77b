#ifndef HOST_AGENT_WORKER_H_
#define HOST_AGENT_WORKER_H_

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/agent/handlers.h"
#include "host/arena/arena.h"
#include "host/base/fd.h"
#include "host/omcc/model.h"

namespace qdt::host {

// Runs management commands in a process of its own, one after the other.
//
// The library keeps what it once attached for the life of its process, and an engine that starts again
// publishes another arena at the same place. A worker therefore serves one engine: when that is gone the
// worker ends, and the next request starts another. The baseline of the statistics goes with it, as the
// engine's counters do.
//
// May be used by several threads; requests wait for one another.
class AgentWorker {
 public:
  // `command`: the program and its words that end in RunWorker; the worker's end of the channel is its
  // standard input.
  explicit AgentWorker(std::vector<std::string> command) : command_(std::move(command)) {}
  ~AgentWorker();
  AgentWorker(const AgentWorker &) = delete;
  AgentWorker &operator=(const AgentWorker &) = delete;

  // Throws HostError when no engine runs, or when the worker ended or hung over the request.
  HandlerAnswer Run(const Handler &handler, const lyd_node *request);

 private:
  bool TryRun(uint32_t handler, const std::string &request, HandlerAnswer *answer);
  void Start();
  void End();

  const std::vector<std::string> command_;
  std::mutex mutex_;
  pid_t pid_ = -1;
  UniqueFd channel_;
};

// The worker's side: answers requests on `channel` until it is closed or the engine is gone. `attach` finds
// the engine's arena; it is tried again at each request until it has succeeded.
void RunWorker(int channel, const Model &model, const std::function<std::unique_ptr<Arena>()> &attach);

}  // namespace qdt::host

#endif  // HOST_AGENT_WORKER_H_
