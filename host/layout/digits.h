#ifndef HOST_LAYOUT_DIGITS_H_
#define HOST_LAYOUT_DIGITS_H_

#include <array>
#include <cstdint>
#include <cstring>

namespace qdt::host {

// Write a value at `at`, which has room for it, and return the end. No NUL. Two digits at a time.

namespace digits {

consteval auto Pairs(int base) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<char, 512> pairs{};
  for (int i = 0; i < base * base; ++i) {
    pairs[2 * i] = kDigits[i / base];
    pairs[2 * i + 1] = kDigits[i % base];
  }
  return pairs;
}
inline constexpr auto kDecimal = Pairs(10);      // "00" to "99"
inline constexpr auto kHexadecimal = Pairs(16);  // "00" to "ff"

inline char *PutPair(char *at, uint64_t value) {
  std::memcpy(at, &kDecimal[2 * value], 2);
  return at + 2;
}
inline char *PutFour(char *at, uint64_t value) { return PutPair(PutPair(at, value / 100), value % 100); }
// Up to 9999, without leading zeros.
inline char *PutUpToFour(char *at, uint64_t value) {
  const uint64_t high = value / 100;
  if (high >= 10) return PutPair(PutPair(at, high), value % 100);
  if (value >= 100) {
    *at = static_cast<char>('0' + high);
    return PutPair(at + 1, value % 100);
  }
  if (value >= 10) return PutPair(at, value);
  *at = static_cast<char>('0' + value);
  return at + 1;
}

}  // namespace digits

namespace digits {
// From 10000 on.
char *PutLong(char *at, uint64_t value);
}  // namespace digits

inline char *PutDecimal(char *at, uint64_t value) {
  return value < 10000 ? digits::PutUpToFour(at, value) : digits::PutLong(at, value);
}

// "02:00:5e:00:53:01", of six bytes.
inline char *PutMac(char *at, const uint8_t *bytes) {
  for (int i = 0; i < 6; ++i, at += 3) {
    std::memcpy(at, &digits::kHexadecimal[2 * bytes[i]], 2);
    at[2] = ':';
  }
  return at - 1;
}

// "192.0.2.1", of a number in host order.
inline char *PutIpv4(char *at, uint32_t address) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    at = digits::PutUpToFour(at, address >> shift & 0xff);
    *at++ = '.';
  }
  return at - 1;
}

}  // namespace qdt::host

#endif  // HOST_LAYOUT_DIGITS_H_
