#include "host/tbm/route_index.h"

#include <algorithm>

#include "host/tbm/route_bits.h"

namespace qdt::host::tbm {

namespace {

// A search is repeated only when kRouteRest changes were made during it, so nearly never: by a reader that
// was suspended in the middle of one.
constexpr int kAttempts = 1000;

// How many references stand before one. By a branch, so that a processor that foresees it opens the next node
// before it has counted: in a trie that seldom forks, which is a deep one, each node then costs half.
inline uint32_t IndexOf(uint64_t before) {
  return __builtin_expect_with_probability(before == 0, 1, 0.5) ? 0 : CountBits(before);
}

// One search, in a trie that does not change any more.
template <typename Bits>
class TrieSearch {
 public:
  // `backed`: the end of the blocks' storage.
  TrieSearch(const char *area, uint64_t backed, Bits address)
      : area_(area), last_(std::max(backed, kRouteReach) - kRouteReach), address_(address) {}

  RouteIndex::Found Find(RouteRef root, Route *route) {
    RouteRef below = root;
    if (!Descend(&below)) return RouteIndex::Found::kLost;
    if (below != 0) {
      const RouteWord *words = Open(below);
      if (words == nullptr) return RouteIndex::Found::kLost;
      const RouteBlock<Bits> found(words);
      if (CommonStart(address_, found.prefix()) >= found.length()) return Deliver(found, route);
    }
    if (matching_ == 0) return RouteIndex::Found::kNone;
    const RouteWord *words = Open(longest_.ref(LongestIndex()));
    return words == nullptr ? RouteIndex::Found::kLost : Deliver(RouteBlock<Bits>(words), route);
  }

 private:
  // To the route below the last node on the address's way, or to 0. Each node has to lie deeper than the one
  // before, so that the way ends also where references run in a circle.
  bool Descend(RouteRef *ref) {
    for (uint32_t least = 0; IsNode(*ref);) {
      const RouteWord *words = Open(*ref);
      if (words == nullptr) return false;
      const NodeBlock<Bits> node(words);
      const uint32_t depth = node.depth();
      if (depth < least || depth >= kWidth<Bits>) return false;
      *ref = 0;
      if (const uint32_t end = node.end(); end != 0) {
        if (end <= depth || end >= kWidth<Bits>) return false;
        Follow(node, depth, end, ref);
        least = depth + kRouteStride;
        continue;
      }
      if (!SameStart(address_, node.path(), depth)) return true;
      const uint32_t digit = Digit(address_, depth);
      const uint64_t matching = node.routes() & kMatching[digit];
      if (matching != 0) {
        matching_ = matching;
        longest_ = node;
        isStem_ = false;
      }
      const uint64_t children = node.children();
      if ((children >> digit & 1) != 0) *ref = node.ref(IndexOf(children & Below(digit)));
      least = depth + kRouteStride;
    }
    return true;
  }

  // A stem, as far as the address goes its way; to what is behind it when that is up to its end, or to what
  // turns off where the address does.
  void Follow(const NodeBlock<Bits> &stem, uint32_t depth, uint32_t end, RouteRef *ref) {
    const uint32_t same = std::min(CommonStart(address_, stem.path()), end);
    const uint32_t matching = CountLengths(stem.lengths(), same);
    if (matching != 0) KeepOfStem(stem, matching);
    if (same == end) {
      *ref = stem.ref(0);
    } else if (same >= depth) {
      TurnOff(stem, depth, (same - depth) / kRouteStride, ref);
    }
  }

  void TurnOff(const NodeBlock<Bits> &stem, uint32_t depth, uint32_t strides, RouteRef *ref) {
    const typename NodeBlock<Bits>::Side side = stem.side(strides);
    const uint32_t digit = Digit(address_, depth + strides * kRouteStride);
    const uint64_t matching = side.routes & kMatching[digit];
    if (matching != 0)
      KeepOfStem(stem,
                 side.first + CountBits(side.children) + CountBits(side.routes & Below(Highest(matching))));
    if ((side.children >> digit & 1) != 0)
      *ref = stem.ref(side.first + CountBits(side.children & Below(digit)));
  }

  void KeepOfStem(const NodeBlock<Bits> &stem, uint32_t index) {
    matching_ = index;
    longest_ = stem;
    isStem_ = true;
  }

  // Of the longest route's reference.
  uint32_t LongestIndex() const {
    if (isStem_) return static_cast<uint32_t>(matching_);
    return CountBits(longest_.children()) + CountBits(longest_.routes() & Below(Highest(matching_)));
  }

  static uint32_t Highest(uint64_t bits) { return 63 - static_cast<uint32_t>(std::countl_zero(bits)); }

  const RouteWord *Open(RouteRef ref) const {
    if (RouteOffset(ref) > last_) return nullptr;
    return reinterpret_cast<const RouteWord *>(area_ + RouteOffset(ref));
  }

  static RouteIndex::Found Deliver(const RouteBlock<Bits> &found, Route *route) {
    *route = {found.slot(), found.length(), found.serial()};
    return RouteIndex::Found::kRoute;
  }

  const char *area_;
  const uint64_t last_;  // no block begins behind it
  const Bits address_;
  uint64_t matching_ = 0;             // of the routes in `longest_`; of a stem, the longest's reference
  NodeBlock<Bits> longest_{nullptr};  // the deepest node that has any that match
  bool isStem_ = false;
};

}  // namespace

template <typename Bits>
RouteIndex::Found RouteIndex::Attempt(uint16_t vpn, Bits address, Route *route) const {
  const uint64_t groups = head().vpnGroups.load(std::memory_order_acquire);
  if ((groups >> (vpn / kVpnsOfGroup) & 1) == 0) return Found::kNone;
  const auto *roots = reinterpret_cast<const std::atomic<RouteRef> *>(area_ + kRouteHeadBytes);
  const RouteRef root = roots[vpn].load(std::memory_order_acquire);
  // After the root was read: all blocks of its trie have storage.
  const uint64_t backed = std::min(head().backed.load(std::memory_order_acquire), size_);
  return TrieSearch<Bits>(area_, backed, address).Find(root, route);
}

template <typename Bits>
RouteIndex::Found RouteIndex::MatchBits(uint16_t vpn, Bits address, Route *route) const {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint64_t before = head().changes.load(std::memory_order_acquire);
    const Found found = Attempt(vpn, address, route);
    const uint64_t counts = head().changes.load(std::memory_order_acquire) - before;
    // Nothing that was read had been freed and used again meanwhile.
    if (counts < kRouteRestCounts) return found;
  }
  return Found::kLost;
}

RouteIndex::Found RouteIndex::Match(uint16_t vpn, const uint8_t *address, Route *route) const {
  return addressSize_ == sizeof(Ipv4Bits) ? MatchBits(vpn, LoadBits<Ipv4Bits>(address), route)
                                          : MatchBits(vpn, LoadBits<Ipv6Bits>(address), route);
}

}  // namespace qdt::host::tbm
