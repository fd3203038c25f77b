#ifndef SRC_OM_NQE_CLI_BOUND_ENTRY_H_
#define SRC_OM_NQE_CLI_BOUND_ENTRY_H_

#include <cstdint>

#include "platform/tbm.h"
#include "src/om/engine/table_ids.h"

namespace qdt {

// Result of comparing the address of an entry that another record keeps with the live entry of `key`.
struct BoundEntry {
  int32_t code;  // of the lookup
  bool same;     // the lookup succeeded and found the entry at the bound address
};

// An address of 0 is never the entry's.
template <typename Key>
BoundEntry CheckBoundEntry(uint32_t table, const Key &key, uint64_t bound) {
  void *entry = nullptr;
  const int32_t code = TbmTblSearch(kEngineInstance, table, &key, &entry);
  return {code, code == 0 && bound != 0 && reinterpret_cast<uintptr_t>(entry) == bound};
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_BOUND_ENTRY_H_
