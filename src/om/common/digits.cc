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

char *PutHexadecimal(char *at, uint64_t value) {
  char *const end = at + (std::bit_width(value | 1) + 3) / 4;
  char *digit = end;
  for (; digit - at >= 2; value >>= 8) PutByte(digit -= 2, static_cast<uint8_t>(value));
  if (digit != at) *at = g_hexPairs[value & 0xF].digits[1];
  return end;
}

char *PutWord(char *at, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) at = PutByte(at, static_cast<uint8_t>(value >> shift));
  return at;
}

}  // namespace qdt
