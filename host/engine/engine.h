#ifndef HOST_ENGINE_ENGINE_H_
#define HOST_ENGINE_ENGINE_H_

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/layout/scenario.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

struct EngineOptions {
  std::string scenario;  // file
  std::string arena;     // absolute paths: clients have other working directories
  std::string socket;
  std::string layoutDir;  // empty: the layouts that the program was built with
};

// The lab engine: the one writer of an arena. Used by one thread; everything it is asked to do happens
// between two changes of its tables.
class Engine {
 public:
  // Lays out the arena and fills it from the scenario; nothing is visible to others before Publish. Throws
  // HostError. `layout` must outlive the engine.
  Engine(const EngineOptions &options, const Layout &layout, const Scenario &scenario);
  ~Engine();
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;

  void Publish();
  // Takes the arena back; clients see that the engine is gone. The destructor does it as well.
  void Retire();

  // Sets the counters to 0 that the layouts mark as cleared by `word`, in all entries of their tables;
  // returns the number of those entries.
  uint32_t Clear(std::string_view word);

  const EngineOptions &options() const { return options_; }
  const Arena &arena() const { return *arena_; }
  const Layout &layout() const { return layout_; }
  const std::vector<NatPolicyRule> &natPolicy() const { return natPolicy_; }

  std::chrono::seconds Uptime() const;

 private:
  EngineOptions options_;
  const Layout &layout_;
  std::vector<NatPolicyRule> natPolicy_;
  std::unique_ptr<Arena> arena_;
  TableWriter writer_;
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
