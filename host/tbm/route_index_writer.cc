#include "host/tbm/route_index_writer.h"

#include <algorithm>
#include <array>
#include <span>

#include "host/tbm/route_levels.h"
#include "host/tbm/status.h"

namespace qdt::host::tbm {

namespace {

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
  bool IsRouteTo(const Prefix<Bits> &prefix, RouteRef ref) const;
  bool PassStem(const Prefix<Bits> &prefix, RouteRef *ref);
  bool PassNode(const Prefix<Bits> &prefix, RouteRef *ref);
  RouteRef Descend(const Prefix<Bits> &prefix);
  Level<Bits> &Push(RouteRef source);
  RouteRef PushWhole(RouteRef ref, uint32_t passed);
  RouteRef PushNode(RouteRef ref, uint32_t digit);
  RouteRef PushStem(RouteRef ref);
  RouteRef PushLast(RouteRef ref);
  RouteRef Absorb(RouteRef ref);
  uint32_t LevelOf(uint32_t first, const Prefix<Bits> &prefix) const;
  RouteRef MakeRoute(const Prefix<Bits> &prefix, uint32_t slot, uint64_t serial);
  RouteRef Fork(RouteRef there, const Prefix<Bits> &place, RouteRef route, const Prefix<Bits> &prefix);
  void ForkAbove(uint32_t level, RouteRef route, const Prefix<Bits> &prefix);
  RouteRef ForkAside(RouteRef there, RouteRef route, const Prefix<Bits> &prefix);
  bool Put(Node<Bits> *node, RouteRef route, const Prefix<Bits> &prefix);
  bool InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route, RouteRef *behind);
  bool Find(RouteRef ref, const Prefix<Bits> &prefix, uint32_t *level, RouteRef *behind);
  RouteRef TakeOut(uint32_t level, const Prefix<Bits> &prefix, RouteRef behind);
  RouteRef TakeChild(Level<Bits> *level);
  uint32_t FirstOfBlock(uint32_t end) const;
  RouteWord *TakeBlock(const Level<Bits> &level, uint32_t bytes, RouteRef *ref);
  RouteRef WriteWhole(const Level<Bits> &level, RouteRef behind);
  RouteRef WriteNode(Level<Bits> *level, RouteRef behind);
  RouteRef WriteStem(uint32_t first, uint32_t end, RouteRef behind);
  RouteRef Write(uint32_t first, uint32_t end, RouteRef behind);
  bool Publish(RouteRef behind);

  RouteBlocks &blocks_;
  const uint16_t vpn_;
  // Each at a depth of its own, and one that is put aside.
  std::array<Level<Bits>, RouteDepth(sizeof(Bits)) + 1> levels_;
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
  level.passed = Level<Bits>::kTakenApart;
  return level;
}

template <typename Bits>
bool RouteChange<Bits>::IsRouteTo(const Prefix<Bits> &prefix, RouteRef ref) const {
  if (!IsRoute(ref)) return false;
  const Prefix<Bits> place = PrefixOf(ref);
  return place.length == prefix.length && CommonPrefix(place, prefix) == place.length;
}

// These say what is behind a block, or where the way turns off from it.
template <typename Bits>
RouteRef RouteChange<Bits>::PushWhole(RouteRef ref, uint32_t passed) {
  Level<Bits> &level = Push(ref);
  level.leadsOn = true;
  level.passed = passed;
  blocks_.Leave(ref);
  return NodeBlock<Bits>(blocks_.Words(ref)).ref(passed);
}

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
  uint32_t index = 1;
  for (uint32_t depth = stem.depth(); depth < stem.end(); depth += kRouteStride) {
    Push(ref).LoadOfStem(stem, depth, &index);
    if (levels_[count_ - 1].Empty()) --count_;
  }
  blocks_.Leave(ref);
  return stem.ref(0);
}

