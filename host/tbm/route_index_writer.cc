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

void StoreAddress(RouteWord *words, Ipv4Bits bits) { words[0].store(bits, std::memory_order_release); }
void StoreAddress(RouteWord *words, Ipv6Bits bits) {
  words[0].store(static_cast<uint64_t>(bits >> 64), std::memory_order_release);
  words[1].store(static_cast<uint64_t>(bits), std::memory_order_release);
}

void StorePlace(RouteWord *words, const Prefix<Ipv4Bits> &place, uint32_t end) {
  words[0].store(uint64_t{place.bits} << 32 | end << 8 | place.length, std::memory_order_release);
}
void StorePlace(RouteWord *words, const Prefix<Ipv6Bits> &place, uint32_t end) {
  words[0].store(end << 8 | place.length, std::memory_order_release);
  StoreAddress(words + 1, place.bits);
}

void StoreRefs(RouteWord *words, const RouteRef *refs, uint32_t count) {
  for (uint32_t i = 0; i < count; i += 2) {
    const uint64_t second = i + 1 < count ? refs[i + 1] : 0;
    words[i / 2].store(second << 32 | refs[i], std::memory_order_release);
  }
}

// A node on the way from the root to what changes, also one that stands in a stem.
template <typename Bits>
struct Level {
  Node<Bits> node;
  bool leadsOn;     // to the level below, or to what is behind the last one
  uint32_t digit;   // by which child; of a stem's end that has nothing behind it, where its routes are
  RouteRef source;  // the block that it comes from; 0: it is new

  // Whether this is a node of a stem, when another is above or below.
  bool InStem() const {
    return leadsOn && CountBits(node.children) == 1 && (node.routes & ~kMatching[digit]) == 0;
  }
  // Whether the prefix goes the way that the level leads on.
  bool Passes(const Prefix<Bits> &prefix) const {
    return leadsOn && prefix.length >= node.place.length + kRouteStride &&
           SameStart(prefix.bits, node.place.bits, node.place.length) && node.DigitOf(prefix) == digit;
  }
};

// One change of a trie: takes the blocks from the changed one up to the root apart into levels, changes a
// level, makes new blocks of them, and publishes these by the root.
template <typename Bits>
class RouteChange {
 public:
  RouteChange(RouteBlocks *blocks, uint16_t vpn) : blocks_(*blocks), vpn_(vpn) {}

  int32_t Insert(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial);
  int32_t Remove(const Prefix<Bits> &prefix);

 private:
  Prefix<Bits> PrefixOf(RouteRef ref) const;
  RouteRef Descend(const Prefix<Bits> &prefix);
  Level<Bits> &Push(RouteRef source);
  RouteRef PushNode(RouteRef ref, uint32_t digit);
  RouteRef PushStem(RouteRef ref);
  RouteRef PushLast(RouteRef ref);
  RouteRef Absorb(RouteRef ref);
  RouteRef LeadOn(Level<Bits> *level, RouteRef behind) const;
  uint32_t LevelOf(uint32_t first, const Prefix<Bits> &prefix) const;
  RouteRef MakeRoute(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial);
  RouteRef Fork(RouteRef there, const Prefix<Bits> &place, RouteRef route, const Prefix<Bits> &prefix);
  void ForkAbove(uint32_t level, RouteRef route, const Prefix<Bits> &prefix);
  RouteRef InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route);
  bool Find(RouteRef ref, const Prefix<Bits> &prefix, uint32_t *level, RouteRef *behind);
  RouteRef TakeOut(uint32_t level, const Prefix<Bits> &prefix, RouteRef behind);
  bool Together(const Level<Bits> &above, const Level<Bits> &below) const;
  RouteWord *TakeBlock(const Level<Bits> &level, uint32_t refs, RouteRef *ref);
  RouteRef WriteNode(Level<Bits> *level, RouteRef behind);
  RouteRef WriteStem(uint32_t first, uint32_t end, RouteRef behind);
  bool Publish(RouteRef behind);

  RouteBlocks &blocks_;
  const uint16_t vpn_;
  std::array<Level<Bits>, RouteDepth(sizeof(Bits))> levels_;  // each at a depth of its own
  uint32_t count_ = 0;
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

template <typename Bits>
Level<Bits> &RouteChange<Bits>::Push(RouteRef source) {
  Level<Bits> &level = levels_[count_++];
  level.leadsOn = false;
  level.digit = 0;
  level.source = source;
  return level;
}

// These take a block apart and say what is behind it.
template <typename Bits>
RouteRef RouteChange<Bits>::PushNode(RouteRef ref, uint32_t digit) {
  Level<Bits> &level = Push(ref);
  level.node.Load(blocks_.Words(ref));
  level.leadsOn = true;
  level.digit = digit;
  blocks_.Leave(ref);
  return level.node.refs[level.node.ChildEntry(digit).index];
}

