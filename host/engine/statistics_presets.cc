#include "host/engine/statistics_presets.h"

#include <charconv>
#include <set>
#include <string>
#include <vector>

#include "host/base/near_name.h"
#include "platform/engine.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

// As the listings show it; empty for a counter that they show by its number.
std::string NameOf(uint32_t counter) {
  const char *name =
      counter < QDT_STAT_NAMES ? QdtOmaSysStatDescGet()[counter] : QdtGetNameByProId(counter - QDT_STAT_CAR);
  if (name == nullptr) return "";
  return (counter < QDT_STAT_NAMES ? "" : "CAR - ") + std::string(name);
}

bool IsNumber(const std::string &text, uint32_t *number) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *number);
  return error == std::errc() && stop == end;
}

uint32_t FindCounter(const StatisticPreset &preset) {
  uint32_t number = 0;
  if (IsNumber(preset.name, &number)) {
    if (number < QDT_STAT_COUNTERS) return number;
    throw HostError(preset.where + "no such statistic (0 to " + std::to_string(QDT_STAT_COUNTERS - 1) + ")");
  }
  std::vector<uint32_t> found;
  NearName near(preset.name);
  std::string nearest;
  for (uint32_t counter = 0; counter < QDT_STAT_COUNTERS; ++counter) {
    const std::string name = NameOf(counter);
    if (name == preset.name) found.push_back(counter);
    if (!name.empty() && near.Offer(name)) nearest = name;
  }
  if (found.size() == 1) return found[0];
  if (found.empty()) {
    throw HostError(preset.where + "no such statistic" +
                    DidYouMean(nearest, "write its number, 0 to " + std::to_string(QDT_STAT_COUNTERS - 1)));
  }
  std::string numbers = std::to_string(found[0]);
  for (size_t i = 1; i < found.size(); ++i) numbers += " or " + std::to_string(found[i]);
  throw HostError(preset.where + std::to_string(found.size()) + " statistics have this name (write " +
                  numbers + ")");
}

// The counter of a preset that comes behind those in `*seen`.
uint32_t CheckedCounter(const StatisticPreset &preset, uint32_t cores, std::set<uint32_t> *seen) {
  const uint32_t counter = FindCounter(preset);
  if (!seen->insert(counter).second)
    throw HostError(preset.where + "statistic " + std::to_string(counter) + " is given already (remove one)");
  if (preset.perCore.size() > cores) {
    throw HostError(preset.where + std::to_string(preset.perCore.size()) +
                    " numbers are too many (the engine has " + std::to_string(cores) +
                    " cores; --cores tells it)");
  }
  return counter;
}

}  // namespace

void PresetStatistics(std::span<const StatisticPreset> presets, Statistics *statistics) {
  std::set<uint32_t> seen;
  for (const StatisticPreset &preset : presets) {
    const uint32_t counter = CheckedCounter(preset, statistics->cores(), &seen);
    for (uint32_t core = 0; core < preset.perCore.size(); ++core)
      statistics->Add(core, counter, preset.perCore[core]);
  }
}

void CheckPresets(std::span<const StatisticPreset> presets, uint32_t cores, Mistakes *mistakes) {
  std::set<uint32_t> seen;
  for (const StatisticPreset &preset : presets)
    Attempt(mistakes, [&] { CheckedCounter(preset, cores, &seen); });
}

}  // namespace qdt::host
