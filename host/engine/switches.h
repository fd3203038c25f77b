#ifndef HOST_ENGINE_SWITCHES_H_
#define HOST_ENGINE_SWITCHES_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace qdt::host {

// The application-identification engine ("egn").
struct EgnSwitches {
  static constexpr std::array kLevels = {"error", "warning", "info", "packet"};
  std::array<bool, kLevels.size()> debugging{};

  uint32_t detectThreshold = 10;  // packets of a session after which identification gives up

  // Packets that application control has discarded. They count while statistics are on: `counted` before
  // they were last turned on or reset, and what has come to the engine's totals `since`.
  struct Discards {
    uint64_t denied = 0, limited = 0;
  };
  bool statistics = false;
  Discards counted, since;
};

// One set of conditions of the engine's own packet trace.
struct TraceConditions {
  static constexpr size_t kOptions = 10;  // those of the command trace-pkt-nqe but --index
  std::array<std::optional<uint64_t>, kOptions> options;
  std::chrono::steady_clock::time_point set{};
};

// The last lines of the packet trace, for who follows it from elsewhere.
struct TraceTail {
  static constexpr size_t kLines = 512;

  void Add(const std::string &line) {
    if (lines.size() == kLines) lines.pop_front();
    lines.push_back(line);
    ++last;
  }

  std::deque<std::string> lines;
  uint64_t last = 0;  // number of the last line, counted from 1
};

// What command lines have set in the engine. Each engine starts with this.
struct Switches {
  EgnSwitches egn;
  std::array<TraceConditions, 4> traces;
  bool performanceMode = false;
  TraceTail traceTail;
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_SWITCHES_H_
