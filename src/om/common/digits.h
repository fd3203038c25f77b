#ifndef SRC_OM_COMMON_DIGITS_H_
#define SRC_OM_COMMON_DIGITS_H_

#include <array>
#include <cstdint>
#include <cstring>

namespace qdt {

namespace digits {

// "00" to "99".
inline constexpr auto kPairs = [] {
  std::array<char, 200> pairs{};
  for (int i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

inline char *PutPair(char *at, uint64_t value) {
  std::memcpy(at, &kPairs[2 * value], 2);
  return at + 2;
}

// The first one or two digits.
inline char *PutLeading(char *at, uint64_t value) {
  if (value >= 10) return PutPair(at, value);
  *at = static_cast<char>('0' + value);
  return at + 1;
}

// The same where more digits follow, which write over what a single one leaves behind it: how many there are
// is not foreseen.
inline char *PutLeadingOfMore(char *at, uint64_t value) {
  const bool single = value < 10;
  std::memcpy(at, &kPairs[2 * value + single], 2);
  return at + 2 - single;
}

// A number with a fraction of kPoint bits: each step brings the next two digits in front of the point.
template <int kPoint, int kSteps>
char *PutFraction(char *at, uint64_t number) {
  constexpr uint64_t kFraction = (uint64_t{1} << kPoint) - 1;
  at = PutLeadingOfMore(at, number >> kPoint);
#pragma GCC unroll 4
  for (int i = 0; i < kSteps; ++i) {
    number = (number & kFraction) * 100;
    at = PutPair(at, number >> kPoint);
  }
  return at;
}

// A value over 100^kSteps, rounded up so far that no digit falls short.
template <int kPoint, int kSteps>
char *PutScaled(char *at, uint64_t value) {
  constexpr uint64_t kPower = kSteps == 1 ? 100 : kSteps == 2 ? 10000 : kSteps == 3 ? 1000000 : 100000000;
  return PutFraction<kPoint, kSteps>(at, value * ((uint64_t{1} << kPoint) / kPower + 1));
}

}  // namespace digits

// Write the digits of a number at `at`, which has room for all of them, and return the end. No NUL.

inline char *PutUnsigned(char *at, uint32_t value) {
  if (value < 100) return digits::PutLeading(at, value);
  if (value < 10000) return digits::PutScaled<32, 1>(at, value);
  if (value < 1000000) return digits::PutScaled<32, 2>(at, value);
  if (value < 100000000) return digits::PutScaled<48, 3>(at, value);
  return digits::PutScaled<57, 4>(at, value);
}

char *PutUnsigned64(char *at, uint64_t value);
char *PutHexadecimal(char *at, uint64_t value);

// All eight digits.
char *PutWord(char *at, uint32_t value);

// "00" to "ff", each with the colon behind it that MAC addresses want, and a NUL.
struct HexPair {
  char digits[2];
  char colon, nul;
};
extern const HexPair g_hexPairs[256];

// Both digits.
inline char *PutByte(char *at, uint8_t value) {
  std::memcpy(at, g_hexPairs[value].digits, 2);
  return at + 2;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_DIGITS_H_
