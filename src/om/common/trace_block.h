#ifndef SRC_OM_COMMON_TRACE_BLOCK_H_
#define SRC_OM_COMMON_TRACE_BLOCK_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "src/om/engine/packet_trace.h"

// What everyone does to the engine's packet-trace block in the same way.
namespace qdt {

// One user's attachment to the block. It is kept for the life of the process; a failed one is tried again.
class TraceBlock {
 public:
  // Attaches if need be; false when the engine does not offer the block.
  bool Attach();

  // Null until attached.
  PacketTraceBlock *get() const { return block_; }
  PacketTraceBlock &operator*() const { return *block_; }

 private:
  PacketTraceBlock *block_ = nullptr;
};

// Ends the trace: no conditions, nothing left to print, counters at 0. Stations and the other switches stay.
void ClearPacketTrace(PacketTraceBlock &block);

// Adds bits to the mask, which the engine must not see before the fields that they stand for. A mask that
// has them already is not written.
inline void AddConditions(PacketTraceBlock &block, uint64_t mask) {
  uint64_t &conditions = block.conditions.mask;
  const uint64_t before = __atomic_load_n(&conditions, __ATOMIC_RELAXED);
  if ((before | mask) != before) __atomic_store_n(&conditions, before | mask, __ATOMIC_RELEASE);
}

// The discard type that operators call `name`; "all" is one, too. Of several with one name it is the last.
std::optional<uint16_t> FindDiscardType(std::string_view name);

// The name under which FindDiscardType finds a type; empty for a type without one.
const char *DiscardTypeName(uint16_t type);

}  // namespace qdt

#endif  // SRC_OM_COMMON_TRACE_BLOCK_H_
