#ifndef SRC_OM_COMMON_MAPPING_H_
#define SRC_OM_COMMON_MAPPING_H_

#include <cstdint>

namespace qdt {

// Where the mapping that holds `address` ends: what lies behind it is something else, also where it can be
// read. Its parts may differ in what is allowed there. Neighbours without a file count as one mapping, for
// nothing tells them apart. `address` itself when nothing is mapped there, UINT64_MAX when the process's
// mappings cannot be read.
uint64_t EndOfMapping(uint64_t address);

}  // namespace qdt

#endif  // SRC_OM_COMMON_MAPPING_H_
