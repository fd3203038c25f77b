#ifndef SRC_OM_NQE_CLI_BIT_H_
#define SRC_OM_NQE_CLI_BIT_H_

#include <cstdint>

namespace qdt {

// Bit number `bit` of a word of flags, as 0 or 1.
constexpr uint32_t Bit(uint32_t word, int bit) { return word >> bit & 1; }

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_BIT_H_
