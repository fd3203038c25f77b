#ifndef HOST_INSPECT_COMPARE_H_
#define HOST_INSPECT_COMPARE_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/record/record_json.h"

namespace qdt::host {

// A value that two records have differently, or a structure that one of them has and the other has not, or
// that the pointer of one misses.
struct ValueChange {
  std::string path;  // "counters[2].in_bytes"; of what the record says beside its key "record.if_index"
  const Field *field = nullptr;
  FieldRef ref;         // the value's place in the record; not of structures
  bool isPart = false;  // a structure
};

// Whether a record has a structure that not all of its table have.
enum class Presence : uint8_t {
  kAbsent,
  kPresent,
  kStrayed,  // its pointer leads elsewhere
};
Presence PresenceIn(const RecordBytes &record, const Field &field);

// What becomes of counters and clocks.
enum class Volatile : uint8_t { kIgnored, kCompared };

// Compares records of one table that stand under one key, in two arenas. What is told apart is what people
// see: bytes of no field do not count, references are the same when they lead to the same key, or both to
// nothing.
class RecordComparison {
 public:
  // Both outlive it.
  RecordComparison(const Layout &layout, const TableLayout &table, Volatile volatiles);

  const TableLayout &table() const { return table_; }

  // Most records are equal, and found to be so many bytes at a time.
  bool Equal(const RecordBytes &from, const RecordBytes &to);
  // What differed in the last two records that were not, in the order of the layout.
  std::span<const ValueChange> changes() const { return changes_; }

 private:
  // A reference.
  struct Link {
    FieldRef ref;
    std::vector<const TableLayout *> targets;
  };
  // The bits of a structure, or of what all records have, that are plain values.
  struct Part {
    const Field *field = nullptr;  // null for what all records have
    uint32_t firstWord = 0;
    std::vector<uint64_t> mask;
    std::vector<Link> links;
  };

  void AddPart(const Field &field);
  void Add(const Field &field, uint32_t base, Part *part);
  static bool BitsAreEqual(const Part &part, const uint8_t *from, const uint8_t *to);
  bool LooksEqual(const RecordBytes &from, const RecordBytes &to) const;

  const Layout &layout_;
  const TableLayout &table_;
  const Volatile volatiles_;
  bool comparesTimes_ = false;
  std::vector<Part> parts_;
  std::vector<ValueChange> changes_;
};

// The same for the bytes of a region.
void CompareRegions(const RegionLayout &region, const RecordBytes &from, const RecordBytes &to,
                    Volatile volatiles, std::vector<ValueChange> *changes);

}  // namespace qdt::host

#endif  // HOST_INSPECT_COMPARE_H_
