#ifndef HOST_ENGINE_STATISTICS_PRESETS_H_
#define HOST_ENGINE_STATISTICS_PRESETS_H_

#include <span>

#include "host/regions/statistics.h"
#include "host/scenario/statistics_section.h"

namespace qdt::host {

// Adds what a scenario's engine has counted already. A statistic goes by the name that the listings show
// ("arp miss", "CAR - ftp") or by its number in the vector. Throws HostError for a name that no counter has
// or several have, and for more cores than there are.
void PresetStatistics(std::span<const StatisticPreset> presets, Statistics *statistics);

// Notes what PresetStatistics would throw where the engine has `cores`.
void CheckPresets(std::span<const StatisticPreset> presets, uint32_t cores, Mistakes *mistakes);

}  // namespace qdt::host

#endif  // HOST_ENGINE_STATISTICS_PRESETS_H_
