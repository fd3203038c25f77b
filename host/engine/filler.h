#ifndef HOST_ENGINE_FILLER_H_
#define HOST_ENGINE_FILLER_H_

#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/regions/statistics.h"
#include "host/scenario/nat_policy.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// What a filler fills. All of it is the engine's.
struct FillTarget {
  const Layout &layout;
  Arena &arena;
  TableWriter &writer;
  Statistics &statistics;
  std::vector<NatPolicyRule> &natPolicy;
};

// Gives an engine's tables and regions their contents: once, or from something that changes, for as long as
// the engine runs. All calls come from the engine's thread, between two changes of its own.
class Filler {
 public:
  // What the engine's status calls it: {"scenario", "/home/lab/office.yaml"}.
  struct Source {
    std::string kind;
    std::string name;
  };

  virtual ~Filler() = default;

  virtual Source source() const = 0;

  // Fills the new arena, before anybody else sees it. Throws HostError with one line for the user.
  virtual void Fill(const FillTarget &target) = 0;

  // What it has found that it cannot give, one line; empty when there is nothing. To be asked when it has
  // filled.
  virtual std::string missing() const { return {}; }

  // How often an entry has found its table full so far. Says nothing of those that make a filler give up.
  virtual uint64_t refused() const { return 0; }

  // A file that is readable when there is something to follow, always the same; -1: nothing changes. Who has
  // several files, or keeps time as well, gives an epoll descriptor with a timerfd among them.
  virtual int changes() const { return -1; }

  // Brings the arena up to date, when changes() is readable; reads what makes it so. Short, as clients wait
  // meanwhile: what is left over makes changes() readable still. Does not throw.
  virtual void Follow(const FillTarget & /*target*/) {}

  // Whether the engine is to take out the table's entries whose time is over. Who takes them out himself says
  // no; then only those leave that a client has ended.
  virtual bool AgesIn(uint32_t /*table*/) const { return true; }

  // An entry of a table that ages is about to be taken out by the engine.
  virtual void Leaves(uint32_t /*table*/, const void * /*entry*/) {}

  // What it keeps up to date besides the tables, so that packets on their path do not count it as well: the
  // traffic in the interfaces' records, and statistics by their numbers.
  virtual bool CountsInterfaces() const { return false; }
  virtual bool CountsStatistic(uint32_t /*number*/) const { return false; }
};

}  // namespace qdt::host

#endif  // HOST_ENGINE_FILLER_H_
