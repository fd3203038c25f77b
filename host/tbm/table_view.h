#ifndef HOST_TBM_TABLE_VIEW_H_
#define HOST_TBM_TABLE_VIEW_H_

#include <cstddef>
#include <cstdint>

#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"
#include "host/arena/table_layout.h"
#include "host/tbm/words.h"
#include "platform/tbm.h"

namespace qdt::host::tbm {

// A key with its words filled up with zeros, and the hash of its first `hashed` bytes.
struct TableKey {
  TableKey(const void *bytes, size_t size, size_t hashed);

  uint64_t words[kMaxKeySize / kWord];
  uint32_t wordCount;
  uint32_t hash;
};

// A place in a walk: the entry of serial `serial`, which stands in slot `ref` for as long as it lives. Serial
// 0 is the place before the first entry.
struct Place {
  uint32_t ref = 0;
  uint64_t serial = 0;
};

// One defined table of an arena, as readers and the writer see it. Trusts the constant directory, which was
// checked when the arena was attached, and bounds everything that it finds in the changing parts: a reader
// may meet an arena that its engine left half-changed.
class TableView {
 public:
  TableView() = default;

  // kTbmOk, kTbmBadParam for a wrong id, kTbmNotSupported for a table that is not defined.
  static int32_t Open(ArenaHeader *header, uint32_t table, TableView *view);
  // The same for the arena that this process works on; kTbmNotReady when there is none.
  static int32_t OpenCurrent(uint32_t instance, uint32_t table, TableView *view);

  const TableShape &shape() const { return *shape_; }
  TableState &state() const { return *state_; }
  TbmTableDesc &descriptor() const { return *descriptor_; }
  const char *name() const { return base_ + shape_->nameOffset; }

  // The slot, or null for a number that no slot has or had.
  Slot *At(uint32_t ref) const {
    if (ref - 1 >= shape_->capacity || ref > state_->usedSlots.load(std::memory_order_acquire))
      return nullptr;
    return SlotAt(ref);
  }
  // As At for a number that the writer knows to be good.
  Slot *SlotAt(uint32_t ref) const {
    return reinterpret_cast<Slot *>(base_ + shape_->slabOffset + uint64_t{ref - 1} * shape_->slotSize);
  }

  static uint64_t *Key(Slot *slot) { return reinterpret_cast<uint64_t *>(slot + 1); }
  uint64_t *Record(Slot *slot) const {
    return reinterpret_cast<uint64_t *>(reinterpret_cast<char *>(slot) + shape_->recordOffset);
  }
  // The live entry of a delivered address, or null.
  Slot *SlotOfAddress(const void *address) const;
  // What TbmTblSearch delivers.
  void *Address(Slot *slot) const { return reinterpret_cast<char *>(Record(slot)) + shape_->searchOffset; }

  // Whether the index has storage; nothing of it may be touched before.
  bool HasIndex() const { return tbm::HasIndex(*state_); }
  Bucket &BucketOf(uint32_t hash) const { return Buckets()[hash & (shape_->bucketCount - 1)]; }
  // Number of entries by prefix length, of a route table with an index.
  std::atomic<uint32_t> *PrefixCounts() const {
    return reinterpret_cast<std::atomic<uint32_t> *>(Buckets() + shape_->bucketCount);
  }
  char *Index() const { return base_ + shape_->indexOffset; }
  Bucket &BucketAt(uint32_t number) const { return Buckets()[number]; }
  // The flow partition and its nodes, which have a place when the table's shape has any.
  TbmFlowPartition &FlowPartition() const { return info_->flowPartition; }
  void **Nodes() const { return reinterpret_cast<void **>(Index() + NodesOffset(*shape_)); }

  uint32_t EntryNum() const {
    return std::atomic_ref<uint32_t>(descriptor_->entryNum).load(std::memory_order_relaxed);
  }
  // Storage reserved for the table so far.
  uint64_t StorageBytes() const { return tbm::StorageBytes(*shape_, *state_); }

  // Whether the place's entry still lives.
  bool Lives(const Place &place) const;
  bool HasKey(Slot *slot, const TableKey &key) const;

  // `key` has keySize bytes.
  TableKey KeyOf(const void *key) const { return TableKey(key, shape_->keySize, HashedSize()); }
  // What all entries of a group begin with, of a table that has groups: the entries stand in one chain.
  TableKey GroupKeyOf(const void *key) const { return TableKey(key, HashedSize(), HashedSize()); }

  // kTbmOk and the live entry, kTbmNotFound, or kTbmInternal when the bucket never comes to rest.
  int32_t Find(const TableKey &key, Slot **found) const;

  enum class Copied { kWhole, kGone, kTorn };
  // Copies the record. kGone: the entry was removed meanwhile. kTorn: an Update of it stands still half-way.
  Copied Copy(const Place &place, void *record) const;

 private:
  size_t HashedSize() const { return shape_->groupKeySize != 0 ? shape_->groupKeySize : shape_->keySize; }
  Bucket *Buckets() const { return reinterpret_cast<Bucket *>(Index()); }
  bool Scan(const Bucket &bucket, const TableKey &key, Slot **found) const;

  char *base_ = nullptr;
  const TableShape *shape_ = nullptr;
  TableState *state_ = nullptr;
  InfoArea *info_ = nullptr;
  TbmTableDesc *descriptor_ = nullptr;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_TABLE_VIEW_H_
