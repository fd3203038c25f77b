#include "src/om/common/digits.h"

#include <bit>

namespace qdt {

constinit const char g_hexPairs[512] = {
#define QDT_PAIR(high, low) high, low
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

char *PutUnsigned64(char *at, uint64_t value) {
  constexpr uint32_t kTenTo8 = 100000000;
  if (value <= UINT32_MAX) return PutUnsigned(at, static_cast<uint32_t>(value));
  at = PutUnsigned64(at, value / kTenTo8);
  auto rest = static_cast<uint32_t>(value % kTenTo8);
  for (uint32_t unit = kTenTo8 / 100; unit != 0; unit /= 100) {
    at = digits::PutPair(at, rest / unit);
    rest %= unit;
  }
  return at;
}

char *PutHexadecimal(char *at, uint64_t value) {
  char *const end = at + (std::bit_width(value | 1) + 3) / 4;
  char *digit = end;
  for (; digit - at >= 2; value >>= 8) PutByte(digit -= 2, static_cast<uint8_t>(value));
  if (digit != at) *at = g_hexPairs[2 * (value & 0xF) + 1];
  return end;
}

char *PutWord(char *at, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) at = PutByte(at, static_cast<uint8_t>(value >> shift));
  return at;
}

}  // namespace qdt
