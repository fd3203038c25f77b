#ifndef HOST_TBM_DELIVER_H_
#define HOST_TBM_DELIVER_H_

#include "host/tbm/observer.h"
#include "host/tbm/status.h"
#include "host/tbm/walk.h"

namespace qdt::host::tbm {

// Stores the address of the entry that `find` finds, made whole for the caller. `find` takes a Place * and
// gives a status; it is asked again when the entry leaves before it is whole.
template <typename Find>
int32_t DeliverFound(const TableView &table, const Find &find, void **entry) {
  constexpr int kAttempts = 10000;
  uint64_t gone = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Place found;
    const int32_t status = find(&found);
    if (status != kTbmOk) return status;
    const TableView::Copied copied = table.Deliver(found);
    if (copied == TableView::Copied::kRestless) break;
    if (copied == TableView::Copied::kGone) {
      if (!IsNewlyGone(found, &gone)) break;
      continue;
    }
    NoteDelivered(table, found);
    *entry = table.Delivered(found.ref);
    return kTbmOk;
  }
  return kTbmInternal;
}

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_DELIVER_H_
