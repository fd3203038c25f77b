#include "host/tbm/route_index_writer.h"

#include <algorithm>
#include <array>

#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

template <typename Bits>
struct Prefix {
  Bits bits;
  uint32_t length;
};

template <typename Bits>
uint32_t CommonPrefix(const Prefix<Bits> &a, const Prefix<Bits> &b) {
  return std::min({CommonStart(a.bits, b.bits), a.length, b.length});
}

// A node as the writer works on it, out of the readers' sight.
template <typename Bits>
struct Node {
  Prefix<Bits> place = {};  // its depth and path
  uint64_t children = 0;
  uint64_t routes = 0;
  uint32_t count = 0;
  std::array<RouteRef, kMaxNodeRefs + 1> refs;  // one more than fits, so that reading goes by words

  explicit Node(const Prefix<Bits> &at) : place(at) {}
  explicit Node(const RouteWord *words) {
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

void StoreAddress(RouteWord *words, Ipv4Bits bits) { words[0].store(bits, std::memory_order_release); }
void StoreAddress(RouteWord *words, Ipv6Bits bits) {
  words[0].store(static_cast<uint64_t>(bits >> 64), std::memory_order_release);
  words[1].store(static_cast<uint64_t>(bits), std::memory_order_release);
}

void StorePlace(RouteWord *words, const Prefix<Ipv4Bits> &place) {
  words[0].store(uint64_t{place.bits} << 32 | place.length, std::memory_order_release);
}
void StorePlace(RouteWord *words, const Prefix<Ipv6Bits> &place) {
  words[0].store(place.length, std::memory_order_release);
  StoreAddress(words + 1, place.bits);
}

// One change of a trie: copies the nodes from the changed one up to the root, and publishes the copies by the
// root.
template <typename Bits>
class RouteChange {
 public:
  RouteChange(RouteBlocks *blocks, uint16_t vpn) : blocks_(*blocks), vpn_(vpn) {}

  int32_t Insert(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial);
  int32_t Remove(const Prefix<Bits> &prefix);

 private:
  struct Step {
    RouteRef node;
    uint32_t digit;
  };

  Prefix<Bits> PrefixOf(RouteRef ref) const;
  RouteRef Descend(const Prefix<Bits> &prefix);
  RouteRef MakeRoute(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial);
  RouteRef Write(const Node<Bits> &node, RouteRef replaced);
  RouteRef Fork(RouteRef there, const Prefix<Bits> &place, RouteRef route, const Prefix<Bits> &prefix);
  RouteRef InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route);
  bool Publish(RouteRef fresh);
  bool TakeOut(RouteRef ref, const Prefix<Bits> &prefix);

  RouteBlocks &blocks_;
  const uint16_t vpn_;
  std::array<Step, RouteDepth(sizeof(Bits))> steps_;
  uint32_t depth_ = 0;
};

template <typename Bits>
Prefix<Bits> RouteChange<Bits>::PrefixOf(RouteRef ref) const {
  if (IsRoute(ref)) {
    const RouteBlock<Bits> route(blocks_.Words(ref));
    return {route.prefix(), route.length()};
  }
  const NodeBlock<Bits> node(blocks_.Words(ref));
  return {node.path(), node.depth()};
}

// To where the prefix has its place: 0 or a reference that stands in a node or the root, to the node that
// holds the route or would, or to what lies beside the prefix or below it.
template <typename Bits>
RouteRef RouteChange<Bits>::Descend(const Prefix<Bits> &prefix) {
  depth_ = 0;
  RouteRef ref = blocks_.Root(vpn_);
  while (ref != 0 && !IsRoute(ref)) {
    const NodeBlock<Bits> node(blocks_.Words(ref));
    const uint32_t depth = node.depth();
    if (prefix.length < depth + kRouteStride || !SameStart(prefix.bits, node.path(), depth)) break;
    const uint32_t digit = Digit(prefix.bits, depth);
    const uint64_t children = node.children();
    if ((children >> digit & 1) == 0) break;
    steps_[depth_++] = {ref, digit};
    ref = node.ref(CountBits(children & Below(digit)));
  }
  return ref;
}

template <typename Bits>
RouteRef RouteChange<Bits>::MakeRoute(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial) {
  const RouteRef ref = blocks_.Take(kRouteClass);
  if (ref == 0) return 0;
  RouteWord *words = blocks_.Words(ref);
  words[1].store(serial, std::memory_order_release);
  words[2].store(uint64_t{slot} << 32 | prefix.length, std::memory_order_release);
  StoreAddress(words + 3, prefix.bits);
  return ref | 1;
}

// Writes a node in the place of another or, with 0, between others. An urgent change takes a block of the
// replaced one's size: so it gives back whatever it takes, and however many follow it, the headroom lasts.
template <typename Bits>
RouteRef RouteChange<Bits>::Write(const Node<Bits> &node, RouteRef replaced) {
  const bool same = replaced != 0 && blocks_.keepSizes();
  const RouteRef ref = blocks_.Take(same ? blocks_.ClassOf(replaced) : NodeClass(node.count, sizeof(Bits)));
  if (ref == 0) return 0;
  RouteWord *words = blocks_.Words(ref);
  words[1].store(node.children, std::memory_order_release);
  words[2].store(node.routes, std::memory_order_release);
  StorePlace(words + 3, node.place);
  words += NodeBlock<Bits>::kHead;
  for (uint32_t i = 0; i < node.count; i += 2) {
    const uint64_t second = i + 1 < node.count ? node.refs[i + 1] : 0;
    words[i / 2].store(second << 32 | node.refs[i], std::memory_order_release);
  }
  if (replaced != 0) blocks_.Leave(replaced);
  return ref;
}

// A node for a route and what stands beside or below it.
template <typename Bits>
RouteRef RouteChange<Bits>::Fork(RouteRef there, const Prefix<Bits> &place, RouteRef route,
                                 const Prefix<Bits> &prefix) {
  const uint32_t depth = CommonPrefix(place, prefix) / kRouteStride * kRouteStride;
  const Bits path = depth == 0 ? 0 : prefix.bits >> (kWidth<Bits> - depth) << (kWidth<Bits> - depth);
  Node<Bits> node(Prefix<Bits>{path, depth});
  node.Add(node.EntryOf(place), there);
  node.Add(node.EntryOf(prefix), route);
  return Write(node, 0);
}

template <typename Bits>
RouteRef RouteChange<Bits>::InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route) {
  if (ref == 0) return route;
  const Prefix<Bits> place = PrefixOf(ref);
  const uint32_t common = CommonPrefix(place, prefix);
  if (IsRoute(ref)) {
    if (common < place.length || common < prefix.length) return Fork(ref, place, route, prefix);
    blocks_.Leave(ref);
    return route;
  }
  if (common < place.length) return Fork(ref, place, route, prefix);
  Node<Bits> node(blocks_.Words(ref));
  const auto entry = node.EntryOf(prefix);
  if (entry.present()) {
    blocks_.Leave(node.refs[entry.index]);
    node.refs[entry.index] = route;
  } else {
    node.Add(entry, route);
  }
  return Write(node, ref);
}

