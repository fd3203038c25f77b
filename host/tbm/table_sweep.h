#ifndef HOST_TBM_TABLE_SWEEP_H_
#define HOST_TBM_TABLE_SWEEP_H_

#include <cstdint>

#include "host/tbm/walk.h"

namespace qdt::host {

// A walk of the engine over one of its tables in pieces. Other changes of the table may come between any two.
class TableSweep {
 public:
  explicit TableSweep(uint32_t table) : table_(table) {}

  // Calls `callback`, as TbmTblTrav does, for the next `most` entries at most of those that were there when
  // the sweep began, in the current arena. False when there are no more of them, or when the walk has failed
  // or was stopped; the next call begins anew.
  bool Next(TbmTravCallback callback, void *context, uint32_t most);

 private:
  uint32_t table_;
  bool begun_ = false;
  uint64_t end_ = 0;  // the last serial to look at
  tbm::Place place_;
};

}  // namespace qdt::host

#endif  // HOST_TBM_TABLE_SWEEP_H_
