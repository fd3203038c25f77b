#ifndef HOST_ARENA_ROUTE_LAYOUT_H_
#define HOST_ARENA_ROUTE_LAYOUT_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

// The bytes of a route index: the trie in which longest prefixes are found, one for each VPN. docs/arena.md
// tells how it works; the code is host/tbm/route_index.h.
//
// The area begins with its head, then come the tries' roots, a word for each VPN, and then blocks: nodes and
// routes. Zeroed memory is an empty index, and the file under it may have holes: readers touch the head, root
// pages that the head names, and what lies before `backed`.
namespace qdt::host::tbm {

// A node decides by so many bits of the address at once; nodes stand at multiples of it.
constexpr uint32_t kRouteStride = 6;

// A freed block is used again after so many changes of the index. A reader during whose search so many were
// made searches again. They are counted as they begin and as they end.
constexpr uint32_t kRouteRest = 256;
constexpr uint32_t kRouteRestCounts = 2 * kRouteRest;

// Roots get their storage in groups.
constexpr uint32_t kVpnsOfGroup = 1024;
constexpr uint32_t kVpnGroups = 65536 / kVpnsOfGroup;

// A reference names a block of the area: its offset in words, shifted by one; the lowest bit tells a route
// from a node. 0 is none.
using RouteRef = uint32_t;
constexpr uint32_t kRouteWord = sizeof(uint64_t);

// Nodes are whole cache lines, as small as their references allow: two to a word, one for each child and
// route, of which a node has two at least. Routes are smaller; they come by the lines that a whole number of
// them fills.
constexpr uint32_t kRouteLine = 64;
constexpr uint32_t kNodeClasses = 9;  // of 1 to 9 lines
constexpr uint32_t kRouteClass = kNodeClasses;
constexpr uint32_t kRouteClasses = kNodeClasses + 1;
constexpr uint32_t kMaxNodeRefs = (2 << kRouteStride) - 1;
constexpr uint32_t kRoutesOfLines = 8;
constexpr uint32_t kMaxNodeBytes = kNodeClasses * kRouteLine;

// What stands in a node before its references: {the writer's, children, routes, place}. Nodes that follow
// each other on one way may be one block, a stem: in the place of children and routes it has the lengths of
// the routes on that way, and its references are what is behind its end, then these routes. What turns off on
// the way follows: for each node that has such a side {children, routes, the first one's number among the
// block's references}, then the sides' references. A node with many of them stays a block of its own, which
// finds them faster.
constexpr uint32_t NodeHeadBytes(uint32_t addressSize) { return addressSize == 4 ? 32 : 48; }
constexpr uint32_t NodeClass(uint32_t bytes) { return (bytes - 1) / kRouteLine; }
constexpr uint32_t NodeBytes(uint32_t refs, uint32_t addressSize) {
  return NodeHeadBytes(addressSize) + refs * uint32_t{sizeof(RouteRef)};
}
static_assert(NodeBytes(kMaxNodeRefs, 16) <= kMaxNodeBytes);

constexpr uint32_t kSideWords = 3;
constexpr uint32_t kMaxSideRefs = 12;  // of a node in a stem
constexpr uint32_t StemBytes(uint32_t routes, uint32_t sides, uint32_t sideRefs, uint32_t addressSize) {
  const uint32_t ahead = NodeBytes(1 + routes, addressSize) + kRouteWord - 1;
  return ahead / kRouteWord * kRouteWord + sides * kSideWords * kRouteWord +
         sideRefs * uint32_t{sizeof(RouteRef)};
}

constexpr uint32_t RouteBlockBytes(uint32_t blockClass, uint32_t addressSize) {
  return blockClass == kRouteClass ? (addressSize == 4 ? 32 : 40) : (blockClass + 1) * kRouteLine;
}

// Nodes on the longest way from a root to a route.
constexpr uint32_t RouteDepth(uint32_t addressSize) { return addressSize * 8 / kRouteStride + 1; }

// Free blocks of a class, in the order in which they became free.
struct FreeBlocks {
  RouteRef oldest;
  RouteRef newest;
};

struct RouteHead {
  std::atomic<uint64_t> changes;    // begun and ended so far; odd while there is one
  std::atomic<uint64_t> backed;     // end of the blocks' storage, from the area's start; 0: no block has any
  std::atomic<uint64_t> vpnGroups;  // bit: these roots have storage
  uint64_t used;                    // from here on the writer's: end of all blocks so far, or 0
  uint64_t reserved[4];
  FreeBlocks free[kRouteClasses];
};
static_assert(offsetof(RouteHead, free) == 64 && sizeof(RouteHead) == 64 + kRouteClasses * 8);

// The owner of the area backs the head before anybody opens the index.
constexpr uint64_t kRouteHeadBytes = 4096;
constexpr uint64_t kVpnGroupBytes = kVpnsOfGroup * sizeof(RouteRef);
constexpr uint64_t kRouteBlocksOffset = kRouteHeadBytes + kVpnGroups * kVpnGroupBytes;
static_assert(sizeof(RouteHead) <= kRouteHeadBytes);

// Readers check the start of a block alone: so much before `backed` no block begins. They reach no further in
// a block, whatever its words are.
constexpr uint64_t kRouteReach = 2048;

// Storage kept for removals when the file system is full: as many nodes of each size as one change may copy.
constexpr uint64_t RouteHeadroom(uint32_t addressSize) {
  return uint64_t{RouteDepth(addressSize)} * kRouteLine * kNodeClasses * (kNodeClasses + 1) / 2;
}

// The fewest references of a node or stem of a class: a stem with a side for each reference has the fewest.
constexpr uint32_t LeastRefs(uint32_t blockClass, uint32_t addressSize) {
  uint32_t refs = 2;
  while (NodeClass(StemBytes(0, refs - 1, refs - 1, addressSize)) < blockClass) ++refs;
  return refs;
}

// Bytes that an index takes at most, for each route of its capacity and beside them. A trie of n routes has
// at most n - 1 nodes and stems, as each has two references or more, and (n - 1) / (k - 1) of those with k or
// more. Blocks never change their size, so that the worst case is the sum of each size's own, and the blocks
// that rest come on top.
struct RouteBounds {
  uint64_t perRoute;
  uint64_t fixed;
};

constexpr RouteBounds MakeRouteBounds(uint32_t addressSize) {
  const uint64_t resting = uint64_t{kRouteRest + 1} * (RouteDepth(addressSize) + 2);
  const uint64_t routeBytes = RouteBlockBytes(kRouteClass, addressSize);
  RouteBounds bounds = {routeBytes, (resting + kRoutesOfLines) * routeBytes};
  for (uint32_t c = 0; c < kNodeClasses; ++c) {
    const uint64_t bytes = RouteBlockBytes(c, addressSize);
    const uint64_t others = LeastRefs(c, addressSize) - 1;
    bounds.perRoute += (bytes + others - 1) / others;
    bounds.fixed += resting * bytes;
  }
  bounds.fixed += kRouteBlocksOffset + RouteHeadroom(addressSize) + kRouteReach;
  return bounds;
}
inline constexpr RouteBounds kIpv4RouteBounds = MakeRouteBounds(4);
inline constexpr RouteBounds kIpv6RouteBounds = MakeRouteBounds(16);

// Bytes of the area of an index that never has to refuse a route before it holds `capacity` of them.
constexpr uint64_t RouteIndexSize(uint32_t capacity, uint32_t addressSize) {
  const RouteBounds &bounds = addressSize == 4 ? kIpv4RouteBounds : kIpv6RouteBounds;
  return capacity * bounds.perRoute + bounds.fixed;
}
static_assert(RouteIndexSize(1 << 24, 16) < uint64_t{kRouteWord} << 31, "every block can be named");

// Storage of an index so far.
inline uint64_t RouteStorageBytes(const RouteHead &head) {
  uint64_t groups = head.vpnGroups.load(std::memory_order_relaxed);
  uint64_t bytes = kRouteHeadBytes;
  for (; groups != 0; groups &= groups - 1) bytes += kVpnGroupBytes;
  const uint64_t backed = head.backed.load(std::memory_order_relaxed);
  return backed == 0 ? bytes : bytes + backed - kRouteBlocksOffset;
}

}  // namespace qdt::host::tbm

#endif  // HOST_ARENA_ROUTE_LAYOUT_H_
