#ifndef HOST_LINUX_MIRROR_TABLE_H_
#define HOST_LINUX_MIRROR_TABLE_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/engine/filler.h"
#include "host/netlink/ip_address.h"

namespace qdt::host {

// One of the engine's tables as the mirror writes it. An entry keeps its address for as long as what it
// stands for lives; its owner keeps that address. A record is made in a scratch place, field by field as the
// layout has them.
//
// A table that the layout does not have, or whose fields it lacks, takes no entries.
class MirrorTable {
 public:
  // `target` outlives this.
  MirrorTable(const FillTarget &target, std::string_view shortName);
  MirrorTable(const MirrorTable &) = delete;
  MirrorTable &operator=(const MirrorTable &) = delete;

  // Fields by name, looked up once. A table of whose fields one is missing is not usable.
  FieldRef Key(std::string_view name);
  FieldRef Value(std::string_view path);
  // The same for a field that some of the tables lack; there, what is set goes nowhere.
  FieldRef Optional(std::string_view path);

  // A structure that stands behind the record and that the record points to.
  struct Structure {
    FieldRef pointer;
    uint32_t at = 0;  // bytes from the entry's address
  };
  Structure Attached(std::string_view name);

  // Begins a new record, all zeros. What is set goes into it and into its key.
  MirrorTable &New();
  MirrorTable &SetKey(const FieldRef &field, WideValue value);
  MirrorTable &Set(const FieldRef &field, WideValue value);
  MirrorTable &SetBytes(const FieldRef &field, const void *bytes, size_t size);  // MAC, IPv6 and the like
  uint8_t *record() { return record_.data(); }

  // Has the entry at *address, of the same key, hold the record, or puts it in when *address is null.
  // *address stays null when the table is full.
  void Put(void **address);
  // Takes the entry out, if there is one.
  void Remove(void **address);
  // That the engine itself has taken out an entry.
  void Forget() { hasRoomAgain_ |= turnedAway_; }

  bool usable() const { return usable_; }
  uint32_t id() const { return id_; }
  // Entries that found no room, and whether some has become free since: they are to be offered again.
  uint64_t refused() const { return refused_; }
  bool TakeRoomAgain();

 private:
  friend class DerivedTable;

  const TableLayout *layout_;
  TableWriter &writer_;
  uint32_t id_ = 0;
  bool usable_;
  uint64_t refused_ = 0;
  bool turnedAway_ = false, hasRoomAgain_ = false;  // since the entries were offered last
  std::vector<uint8_t> key_, record_;
};

// A table whose contents follow from a few other things: they are made anew as a whole, and compared.
class DerivedTable {
 public:
  // Of a table with several entries a key, a record is an entry's identity as well.
  DerivedTable(const FillTarget &target, std::string_view shortName);

  MirrorTable &table() { return table_; }
  void Begin() { ++round_; }
  // The table's record is one of the entries.
  void Want();
  // The entries that were not wanted since Begin leave.
  void End();

 private:
  struct Entry {
    void *address = nullptr;
    uint32_t round = 0;
  };
  MirrorTable table_;
  bool many_;
  uint32_t round_ = 0;
  std::map<std::string, Entry> entries_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_MIRROR_TABLE_H_