// The block in which something changes.
template <typename Bits>
RouteRef RouteChange<Bits>::PushLast(RouteRef ref) {
  const NodeBlock<Bits> node(blocks_.Words(ref));
  if (node.end() != 0) return PushStem(ref);
  Level<Bits> &level = Push(ref);
  level.node.Load(blocks_.Words(ref));
  blocks_.Leave(ref);
  return level.LeadOn();
}

// What is behind a stem that may go on there, when both fit into a block.
template <typename Bits>
RouteRef RouteChange<Bits>::Absorb(RouteRef ref) {
  StemSize size;
  size.Add(levels_[count_ - 1]);
  const uint32_t other = RouteBlockBytes(blocks_.ClassOf(ref), sizeof(Bits)) - NodeHeadBytes(sizeof(Bits));
  if (size.Bytes(sizeof(Bits)) + other > kMaxNodeBytes) return ref;
  const NodeBlock<Bits> node(blocks_.Words(ref));
  if (node.end() != 0) return PushStem(ref);
  Level<Bits> &level = Push(ref);
  level.node.Load(blocks_.Words(ref));
  const RouteRef behind = level.LeadOn();
  if (!level.InStem()) {
    --count_;
    return ref;
  }
  blocks_.Leave(ref);
  return behind;
}

// Behind a stem, when the prefix goes on behind its end or by a node that turns off from it.
template <typename Bits>
bool RouteChange<Bits>::PassStem(const Prefix<Bits> &prefix, RouteRef *ref) {
  const NodeBlock<Bits> stem(blocks_.Words(*ref));
  const uint32_t depth = stem.depth();
  const uint32_t same = std::min({CommonStart(prefix.bits, stem.path()), stem.end(), prefix.length});
  if (same < depth) return false;
  if (same == stem.end()) {
    if (stem.ref(0) == 0) return false;
    // A stem that is nearly full has no room for what stands above or behind it.
    const bool full = IsNode(stem.ref(0)) && blocks_.ClassOf(*ref) + 2 >= kNodeClasses;
    *ref = full ? PushWhole(*ref, 0) : PushStem(*ref);
    return true;
  }
  const uint32_t strides = (same - depth) / kRouteStride;
  const uint32_t place = depth + strides * kRouteStride;
  if (prefix.length < place + kRouteStride) return false;
  const typename NodeBlock<Bits>::Side side = stem.side(strides);
  const uint32_t digit = Digit(prefix.bits, place);
  const uint32_t index = side.first + CountBits(side.children & Below(digit));
  if ((side.children >> digit & 1) == 0 || !IsNode(stem.ref(index))) return false;
  *ref = PushWhole(*ref, index);
  return true;
}

// Behind a node, when it has a child that the prefix goes on by.
template <typename Bits>
bool RouteChange<Bits>::PassNode(const Prefix<Bits> &prefix, RouteRef *ref) {
  const NodeBlock<Bits> node(blocks_.Words(*ref));
  const uint32_t depth = node.depth();
  if (prefix.length < depth + kRouteStride || !SameStart(prefix.bits, node.path(), depth)) return false;
  const uint32_t digit = Digit(prefix.bits, depth);
  const uint64_t children = node.children();
  if ((children >> digit & 1) == 0) return false;
  const uint32_t index = CountBits(children & Below(digit));
  const uint32_t sideRefs = CountBits(children) - 1 + CountBits(node.routes() & ~kMatching[digit]);
  *ref = sideRefs > kMaxSideRefs && IsNode(node.ref(index)) ? PushWhole(*ref, index) : PushNode(*ref, digit);
  return true;
}

