#ifndef HOST_ARENA_TABLE_LAYOUT_H_
#define HOST_ARENA_TABLE_LAYOUT_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "host/arena/route_layout.h"
#include "host/arena/table_spec.h"
#include "platform/tbm.h"

// The server maps' hash map, whose nodes are the entries of a table.
struct TbmHashMap {
  uint32_t table;
  uint32_t reserved;
};

// The bytes of a table in the arena: its constant shape, its changing state, its index, the heads of its
// slots, the log of its order, its records and what clients ask of it. The arena places and checks them; what
// goes on inside is the table manager's (host/tbm).
//
// Slots are named by numbers from 1 on; 0 says "none", so zeroed storage is an empty table. Serials count the
// entries ever inserted into a table from 1 on; a slot with serial 0 holds no entry. As no two entries share
// a serial, a reader that finds the same serial in a slot before and after reading from it knows that
// everything in between belonged to one and the same entry.
namespace qdt::host::tbm {

constexpr uint32_t kMaxKeySize = 128;

// Keys and records are filled up to whole words.
constexpr size_t kWord = sizeof(uint64_t);
constexpr size_t kCacheLine = 64;

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
  uint8_t agingSize;      // bytes of the aging time that clients may set to 0; 0: they change nothing
  uint8_t groupKeySize;   // 0, or whole words of the key that alone are hashed
  uint32_t nameOffset;    // from the file's start
  uint32_t headSize;      // of a slot's head with the key, see HeadSize
  uint32_t slotSize;      // of a Slot with its record
  uint32_t attachedSize;  // bytes behind a record that walks do not deliver
  uint32_t agingOffset;   // of the aging time in the record
  uint32_t bucketCount;   // a power of two
  uint32_t nodeCount;     // of the flow partition, whose nodes are this table's entries: its capacity, or 0
  uint32_t logRoom;       // entries of one log
  uint32_t reserved[2];
  uint64_t indexOffset;    // IndexSize bytes
  uint64_t headsOffset;    // capacity heads
  uint64_t logOffset;      // two logs
  uint64_t routesOffset;   // RoutesSize bytes, of a route table
  uint64_t slabOffset;     // capacity records' places
  uint64_t requestOffset;  // a word for each slot, where clients may write
};
static_assert(sizeof(TableShape) == 112 && offsetof(TableShape, indexOffset) == 64);
// No byte without a name: it would say in the file what stood there in the engine's memory.
static_assert(std::has_unique_object_representations_v<TableShape>);

// One chain of the hash index, in order of insertion. `removals` counts the entries ever taken out of the
// chain: a reader that finds it unchanged has not strayed into another chain through a slot that was used
// again.
struct Bucket {
  std::atomic<uint32_t> head;
  std::atomic<uint32_t> removals;
};
static_assert(sizeof(Bucket) == 8);

// What a search touches of a slot; the key follows.
struct Head {
  std::atomic<uint64_t> serial;     // 0 while the slot holds no entry
  std::atomic<uint32_t> chainNext;  // next entry of the bucket
  uint32_t chainPrev;  // the writer's; the first entry of a bucket names the last one, a free slot the next
  std::atomic<uint32_t> hash;
  uint32_t reserved;
};
static_assert(sizeof(Head) == 24 && offsetof(Head, hash) == 16);

// What a walk touches of it; the record follows. The serial is set before that of the head and cleared after
// it: an entry that a search finds has a record.
struct Slot {
  std::atomic<uint64_t> serial;
  std::atomic<uint32_t> version;  // odd while the record is being overwritten in place
  uint32_t reserved;
};
static_assert(sizeof(Slot) == 16 && offsetof(Slot, version) == 8);

// Bytes of a head with its key: half a cache line, or whole ones, so that a search that meets an entry
// touches as few as possible.
constexpr uint32_t HeadSize(uint32_t keySize) {
  const auto size = static_cast<uint32_t>(sizeof(Head) + RoundUpToWord(keySize));
  return size <= 32 ? 32 : (size + 63) / 64 * 64;
}