template <typename Bits>
RouteRef RouteChange<Bits>::PushStem(RouteRef ref) {
  const NodeBlock<Bits> stem(blocks_.Words(ref));
  const Ipv6Bits lengths = stem.lengths();
  uint32_t index = 1;
  for (uint32_t depth = stem.depth(); depth < stem.end(); depth += kRouteStride) {
    uint32_t here = static_cast<uint32_t>(lengths >> depth) & ((1 << kRouteStride) - 1);
    if (here == 0) continue;
    Level<Bits> &level = Push(ref);
    level.node.StartAt({FirstBits(stem.path(), depth), depth});
    level.leadsOn = stem.ref(0) != 0 || depth + kRouteStride < stem.end();
    level.digit = Digit(stem.path(), depth);
    if (level.leadsOn) level.node.Add(level.node.ChildEntry(level.digit), 0);
    for (; here != 0; here &= here - 1) {
      const uint32_t bit = RouteBit(level.digit, static_cast<uint32_t>(std::countr_zero(here)));
      level.node.routes |= uint64_t{1} << bit;
      level.node.refs[level.node.count++] = stem.ref(index++);
    }
  }
  blocks_.Leave(ref);
  return stem.ref(0);
}

// The block in which something changes. A node leads on when only one way does.
template <typename Bits>
RouteRef RouteChange<Bits>::PushLast(RouteRef ref) {
  const NodeBlock<Bits> node(blocks_.Words(ref));
  if (node.end() != 0) return PushStem(ref);
  if (CountBits(node.children()) == 1)
    return PushNode(ref, static_cast<uint32_t>(std::countr_zero(node.children())));
  Push(ref).node.Load(blocks_.Words(ref));
  blocks_.Leave(ref);
  return 0;
}

// What is behind a stem that may go on there.
template <typename Bits>
RouteRef RouteChange<Bits>::Absorb(RouteRef ref) {
  const NodeBlock<Bits> node(blocks_.Words(ref));
  if (node.end() != 0) return PushStem(ref);
  if (CountBits(node.children()) != 1) return ref;
  const auto digit = static_cast<uint32_t>(std::countr_zero(node.children()));
  return (node.routes() & ~kMatching[digit]) == 0 ? PushNode(ref, digit) : ref;
}

// Where a changed level is the last and now has a single child, it leads on to that. Says what is behind the
// last level.
template <typename Bits>
RouteRef RouteChange<Bits>::LeadOn(Level<Bits> *level, RouteRef behind) const {
  if (level->leadsOn || CountBits(level->node.children) != 1) return behind;
  level->leadsOn = true;
  level->digit = static_cast<uint32_t>(std::countr_zero(level->node.children));
  return level->node.refs[0];
}

// To where the prefix has its place: 0 or a reference that stands in a level or the root, to the node that
// holds the route or would, or to what lies beside the prefix or below it.
template <typename Bits>
RouteRef RouteChange<Bits>::Descend(const Prefix<Bits> &prefix) {
  count_ = 0;
  RouteRef ref = blocks_.Root(vpn_);
  while (ref != 0 && !IsRoute(ref)) {
    const NodeBlock<Bits> node(blocks_.Words(ref));
    if (const uint32_t end = node.end(); end != 0) {
      if (prefix.length < end || !SameStart(prefix.bits, node.path(), end) || node.ref(0) == 0) break;
      ref = PushStem(ref);
      continue;
    }
    const uint32_t depth = node.depth();
    if (prefix.length < depth + kRouteStride || !SameStart(prefix.bits, node.path(), depth)) break;
    const uint32_t digit = Digit(prefix.bits, depth);
    if ((node.children() >> digit & 1) == 0) break;
    ref = PushNode(ref, digit);
  }
  return ref;
}

