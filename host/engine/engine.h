#ifndef HOST_ENGINE_ENGINE_H_
#define HOST_ENGINE_ENGINE_H_

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/arena/arena.h"
#include "host/engine/aging.h"
#include "host/engine/filler.h"
#include "host/engine/switches.h"
#include "host/layout/layout.h"
#include "host/measure/measurement.h"
#include "host/regions/statistics.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

struct EngineOptions {
  std::string arena;  // absolute paths: clients have other working directories
  std::string socket;
  uint32_t cores = 4;  // forwarding cores, which keep statistics of their own; 1 to kMaxCores
};

// The lab engine: the one writer of an arena. Used by one thread; everything it is asked to do happens
// between two changes of its tables.
class Engine {
 public:
  // Lays out the arena and has it filled; nothing is visible to others before Publish. Throws HostError.
  // `layout` and `filler` must outlive the engine.
  Engine(const EngineOptions &options, const Layout &layout, Filler *filler);
  ~Engine();
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;

  void Publish();
  // Takes the arena back; clients see that the engine is gone. The destructor does it as well.
  void Retire();

  // Readable when Follow has something to do; -1: never.
  int changes() const { return filler_.changes(); }
  // Brings the tables and regions up to date with what the engine is filled from.
  void Follow();
  Filler::Source source() const { return filler_.source(); }
  uint64_t refused() const { return filler_.refused(); }
  const Filler &filler() const { return filler_; }

  // Sets the counters to 0 that the layouts mark as cleared by `word`, in all entries of their tables;
  // returns the number of those entries.
  uint32_t Clear(std::string_view word);

  // Takes out the sessions and server maps whose time is over now; returns their number.
  uint32_t Age();
  uint32_t AgeServerMaps();
  // A slice of that for both, for an engine that answers others meanwhile; whether more is to do.
  bool AgeStep();

  const EngineOptions &options() const { return options_; }
  const Arena &arena() const { return *arena_; }
  Arena &arena() { return *arena_; }
  Statistics &statistics() { return statistics_; }
  Measurement &measurement() { return measurement_; }
  const Layout &layout() const { return layout_; }
  const std::vector<NatPolicyRule> &natPolicy() const { return natPolicy_; }
  Switches &switches() { return switches_; }
  const Switches &switches() const { return switches_; }

  std::chrono::seconds Uptime() const;

 private:
  FillTarget Target();

  EngineOptions options_;
  const Layout &layout_;
  Filler &filler_;
  std::vector<NatPolicyRule> natPolicy_;
  Switches switches_;
  std::unique_ptr<Arena> arena_;
  Statistics statistics_;
  Measurement measurement_;
  TableWriter writer_;
  Aging aging_;
  bool published_ = false;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

// Entries of the engine's tables together, and the tables that hold any.
struct TableUse {
  uint32_t tables = 0;
  uint64_t entries = 0;
};
TableUse CountEntries();

}  // namespace qdt::host

#endif  // HOST_ENGINE_ENGINE_H_
