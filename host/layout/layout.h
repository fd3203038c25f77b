#ifndef HOST_LAYOUT_LAYOUT_H_
#define HOST_LAYOUT_LAYOUT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/arena/arena.h"
#include "host/arena/table_spec.h"
#include "host/layout/field.h"

namespace qdt::host {

// One engine table: its shape and the fields of its key and its records. A table of dataSize 0 is not
// defined; a table without fields can be read by the tools, but a scenario cannot fill it yet.
struct TableLayout {
  TableSpec spec;
  std::string shortName;  // what scenarios call it: the name of its view where it has one ("arp")
  FieldSet key;           // offsets in the key, which may name fields of the record as well
  FieldSet fields;
  std::string partOf;  // table whose entries own those of this one; their key is the beginning of this one's
  std::string place;   // where the layout stands, "FILE:LINE"

  // The value at a path such as "if_index", "counters[2].in_bytes" or "out_fwdif[0]". Throws HostError.
  FieldRef At(std::string_view path) const;
  // The values that the engine sets to 0 on "clear WORD".
  std::vector<FieldRef> ClearedBy(std::string_view word) const;
};

// One named shared-memory region.
struct RegionLayout {
  RegionSpec spec;
  FieldSet fields;
  std::string place;  // "FILE:LINE"

  FieldRef At(std::string_view path) const;
  // Calls `visit` with each single value and its path, in the order of the layout.
  void ForEachValue(const std::function<void(const std::string &path, const FieldRef &)> &visit) const;
};

// One layout file.
struct LayoutText {
  std::string_view file;
  std::string_view text;
};

// Names of tables, regions and fields have at most so many characters.
constexpr size_t kMaxLayoutName = 63;
// Regions of all layouts together; the engine adds some of its own.
constexpr size_t kMaxLayoutRegions = 1000;

// The engine's tables and regions as data. docs/scenarios.md describes the layout files' format. Immutable
// once made, hence safe to read from any thread.
class Layout {
 public:
  // The layouts that the program was built with, read at the first call.
  static const Layout &BuiltIn();

  // Reads every *.yaml file of the directory. Throws HostError ("FILE:LINE: TABLE.FIELD: ...") when a file is
  // not readable or a layout is wrong: every table id must be given once, fields must lie inside their
  // records and apart from each other.
  static Layout FromDirectory(const std::string &directory);

  static Layout FromTexts(const std::vector<LayoutText> &files);

  // What an engine's arena has to hold.
  ArenaPlan Plan(const std::string &socketPath) const;

  // Null when there is no such table or region. FindTable takes short names, Table ids below kTableCount.
  const TableLayout *FindTable(std::string_view shortName) const;
  const TableLayout &Table(uint32_t id) const { return tables_[id]; }
  const RegionLayout *FindRegion(std::string_view name) const;
  // The region whose name is nearest to a mistyped one; empty when none is near.
  std::string_view NearestRegion(std::string_view name) const;

  const std::vector<TableLayout> &tables() const { return tables_; }  // in order of id
  const std::vector<RegionLayout> &regions() const { return regions_; }

 private:
  friend class LayoutReader;

  std::vector<TableLayout> tables_;
  std::vector<RegionLayout> regions_;
  std::vector<uint32_t> byName_;  // ids, sorted by short name
};

// The files embedded at build time.
std::vector<LayoutText> EmbeddedLayouts();

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_H_
