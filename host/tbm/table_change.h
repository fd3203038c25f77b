#ifndef HOST_TBM_TABLE_CHANGE_H_
#define HOST_TBM_TABLE_CHANGE_H_

#include "host/tbm/route_index_writer.h"
#include "host/tbm/table_view.h"

namespace qdt::host::tbm {

// Changes one table. Readers look at the same time, so every store is atomic and with release, and the stores
// stand in the order in which readers check them.
class TableChange {
 public:
  explicit TableChange(const TableView &view) : view_(view), shape_(view.shape()), state_(view.state()) {}

  int32_t Insert(const TableKey &key, const void *record, void **address);
  void Remove(uint32_t ref);
  void Update(uint32_t ref, const void *record);

 private:
  // That a thing is about to change: before its first byte does.
  void Note(const void *thing, size_t size) { view_.arena()->NoteChange(thing, size); }
  void NoteHead(uint32_t ref) { Note(view_.HeadAt(ref), shape_.headSize); }
  void NoteSlot(uint32_t ref) { Note(view_.SlotAt(ref), shape_.slotSize); }
  bool EnsureIndex();
  bool ReserveIndex();
  bool EnsureSlot(uint32_t ref);
  bool EnsureLog(uint32_t which, uint32_t count);
  bool Grow(uint64_t offset, uint64_t *have, uint64_t need, uint64_t whole, uint64_t least);
  bool Reserve(uint64_t offset, uint64_t size);
  int32_t TakeSlot(uint32_t *ref);
  void FreeSlot(uint32_t ref);
  void AppendToLog(uint32_t ref, uint64_t serial);
  void AppendToChain(uint32_t ref);
  void LeaveChain(uint32_t ref);
  void Tidy();
  bool BeginTidying();
  void Count(int32_t change);
  RouteIndexWriter Routes();
  int32_t InsertRoute(const TableKey &key, uint32_t ref, uint64_t serial);
  void RemoveRoute(uint32_t ref);
  void SetNode(uint32_t ref, void *record);

  const TableView &view_;
  const TableShape &shape_;
  TableState &state_;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_TABLE_CHANGE_H_
