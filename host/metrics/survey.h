#ifndef HOST_METRICS_SURVEY_H_
#define HOST_METRICS_SURVEY_H_

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/metrics/target.h"
#include "host/record/record_source.h"

namespace qdt::host {

// How sessions are told apart: IPv4 and IPv6, and TCP, UDP, ICMP and all others.
constexpr std::array<std::string_view, 2> kSessionFamilies = {"ipv4", "ipv6"};
constexpr std::array<std::string_view, 4> kSessionProtocols = {"tcp", "udp", "icmp", "other"};
using SessionCounts = std::array<std::array<uint64_t, kSessionProtocols.size()>, kSessionFamilies.size()>;

// What takes a look at every entry: what `check` finds, and the sessions in use by what they carry.
struct Survey {
  uint64_t identity = 0;  // of the arena; another engine at its path has another one
  uint64_t errors = 0;
  uint64_t warnings = 0;
  std::map<std::string_view, uint64_t> stale;  // references that lead to no entry any more, by their table
  std::optional<SessionCounts> sessions;       // of an engine that has the table
  double finished = 0;                         // seconds since 1970
  double seconds = 0;                          // that it took
};

// Looks at arenas in whole, one after the other, in a thread of its own, so that no scrape waits for it.
// What it costs is bounded: an arena is looked at only when somebody asks, once in a period at most, and all
// of them together take no more than a small share of the time of one processor.
class Surveyor {
 public:
  struct Pace {
    std::chrono::milliseconds period{60'000};  // from one look at an arena to the next
    uint32_t share = 20;                       // the thread uses one of so many parts of a processor's time
  };

  // `targets` and `layout` outlive it.
  Surveyor(const std::vector<MetricsTarget> &targets, const Layout &layout, Pace pace, ReadGuard guard = {});
  // Waits for the look that is under way.
  ~Surveyor();
  Surveyor(const Surveyor &) = delete;
  Surveyor &operator=(const Surveyor &) = delete;

  // The last look at a target that came to its end, and that the next one is wanted. Nothing before the
  // first, and when the arena was another one, with another identity.
  std::optional<Survey> Last(size_t target, uint64_t identity);

 private:
  using Clock = std::chrono::steady_clock;
  struct Place {
    std::optional<Survey> last;
    bool wanted = false;
    Clock::time_point due;  // of the next look, when it is wanted
  };

  void Run();
  // The place that is wanted and due first; null when none is wanted.
  Place *NextWanted();
  // The look at a target; nothing when it cannot be read.
  std::optional<Survey> Look(const MetricsTarget &target) const;

  const std::vector<MetricsTarget> &targets_;
  const Layout &layout_;
  const Pace pace_;
  const ReadGuard guard_;
  std::mutex mutex_;
  std::condition_variable wakes_;
  bool ending_ = false;
  std::vector<Place> places_;
  std::thread thread_;  // last: it uses the others
};

// One look. Throws HostError as CheckArena does, and for tables of another layout.
Survey TakeSurvey(const RecordSource &source);

}  // namespace qdt::host

#endif  // HOST_METRICS_SURVEY_H_
