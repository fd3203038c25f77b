#ifndef SRC_OM_NQE_CLI_TABLE_ENTRY_H_
#define SRC_OM_NQE_CLI_TABLE_ENTRY_H_

#include <cstddef>
#include <cstdint>

#include "platform/tbm.h"
#include "src/om/engine/table_ids.h"

// How the command side reads what a lookup of the table manager finds: the entry is the engine's, which may
// write it at any time, and is copied before a field of it is looked at.
namespace qdt {

// Copies the `size` bytes at `entry`; 0, or QDT_TBL_MEMORY for a lookup that succeeded and found nothing.
int32_t CopyEntry(void *out, const void *entry, size_t size);

// Copies `size` bytes of the entry of `key`, from byte `offset` on; 0 or a code.
int32_t ReadEntryBytes(uint32_t table, const void *key, size_t offset, void *out, size_t size);

// Copies the entry of `key`, or the field that begins at byte `offset` of it; 0 or a code.
template <typename Key, typename Field>
int32_t ReadEntry(uint32_t table, const Key &key, Field &field, size_t offset = 0) {
  return ReadEntryBytes(table, &key, offset, &field, sizeof(field));
}

// The index of the forwarding interface of a control interface, and 0 or a negative code. An index and a code
// come back from the platform's map alike: no interface index is that large.
struct FwdIfIndex {
  uint32_t value;
  int32_t code;
};
FwdIfIndex FindFwdIf(uint32_t ctrlIfIndex);

// Result of comparing the address of an entry that another record keeps with the live entry of `key`.
struct BoundEntry {
  int32_t code;  // of the lookup
  bool same;     // the lookup succeeded and found the entry at the bound address
};

using EntryLookup = int32_t (*)(uint32_t instance, uint32_t table, const void *key, void **entry);

// An address of 0 is never the entry's.
BoundEntry CheckBound(EntryLookup lookup, uint32_t table, const void *key, uint64_t bound);

template <typename Key>
BoundEntry CheckBoundEntry(uint32_t table, const Key &key, uint64_t bound) {
  return CheckBound(TbmTblSearch, table, &key, bound);
}

// As above, for the entry with the longest prefix that matches.
template <typename Key>
BoundEntry CheckBoundMatch(uint32_t table, const Key &key, uint64_t bound) {
  return CheckBound(TbmTblMatch, table, &key, bound);
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_TABLE_ENTRY_H_
