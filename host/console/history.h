#ifndef HOST_CONSOLE_HISTORY_H_
#define HOST_CONSOLE_HISTORY_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/record/record_json.h"
#include "host/web/engines.h"

namespace qdt::host {

// What an engine has counted since the sample before.
struct Sample {
  struct Counted {
    std::string name;
    uint64_t total = 0;
    double perSecond = 0;
  };
  struct Interface {
    uint64_t index = 0;
    double perSecond[4] = {};  // in_bytes, in_packets, out_bytes, out_packets
  };
  uint64_t number = 0;
  uint64_t time = 0;   // nanoseconds since 1970
  double seconds = 0;  // since the sample before
  std::vector<Counted> discards;
  std::vector<Interface> interfaces;
};
// {"time": "2026-...", "seconds": 2.0, "discards": [{"name", "total", "per_second"}], "interfaces":
// [{"if_index", "in_bytes", "in_packets", "out_bytes", "out_packets"}]}, those that have counted alone, the
// most first.
void WriteSample(JsonWriter *json, const Sample &sample);

// Reads what engines count, every few seconds, for as long as somebody looks at them, or for good: since
// nobody can look at what was before, the curves of a page that is opened begin with it otherwise. Keeps ten
// minutes of a few engines.
class History {
 public:
  static constexpr std::chrono::seconds kPeriod{2};
  static constexpr size_t kSamples = 300;                // ten minutes
  static constexpr size_t kEngines = 16;                 // at a time
  static constexpr std::chrono::seconds kInterest{120};  // that a look lasts
  static constexpr size_t kMost = 32;                    // reasons, and interfaces, of a sample

  History();
  ~History();

  // The engine is looked at for good. Throws HostError when too many are.
  void Keep(WebEngine *engine);
  // Somebody looks at the engine. False when too many are looked at already.
  bool Want(WebEngine *engine);
  // The samples behind number `after`, of the last `seconds`.
  std::vector<Sample> Read(WebEngine *engine, uint64_t after, std::chrono::seconds seconds);
  // Waits for a sample of the engine behind `after`, or a moment. False when all ends.
  bool Wait(WebEngine *engine, uint64_t after, std::chrono::milliseconds moment);
  void Stop();

 private:
  class Counters;
  struct Looked {
    std::chrono::steady_clock::time_point until;
    std::shared_ptr<Counters> counters;
    std::deque<Sample> samples;
    uint64_t number = 0;
  };

  size_t Look(std::chrono::steady_clock::time_point now, std::unique_lock<std::mutex> *lock);
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<WebEngine *, Looked> looked_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace qdt::host

#endif  // HOST_CONSOLE_HISTORY_H_