// Of the levels from `first` on, all of one block, the one where the prefix ends or leaves their way, or the
// first one behind that.
template <typename Bits>
uint32_t RouteChange<Bits>::LevelOf(uint32_t first, const Prefix<Bits> &prefix) const {
  uint32_t level = first;
  while (level + 1 < count_ && levels_[level].Passes(prefix)) ++level;
  return level;
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

// A new last level for a route and what stands beside or below it; what is behind it.
template <typename Bits>
RouteRef RouteChange<Bits>::Fork(RouteRef there, const Prefix<Bits> &place, RouteRef route,
                                 const Prefix<Bits> &prefix) {
  const uint32_t depth = CommonPrefix(place, prefix) / kRouteStride * kRouteStride;
  Level<Bits> &level = Push(0);
  level.node.StartAt({FirstBits(prefix.bits, depth), depth});
  level.node.Add(level.node.EntryOf(prefix), route);
  level.node.Add(level.node.EntryOf(place), there);
  if (IsRoute(there) && level.node.HoldsRoute(place)) return LeadOn(&level, 0);
  level.leadsOn = true;
  level.digit = level.node.DigitOf(place);
  return there;
}

// The same above a level that there is.
template <typename Bits>
void RouteChange<Bits>::ForkAbove(uint32_t level, RouteRef route, const Prefix<Bits> &prefix) {
  const Prefix<Bits> place = levels_[level].node.place;
  Fork(0, place, route, prefix);
  std::rotate(levels_.begin() + level, levels_.begin() + count_ - 1, levels_.begin() + count_);
}

// Says what is behind the last level.
template <typename Bits>
RouteRef RouteChange<Bits>::InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route) {
  if (ref == 0) return route;
  const Prefix<Bits> place = PrefixOf(ref);
  const uint32_t common = CommonPrefix(place, prefix);
  if (IsRoute(ref) && common == place.length && common == prefix.length) {
    blocks_.Leave(ref);
    return route;
  }
  if (IsRoute(ref) || common < place.length) return Fork(ref, place, route, prefix);
  const uint32_t first = count_;
  const RouteRef behind = PushLast(ref);
  const uint32_t level = LevelOf(first, prefix);
  Node<Bits> &node = levels_[level].node;
  if (CommonPrefix(node.place, prefix) < node.place.length) {
    ForkAbove(level, route, prefix);
    return behind;
  }
  const auto entry = node.EntryOf(prefix);
  if (entry.present()) {
    blocks_.Leave(node.refs[entry.index]);
    node.refs[entry.index] = route;
  } else {
    node.Add(entry, route);
  }
  return LeadOn(&levels_[level], behind);
}

// A node's copy takes a block of the node's own size while storage is short.
template <typename Bits>
RouteWord *RouteChange<Bits>::TakeBlock(const Level<Bits> &level, uint32_t refs, RouteRef *ref) {
  const uint32_t blockClass =
      blocks_.keepSizes() ? blocks_.ClassOf(level.source) : NodeClass(refs, sizeof(Bits));
  *ref = blocks_.Take(blockClass);
  return *ref == 0 ? nullptr : blocks_.Words(*ref);
}

template <typename Bits>
RouteRef RouteChange<Bits>::WriteNode(Level<Bits> *level, RouteRef behind) {
  Node<Bits> &node = level->node;
  if (level->leadsOn) node.refs[node.ChildEntry(level->digit).index] = behind;
  RouteRef ref;
  RouteWord *words = TakeBlock(*level, node.count, &ref);
  if (words == nullptr) return 0;
  words[1].store(node.children, std::memory_order_release);
  words[2].store(node.routes, std::memory_order_release);
  StorePlace(words + 3, node.place, 0);
  StoreRefs(words + NodeBlock<Bits>::kHead, node.refs.data(), node.count);
  return ref;
}

template <typename Bits>
RouteRef RouteChange<Bits>::WriteStem(uint32_t first, uint32_t end, RouteRef behind) {
  // Behind the stem's end, then the routes: in each node behind its only child.
  Ipv6Bits lengths = 0;
  std::array<RouteRef, kMaxNodeRefs> refs;
  refs[0] = behind;
  uint32_t count = 1;
  for (uint32_t i = first; i < end; ++i) {
    const Node<Bits> &node = levels_[i].node;
    const uint32_t children = levels_[i].leadsOn ? 1 : 0;
    for (uint64_t routes = node.routes; routes != 0; routes &= routes - 1) {
      const uint32_t length = LengthOfRouteBit(static_cast<uint32_t>(std::countr_zero(routes)));
      lengths |= Ipv6Bits{1} << (node.place.length + length);
    }
    std::copy(node.refs.begin() + children, node.refs.begin() + node.count, refs.begin() + count);
    count += node.count - children;
  }
  RouteRef ref;
  RouteWord *words = TakeBlock(levels_[first], count, &ref);
  if (words == nullptr) return 0;
  words[1].store(static_cast<uint64_t>(lengths), std::memory_order_release);
  words[2].store(static_cast<uint64_t>(lengths >> 64), std::memory_order_release);
  const Level<Bits> &last = levels_[end - 1];
  const Prefix<Bits> &place = last.node.place;
  const Bits path = place.bits | Bits{last.digit} << (kWidth<Bits> - kRouteStride - place.length);
  StorePlace(words + 3, Prefix<Bits>{path, levels_[first].node.place.length}, place.length + kRouteStride);
  StoreRefs(words + NodeBlock<Bits>::kHead, refs.data(), count);
  return ref;
}

