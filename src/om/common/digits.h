#ifndef SRC_OM_COMMON_DIGITS_H_
#define SRC_OM_COMMON_DIGITS_H_

#include <cstdint>

namespace qdt {

// Write the digits of a number at `at`, which has room for all of them, and return the end. No NUL.
char *PutUnsigned(char *at, uint32_t value);
char *PutUnsigned64(char *at, uint64_t value);
char *PutHexadecimal(char *at, uint64_t value);

// All eight digits.
char *PutWord(char *at, uint32_t value);

}  // namespace qdt

#endif  // SRC_OM_COMMON_DIGITS_H_