// To where the prefix has its place: 0 or a reference that stands in a level or the root, to the node that
// holds the route or would, or to what lies beside the prefix or below it.
template <typename Bits>
RouteRef RouteChange<Bits>::Descend(const Prefix<Bits> &prefix) {
  count_ = 0;
  RouteRef ref = blocks_.Root(vpn_);
  while (IsNode(ref)) {
    const bool isStem = NodeBlock<Bits>(blocks_.Words(ref)).end() != 0;
    if (!(isStem ? PassStem(prefix, &ref) : PassNode(prefix, &ref))) break;
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
  if (IsRoute(there) && level.node.HoldsRoute(place)) return level.LeadOn();
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

// The same beside the levels' way: a node of its own, 0 when there is no block for it.
template <typename Bits>
RouteRef RouteChange<Bits>::ForkAside(RouteRef there, RouteRef route, const Prefix<Bits> &prefix) {
  const RouteRef behind = Fork(there, PrefixOf(there), route, prefix);
  return WriteNode(&levels_[--count_], behind);
}

// A route into a node, in the place of one with the same prefix, or together with one that turns off there.
// False when a block was missing.
template <typename Bits>
bool RouteChange<Bits>::Put(Node<Bits> *node, RouteRef route, const Prefix<Bits> &prefix) {
  const auto entry = node->EntryOf(prefix);
  if (!entry.present()) {
    node->Add(entry, route);
    return true;
  }
  RouteRef *there = &node->refs[entry.index];
  if (!IsRouteTo(prefix, *there)) {
    *there = ForkAside(*there, route, prefix);
    return *there != 0;
  }
  blocks_.Leave(*there);
  *there = route;
  return true;
}

// Says what is behind the last level. False when a block was missing.
template <typename Bits>
bool RouteChange<Bits>::InsertAt(RouteRef ref, const Prefix<Bits> &prefix, RouteRef route, RouteRef *behind) {
  *behind = route;
  if (ref == 0) return true;
  const Prefix<Bits> place = PrefixOf(ref);
  if (IsRouteTo(prefix, ref)) {
    blocks_.Leave(ref);
    return true;
  }
  if (IsRoute(ref) || CommonPrefix(place, prefix) < place.length) {
    *behind = Fork(ref, place, route, prefix);
    return true;
  }
  const uint32_t first = count_;
  *behind = PushLast(ref);
  const uint32_t level = LevelOf(first, prefix);
  Node<Bits> &node = levels_[level].node;
  if (CommonPrefix(node.place, prefix) < node.place.length) {
    ForkAbove(level, route, prefix);
    return true;
  }
  if (!Put(&node, route, prefix)) return false;
  if (!levels_[level].leadsOn) *behind = levels_[level].LeadOn();
  return true;
}

// A node's copy takes a block of the node's own size while storage is short.
template <typename Bits>
RouteWord *RouteChange<Bits>::TakeBlock(const Level<Bits> &level, uint32_t bytes, RouteRef *ref) {
  *ref =
      blocks_.Take(blocks_.keepSizes() || level.whole() ? blocks_.ClassOf(level.source) : NodeClass(bytes));
  return *ref == 0 ? nullptr : blocks_.Words(*ref);
}

template <typename Bits>
RouteRef RouteChange<Bits>::WriteWhole(const Level<Bits> &level, RouteRef behind) {
  RouteRef ref;
  RouteWord *words = TakeBlock(level, 0, &ref);
  if (words == nullptr) return 0;
  const RouteWord *source = blocks_.Words(level.source);
  const uint32_t count = RouteBlockBytes(blocks_.ClassOf(level.source), sizeof(Bits)) / kRouteWord;
  for (uint32_t i = 1; i < count; ++i)
    words[i].store(source[i].load(std::memory_order_relaxed), std::memory_order_release);
  StoreRef(words + NodeBlock<Bits>::kHead, level.passed, behind);
  return ref;
}

template <typename Bits>
RouteRef RouteChange<Bits>::WriteNode(Level<Bits> *level, RouteRef behind) {
  Node<Bits> &node = level->node;
  if (level->leadsOn) node.refs[node.ChildEntry(level->digit).index] = behind;
  RouteRef ref;
  RouteWord *words = TakeBlock(*level, NodeBytes(node.count, sizeof(Bits)), &ref);
  if (words == nullptr) return 0;
  words[1].store(node.children, std::memory_order_release);
  words[2].store(node.routes, std::memory_order_release);
  StorePlace(words + 3, node.place, 0);
  StoreRefs(words + NodeBlock<Bits>::kHead, node.refs.data(), node.count);
  return ref;
}

template <typename Bits>
RouteRef RouteChange<Bits>::WriteStem(uint32_t first, uint32_t end, RouteRef behind) {
  const Stem<Bits> stem({&levels_[first], end - first}, behind);
  RouteRef ref;
  RouteWord *words = TakeBlock(levels_[first], stem.Bytes(), &ref);
  if (words == nullptr) return 0;
  stem.Store(words);
  return ref;
}

// 0 when a block was missing.
template <typename Bits>
RouteRef RouteChange<Bits>::Write(uint32_t first, uint32_t end, RouteRef behind) {
  if (end - first > 1) return WriteStem(first, end, behind);
  return levels_[first].whole() ? WriteWhole(levels_[first], behind) : WriteNode(&levels_[first], behind);
}

// Of the levels that end there, the first one of the same block. While storage is short a change takes blocks
// of the sizes that it gives back: so, however many follow it, the headroom lasts. Then a stem may end with
// nothing behind it.
template <typename Bits>
uint32_t RouteChange<Bits>::FirstOfBlock(uint32_t end) const {
  uint32_t first = end - 1;
  if (blocks_.keepSizes()) {
    while (first != 0 && levels_[first - 1].source == levels_[first].source) --first;
    return first;
  }
  StemSize size;
  if (!levels_[first].InStem()) return first;
  size.Add(levels_[first]);
  for (; first != 0 && levels_[first - 1].InStem(); --first) {
    size.Add(levels_[first - 1]);
    if (size.Bytes(sizeof(Bits)) > kMaxNodeBytes) break;
  }
  return first;
}

// Makes blocks of the levels, with `behind` behind the last one. False when one was missing.
template <typename Bits>
bool RouteChange<Bits>::Publish(RouteRef behind) {
  if (count_ != 0 && levels_[count_ - 1].InStem() && IsNode(behind) && !blocks_.keepSizes())
    behind = Absorb(behind);
  for (uint32_t end = count_; end != 0;) {
    const uint32_t first = FirstOfBlock(end);
    behind = Write(first, end, behind);
    if (behind == 0) return false;
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
  RouteRef behind;
  if (route != 0 && InsertAt(ref, prefix, route, &behind) && Publish(behind)) return kTbmOk;
  blocks_.Undo();
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
  if (CommonPrefix(node.place, prefix) < node.place.length) return false;
  const auto entry = node.EntryOf(prefix);
  return entry.present() && (node.HoldsRoute(prefix) || IsRouteTo(prefix, node.refs[entry.index]));
}

// The child by which the last level leads on. It leads on by another one, if it has one.
template <typename Bits>
RouteRef RouteChange<Bits>::TakeChild(Level<Bits> *level) {
  level->node.Take(level->node.ChildEntry(level->digit));
  level->leadsOn = level->node.children != 0;
  return level->leadsOn ? level->LeadOn() : 0;
}

// Takes the prefix's route out of its level. A level that keeps only one reference gives way to it. Says what
// is behind the last level then.
template <typename Bits>
RouteRef RouteChange<Bits>::TakeOut(uint32_t at, const Prefix<Bits> &prefix, RouteRef behind) {
  Level<Bits> &level = levels_[at];
  Node<Bits> &node = level.node;
  if (level.Passes(prefix)) {
    blocks_.Leave(behind);
    behind = TakeChild(&level);
  } else {
    const auto entry = node.EntryOf(prefix);
    blocks_.Leave(node.refs[entry.index]);
    node.Take(entry);
  }
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
    blocks_.Undo();
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