// With `fresh` in the place to which the last descent led. False when a block was missing; the trie is as
// before.
template <typename Bits>
bool RouteChange<Bits>::Publish(RouteRef fresh) {
  while (depth_ != 0) {
    const Step &step = steps_[--depth_];
    Node<Bits> node(blocks_.Words(step.node));
    node.refs[node.ChildEntry(step.digit).index] = fresh;
    fresh = Write(node, step.node);
    if (fresh == 0) {
      blocks_.Undo();
      return false;
    }
  }
  blocks_.SetRoot(vpn_, fresh);
  blocks_.Commit();
  return true;
}

template <typename Bits>
int32_t RouteChange<Bits>::Insert(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial) {
  const RouteRef ref = Descend(prefix);
  blocks_.Begin();
  const RouteRef route = MakeRoute(prefix, slot, serial);
  const RouteRef fresh = route == 0 ? 0 : InsertAt(ref, prefix, route);
  if (fresh == 0) blocks_.Undo();
  if (fresh != 0 && Publish(fresh)) return kTbmOk;
  return blocks_.full() ? kTbmFull : kTbmNoMemory;
}

// The node at `ref` without the reference that the prefix has in it. A node that keeps only one gives way to
// it.
template <typename Bits>
bool RouteChange<Bits>::TakeOut(RouteRef ref, const Prefix<Bits> &prefix) {
  Node<Bits> node(blocks_.Words(ref));
  const auto entry = node.EntryOf(prefix);
  blocks_.Leave(node.refs[entry.index]);
  node.Take(entry);
  if (node.count == 1) {
    blocks_.Leave(ref);
    return Publish(node.refs[0]);
  }
  const RouteRef fresh = Write(node, ref);
  if (fresh == 0) blocks_.Undo();
  return fresh != 0 && Publish(fresh);
}

