#include "src/om/common/trace_block.h"

#include <cstring>

#include "platform/shm.h"
#include "qdt/stats.h"

namespace qdt {
namespace {

// Null for a type without a name. Type 274 has the name of the first counter behind the discards.
const char *StatisticName(uint16_t type) { return QdtOmaSysStatDescGet()[QDT_STAT_DISCARD + type]; }

}  // namespace

bool TraceBlock::Attach() {
  if (block_ == nullptr)
    block_ = static_cast<PacketTraceBlock *>(VRX_Smmap(kPacketTraceRegion, sizeof(PacketTraceBlock), 0));
  return block_ != nullptr;
}

void ClearPacketTrace(PacketTraceBlock &block) {
  std::memset(&block.print, 0, sizeof(block.print));
  block.leftPrints = 0;
  block.on.packets = 0;
  block.fromDriver = block.toDriver = 0;
  block.toSlowPath = block.fromSlowPath = 0;
  std::memset(&block.conditions, 0, sizeof(block.conditions));
}

std::optional<uint16_t> FindDiscardType(std::string_view name) {
  if (name == "all") return kAllDiscardTypes;
  for (uint16_t type = kAllDiscardTypes; type > 0; --type) {
    const char *const known = StatisticName(type);
    if (known != nullptr && name == known) return type;
  }
  return std::nullopt;
}

const char *DiscardTypeName(uint16_t type) {
  if (type == kAllDiscardTypes) return "all";
  const char *const name = type > 0 && type < kAllDiscardTypes ? StatisticName(type) : nullptr;
  return name == nullptr ? "" : name;
}

}  // namespace qdt
