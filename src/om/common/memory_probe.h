#ifndef SRC_OM_COMMON_MEMORY_PROBE_H_
#define SRC_OM_COMMON_MEMORY_PROBE_H_

#include <cstddef>
#include <cstdint>

namespace qdt {

// Copies `size` bytes from `address`, a pointer found in an engine record, which may be stale or wild. False
// when nothing is mapped there: a damaged record must not take its reader down.
bool ReadEngineMemory(uint64_t address, void *out, size_t size);

// The other way round: copies `size` bytes to `address`. False when that cannot be written.
bool WriteEngineMemory(uint64_t address, const void *from, size_t size);

}  // namespace qdt

#endif  // SRC_OM_COMMON_MEMORY_PROBE_H_
