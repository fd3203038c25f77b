#ifndef SRC_OM_COMMON_RECORD_COPY_H_
#define SRC_OM_COMMON_RECORD_COPY_H_

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qdt {

// What stands at `record`, of which nothing says how it is aligned. A record that lives in the engine's
// tables is copied before a field of it is looked at: the engine may be writing it, and what was checked must
// be what is used.
template <typename Record>
Record CopyOf(const void *record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  Record copy;
  std::memcpy(&copy, record, sizeof(copy));
  return copy;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_RECORD_COPY_H_
