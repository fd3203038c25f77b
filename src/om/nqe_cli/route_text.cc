#include "src/om/nqe_cli/route_text.h"

#include <cstddef>
#include <cstring>

#include "src/om/common/address.h"
#include "src/om/common/memory_probe.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/table_ids.h"
#include "src/om/nqe_cli/table_entry.h"

namespace qdt {

void PrintRoute(Text &text, const RouteEntry &e, uint32_t nextHopTable, uint32_t groupTable) {
  text.Print<
      "  OpCode    :  %u\n"
      "  MulNhp    :  %u\n"
      "  Def       :  %u\n"
      "  Dir       :  %u\n"
      "  Prefix    :  %u\n"
      "  NhpIndex  :  %u\n"
      "  ReIndex   :  %u\n">(e.opCode, e.multipleNextHops, e.isDefault, e.direct, e.prefixLength,
                             e.nextHopIndex, e.reIndex);
  if (text.failed()) return;
  const uint32_t index = e.nextHopIndex;
  const BoundEntry bound =
      CheckBoundEntry(e.multipleNextHops != 0 ? groupTable : nextHopTable, index, e.boundNextHop);
  if (!bound.same) text.Print<"  NhpEntry  :  Error(%d)\n">(bound.code);
}

void PrintNextHopGroup(Text &text, const NextHopGroupEntry &e) {
  text.Print<
      "  BsFrr:         %u\n"
      "  BsNhpNum:      %u\n"
      "  HashIndex:     %u\n"
      "  PrimaryNum:    %u\n"
      "  PrimaryBitmap: %08x\n">(e.backupFrr, e.backupCount, e.hashIndex, e.primaryCount, e.primaryBitmap);
  for (int i = 0; i < e.backupCount && i < kMaxGroupMembers; ++i) {
    if (!text.Print<"  NhpIndex[%d]:     %u\n">(i, e.nextHopIndex[i])) return;
    if (!CheckBoundEntry(kTableNextHop, e.nextHopIndex[i], e.boundNextHop[i]).same) {
      text.Print<"  Entry of %d :     Error\n">(i);
    }
  }
  for (int i = 0; i < e.primaryCount && i < kMaxGroupMembers; ++i) {
    if (!text.Print<"  PrimaryNhpIndex[%d]:     %u\n">(i, e.primaryNextHopIndex[i])) return;
    if (!CheckBoundEntry(kTableNextHop, e.primaryNextHopIndex[i], e.boundPrimary[i]).same) {
      text.Print<"  PrimaryEntry of %d :     Error\n">(i);
    }
  }
}

void PrintOutputInterfaces(Text &text, int8_t count, const uint64_t (&address)[kMaxOutputInterfaces]) {
  if (count > kMaxOutputInterfaces) return text.Fail();
  text.Print<"  OutFwdif:\n">();
  for (int i = 0; i < count && !text.failed(); ++i) {
    uint32_t head[4];  // the interface record's first words
    static_assert(offsetof(ForwardingInterface, ifIndex) == 0 &&
                  offsetof(ForwardingInterface, ctrlIfIndex) == 12);
    // An interface whose address leads nowhere is as good as none; the other ones are shown all the same.
    if (!ReadEngineMemory(address[i], head, sizeof(head))) std::memset(head, 0, sizeof(head));
    text.Print<"    [%d]CtrlIfIndex=%d, FwdifIndex=%d\n">(i, static_cast<int32_t>(head[3]),
                                                          static_cast<int32_t>(head[0]));
  }
  text.Print<"\n">();
}

void PrintNeighbour(Text &text, const Neighbour &e) {
  text.Print<
      "  BsValid       : %u\n"
      "  BsFake        : %u\n"
      "  CtrlIfIdx     : %u\n"
      "  L3CtrlIfIdx   : %u\n"
      "  FwdIfIndex    : %u\n"
      "  L3FwdIfIndex  : %u\n"
      "  VlanId        : %u\n"
      "  Dmac          : %02x:%02x:%02x:%02x:%02x:%02x\n">(
      e.valid, e.fake, e.ctrlIfIndex, e.l3CtrlIfIndex, e.fwdIfIndex, e.l3FwdIfIndex, e.vlanId, Mac(e.dmac));
}

}  // namespace qdt
