#include "src/om/nqe_cli/table_entry.h"

#include <algorithm>

#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/bounded.h"

namespace qdt {

int32_t CopyEntry(void *out, const void *entry, size_t size) {
  return memcpy_s(out, size, entry, size) == 0 ? 0 : int32_t{QDT_TBL_MEMORY};
}

int32_t ReadEntryBytes(uint32_t table, const void *key, size_t offset, void *out, size_t size) {
  void *entry = nullptr;
  if (const int32_t code = TbmTblSearch(kEngineInstance, table, key, &entry); code != 0) return code;
  return CopyEntry(out, entry == nullptr ? nullptr : static_cast<const char *>(entry) + offset, size);
}

FwdIfIndex FindFwdIf(uint32_t ctrlIfIndex) {
  const uint32_t found = QdtCliGetFwdifIndexByCtrlIndex(ctrlIfIndex);
  return {found, std::min(static_cast<int32_t>(found), 0)};
}

BoundEntry CheckBound(EntryLookup lookup, uint32_t table, const void *key, uint64_t bound) {
  void *entry = nullptr;
  const int32_t code = lookup(kEngineInstance, table, key, &entry);
  return {code, code == 0 && bound != 0 && reinterpret_cast<uintptr_t>(entry) == bound};
}

}  // namespace qdt
