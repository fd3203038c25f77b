#ifndef SRC_OM_COMMON_CRC32C_H_
#define SRC_OM_COMMON_CRC32C_H_

#include <cstddef>
#include <cstdint>

namespace qdt {

// CRC-32C (Castagnoli, RFC 3720) of `size` bytes in address order, as the engine's hashes take it: begun with
// all ones and, unlike in protocols, not inverted at the end. Uses the processor's instructions where it has
// them.
uint32_t Crc32c(const void *data, size_t size);

// The same without the processor's instructions.
uint32_t Crc32cByTable(const void *data, size_t size);

}  // namespace qdt

#endif  // SRC_OM_COMMON_CRC32C_H_
