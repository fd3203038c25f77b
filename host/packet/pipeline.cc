#include "host/packet/pipeline.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "host/engine/engine.h"

namespace qdt::host {
namespace {

TraceBlock *FindBlock(const Arena &arena) {
  uint32_t size = 0;
  void *block = arena.FindRegion(kTraceRegion, &size);
  if (block != nullptr && size >= sizeof(TraceBlock)) return static_cast<TraceBlock *>(block);
  throw HostError(std::string("packets need the region ") + kTraceRegion + " of " +
                  std::to_string(sizeof(TraceBlock)) + " bytes in the layouts");
}

void WriteToConsole(const std::string &line) { TellConsole("trace: " + line); }

void WriteToLog(const std::string &line) { syslog(LOG_INFO, "trace: %s", line.c_str()); }

TraceOutput WithTail(Engine *engine, TraceOutput output) {
  output.tail = [engine](const std::string &line) { engine->switches().traceTail.Add(line); };
  return output;
}

}  // namespace

Pipeline::Pipeline(Engine *engine, TraceOutput output)
    : interfaces_(engine->layout()),
      measurement_(engine->measurement()),
      path_(&engine->statistics(), &interfaces_, &measurement_, &engine->filler()),
      trace_(FindBlock(engine->arena()), WithTail(engine, std::move(output))) {}

Pipeline::Batch::Batch(Pipeline *pipeline) : pipeline_(*pipeline) {
  pipeline_.trace_.BeginTick(begun_);
  pipeline_.measurement_.BeginBatch();
}

Pipeline::Batch::~Batch() { pipeline_.measurement_.EndBatch(Spent()); }

void Pipeline::Batch::Process(const Packet &packet) {
  pipeline_.trace_.Observe(packet.seenBefore ? packet : pipeline_.path_.Process(packet));
}

// A line that nobody takes is lost: the engine waits for no one. A pipe that is not full takes a whole line.
void TellConsole(const std::string &line) {
  const std::string whole = "nqed: " + line + "\n";
  pollfd console{STDERR_FILENO, POLLOUT, 0};
  if (poll(&console, 1, 0) == 1 && (console.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, whole.data(), whole.size());
  }
}

TraceOutput EngineTraceOutput() { return {WriteToConsole, WriteToLog}; }

}  // namespace qdt::host
