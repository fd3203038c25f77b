#ifndef HOST_TBM_ROUTE_LEVELS_H_
#define HOST_TBM_ROUTE_LEVELS_H_

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <span>

#include "host/tbm/route_bits.h"

// The nodes of a route index's trie as its writer works on them, out of the readers' sight.
namespace qdt::host::tbm {

template <typename Bits>
struct Prefix {
  Bits bits;
  uint32_t length;
};

template <typename Bits>
uint32_t CommonPrefix(const Prefix<Bits> &a, const Prefix<Bits> &b) {
  return std::min({CommonStart(a.bits, b.bits), a.length, b.length});
}

template <typename Bits>
struct Node {
  Prefix<Bits> place;  // its depth and path
  uint64_t children;
  uint64_t routes;
  uint32_t count;
  std::array<RouteRef, kMaxNodeRefs + 1> refs;  // one more than fits, so that reading goes by words

  void StartAt(const Prefix<Bits> &at) {
    place = at;
    children = routes = count = 0;
  }
  void Load(const RouteWord *words) {
    const NodeBlock<Bits> block(words);
    place = {block.path(), block.depth()};
    children = block.children();
    routes = block.routes();
    count = CountBits(children) + CountBits(routes);
    for (uint32_t i = 0; i < count; i += 2) {
      const uint64_t two = block.refs(i);
      refs[i] = static_cast<RouteRef>(two);
      refs[i + 1] = static_cast<RouteRef>(two >> 32);
    }
  }

  uint32_t DigitOf(const Prefix<Bits> &prefix) const { return Digit(prefix.bits, place.length); }
  // Whether a prefix that lies below the node's path is one of its routes, and not in a child.
  bool HoldsRoute(const Prefix<Bits> &prefix) const { return prefix.length < place.length + kRouteStride; }

  // The place of a reference in `refs`, and the word and bit that say whether it is there.
  struct Entry {
    uint64_t *set;
    uint64_t bit;
    uint32_t index;
    bool present() const { return (*set & bit) != 0; }
  };
  Entry ChildEntry(uint32_t digit) {
    return {&children, uint64_t{1} << digit, CountBits(children & Below(digit))};
  }
  Entry EntryOf(const Prefix<Bits> &prefix) {
    if (!HoldsRoute(prefix)) return ChildEntry(DigitOf(prefix));
    const uint32_t bit = RouteBit(DigitOf(prefix), prefix.length - place.length);
    return {&routes, uint64_t{1} << bit, CountBits(children) + CountBits(routes & Below(bit))};
  }
  void Add(const Entry &entry, RouteRef ref) {
    *entry.set |= entry.bit;
    std::copy_backward(refs.begin() + entry.index, refs.begin() + count, refs.begin() + count + 1);
    refs[entry.index] = ref;
    ++count;
  }
  void Take(const Entry &entry) {
    *entry.set &= ~entry.bit;
    std::copy(refs.begin() + entry.index + 1, refs.begin() + count, refs.begin() + entry.index);
    --count;
  }
};

inline void StoreAddress(RouteWord *words, Ipv4Bits bits) { words[0].store(bits, std::memory_order_release); }
inline void StoreAddress(RouteWord *words, Ipv6Bits bits) {
  words[0].store(static_cast<uint64_t>(bits >> 64), std::memory_order_release);
  words[1].store(static_cast<uint64_t>(bits), std::memory_order_release);
}

// `marks`: of a stem, its end and the bits of its sides.
inline void StorePlace(RouteWord *words, const Prefix<Ipv4Bits> &place, uint64_t marks) {
  words[0].store(uint64_t{place.bits} << 32 | marks << 8 | place.length, std::memory_order_release);
}
inline void StorePlace(RouteWord *words, const Prefix<Ipv6Bits> &place, uint64_t marks) {
  words[0].store(marks << 8 | place.length, std::memory_order_release);
  StoreAddress(words + 1, place.bits);
}

inline void StoreRefs(RouteWord *words, const RouteRef *refs, uint32_t count) {
  for (uint32_t i = 0; i < count; i += 2) {
    const uint64_t second = i + 1 < count ? refs[i + 1] : 0;
    words[i / 2].store(second << 32 | refs[i], std::memory_order_release);
  }
}

inline void StoreRef(RouteWord *words, uint32_t index, RouteRef ref) {
  const uint32_t shift = index % 2 * 32;
  const uint64_t other = words[index / 2].load(std::memory_order_relaxed) & ~(uint64_t{UINT32_MAX} << shift);
  words[index / 2].store(other | uint64_t{ref} << shift, std::memory_order_release);
}

// A node on the way from the root to what changes, also one that stands in a stem; or a whole block there
// that is not taken apart, as only the reference changes by which the way goes on.
template <typename Bits>
struct Level {
  static constexpr uint32_t kTakenApart = UINT32_MAX;

