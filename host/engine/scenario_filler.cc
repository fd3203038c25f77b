#include "host/engine/scenario_filler.h"

#include "host/engine/statistics_presets.h"

namespace qdt::host {

void ScenarioFiller::Fill(const FillTarget &target) {
  const Scenario scenario = std::move(scenario_);  // goes with the filling: from then on the arena has it all
  scenario.Fill(&target.arena, &target.writer);
  PresetStatistics(scenario.statistics(), &target.statistics);
  target.natPolicy = scenario.natPolicy();
}

}  // namespace qdt::host
