#include "host/packet/traffic.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

#include "host/engine/engine.h"

namespace qdt::host {
namespace {

std::vector<TrafficInterface> TwoOrMore(std::vector<TrafficInterface> interfaces) {
  if (interfaces.size() >= 2) return interfaces;
  throw HostError(
      "--traffic needs two forwarding interfaces; add entries to the scenario's fwdif, with enable: 1");
}

TraceBlock *FindBlock(const Arena &arena) {
  uint32_t size = 0;
  void *block = arena.FindRegion(kTraceRegion, &size);
  if (block != nullptr && size >= sizeof(TraceBlock)) return static_cast<TraceBlock *>(block);
  throw HostError(std::string("--traffic needs the region ") + kTraceRegion + " of " +
                  std::to_string(sizeof(TraceBlock)) + " bytes in the layouts");
}

// A line that nobody takes is lost: the engine waits for no one. A pipe that is not full takes a whole line.
void WriteToConsole(const std::string &line) {
  const std::string whole = "nqed: trace: " + line + "\n";
  pollfd console{STDERR_FILENO, POLLOUT, 0};
  if (poll(&console, 1, 0) == 1 && (console.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, whole.data(), whole.size());
  }
}

void WriteToLog(const std::string &line) { syslog(LOG_INFO, "trace: %s", line.c_str()); }

// A machine that is slower than the rate loses packets; the engine goes on answering.
constexpr std::chrono::milliseconds kMostTime{50};
constexpr uint64_t kPacketsPerLook = 256;

}  // namespace

uint64_t Pace::Due(Time now) {
  constexpr auto kMostLate = std::chrono::milliseconds(100);
  constexpr auto kSecond = std::chrono::nanoseconds(std::chrono::seconds(1)).count();
  const auto passed = std::chrono::nanoseconds(now - start_).count();
  const auto due = static_cast<uint64_t>(static_cast<unsigned __int128>(passed) * rate_ / kSecond);
  const uint64_t most = std::max<uint64_t>(1, uint64_t{rate_} * kMostLate.count() / 1000);
  const uint64_t missing = due - sent_;
  sent_ = due;
  return std::min(missing, most);
}

Traffic::Traffic(Engine *engine, uint32_t rate, TraceOutput output)
    : interfaces_(engine->layout()),
      generator_(TwoOrMore(interfaces_.interfaces()), engine->options().cores),
      measurement_(engine->measurement()),
      path_(&engine->statistics(), &interfaces_, &measurement_),
      trace_(FindBlock(engine->arena()), std::move(output)),
      pace_(rate, std::chrono::steady_clock::now()) {}

void Traffic::Tick() {
  const auto now = std::chrono::steady_clock::now();
  trace_.BeginTick(now);
  measurement_.BeginBatch();
  uint64_t sent = 0;
  for (const uint64_t due = pace_.Due(now); sent != due; ++sent) {
    if (sent % kPacketsPerLook == 0 && std::chrono::steady_clock::now() - now > kMostTime) break;
    const Packet packet = generator_.Next();
    path_.Process(packet);
    trace_.Observe(packet);
  }
  measurement_.EndBatch(std::chrono::steady_clock::now() - now);
}

TraceOutput EngineTraceOutput() { return {WriteToConsole, WriteToLog}; }

}  // namespace qdt::host