  Node<Bits> node;
  bool leadsOn;     // to the level below, or to what is behind the last one
  uint32_t digit;   // by which child; without any, where its longest routes are
  RouteRef source;  // the block that it comes from; 0: it is new
  uint32_t passed;  // of a whole block, the number of its reference by which the way goes on

  bool whole() const { return passed != kTakenApart; }

  // What does not lie on the way that the level leads on.
  uint64_t SideChildren() const { return leadsOn ? node.children & ~(uint64_t{1} << digit) : node.children; }
  uint64_t SideRoutes() const { return node.routes & ~kMatching[digit]; }
  uint32_t SideRefs() const {
    const uint64_t children = SideChildren();
    const uint64_t routes = SideRoutes();
    return (children | routes) == 0 ? 0 : CountBits(children) + CountBits(routes);  // mostly none
  }

  // Whether this may be a node of a stem, when another is above or below. The last one need not lead on.
  bool InStem() const {
    return !whole() && node.place.length + kRouteStride < kWidth<Bits> && SideRefs() <= kMaxSideRefs;
  }
  // Whether the prefix goes the way that the level leads on.
  bool Passes(const Prefix<Bits> &prefix) const {
    return leadsOn && prefix.length >= node.place.length + kRouteStride &&
           SameStart(prefix.bits, node.place.bits, node.place.length) && node.DigitOf(prefix) == digit;
  }

  // Leads on from now on, to another node rather than to a route. Says what is there, 0 when the level has no
  // children.
  RouteRef LeadOn() {
    leadsOn = node.children != 0;
    if (!leadsOn) {
      const uint32_t longest = 63 - static_cast<uint32_t>(std::countl_zero(node.routes));
      digit = longest << (kRouteStride - LengthOfRouteBit(longest)) & ((1 << kRouteStride) - 1);
      return 0;
    }
    const auto end = node.refs.begin() + CountBits(node.children);
    auto child = std::find_if(node.refs.begin(), end, IsNode);
    if (child == end) child = node.refs.begin();
    uint64_t digits = node.children;
    for (auto before = child - node.refs.begin(); before != 0; --before) digits &= digits - 1;
    digit = static_cast<uint32_t>(std::countr_zero(digits));
    return *child;
  }

  // A node of a stem: the routes on its way, the first of them at `*index`, and what turns off there.
  void LoadOfStem(const NodeBlock<Bits> &stem, uint32_t depth, uint32_t *index) {
    const typename NodeBlock<Bits>::Side side = stem.side((depth - stem.depth()) / kRouteStride);
    const auto here = static_cast<uint32_t>(stem.lengths() >> depth & Below(kRouteStride));
    node.StartAt({FirstBits(stem.path(), depth), depth});
    leadsOn = stem.ref(0) != 0 || depth + kRouteStride < stem.end();
    digit = Digit(stem.path(), depth);
    node.children = side.children | (leadsOn ? uint64_t{1} << digit : 0);
    node.routes = side.routes | RoutesOnWay(here, digit);
    uint32_t aside = side.first;
    RouteRef *to = node.refs.data();
    for (uint64_t children = node.children; children != 0; children &= children - 1)
      *to++ = (children & -children & side.children) != 0 ? stem.ref(aside++) : 0;
    uint32_t next = *index;
    if (side.routes == 0) {  // nearly always
      for (uint32_t lengths = here; lengths != 0; lengths &= lengths - 1) *to++ = stem.ref(next++);
    } else {
      for (uint64_t routes = node.routes; routes != 0; routes &= routes - 1)
        *to++ = stem.ref((routes & -routes & side.routes) != 0 ? aside++ : next++);
    }
    *index = next;
    node.count = static_cast<uint32_t>(to - node.refs.data());
  }
  bool Empty() const { return node.routes == 0 && SideChildren() == 0; }
};

// What a stem of some levels takes.
struct StemSize {
  uint32_t routes = 0;
  uint32_t sides = 0;
  uint32_t sideRefs = 0;

