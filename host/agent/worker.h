#ifndef HOST_AGENT_WORKER_H_
#define HOST_AGENT_WORKER_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/handlers.h"
#include "host/agent/state.h"
#include "host/arena/arena.h"
#include "host/base/fd.h"
#include "host/omcc/model.h"
#include "host/wire/protocol.h"

namespace qdt::host {

// What the worker is to do: run a handler on a request of its rpc, walk on in a source of state data, or look
// at the engine as a whole.
struct WorkerJob {
  uint32_t word = 0;
  std::string text;

  static WorkerJob Run(const Handler &handler, const lyd_node *request);
  // `source`: its place in EngineStateSources(). `condition`: as the sink has it.
  static WorkerJob Walk(size_t source, const std::string &from, const std::string &condition);
  // What alarms are judged by (host/agent/engine_watch.h).
  static WorkerJob Look();
};

struct WorkerAnswer {
  std::string failure;  // why there is none; empty for an answer
  bool isLost = false;  // it is the worker that has failed: that says nothing of the engine
  HandlerAnswer handler{0, false, {}};
  // Of a walk, whose records are the handler's text as fields: where it goes on. A look's is that text, too.
  std::string next;
};

// Runs management commands in a process of its own, one after the other.
//
// The library keeps what it once attached for the life of its process, and an engine that starts again
// publishes another arena at the same place. A worker therefore serves one engine: when that is gone the
// worker ends, and the next request starts another. The baseline of the statistics goes with it, as the
// engine's counters do.
class AgentWorker {
 public:
  using Clock = std::chrono::steady_clock;

  // `command`: the program and its words that end in RunWorker; the worker's end of the channel is its
  // standard input.
  explicit AgentWorker(std::vector<std::string> command) : command_(std::move(command)) {}
  ~AgentWorker();
  AgentWorker(const AgentWorker &) = delete;
  AgentWorker &operator=(const AgentWorker &) = delete;

  bool busy() const { return busy_; }
  // Begins a job; none runs.
  void Begin(WorkerJob job);
  // Readable when Advance has something to do; negative without a process.
  int fd() const { return channel_.get(); }
  // When Advance gives a job up that has not ended.
  Clock::time_point deadline() const { return deadline_; }
  // Takes what the worker has sent. The answer, once it is there.
  std::optional<WorkerAnswer> Advance();

 private:
  void Start();
  void AwaitEnd();
  void Reap();
  void End();
  // Starts the process where there is none, and gives it the job. False when that cannot be done.
  bool GiveJob();
  std::optional<WorkerAnswer> Step();
  std::optional<WorkerAnswer> Fail(std::string why, bool isLost = false);
  std::optional<WorkerAnswer> Take(Frame *frame);

  const std::vector<std::string> command_;
  pid_t pid_ = -1;
  UniqueFd channel_;
  FrameReader reader_;
  WorkerJob job_;
  WorkerAnswer answer_;
  bool busy_ = false;
  bool again_ = false;  // the job was given to a worker whose engine was gone
  std::string problem_;
  Clock::time_point deadline_{};
};

// The worker's side: answers requests on `channel` until it is closed or the engine is gone. `attach` finds
// the engine's arena; it is tried again at each request until it has succeeded.
void RunWorker(int channel, const Model &model, const std::function<std::unique_ptr<Arena>()> &attach);

}  // namespace qdt::host

#endif  // HOST_AGENT_WORKER_H_