template <typename Bits>
int32_t RouteChange<Bits>::Remove(const Prefix<Bits> &prefix) {
  for (const bool urgent : {false, true}) {
    RouteRef ref = Descend(prefix);
    if (ref == 0) return kTbmNotFound;
    const Prefix<Bits> place = PrefixOf(ref);
    if (CommonPrefix(place, prefix) < place.length) return kTbmNotFound;
    if (IsRoute(ref) ? place.length != prefix.length
                     : !Node<Bits>(blocks_.Words(ref)).EntryOf(prefix).present()) {
      return kTbmNotFound;
    }
    urgent ? blocks_.BeginUrgently() : blocks_.Begin();
    if (IsRoute(ref) && depth_ == 0) {
      blocks_.Leave(ref);
      if (Publish(0)) return kTbmOk;
    } else if (TakeOut(IsRoute(ref) ? steps_[--depth_].node : ref, prefix)) {
      return kTbmOk;
    }
  }
  return kTbmNoMemory;  // does not happen: the headroom is enough
}

// A change, made with the writer's parts.
template <typename Bits>
bool MakePrefix(const uint8_t *address, uint32_t length, Prefix<Bits> *prefix) {
  if (length > kWidth<Bits>) return false;
  const Bits bits = LoadBits<Bits>(address);
  const uint32_t rest = kWidth<Bits> - length;
  *prefix = {length == 0 ? 0 : bits >> rest << rest, length};
  return true;
}

template <typename Bits>
int32_t InsertRoute(RouteBlocks *blocks, uint16_t vpn, const uint8_t *address, uint32_t length, uint32_t slot,
                    uint64_t serial) {
  Prefix<Bits> prefix;
  if (!MakePrefix(address, length, &prefix)) return kTbmBadParam;
  if (!blocks->Prepare(vpn)) return blocks->full() ? kTbmFull : kTbmNoMemory;
  return RouteChange<Bits>(blocks, vpn).Insert(prefix, slot, serial);
}

template <typename Bits>
int32_t RemoveRoute(RouteBlocks *blocks, uint16_t vpn, const uint8_t *address, uint32_t length) {
  Prefix<Bits> prefix;
  if (!blocks->HasRoot(vpn) || !MakePrefix(address, length, &prefix)) return kTbmNotFound;
  return RouteChange<Bits>(blocks, vpn).Remove(prefix);
}

}  // namespace

int32_t RouteIndexWriter::Insert(uint16_t vpn, const uint8_t *address, uint32_t length, uint32_t slot,
                                 uint64_t serial) {
  RouteBlocks blocks(area_, size_, addressSize_, back_, note_);
  const auto insert = addressSize_ == sizeof(Ipv4Bits) ? InsertRoute<Ipv4Bits> : InsertRoute<Ipv6Bits>;
  return insert(&blocks, vpn, address, length, slot, serial);
}

int32_t RouteIndexWriter::Remove(uint16_t vpn, const uint8_t *address, uint32_t length) {
  RouteBlocks blocks(area_, size_, addressSize_, back_, note_);
  const auto remove = addressSize_ == sizeof(Ipv4Bits) ? RemoveRoute<Ipv4Bits> : RemoveRoute<Ipv6Bits>;
  return remove(&blocks, vpn, address, length);
}

}  // namespace qdt::host::tbm
