#include "host/engine/scenario_filler.h"

#include "host/engine/statistics_presets.h"

namespace qdt::host {

void ScenarioFiller::Fill(const FillTarget &target) {
  scenario_.Fill(&target.arena, &target.writer);
  PresetStatistics(scenario_.statistics(), &target.statistics);
  target.natPolicy = scenario_.natPolicy();
}

}  // namespace qdt::host
