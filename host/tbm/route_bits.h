#ifndef HOST_TBM_ROUTE_BITS_H_
#define HOST_TBM_ROUTE_BITS_H_

#include <endian.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "host/arena/route_layout.h"

// Destinations as numbers, whose highest bit is the first of the address, and the blocks of the route index.
namespace qdt::host::tbm {

using Ipv4Bits = uint32_t;
__extension__ typedef unsigned __int128 Ipv6Bits;

template <typename Bits>
constexpr uint32_t kWidth = sizeof(Bits) * 8;

inline Ipv6Bits MakeIpv6Bits(uint64_t high, uint64_t low) { return Ipv6Bits{high} << 64 | low; }

template <typename Bits>
Bits LoadBits(const uint8_t *address);

template <>
inline Ipv4Bits LoadBits(const uint8_t *address) {
  uint32_t word;
  std::memcpy(&word, address, sizeof(word));
  return be32toh(word);
}

template <>
inline Ipv6Bits LoadBits(const uint8_t *address) {
  uint64_t words[2];
  std::memcpy(words, address, sizeof(words));
  return MakeIpv6Bits(be64toh(words[0]), be64toh(words[1]));
}

inline uint32_t LeadingZeros(Ipv4Bits bits) { return std::countl_zero(bits); }
inline uint32_t LeadingZeros(Ipv6Bits bits) {
  const auto high = static_cast<uint64_t>(bits >> 64);
  return high != 0 ? std::countl_zero(high) : 64 + std::countl_zero(static_cast<uint64_t>(bits));
}

// Whether the first `length` bits are the same; `length` is less than the width.
template <typename Bits>
bool SameStart(Bits a, Bits b, uint32_t length) {
  return (a ^ b) >> 1 >> (kWidth<Bits> - 1 - length) == 0;
}

// The first `length` bits, then zeros.
template <typename Bits>
Bits FirstBits(Bits bits, uint32_t length) {
  const uint32_t rest = kWidth<Bits> - length;
  return length == 0 ? 0 : bits >> rest << rest;
}

// How many first bits are the same.
template <typename Bits>
uint32_t CommonStart(Bits a, Bits b) {
  return LeadingZeros(a ^ b);
}

// The bits by which a node at `depth` decides, filled up with zeros at the address's end.
template <typename Bits>
uint32_t Digit(Bits bits, uint32_t depth) {
  return static_cast<uint32_t>(static_cast<Bits>(bits << depth) >> (kWidth<Bits> - kRouteStride));
}

// A node's routes by bits of a word: the route whose last `length` bits (fewer than the stride) lie in the
// node is the number that these bits make behind a leading 1. So longer routes have higher bits.
inline uint32_t RouteBit(uint32_t digit, uint32_t length) {
  return 1u << length | digit >> (kRouteStride - length);
}

inline uint32_t LengthOfRouteBit(uint32_t bit) { return 31 - static_cast<uint32_t>(std::countl_zero(bit)); }

// Of a node's routes those on the way of a digit: a bit for each of their lengths, and back. The bit of a
// route is half that of the next longer one.
inline uint32_t LengthsOnWay(uint64_t routes, uint32_t digit) {
  uint32_t lengths = 0;
  for (uint32_t bit = (1u << kRouteStride | digit) >> 1; bit != 0; bit >>= 1)
    lengths = lengths << 1 | static_cast<uint32_t>(routes >> bit & 1);
  return lengths;
}
inline uint64_t RoutesOnWay(uint32_t lengths, uint32_t digit) {
  uint64_t routes = 0;
  uint32_t bit = 1u << kRouteStride | digit;
  for (uint32_t length = kRouteStride; length-- > 0;) {
    bit >>= 1;
    routes |= uint64_t{lengths >> length & 1} << bit;
  }
  return routes;
}

// For each digit the bits of the routes that match it.
constexpr std::array<uint64_t, 1 << kRouteStride> kMatching = [] {
  std::array<uint64_t, 1 << kRouteStride> matching{};
  for (uint32_t digit = 0; digit < matching.size(); ++digit) {
    for (uint32_t length = 0; length < kRouteStride; ++length) {
      matching[digit] |= uint64_t{1} << (1u << length | digit >> (kRouteStride - length));
    }
  }
  return matching;
}();

// std::popcount is a call into the compiler's library on processors that need not have the instruction.
constexpr uint32_t CountBits(uint64_t bits) {
  bits -= bits >> 1 & 0x5555555555555555;
  bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
  bits = (bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f;
  return static_cast<uint32_t>(bits * 0x0101010101010101 >> 56);
}

// How many of the lengths are `most` or less.
inline uint32_t CountLengths(Ipv6Bits lengths, uint32_t most) {
  const Ipv6Bits counted = lengths << (kWidth<Ipv6Bits> - 1 - most);
  return CountBits(static_cast<uint64_t>(counted)) + CountBits(static_cast<uint64_t>(counted >> 64));
}

// The bits below bit `bit`.
constexpr uint64_t Below(uint32_t bit) { return (uint64_t{1} << bit) - 1; }

constexpr bool IsRoute(RouteRef ref) { return (ref & 1) != 0; }
constexpr bool IsNode(RouteRef ref) { return ref != 0 && !IsRoute(ref); }
constexpr uint64_t RouteOffset(RouteRef ref) { return uint64_t{ref >> 1} * kRouteWord; }

using RouteWord = std::atomic<uint64_t>;

// The words of blocks. The first of each is the writer's. Readers load with acquire and the writer stores
// with release, so that a reader that has seen anything of a block's new life also sees how many changes
// there were by then.
template <typename Bits>
class NodeBlock {
 public:
  static constexpr uint32_t kHead = NodeHeadBytes(sizeof(Bits)) / kRouteWord;

  explicit NodeBlock(const RouteWord *words) : words_(words) {}

  uint64_t children() const { return Load(1); }
  uint64_t routes() const { return Load(2); }
  // The node's place: how many bits of the address lie above it, and which; of a stem, where it ends, and all
  // bits up to there.
  uint32_t depth() const { return static_cast<uint8_t>(Load(3)); }
  uint32_t end() const { return static_cast<uint8_t>(Load(3) >> 8); }  // 0: no stem
  Bits path() const {
    if constexpr (sizeof(Bits) == 4) {
      return static_cast<Bits>(Load(3) >> 32);
    } else {
      return MakeIpv6Bits(Load(4), Load(5));
    }
  }
  // Of a stem, a bit for the length of each route on its path.
  Ipv6Bits lengths() const { return MakeIpv6Bits(Load(2), Load(1)); }
  // What turns off at the node of a stem that is so many strides behind its start. Empty where nothing does.
  struct Side {
    uint64_t children;
    uint64_t routes;
    uint32_t first;  // of its references, children before routes
  };
  Side side(uint32_t strides) const {
    const auto sides = static_cast<uint32_t>(Load(3) >> 16);
    if ((sides >> strides & 1) == 0) return {};
    const uint32_t word = SidesWord(CountLengths(lengths(), kWidth<Ipv6Bits> - 1)) +
                          kSideWords * CountBits(sides & Below(strides));
    return {Load(word), Load(word + 1), static_cast<uint8_t>(Load(word + 2))};
  }
  static constexpr uint32_t SidesWord(uint32_t routes) { return kHead + (routes + 2) / 2; }
  // References, those of the children, of a stem the one behind its end, then those of the routes: one, and
  // the two of a word.
  RouteRef ref(uint32_t index) const { return static_cast<RouteRef>(refs(index) >> (index % 2 * 32)); }
  uint64_t refs(uint32_t index) const { return Load(kHead + index / 2); }

 private:
  uint64_t Load(uint32_t word) const { return words_[word].load(std::memory_order_acquire); }

  const RouteWord *words_;
};

template <typename Bits>
class RouteBlock {
 public:
  explicit RouteBlock(const RouteWord *words) : words_(words) {}

  uint64_t serial() const { return Load(1); }
  uint32_t slot() const { return static_cast<uint32_t>(Load(2) >> 32); }
  uint32_t length() const { return static_cast<uint32_t>(Load(2)); }
  Bits prefix() const {
    if constexpr (sizeof(Bits) == 4) {
      return static_cast<Bits>(Load(3));
    } else {
      return MakeIpv6Bits(Load(3), Load(4));
    }
  }

 private:
  uint64_t Load(uint32_t word) const { return words_[word].load(std::memory_order_acquire); }

  const RouteWord *words_;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_ROUTE_BITS_H_
