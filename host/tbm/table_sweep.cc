#include "host/tbm/table_sweep.h"

#include "host/tbm/status.h"
#include "host/tbm/visit.h"

namespace qdt::host {

bool TableSweep::Next(TbmTravCallback callback, void *context, uint32_t most) {
  tbm::TableView table;
  if (tbm::TableView::OpenCurrent(0, table_, &table) != tbm::kTbmOk) return false;
  if (!begun_) end_ = table.state().lastSerial.load(std::memory_order_acquire);
  begun_ =
      tbm::VisitSome(table, tbm::TableOrder(table), end_, callback, context, &place_, most) == tbm::kTbmMore;
  if (!begun_) place_ = {};
  return begun_;
}

}  // namespace qdt::host
