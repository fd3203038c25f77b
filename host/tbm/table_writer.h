#ifndef HOST_TBM_TABLE_WRITER_H_
#define HOST_TBM_TABLE_WRITER_H_

#include <cstdint>

#include "host/arena/arena.h"

namespace qdt::host {

// The engine's side of the table manager: the one writer of an arena's tables. Readers in any number of other
// processes work on the same tables meanwhile and take no lock. Not thread-safe.
//
// Statuses are the table manager's: 0, -2 for a wrong table id, a null argument or a route key whose
// destination has bits behind its prefix length, -3 when the file system under the arena is full, -5 when the
// key exists (unique tables), -6 for a table that is not defined, -7 for a missing key or an address that is
// no live entry, -8 when the table is full (also said once per table in the system log).
class TableWriter {
 public:
  // `arena` must outlive the writer and have been made with Arena::Create.
  explicit TableWriter(Arena *arena) : arena_(arena) {}

  // Copies in `key` (spec.keySize bytes) and `record` (spec.StoredSize() bytes) and stores the address that
  // TbmTblSearch delivers from now on in *address, which may be null.
  int32_t Insert(uint32_t table, const void *key, const void *record, void **address);

  // Removes the entry of `key`: for tables with several entries a key the oldest one.
  int32_t Remove(uint32_t table, const void *key);

  // Removes the entry whose delivered address is `address`.
  int32_t RemoveEntry(uint32_t table, void *address);

  // Overwrites the whole record in place, with what is attached to it; readers see the old or the new record
  // of a batch, never a mixture.
  int32_t Update(uint32_t table, void *address, const void *record);

 private:
  Arena *arena_;
};

}  // namespace qdt::host

#endif  // HOST_TBM_TABLE_WRITER_H_
