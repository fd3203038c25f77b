#ifndef HOST_TBM_ROUTE_INDEX_WRITER_H_
#define HOST_TBM_ROUTE_INDEX_WRITER_H_

#include <cstdint>
#include <utility>

#include "host/tbm/route_blocks.h"
#include "host/tbm/route_index.h"

namespace qdt::host::tbm {

// Changes the index of a route table; there is one writer at a time. Each change is published whole by one
// store, so a writer that is killed leaves an index that answers.
class RouteIndexWriter {
 public:
  // `area` has `size` bytes, RouteIndexSize of the table's capacity; `back` is asked for storage before
  // anything of it is touched but the head, which has it already, and `note` hears of all that changes.
  RouteIndexWriter(
      char *area, uint64_t size, uint32_t addressSize, BackArea back,
      NoteArea note = [](const void *, uint64_t) {})
      : area_(area), size_(size), addressSize_(addressSize), back_(std::move(back)), note_(std::move(note)) {}

  // Puts a route to the first `length` bits of the destination (in network order) in, or in the place of the
  // route that has stood there. 0, or -2 for a length that the family has not, -3 when no storage is left, -8
  // when the area is full; the index is then as before.
  int32_t Insert(uint16_t vpn, const uint8_t *address, uint32_t length, uint32_t slot, uint64_t serial);

  // 0, or -7 when there is no such route. Never fails for want of storage.
  int32_t Remove(uint16_t vpn, const uint8_t *address, uint32_t length);

 private:
  char *area_;
  uint64_t size_;
  uint32_t addressSize_;
  BackArea back_;
  NoteArea note_;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_ROUTE_INDEX_WRITER_H_
