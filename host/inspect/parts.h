#ifndef HOST_INSPECT_PARTS_H_
#define HOST_INSPECT_PARTS_H_

#include "host/record/record_json.h"

namespace qdt::host {

// Whether the record has the structure, and the structure is its own: of several that its bytes could be read
// as, the one that the record says.
bool HasPart(const RecordBytes &record, const Field &part);

// Whether the record has the value.
inline bool HasLeaf(const RecordBytes &record, const Leaf &leaf) {
  return leaf.part == nullptr || HasPart(record, *leaf.part);
}

}  // namespace qdt::host

#endif  // HOST_INSPECT_PARTS_H_