  template <typename Bits>
  void Add(const Level<Bits> &level) {
    const uint32_t aside = level.SideRefs();
    routes += level.node.count - aside - (level.leadsOn ? 1 : 0);
    sides += aside != 0;
    sideRefs += aside;
  }
  uint32_t Bytes(uint32_t addressSize) const { return StemBytes(routes, sides, sideRefs, addressSize); }
};

// The contents of a stem, collected from its levels.
template <typename Bits>
class Stem {
 public:
  Stem(std::span<const Level<Bits>> levels, RouteRef behind) : levels_(levels) {
    refs_[0] = behind;
    for (const Level<Bits> &level : levels) size_.Add(level);
    for (const Level<Bits> &level : levels) Add(level);
  }

  uint32_t Bytes() const { return size_.Bytes(sizeof(Bits)); }

  void Store(RouteWord *words) const {
    words[1].store(static_cast<uint64_t>(lengths_), std::memory_order_release);
    words[2].store(static_cast<uint64_t>(lengths_ >> 64), std::memory_order_release);
    const Prefix<Bits> &last = levels_.back().node.place;
    const Bits path = last.bits | Bits{levels_.back().digit} << (kWidth<Bits> - kRouteStride - last.length);
    StorePlace(words + 3, Prefix<Bits>{path, Depth()}, sideBits_ << 8 | (last.length + kRouteStride));
    StoreRefs(words + NodeBlock<Bits>::kHead, refs_.data(), count_);
    RouteWord *sides = words + NodeBlock<Bits>::SidesWord(size_.routes);
    for (uint32_t i = 0; i < size_.sides * kSideWords; ++i)
      sides[i].store(sides_[i], std::memory_order_release);
    StoreRefs(sides + size_.sides * kSideWords, asideRefs_.data(), size_.sideRefs);
  }

 private:
  static constexpr uint32_t kMaxRefs = kMaxNodeBytes / sizeof(RouteRef);

  uint32_t Depth() const { return levels_.front().node.place.length; }

  void Add(const Level<Bits> &level) {
    const Node<Bits> &node = level.node;
    const uint64_t sideChildren = level.SideChildren();
    const uint64_t sideRoutes = level.SideRoutes();
    const uint32_t first = asideCount_;
    const RouteRef *from = node.refs.data();
    const RouteRef *end = from + node.count;
    RouteRef *aside = &asideRefs_[first];
    RouteRef *to = &refs_[count_];
    lengths_ |= Ipv6Bits{LengthsOnWay(node.routes, level.digit)} << node.place.length;
    for (uint64_t children = node.children; children != 0; children &= children - 1, ++from) {
      if ((children & -children & sideChildren) != 0) *aside++ = *from;
    }
    if (sideRoutes == 0) {  // nearly always
      while (from != end) *to++ = *from++;
    } else {
      for (uint64_t routes = node.routes; routes != 0; routes &= routes - 1, ++from)
        ((routes & -routes & sideRoutes) != 0 ? *aside++ : *to++) = *from;
    }
    asideCount_ = static_cast<uint32_t>(aside - asideRefs_.data());
    count_ = static_cast<uint32_t>(to - refs_.data());
    if (asideCount_ != first) AddSide(level, first);
  }

  void AddSide(const Level<Bits> &level, uint32_t first) {
    const uint32_t words = NodeBlock<Bits>::SidesWord(size_.routes) + size_.sides * kSideWords;
    sideBits_ |= uint64_t{1} << (level.node.place.length - Depth()) / kRouteStride;
    sides_[sideWords_++] = level.SideChildren();
    sides_[sideWords_++] = level.SideRoutes();
    sides_[sideWords_++] = (words - NodeBlock<Bits>::kHead) * 2 + first;
  }

  std::span<const Level<Bits>> levels_;
  StemSize size_;
  Ipv6Bits lengths_ = 0;
  uint64_t sideBits_ = 0;
  std::array<RouteRef, kMaxRefs> refs_;  // behind the end, then of the routes on the way
  uint32_t count_ = 1;
  std::array<uint64_t, RouteDepth(16) * kSideWords> sides_;
  uint32_t sideWords_ = 0;
  std::array<RouteRef, kMaxRefs> asideRefs_;
  uint32_t asideCount_ = 0;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_ROUTE_LEVELS_H_
