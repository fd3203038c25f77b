#ifndef HOST_ARENA_TABLE_LAYOUT_H_
#define HOST_ARENA_TABLE_LAYOUT_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "host/arena/table_spec.h"
#include "platform/tbm.h"

// The server maps' hash map, whose nodes are the entries of a table.
struct TbmHashMap {
  uint32_t table;
  uint32_t reserved;
};

// The bytes of a table in the arena: its constant shape, its changing state, its hash index and its slab of
// slots. The arena places and checks them; what goes on inside is the table manager's (host/tbm).
//
// Slots are named by numbers from 1 on; 0 says "none", so zeroed storage is an empty table. Serials count the
// entries ever inserted into a table from 1 on; a slot with serial 0 holds no entry. As no two entries share
// a serial, a reader that finds the same serial in a slot before and after reading from it knows that
// everything in between belonged to one and the same entry.
namespace qdt::host::tbm {

constexpr uint32_t kMaxKeySize = 128;

// Keys and records are filled up to whole words.
constexpr size_t kWord = sizeof(uint64_t);

constexpr size_t RoundUpToWord(size_t size) { return (size + kWord - 1) / kWord * kWord; }

// Constant, in the arena's directory; covered by its sum.
struct TableShape {
  uint16_t keySize;
  uint16_t dataSize;  // 0: the table is not defined
  uint32_t recordSize;
  uint32_t searchOffset;
  uint32_t capacity;
  uint32_t groupRuleSpec;
  uint8_t lookup;  // Lookup
  uint8_t enabled;
  uint8_t clientWritable;
  uint8_t groupKeySize;   // 0, or whole words of the key that alone are hashed
  uint32_t nameOffset;    // from the file's start
  uint32_t slotSize;      // slot header, key and record, each filled up to 8 bytes
  uint32_t recordOffset;  // of the record in its slot
  uint32_t bucketCount;   // a power of two
  uint64_t indexOffset;   // IndexSize bytes
  uint64_t slabOffset;    // capacity slots
  uint32_t attachedSize;  // bytes behind a record that walks do not deliver
  uint32_t nodeCount;     // of the flow partition, whose nodes are this table's entries: its capacity, or 0
};
static_assert(sizeof(TableShape) == 64 && offsetof(TableShape, indexOffset) == 40);

// One chain of the hash index, in order of insertion. `removals` counts the entries ever taken out of the
// chain: a reader that finds it unchanged has not strayed into another chain through a slot that was used
// again.
struct Bucket {
  std::atomic<uint32_t> head;
  std::atomic<uint32_t> removals;
};
static_assert(sizeof(Bucket) == 8);

constexpr uint32_t PrefixAddressSize(const TableShape &shape) {
  return host::PrefixAddressSize(static_cast<Lookup>(shape.lookup));
}

// Where in the index the flow partition's nodes stand: addresses of records, by slot, null while it is free.
constexpr uint64_t NodesOffset(const TableShape &shape) { return shape.bucketCount * sizeof(Bucket); }

// Bytes of the buckets, and behind them for route tables a counter of each prefix length, for the sessions
// the flow partition's nodes.
constexpr uint64_t IndexSize(const TableShape &shape) {
  const uint64_t lengths = PrefixAddressSize(shape) == 0 ? 0 : PrefixAddressSize(shape) * 8 + 1;
  return NodesOffset(shape) + lengths * sizeof(uint32_t) + uint64_t{shape.nodeCount} * sizeof(void *);
}

// What stands at ArenaHeader::infoOffset. The two last parts are pointed to when their tables are defined.
struct InfoArea {
  TbmGlobalInfo info;
  TbmTableDesc tables[kTableCount];
  TbmFlowPartition flowPartition;  // its nodes: null until the index has its storage
  TbmHashMap serverMaps;
};
static_assert(sizeof(InfoArea) == 32 + 109 * 48 + 16 + 8);

// Head of a slot; the key follows, the record stands at TableShape::recordOffset.
struct Slot {
  std::atomic<uint64_t> serial;  // 0 while the slot holds no entry
  std::atomic<uint32_t>
      orderNext;       // next entry of the table in order of insertion; of a free slot: next free slot
  uint32_t orderPrev;  // the writer's
  std::atomic<uint32_t> chainNext;  // next entry of the bucket
  uint32_t chainPrev;               // the writer's; the first entry of a bucket names the last one
  std::atomic<uint32_t> hash;
  std::atomic<uint32_t> version;  // odd while the writer overwrites the record in place
};
static_assert(sizeof(Slot) == 32 && offsetof(Slot, version) == 28);

// Changing; written by the engine alone.
struct TableState {
  std::atomic<uint64_t> lastSerial;  // of the entry inserted last
  std::atomic<uint64_t> slabBytes;   // storage reserved for the slab so far
  std::atomic<uint32_t> usedSlots;   // slots that ever held an entry; readers touch no others
  std::atomic<uint32_t> indexReady;  // non-zero when the index has its storage
  std::atomic<uint32_t> orderHead;
  uint32_t orderTail;  // from here on the writer's
  uint32_t freeHead;
  uint32_t freeTail;
  uint32_t freeCount;
  uint32_t fullSaid;  // that the table is full is in the system log
  uint64_t reserved[2];
};
static_assert(sizeof(TableState) == 64);

inline bool HasIndex(const TableState &state) {
  return state.indexReady.load(std::memory_order_acquire) != 0;
}

// Storage reserved for the table so far.
inline uint64_t StorageBytes(const TableShape &shape, const TableState &state) {
  return state.slabBytes.load(std::memory_order_relaxed) + (HasIndex(state) ? IndexSize(shape) : 0);
}

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free);

}  // namespace qdt::host::tbm

#endif  // HOST_ARENA_TABLE_LAYOUT_H_
