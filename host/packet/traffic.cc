#include "host/packet/traffic.h"

#include <algorithm>
#include <string>

#include "host/base/host_error.h"
#include "host/engine/engine.h"

namespace qdt::host {
namespace {

std::vector<TrafficInterface> TwoOrMore(std::vector<TrafficInterface> interfaces) {
  if (interfaces.size() >= 2) return interfaces;
  throw HostError(
      "--traffic needs two forwarding interfaces; add entries to the scenario's fwdif, with enable: 1");
}

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

Traffic::Traffic(Engine *engine, uint32_t rate, Pipeline *pipeline)
    : pipeline_(*pipeline),
      generator_(TwoOrMore(pipeline->interfaces()), engine->options().cores),
      pace_(rate, std::chrono::steady_clock::now()) {}

void Traffic::Tick() {
  Pipeline::Batch batch(&pipeline_);
  uint64_t sent = 0;
  for (const uint64_t due = pace_.Due(std::chrono::steady_clock::now()); sent != due; ++sent) {
    if (sent % kPacketsPerLook == 0 && batch.Spent() > kMostTime) break;
    batch.Process(generator_.Next());
  }
}

}  // namespace qdt::host
