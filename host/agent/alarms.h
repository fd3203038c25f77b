#ifndef HOST_AGENT_ALARMS_H_
#define HOST_AGENT_ALARMS_H_

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/event_log.h"
#include "host/agent/state.h"

namespace qdt::host {

// The alarms of yang/tavrix-alarms.yang.
enum class AlarmType : uint8_t {
  kTableUsage,
  kMemoryUsage,
  kPacketBuffers,
  kEngineGone,
  kSessionsUsedUp,
  kRecordLost,
};

// In the order of RFC 8632, of which these are used.
enum class AlarmSeverity : uint8_t { kIndeterminate, kWarning, kMinor, kMajor, kCritical };

// What an alarm is about: a node of the data model, "/MODULE:NODE/MODULE:NODE...", or what no module has.
struct AlarmResource {
  std::string path;
  std::string module;  // whose name is the path's prefix, and its namespace; empty for no path
  std::string space;

  static AlarmResource Engine();
  static AlarmResource Table(const std::string &name);
  static AlarmResource Sessions();
  static AlarmResource Record();
};

// The list of alarms (RFC 8632), and what has become of each. An alarm that is cleared stays in the list, so
// that there are as many at most as there are types for each resource.
class AlarmList {
 public:
  using Time = std::chrono::system_clock::time_point;

  // `publish` gets a notification for each change.
  explicit AlarmList(std::function<void(Event)> publish) : publish_(std::move(publish)) {}

  // Nothing happens, and the first text stays, where the alarm stands with this severity already, or is clear
  // already.
  void Raise(AlarmType type, const AlarmResource &resource, AlarmSeverity severity, const std::string &text,
             Time now = std::chrono::system_clock::now());
  void Clear(AlarmType type, const AlarmResource &resource, const std::string &text,
             Time now = std::chrono::system_clock::now());
  // All of the type that stand.
  void ClearAll(AlarmType type, const std::string &text, Time now = std::chrono::system_clock::now());

  // The severity with which it stands, or nothing.
  std::optional<AlarmSeverity> Standing(AlarmType type, const AlarmResource &resource) const;

  // The state data below "alarms". It outlives them.
  std::vector<StateSource> Sources() const;

 private:
  struct Change {
    Time time;
    bool cleared;
    AlarmSeverity severity;
    std::string text;
  };
  struct Alarm {
    AlarmType type;
    AlarmResource resource;
    Time created;
    Time raised;
    std::deque<Change> changes;  // the last one first
  };

  const Alarm *Find(AlarmType type, const AlarmResource &resource) const;
  void Note(Alarm *alarm, Change change);
  void Tell(const Alarm &alarm) const;
  static std::string NameText(const Alarm &alarm);
  static std::string ChangeText(const Change &change);
  static std::string AlarmText(const Alarm &alarm);
  std::string SummaryText() const;
  std::string WalkAlarms(std::string_view from, StateSink *sink) const;

  const std::function<void(Event)> publish_;
  std::vector<Alarm> alarms_;  // in the order in which they were raised first
  Time changed_{};
};

}  // namespace qdt::host

#endif  // HOST_AGENT_ALARMS_H_
