#include "src/om/common/address.h"

#include <cstring>

namespace qdt {

namespace {

constexpr int kIpv6Words = 8;

// Where the longest run of zero words begins and how many it has: two at least, and of equals the first.
struct ZeroRun {
  int begin, length;
};

ZeroRun LongestZeroRun(const uint16_t (&words)[kIpv6Words]) {
  ZeroRun best = {-1, 1};
  for (int i = 0; i < kIpv6Words;) {
    int end = i;
    while (end < kIpv6Words && words[end] == 0) ++end;
    if (end - i > best.length) best = {i, end - i};
    i = end + 1;
  }
  return best;
}

char *PutIpv6Words(char *at, const uint16_t (&words)[kIpv6Words]) {
  const ZeroRun zeros = LongestZeroRun(words);
  for (int i = 0; i < kIpv6Words; ++i) {
    if (i == zeros.begin) {
      *at++ = ':';
      i += zeros.length - 1;
      if (i == kIpv6Words - 1) *at++ = ':';
      continue;
    }
    if (i != 0) *at++ = ':';
    // What embeds an IPv4 address shows it as one.
    if (i == 6 && zeros.begin == 0 && (zeros.length == 6 || (zeros.length == 5 && words[5] == 0xFFFF))) {
      return PutIpv4(at, uint32_t{words[6]} << 16 | words[7]);
    }
    at = PutHexadecimal(at, words[i]);
  }
  return at;
}

}  // namespace

char *PutIpv4(char *at, uint32_t address) {
  for (int shift = 24;; shift -= 8) {
    const uint32_t octet = address >> shift & 0xFF;
    if (octet < 10) {
      *at++ = static_cast<char>('0' + octet);
    } else {
      at = PutUnsigned(at, octet);
    }
    if (shift == 0) return at;
    *at++ = '.';
  }
}

char *PutIpv6(char *at, const uint8_t *bytes) {
  uint16_t words[kIpv6Words];
  for (int i = 0; i < kIpv6Words; ++i) words[i] = static_cast<uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
  return PutIpv6Words(at, words);
}

char *PutIpv6(char *at, const uint32_t *hostWords) {
  uint16_t words[kIpv6Words];
  for (int i = 0; i < kIpv6Words; ++i)
    words[i] = static_cast<uint16_t>(hostWords[i / 2] >> (i % 2 == 0 ? 16 : 0));
  return PutIpv6Words(at, words);
}

char *PutMac(char *at, const uint8_t *mac) {
  // The third byte of each step writes over the NUL of the one before.
  for (int i = 0; i < 5; ++i) std::memcpy(at + 3 * i, &g_hexPairs[mac[i]], sizeof(HexPair));
  return PutByte(at + 15, mac[5]);
}

}  // namespace qdt
