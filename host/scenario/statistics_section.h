#ifndef HOST_SCENARIO_STATISTICS_SECTION_H_
#define HOST_SCENARIO_STATISTICS_SECTION_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/yaml_tree.h"
#include "host/scenario/mistakes.h"

namespace qdt::host {

// What a scenario's engine has counted before it starts, under the name of one statistic. The engine, which
// knows the names, finds the counter.
struct StatisticPreset {
  std::string name;               // as the listings show it, or the counter's number
  std::vector<uint64_t> perCore;  // from core 0 on
  std::string where;              // "FILE:LINE: statistics.NAME: ", what an error begins with
};

// The section of a scenario that lists them: NAME: NUMBER, or NAME: [NUMBER, ...] with one for each core.
constexpr std::string_view kStatisticsSection = "statistics";

// Reads the section. Throws HostError as Scenario::Load tells, or notes the mistakes of statistics.
std::vector<StatisticPreset> ReadStatistics(const YamlTree &tree, const YamlNode &section,
                                            const YamlNode &statistics, Mistakes *mistakes = nullptr);

}  // namespace qdt::host

#endif  // HOST_SCENARIO_STATISTICS_SECTION_H_
