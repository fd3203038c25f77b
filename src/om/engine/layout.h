#ifndef SRC_OM_ENGINE_LAYOUT_H_
#define SRC_OM_ENGINE_LAYOUT_H_

#include <bit>
#include <cstddef>
#include <cstdint>

// What all record layouts stand on: the engine writes its records in little-endian order, and bit-fields are
// numbered from the least significant bit of their word. Fields named reserved* are the engine's own and
// never shown.
static_assert(std::endian::native == std::endian::little, "the engine's records are little-endian");

// States where a field stands. Every field whose place the engine fixes is stated below its struct.
#define QDT_FIELD_AT(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), #record "::" #field " must stand at byte " #offset)

#define QDT_RECORD_SIZE(record, size) \
  static_assert(sizeof(record) == (size), #record " must have " #size " bytes")

namespace qdt {

using MacAddress = uint8_t[6];

}  // namespace qdt

#endif  // SRC_OM_ENGINE_LAYOUT_H_
