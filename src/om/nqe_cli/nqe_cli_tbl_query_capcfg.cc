#include "qdt/tables.h"
#include "src/om/engine/capture.h"
#include "src/om/nqe_cli/table_view.h"

// View of the packet captures.
using qdt::CaptureEntry;

NQE_TABLE_SEARCH(CaptureCfg) { return search.FindOne<CaptureEntry>(qdt::kTableCapture, search.key2); }

NQE_TABLE_FORMAT_ONE(CaptureCfg, CaptureEntry) {
  text.Print<
      "  ExpireTime     :  %u\n"
      "  CaptHost       :  %u\n"
      "  PktLen         :  %u\n"
      "  PktNumRemain   :  %u\n"
      "  Timeout        :  %u\n"
      "  Direction      :  %u\n"
      "  CaptDrop       :  %u\n"
      "  DropType       :  %u\n"
      "  VlanId         :  %u\n"
      "  ACL-isValid    :  %u\n"
      "  ACL-aclGrpType :  %u\n"
      "  ACL-aclGrpId   :  %u\n">(e.expireTime, e.captureHost, e.packetLength, e.packetsRemaining, e.timeout,
                                  e.direction, e.captureDropped, e.dropType, e.vlanId, e.aclValid,
                                  e.aclGroupType, e.aclGroupId);
  for (const int32_t ifIndex : e.ifIndex) {
    if (ifIndex != 0) text.Print<"  IfIndex        :  %d\n">(ifIndex);
  }
}
