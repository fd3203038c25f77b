#ifndef SRC_OM_COMMON_DIGITS_H_
#define SRC_OM_COMMON_DIGITS_H_

#include <cstdint>
#include <cstring>

namespace qdt {

// Write the digits of a number at `at`, which has room for all of them, and return the end. No NUL.
char *PutUnsigned(char *at, uint32_t value);
char *PutUnsigned64(char *at, uint64_t value);
char *PutHexadecimal(char *at, uint64_t value);

// All eight digits.
char *PutWord(char *at, uint32_t value);

// "00" to "ff", two characters each.
extern const char g_hexPairs[512];

// Both digits.
inline char *PutByte(char *at, uint8_t value) {
  std::memcpy(at, g_hexPairs + 2 * value, 2);
  return at + 2;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_DIGITS_H_
