#include "src/om/common/digits.h"

#include <array>
#include <bit>
#include <cstring>

namespace qdt {
namespace {

// "00" to "99".
constexpr auto kPairs = [] {
  std::array<std::array<char, 2>, 100> pairs{};
  for (int i = 0; i < 100; ++i) pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
  return pairs;
}();

void PutPair(char *at, uint32_t value) { std::memcpy(at, kPairs[value].data(), 2); }

void PutFour(char *at, uint32_t value) {
  PutPair(at, value / 100);
  PutPair(at + 2, value % 100);
}

// What has to be added to a value of so many bits for its number of digits to stand in the upper half: where
// the values of one width have d or d + 1 digits, those from 10^d on carry into it.
constexpr auto kDigitCarries = [] {
  std::array<uint64_t, 33> carries{};
  uint64_t digits = 1;
  uint64_t power = 10;  // 10^digits
  for (int bits = 0; bits <= 32; ++bits) {
    const uint64_t largest = (uint64_t{1} << bits) - 1;
    if (largest < power) {
      carries[bits] = digits << 32;
    } else {
      ++digits;
      carries[bits] = (digits << 32) - power;
      power *= 10;
    }
  }
  return carries;
}();

uint32_t CountDigits(uint32_t value) {
  return static_cast<uint32_t>((value + kDigitCarries[std::bit_width(value)]) >> 32);
}

}  // namespace

char *PutUnsigned(char *at, uint32_t value) {
  char *const end = at + CountDigits(value);
  char *digit = end;
  for (; value >= 10000; value /= 10000) PutFour(digit -= 4, value % 10000);
  if (value >= 100) {
    PutPair(digit -= 2, value % 100);
    value /= 100;
  }
  if (value >= 10) {
    PutPair(digit - 2, value);
  } else {
    digit[-1] = static_cast<char>('0' + value);
  }
  return end;
}

char *PutUnsigned64(char *at, uint64_t value) {
  constexpr uint32_t kTenTo8 = 100000000;
  if (value <= UINT32_MAX) return PutUnsigned(at, static_cast<uint32_t>(value));
  at = PutUnsigned64(at, value / kTenTo8);
  const auto rest = static_cast<uint32_t>(value % kTenTo8);
  PutFour(at, rest / 10000);
  PutFour(at + 4, rest % 10000);
  return at + 8;
}

char *PutHexadecimal(char *at, uint64_t value) {
  char *const end = at + (std::bit_width(value | 1) + 3) / 4;
  for (char *digit = end; digit != at; value >>= 4) *--digit = "0123456789abcdef"[value & 0xF];
  return end;
}

char *PutWord(char *at, uint32_t value) {
  for (int shift = 28; shift >= 0; shift -= 4) *at++ = "0123456789abcdef"[value >> shift & 0xF];
  return at;
}

}  // namespace qdt
