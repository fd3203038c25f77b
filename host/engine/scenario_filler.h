#ifndef HOST_ENGINE_SCENARIO_FILLER_H_
#define HOST_ENGINE_SCENARIO_FILLER_H_

#include <string>
#include <utility>

#include "host/engine/filler.h"
#include "host/scenario/scenario.h"

namespace qdt::host {

// Fills an engine from a scenario, once, and keeps nothing of it.
class ScenarioFiller : public Filler {
 public:
  // `file` is where the scenario was read from, with the engine's layout.
  ScenarioFiller(std::string file, Scenario scenario)
      : file_(std::move(file)), scenario_(std::move(scenario)) {}

  Source source() const override { return {"scenario", file_}; }
  void Fill(const FillTarget &target) override;

 private:
  std::string file_;
  Scenario scenario_;
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_SCENARIO_FILLER_H_
