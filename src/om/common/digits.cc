#include "src/om/common/digits.h"

#include <bit>

namespace qdt {

constinit const HexPair g_hexPairs[256] = {
#define QDT_PAIR(high, low) \
  { {high, low}, ':', 0 }
#define QDT_ROW(high)                                                                                      \
  QDT_PAIR(high, '0'), QDT_PAIR(high, '1'), QDT_PAIR(high, '2'), QDT_PAIR(high, '3'), QDT_PAIR(high, '4'), \
      QDT_PAIR(high, '5'), QDT_PAIR(high, '6'), QDT_PAIR(high, '7'), QDT_PAIR(high, '8'),                  \
      QDT_PAIR(high, '9'), QDT_PAIR(high, 'a'), QDT_PAIR(high, 'b'), QDT_PAIR(high, 'c'),                  \
      QDT_PAIR(high, 'd'), QDT_PAIR(high, 'e'), QDT_PAIR(high, 'f')
    QDT_ROW('0'), QDT_ROW('1'), QDT_ROW('2'), QDT_ROW('3'), QDT_ROW('4'), QDT_ROW('5'),
    QDT_ROW('6'), QDT_ROW('7'), QDT_ROW('8'), QDT_ROW('9'), QDT_ROW('a'), QDT_ROW('b'),
    QDT_ROW('c'), QDT_ROW('d'), QDT_ROW('e'), QDT_ROW('f'),
#undef QDT_ROW
#undef QDT_PAIR
};

namespace {

constexpr uint32_t kTenTo8 = 100000000;

char *PutFourDigits(char *at, uint32_t value) {
  return digits::PutPair(digits::PutPair(at, value / 100), value % 100);
}

char *PutEightDigits(char *at, uint64_t value) {
  const auto eight = static_cast<uint32_t>(value);
  return PutFourDigits(PutFourDigits(at, eight / 10000), eight % 10000);
}

}  // namespace

char *PutUnsigned64(char *at, uint64_t value) {
  if (value <= UINT32_MAX) return PutUnsigned(at, static_cast<uint32_t>(value));
  const uint64_t high = value / kTenTo8;
  if (high <= UINT32_MAX)
    return PutEightDigits(PutUnsigned(at, static_cast<uint32_t>(high)), value % kTenTo8);
  at = PutUnsigned(at, static_cast<uint32_t>(high / kTenTo8));
  return PutEightDigits(PutEightDigits(at, high % kTenTo8), value % kTenTo8);
}

namespace {

// Eight digits, the first of which has the lowest address.
uint64_t HexadecimalDigits(uint32_t value) {
  uint64_t digits = value;
  digits = (digits << 16 | digits) & 0x0000FFFF0000FFFF;
  digits = (digits << 8 | digits) & 0x00FF00FF00FF00FF;
  digits = (digits << 4 | digits) & 0x0F0F0F0F0F0F0F0F;
  constexpr uint64_t kOnes = 0x0101010101010101;
  const uint64_t letters = (digits + 6 * kOnes) >> 4 & kOnes;  // 1 for those from "a" on
  digits += '0' * kOnes + ('a' - '0' - 10) * letters;
  return __builtin_bswap64(digits);
}

}  // namespace

char *PutWord(char *at, uint32_t value) {
  const uint64_t digits = HexadecimalDigits(value);
  std::memcpy(at, &digits, sizeof(digits));
  return at + sizeof(digits);
}

char *PutHexadecimal(char *at, uint64_t value) {
  if (value > UINT32_MAX) return PutWord(PutHexadecimal(at, value >> 32), static_cast<uint32_t>(value));
  const int count = (std::bit_width(value | 1) + 3) / 4;
  const uint64_t digits = HexadecimalDigits(static_cast<uint32_t>(value << (32 - 4 * count)));
  const uint64_t last = digits >> 8 * ((count - 1) & ~1);
  // In halves that overlap.
  if (count >= 4) {
    const uint64_t end = digits >> 8 * (count - 4);
    std::memcpy(at, &digits, 4);
    std::memcpy(at + count - 4, &end, 4);
  } else {
    if (count >= 2) std::memcpy(at, &digits, 2);
    if (count % 2 != 0) std::memcpy(at + count - 1, &last, 1);
  }
  return at + count;
}

}  // namespace qdt
