#ifndef HOST_TBM_TABLE_VIEW_H_
#define HOST_TBM_TABLE_VIEW_H_

#include <cstddef>
#include <cstdint>

#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"
#include "host/arena/table_layout.h"
#include "host/tbm/route_index.h"
#include "host/tbm/words.h"
#include "platform/tbm.h"

namespace qdt::host::tbm {

// A key with its words filled up with zeros, and the hash of its first `hashed` bytes under the arena's key.
struct TableKey {
  TableKey(const void *bytes, size_t size, size_t hashed, const uint64_t (&hashKey)[2]);

  uint64_t words[kMaxKeySize / kWord];
  uint32_t wordCount;
  uint32_t hash;
};

// A place in a walk: the entry of serial `serial`, which stands in slot `ref` for as long as it lives. Serial
// 0 is the place before the first entry.
struct Place {
  uint64_t serial = 0;
  uint32_t ref = 0;
  // Where the entry stood in the order when it was found: a hint.
  uint32_t logEpoch = 0;
  uint32_t logIndex = 0;
  // The entry that stood before it in its chain, from where a walk goes on when this one has gone.
  uint32_t beforeRef = 0;
  uint64_t beforeSerial = 0;
};

// One defined table of an arena, as readers and the writer see it. Trusts the constant directory, which was
// checked when the arena was attached, and bounds everything that it finds in the changing parts: a reader
// may meet an arena that its engine left half-changed.
// What a client does to the copies that it is about to read in place; each is `size` bytes of the table's
// record.
using CopyMark = void (*)(uint32_t table, void *records, uint32_t size, uint32_t count);
// Null: nothing. What stands in the engine's own records is left alone: there it is done to copies beside
// them.
void SetCopyMark(CopyMark mark);

class TableView {
 public:
  TableView() = default;

  // kTbmOk, kTbmBadParam for a wrong id, kTbmNotSupported for a table that is not defined.
  static int32_t Open(Arena *arena, uint32_t table, TableView *view);
  // The same for the arena that this process works on; kTbmNotReady when there is none.
  static int32_t OpenCurrent(uint32_t instance, uint32_t table, TableView *view);

  uint32_t id() const { return id_; }
  const TableShape &shape() const { return *shape_; }
  TableState &state() const { return *state_; }
  TbmTableDesc &descriptor() const { return *descriptor_; }
  Arena *arena() const { return arena_; }
  const char *name() const { return base_ + shape_->nameOffset; }
  uint32_t StoredSize() const { return shape_->recordSize + shape_->attachedSize; }

  // Whether a slot has or had the number.
  bool IsSlot(uint32_t ref) const {
    return ref - 1 < shape_->capacity && ref <= state_->usedSlots.load(std::memory_order_acquire);
  }
  // Slots that have or had a number, which are those of the first numbers.
  uint32_t UsedSlots() const {
    const uint32_t used = state_->usedSlots.load(std::memory_order_acquire);
    return used < shape_->capacity ? used : shape_->capacity;
  }
  // The slot's head, or null for a number that no slot has or had.
  Head *At(uint32_t ref) const { return IsSlot(ref) ? HeadAt(ref) : nullptr; }
  // As At for a number that the writer knows to be good.
  Head *HeadAt(uint32_t ref) const {
    return reinterpret_cast<Head *>(base_ + shape_->headsOffset + uint64_t{ref - 1} * shape_->headSize);
  }
  static uint64_t *Key(Head *head) { return reinterpret_cast<uint64_t *>(head + 1); }

  // The slot at its address, where this process has what it delivers, and its record.
  Slot *SlotAt(uint32_t ref) const {
    return reinterpret_cast<Slot *>(base_ + shape_->slabOffset + uint64_t{ref - 1} * shape_->slotSize);
  }
  uint64_t *Record(uint32_t ref) const { return reinterpret_cast<uint64_t *>(SlotAt(ref) + 1); }
  // The same as the engine has it.
  Slot *LiveSlot(uint32_t ref) const {
    return reinterpret_cast<Slot *>(liveSlots_ + uint64_t{ref - 1} * shape_->slotSize);
  }
  const uint64_t *LiveRecord(uint32_t ref) const {
    return reinterpret_cast<const uint64_t *>(LiveSlot(ref) + 1);
  }
  uint64_t *Spare() const { return reinterpret_cast<uint64_t *>(Index() + SpareOffset(*shape_)); }

  // The slot of a delivered address whose entry lives, or 0.
  uint32_t RefOfAddress(const void *address) const;
  // What TbmTblSearch delivers, of an entry that was made whole: the address, or in the engine, where a mark
  // changes the record, that of a copy which stands until the next delivery.
  void *Delivered(uint32_t ref) const;
  // Where references lead.
  void *Address(uint32_t ref) const { return reinterpret_cast<char *>(Record(ref)) + shape_->searchOffset; }

