#include "qdt/tables.h"
#include "src/om/engine/interface.h"
#include "src/om/nqe_cli/table_view.h"

// View of the ports that mirrored packets are sent to.
NQE_TABLE_SEARCH(NqeMirrObserve) {
  return search.FindOne<qdt::ObservePort>(qdt::kTableMirrorObserve, search.key2);
}

NQE_TABLE_FORMAT_ONE(NqeMirrObserve, qdt::ObservePort) {
  text.Print<"  CtrlIfIdx  :  %u\n  FwdIfIdx   :  %u\n">(e.ctrlIfIndex, e.fwdIfIndex);
}
