#ifndef HOST_TBM_VISIT_H_
#define HOST_TBM_VISIT_H_

#include "host/tbm/client_writes.h"
#include "host/tbm/observer.h"
#include "host/tbm/status.h"
#include "host/tbm/walk.h"

namespace qdt::host::tbm {

// Calls `callback` with the record, whole at its address, of the next `most` entries of the order behind
// *place, which moves along, whose serial is at most `end`. It may remove and insert entries. kTbmOk at the
// end, kTbmMore when there may be more, kTbmStop when the callback stopped the walk, or kTbmWalkLost.
template <typename Order>
int32_t VisitSome(const TableView &table, const Order &order, uint64_t end, TbmTravCallback callback,
                  void *context, Place *place, uint32_t most) {
  uint64_t gone = 0;
  while (most > 0) {
    Place next = *place;
    const Step step = order.Next(&next);
    if (step == Step::kLost) return kTbmWalkLost;
    if (step == Step::kEnd || next.serial > end) return kTbmOk;
    const TableView::Copied copied = table.Deliver(next);
    if (copied == TableView::Copied::kRestless) return kTbmWalkLost;
    if (copied == TableView::Copied::kGone) {
      if (!IsNewlyGone(next, &gone)) return kTbmWalkLost;
      continue;
    }
    *place = next;
    --most;
    NoteDelivered(table, next);
    const ClientWrite write(table, next);
    if (callback(table.Record(next.ref), context) == kTbmStop) return kTbmStop;
  }
  return kTbmMore;
}

// The same for all of them; never kTbmMore.
template <typename Order>
int32_t Visit(const TableView &table, const Order &order, uint64_t end, TbmTravCallback callback,
              void *context) {
  Place place;
  int32_t status;
  do {
    status = VisitSome(table, order, end, callback, context, &place, UINT32_MAX);
  } while (status == kTbmMore);
  return status;
}

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_VISIT_H_