  // Whether the index has storage; nothing of it may be touched before.
  bool HasIndex() const { return tbm::HasIndex(*state_); }
  Bucket &BucketOf(uint32_t hash) const { return BucketAt(hash & (shape_->bucketCount - 1)); }
  Bucket &BucketAt(uint32_t number) const { return reinterpret_cast<Bucket *>(Index())[number]; }
  char *Index() const { return base_ + shape_->indexOffset; }
  // Where longest prefixes are found, of a route table with an index.
  char *RouteArea() const { return base_ + shape_->routesOffset; }
  RouteIndex Routes() const { return {RouteArea(), RoutesSize(*shape_), PrefixAddressSize(*shape_)}; }
  // The flow partition and its nodes, which have a place when the table's shape has any.
  TbmFlowPartition &FlowPartition() const { return info_->flowPartition; }
  void **Nodes() const { return reinterpret_cast<void **>(Index() + NodesOffset(*shape_)); }
  LogEntry *Log(uint32_t epoch) const {
    return reinterpret_cast<LogEntry *>(base_ + shape_->logOffset) + uint64_t{epoch % 2} * shape_->logRoom;
  }
  // Entries of the log of an epoch; a damaged number is cut to what a log holds.
  uint32_t LogCount(uint32_t epoch) const {
    const uint32_t count = state_->logCount[epoch % 2].load(std::memory_order_acquire);
    return count < shape_->logRoom ? count : shape_->logRoom;
  }
  // Of a table that clients may write to: the serial of the entry that a client asks to end, by slot.
  std::atomic<uint64_t> &Request(uint32_t ref) const {
    return reinterpret_cast<std::atomic<uint64_t> *>(base_ + shape_->requestOffset)[ref - 1];
  }

  uint32_t EntryNum() const {
    return std::atomic_ref<uint32_t>(descriptor_->entryNum).load(std::memory_order_relaxed);
  }
  // Storage reserved for the table so far.
  uint64_t StorageBytes() const { return state_->bytes.load(std::memory_order_relaxed); }

  // Whether the place's entry still lives.
  bool Lives(const Place &place) const { return Lives(place.serial, place.ref); }
  bool Lives(uint64_t serial, uint32_t ref) const {
    return IsSlot(ref) && LiveSlot(ref)->serial.load(std::memory_order_acquire) == serial;
  }
  bool HasKey(Head *head, const TableKey &key) const;

  // `key` has keySize bytes.
  TableKey KeyOf(const void *key) const { return {key, shape_->keySize, HashedSize(), header_->hashKey}; }
  // What all entries of a group begin with, of a table that has groups: the entries stand in one chain.
  TableKey GroupKeyOf(const void *key) const { return {key, HashedSize(), HashedSize(), header_->hashKey}; }

  // kTbmOk and a live entry, kTbmNotFound, or kTbmInternal when the bucket never comes to rest.
  int32_t Find(const TableKey &key, Place *found) const;
  // The same for the route with the longest prefix that holds the destination of `key`, in its VPN, as it was
  // at one moment. Of route tables; the key's length is not looked at.
  int32_t Match(const void *key, Place *found) const;

  enum class Copied {
    kWhole,
    kGone,     // the entry was removed meanwhile
    kRestless  // it changes faster than it can be copied
  };
  // Copies the record's first `size` bytes as the engine had them at one moment, but for the aging time of an
  // entry that a client has asked to end.
  [[gnu::always_inline]] Copied Copy(const Place &place, void *record, uint32_t size) const {
    if (!IsSlot(place.ref)) return Copied::kGone;
    const Slot *slot = LiveSlot(place.ref);
    const uint32_t version = slot->version.load(std::memory_order_acquire);
    if (version % 2 != 0) return CopyMoving(place, record, size);
    LoadWords(record, reinterpret_cast<const uint64_t *>(slot + 1), size);
    if (slot->serial.load(std::memory_order_acquire) != place.serial) return Copied::kGone;
    if (slot->version.load(std::memory_order_relaxed) != version) return CopyMoving(place, record, size);
    if (IsAskedToEnd(place)) EndIn(record);
    return Copied::kWhole;
  }

  // Makes the record at its address whole, with what is attached to it, and lets it rest there for as long as
  // this process does not look at the entry again: what TbmTblSearch's callers read in place. In the engine
  // the record is the one that everybody sees.
  Copied Deliver(const Place &place) const;

  // To be called for records that are handed to the library, one behind the other.
  void Mark(void *records, uint32_t count) const;

  // Whether a client has asked for the entry to end, and its aging time in `record`.
  bool IsAskedToEnd(const Place &place) const {
    return shape_->agingSize != 0 && Request(place.ref).load(std::memory_order_relaxed) == place.serial;
  }
  bool HasEnded(const void *record) const;
  void EndIn(void *record) const;

 private:
  size_t HashedSize() const { return shape_->groupKeySize != 0 ? shape_->groupKeySize : shape_->keySize; }
  bool RestsWhole(const Place &place) const;
  void EndForAll(uint32_t ref) const;
  bool Scan(const Bucket &bucket, const TableKey &key, Place *found) const;
  Copied CopyMoving(const Place &place, void *record, uint32_t size) const;

  uint32_t id_ = 0;
  char *base_ = nullptr;
  char *liveSlots_ = nullptr;
  Arena *arena_ = nullptr;
  const ArenaHeader *header_ = nullptr;
  const TableShape *shape_ = nullptr;
  TableState *state_ = nullptr;
  InfoArea *info_ = nullptr;
  TbmTableDesc *descriptor_ = nullptr;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_TABLE_VIEW_H_