// One entry of a table's order. A log names all entries of the table by rising serials; those that have left
// since are known by their slot's serial, which is another.
struct LogEntry {
  std::atomic<uint64_t> serial;
  std::atomic<uint32_t> ref;
  uint32_t reserved;
};
static_assert(sizeof(LogEntry) == 16);

// The writer begins to tidy a log when less than half of it is of use, and carries over so many entries with
// each change of the table.
constexpr uint32_t kTidySlack = 64;
constexpr uint32_t kTidyStep = 8;

// Enough for what comes while a full table's log is being tidied.
constexpr uint32_t LogRoom(uint32_t capacity) { return capacity * 2 + capacity / 2 + 4 * kTidySlack; }

constexpr uint32_t PrefixAddressSize(const TableShape &shape) {
  return host::PrefixAddressSize(static_cast<Lookup>(shape.lookup));
}

// What stands in the index behind the buckets: the flow partition's nodes (addresses of records, by slot,
// null while it is free) and the spare.
constexpr uint64_t NodesOffset(const TableShape &shape) { return shape.bucketCount * sizeof(Bucket); }
constexpr uint64_t SpareOffset(const TableShape &shape) {
  return NodesOffset(shape) + uint64_t{shape.nodeCount} * sizeof(void *);
}
constexpr uint64_t StoredSize(const TableShape &shape) {
  return uint64_t{shape.recordSize} + shape.attachedSize;
}
// The spare holds what a record was before the change that the writer is in the middle of.
constexpr uint64_t IndexSize(const TableShape &shape) {
  return SpareOffset(shape) + RoundUpToWord(StoredSize(shape));
}

// Of a route table the index in which longest prefixes are found, else 0.
constexpr uint64_t RoutesSize(const TableShape &shape) {
  const uint32_t addressSize = PrefixAddressSize(shape);
  return addressSize == 0 ? 0 : RouteIndexSize(shape.capacity, addressSize);
}

// What stands at ArenaHeader::infoOffset. The two last parts are pointed to when their tables are defined.
struct InfoArea {
  TbmGlobalInfo info;
  TbmTableDesc tables[kTableCount];
  TbmFlowPartition flowPartition;  // its nodes: null until the index has its storage
  TbmHashMap serverMaps;
};
static_assert(sizeof(InfoArea) == 32 + 109 * 48 + 16 + 8);

// Changing; written by the engine alone. What readers ask at each step stands apart from what each change
// writes: a line of the cache that both use would go back and forth between their processors.
struct TableState {
  std::atomic<uint64_t> bytes;       // storage reserved for the table so far
  std::atomic<uint32_t> usedSlots;   // slots that ever held an entry; readers touch no others
  std::atomic<uint32_t> indexReady;  // non-zero when the index has its storage
  // The log in force is number logEpoch % 2; it is overwritten only while a later epoch is in force.
  std::atomic<uint32_t> logEpoch;
  uint32_t reserved[11];

  alignas(kCacheLine) std::atomic<uint64_t> lastSerial;  // of the entry inserted last
  std::atomic<uint32_t> logCount[2];
  uint64_t reserved2[6];

  alignas(kCacheLine) uint32_t freeHead;  // from here on the writer's
  uint32_t freeTail;
  uint32_t freeCount;
  uint32_t fullSaid;  // that the table is full is in the system log
  uint32_t tidying;   // non-zero while the log is being tidied into the other one
  uint32_t tidyFrom;
  uint32_t tidyTo;
  uint32_t reserved3;
  uint64_t headBytes;  // storage reserved so far
  uint64_t slabBytes;
  uint64_t logBytes[2];
};
static_assert(sizeof(TableState) == 3 * kCacheLine && alignof(TableState) == kCacheLine);

inline bool HasIndex(const TableState &state) {
  return state.indexReady.load(std::memory_order_acquire) != 0;
}

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free);

}  // namespace qdt::host::tbm

#endif  // HOST_ARENA_TABLE_LAYOUT_H_
