#ifndef HOST_TBM_VISIT_H_
#define HOST_TBM_VISIT_H_

#include "host/tbm/client_writes.h"
#include "host/tbm/status.h"
#include "host/tbm/walk.h"

namespace qdt::host::tbm {

// Calls `callback` with the record of each entry of the order whose serial is at most `end`, whole at its
// address. It may remove and insert entries. kTbmOk, kTbmStop when the callback stopped the walk, or
// kTbmWalkLost.
template <typename Order>
int32_t Visit(const TableView &table, const Order &order, uint64_t end, TbmTravCallback callback,
              void *context) {
  for (Place place;;) {
    Place next = place;
    const Step step = order.Next(&next);
    if (step == Step::kLost) return kTbmWalkLost;
    if (step == Step::kEnd || next.serial > end) return kTbmOk;
    const TableView::Copied copied = table.Deliver(next);
    if (copied == TableView::Copied::kRestless) return kTbmWalkLost;
    if (copied == TableView::Copied::kGone) continue;
    place = next;
    const ClientWrite write(table, place);
    if (callback(table.Record(place.ref), context) == kTbmStop) return kTbmStop;
  }
}

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_VISIT_H_