// Whether two levels are of one block. While storage is short a change takes blocks of the sizes that it
// gives back: so, however many follow it, the headroom lasts. Then a stem may end with nothing behind it.
template <typename Bits>
bool RouteChange<Bits>::Together(const Level<Bits> &above, const Level<Bits> &below) const {
  return blocks_.keepSizes() ? above.source == below.source : above.InStem() && below.InStem();
}

// Makes blocks of the levels, with `behind` behind the last one. False when one was missing; the trie is as
// before.
template <typename Bits>
bool RouteChange<Bits>::Publish(RouteRef behind) {
  if (count_ != 0 && levels_[count_ - 1].InStem() && !IsRoute(behind) && !blocks_.keepSizes())
    behind = Absorb(behind);
  for (uint32_t end = count_; end != 0;) {
    uint32_t first = end - 1;
    while (first != 0 && Together(levels_[first - 1], levels_[first])) --first;
    behind = end - first == 1 ? WriteNode(&levels_[first], behind) : WriteStem(first, end, behind);
    if (behind == 0) {
      blocks_.Undo();
      return false;
    }
    end = first;
  }
  blocks_.SetRoot(vpn_, behind);
  blocks_.Commit();
  return true;
}

template <typename Bits>
int32_t RouteChange<Bits>::Insert(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial) {
  const RouteRef ref = Descend(prefix);
  blocks_.Begin();
  const RouteRef route = MakeRoute(prefix, slot, serial);
  if (route == 0) {
    blocks_.Undo();
  } else if (Publish(InsertAt(ref, prefix, route))) {
    return kTbmOk;
  }
  return blocks_.full() ? kTbmFull : kTbmNoMemory;
}

// The level that has the prefix's route, and what is behind the last level. `ref` is where the descent ended,
// and not 0.
template <typename Bits>
bool RouteChange<Bits>::Find(RouteRef ref, const Prefix<Bits> &prefix, uint32_t *level, RouteRef *behind) {
  const Prefix<Bits> place = PrefixOf(ref);
  if (CommonPrefix(place, prefix) < place.length) return false;
  if (IsRoute(ref)) {
    // It stands in the last level, if there is one.
    *level = count_ - 1;
    *behind = ref;
    return place.length == prefix.length;
  }
  const uint32_t first = count_;
  *behind = PushLast(ref);
  *level = LevelOf(first, prefix);
  Node<Bits> &node = levels_[*level].node;
  return CommonPrefix(node.place, prefix) == node.place.length && node.EntryOf(prefix).present() &&
         node.HoldsRoute(prefix);
}

// Takes the prefix's route out of its level. A level that keeps only one reference gives way to it. Says what
// is behind the last level then.
template <typename Bits>
RouteRef RouteChange<Bits>::TakeOut(uint32_t at, const Prefix<Bits> &prefix, RouteRef behind) {
  Level<Bits> &level = levels_[at];
  Node<Bits> &node = level.node;
  const auto entry = node.EntryOf(prefix);
  blocks_.Leave(node.HoldsRoute(prefix) ? node.refs[entry.index] : behind);
  node.Take(entry);
  if (!node.HoldsRoute(prefix)) {
    level.leadsOn = false;
    behind = 0;
  }
  behind = LeadOn(&level, behind);
  if (node.count == 1) {
    if (!level.leadsOn) behind = node.refs[0];
    std::rotate(levels_.begin() + at, levels_.begin() + at + 1, levels_.begin() + count_);
    --count_;
  }
  return behind;
}

template <typename Bits>
int32_t RouteChange<Bits>::Remove(const Prefix<Bits> &prefix) {
  for (const bool urgent : {false, true}) {
    const RouteRef ref = Descend(prefix);
    uint32_t level;
    RouteRef behind;
    if (ref == 0 || !Find(ref, prefix, &level, &behind)) return kTbmNotFound;
    urgent ? blocks_.BeginUrgently() : blocks_.Begin();
    if (count_ == 0) {
      blocks_.Leave(ref);
      behind = 0;
    } else {
      behind = TakeOut(level, prefix, behind);
    }
    if (Publish(behind)) return kTbmOk;
  }
  return kTbmNoMemory;  // does not happen: the headroom is enough
}

// A change, made with the writer's parts.
template <typename Bits>
bool MakePrefix(const uint8_t *address, uint32_t length, Prefix<Bits> *prefix) {
  if (length > kWidth<Bits>) return false;
  *prefix = {FirstBits(LoadBits<Bits>(address), length), length};
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
