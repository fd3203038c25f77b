#ifndef HOST_LAYOUT_LAYOUT_H_
#define HOST_LAYOUT_LAYOUT_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/arena/arena.h"
#include "host/arena/table_spec.h"
#include "host/layout/field.h"

namespace qdt::host {

// One engine table: its shape and the fields of its key and its records. A table of dataSize 0 is not
// defined; a table without fields can be read by the tools, but a scenario cannot fill it yet.
struct TableLayout {
  TableSpec spec;
  std::string_view shortName;  // what scenarios call it: the name of its view where it has one ("arp")
  std::string_view about;      // what the table holds, one line without a full stop; may be empty
  FieldSet key;                // offsets in the key, which may name fields of the record as well
  FieldSet fields;
  std::string_view partOf;  // table whose entries own those of this one; their key begins this one's
  std::string_view place;   // where the layout stands, "FILE:LINE"

  // The value at a path such as "if_index", "counters[2].in_bytes" or "out_fwdif[0]". Throws HostError.
  FieldRef At(std::string_view path) const;
  // The values that the engine sets to 0 on "clear WORD".
  std::vector<FieldRef> ClearedBy(std::string_view word) const;
};

// One named shared-memory region.
struct RegionLayout {
  RegionSpec spec;
  std::string_view about;
  FieldSet fields;
  std::string_view place;  // "FILE:LINE"

  FieldRef At(std::string_view path) const;
  // Calls `visit` with each single value and its path, in the order of the layout.
  void ForEachValue(const std::function<void(const std::string &path, const FieldRef &)> &visit) const;
};

// What one view of the diag command shows: a table's records, a region, or records of its own.
// The keys that the diag command takes behind a view's number.
constexpr size_t kViewKeys = 4;

struct ViewLayout {
  uint32_t id = 0;          // the diag command's number
  std::string_view name;    // the diag command's name
  std::string_view about;   // of records of its own, one line without a full stop
  std::string_view table;   // short name; empty when these are no table's records
  std::string_view region;  // name; empty when these are no region's bytes
  uint32_t recordSize = 0;  // of records of its own
  FieldSet fields;          // of records of its own
  std::string_view place;   // "FILE:LINE"
  // How it is asked for just one record of its table; none where it cannot be. A key is a field's value, ""
  // 0, "all" that word, "a:b" two values with a colon between, "#a" a value in hexadecimal, and "@a" the
  // control plane's number of the forwarding interface whose number is in a. Those that are left out are 0.
  std::span<const std::string_view> keys;

  FieldRef At(std::string_view path) const;  // of records of its own
};

// Names of tables, regions, views and fields have at most so many characters.
constexpr size_t kMaxLayoutName = 63;
// Regions of all layouts together; the engine adds some of its own.
constexpr size_t kMaxLayoutRegions = 1000;

class LayoutStore;

// The engine's tables and regions as data, and what the diag command's views show of them. docs/scenarios.md
// describes the layout files' format. Immutable once made, hence safe to read from any thread; copies share
// what they name.
class Layout {
 public:
  // The layouts that the program was built with: constants of the program, which cost nothing to have.
  static const Layout &BuiltIn();

  // `byName` has the ids in the order of the short names. `store` keeps what all this leads to, unless it is
  // constant.
  Layout(std::span<const TableLayout> tables, std::span<const RegionLayout> regions,
         std::span<const ViewLayout> views, std::span<const uint16_t> byName,
         std::shared_ptr<const LayoutStore> store = nullptr)
      : tables_(tables), regions_(regions), views_(views), byName_(byName), store_(std::move(store)) {}

  // The same with other capacities, by short names. Throws HostError when there is no such table in use.
  Layout WithCapacities(std::span<const std::pair<std::string, uint32_t>> capacities) const;

  // What an engine's arena has to hold. Names are those of this layout.
  ArenaPlan Plan(const std::string &socketPath) const;

  // Null when there is no such table or region. FindTable takes short names, Table ids below kTableCount.
  const TableLayout *FindTable(std::string_view shortName) const;
  const TableLayout &Table(uint32_t id) const { return tables_[id]; }
  const RegionLayout *FindRegion(std::string_view name) const;
  const ViewLayout *FindView(uint32_t id) const;
  // The region whose name is nearest to a mistyped one; empty when none is near.
  std::string_view NearestRegion(std::string_view name) const;

  std::span<const TableLayout> tables() const { return tables_; }  // in order of id
  std::span<const RegionLayout> regions() const { return regions_; }
  std::span<const ViewLayout> views() const { return views_; }  // in order of id

 private:
  std::span<const TableLayout> tables_;
  std::span<const RegionLayout> regions_;
  std::span<const ViewLayout> views_;
  std::span<const uint16_t> byName_;
  std::shared_ptr<const LayoutStore> store_;
};

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_H_
