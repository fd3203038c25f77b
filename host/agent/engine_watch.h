#ifndef HOST_AGENT_ENGINE_WATCH_H_
#define HOST_AGENT_ENGINE_WATCH_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/agent/alarms.h"
#include "host/omcc/model.h"

namespace qdt::host {

// What the alarms about an engine are judged by: taken in the process that reads its arena, and carried to
// that which has the alarms.
struct EngineLook {
  struct Level {
    std::string table;
    uint32_t entries;
    uint32_t capacity;
  };
  std::vector<Level> tables;
  uint64_t drops = 0;                     // packets without a buffer, since the engine started
  std::optional<uint32_t> memoryPercent;  // of the engine's shared memory; none where it has none

  // Throws HostError.
  static EngineLook Take(const Model &model);

  std::string Text() const;
  // Nothing for what is no such text.
  static std::optional<EngineLook> Parse(const std::string &text);
};

// Percent of what there is room for: above the one an alarm is raised, and from the other downward it is
// cleared.
struct AlarmLevels {
  uint32_t raise = 80;
  uint32_t clear = 70;
};

// Judges one look after the other.
class EngineWatch {
 public:
  // `alarms` outlives it.
  EngineWatch(AlarmLevels levels, AlarmList *alarms) : levels_(levels), alarms_(alarms) {}

  void Saw(const EngineLook &look);
  void SawNone(const std::string &why);

 private:
  void Judge(AlarmType type, const AlarmResource &resource, const std::string &name, uint64_t used,
             uint64_t room);

  const AlarmLevels levels_;
  AlarmList *const alarms_;
  std::optional<uint64_t> drops_;  // of the look before
};

}  // namespace qdt::host

#endif  // HOST_AGENT_ENGINE_WATCH_H_
