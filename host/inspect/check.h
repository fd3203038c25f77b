#ifndef HOST_INSPECT_CHECK_H_
#define HOST_INSPECT_CHECK_H_

#include <cstdint>
#include <functional>
#include <string_view>

#include "host/inspect/entry_rules.h"

namespace qdt::host {

// Something that is wrong in an engine's arena.
struct Finding {
  Severity severity = Severity::kError;
  const TableLayout *table = nullptr;  // one of the two
  const RegionLayout *region = nullptr;
  const uint8_t *key = nullptr;  // of the entry; null when it is about the table as a whole
  std::string_view field;        // may be empty
  std::string_view problem;
  bool stale = false;  // a reference leads to a place where no entry is any more
};

// Some milliseconds.
void WaitMoment();

using TellFinding = std::function<void(const Finding &)>;

// Holds the arena against itself, table by table in the order of their ids, then its regions, and tells what
// it finds. Of a live engine a finding counts only when it is still there a moment later: what an engine
// changes it changes entry by entry. Returns the number of findings. Keeps some thousand places at most.
// Throws HostError when a live engine changes faster than it can be followed.
//
// `wait` stands between the two looks; it lets the engine finish what it is in the middle of.
uint64_t CheckArena(const RecordSource &source, const TellFinding &tell,
                    const std::function<void()> &wait = WaitMoment);

}  // namespace qdt::host

#endif  // HOST_INSPECT_CHECK_H_
