#ifndef SRC_OM_ENGINE_LAYOUT_H_
#define SRC_OM_ENGINE_LAYOUT_H_

#include <bit>
#include <cstddef>
#include <cstdint>

// What all record layouts stand on: the engine writes its records in little-endian order, and bit-fields are
// numbered from the least significant bit of their word. Fields named reserved* are the engine's own and
// never shown.
static_assert(std::endian::native == std::endian::little, "the engine's records are little-endian");

// States where a field of a record stands: its first byte and its bytes. All that is read or written by name
// is stated: plain fields below their record, bits in layout_bits.cc.
#define QDT_FIELD_AT(record, field, offset, size)                                       \
  static_assert(offsetof(record, field) == (offset) && sizeof(record::field) == (size), \
                #record "::" #field " must stand at byte " #offset " and have " #size " bytes")

#define QDT_RECORD_SIZE(record, size) \
  static_assert(sizeof(record) == (size), #record " must have " #size " bytes")

// States that a bit-field is the bits `first` to `last` of the 32-bit word at byte `word` of its record: it
// is all ones when these are, and zero when all others are.
#ifdef __clang__  // does not look into bit-fields while compiling; GCC does
#define QDT_BITS_AT(record, word, field, first, last) static_assert(true)
#else
#define QDT_BITS_AT(record, word, field, first, last)                                               \
  static_assert(                                                                                    \
      ::qdt::WithWord<record, word>(::qdt::BitsTo(last) & ~::qdt::BitsBelow(first)).field ==        \
              ::qdt::BitsTo(last - first) &&                                                        \
          ::qdt::WithWord<record, word>(~::qdt::BitsTo(last) | ::qdt::BitsBelow(first)).field == 0, \
      #record "::" #field " must be bits " #first " to " #last " of the word at byte " #word)
#endif

namespace qdt {

using MacAddress = uint8_t[6];

consteval uint32_t BitsBelow(int bit) { return (uint32_t{1} << bit) - 1; }
consteval uint32_t BitsTo(int bit) { return BitsBelow(bit) << 1 | 1; }

// A record of zeros but for the word at byte kWord.
template <typename Record, size_t kWord>
consteval Record WithWord(uint32_t word) {
  struct {
    uint8_t before[kWord];
    uint8_t word[sizeof(uint32_t)];
    uint8_t behind[sizeof(Record) - kWord - sizeof(uint32_t)];
  } bytes = {};
  for (uint8_t &byte : bytes.word) {
    byte = static_cast<uint8_t>(word);
    word >>= 8;
  }
  return std::bit_cast<Record>(bytes);
}

}  // namespace qdt

#endif  // SRC_OM_ENGINE_LAYOUT_H_
