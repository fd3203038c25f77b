#ifndef HOST_SCENARIO_SCENARIO_H_
#define HOST_SCENARIO_SCENARIO_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"
#include "host/layout/yaml_tree.h"
#include "host/scenario/mistakes.h"
#include "host/scenario/nat_policy.h"
#include "host/scenario/statistics_section.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// A field of an entry that holds the address of another entry, known by that entry's place in the scenario.
struct PlannedReference {
  uint32_t entry = 0;   // index among the entries of its own table
  FieldRef field;       // where the address goes
  uint32_t table = 0;   // id of the table that it leads to
  uint32_t target = 0;  // index among that table's entries
  bool stale = false;   // the address that the target had before it was replaced; of kNoTarget any free place
  uint32_t inside = 0;  // bytes from the target's record to what is meant in it

  static constexpr uint32_t kNoTarget = ~0u;
};

// The entries that a scenario puts into one table, in their order.
struct PlannedTable {
  const TableLayout *layout = nullptr;
  std::vector<uint8_t> keys;     // spec.keySize bytes each
  std::vector<uint8_t> records;  // spec.StoredSize() bytes each, references still 0
  std::vector<PlannedReference> references;

  uint32_t count() const { return static_cast<uint32_t>(keys.size() / layout->spec.keySize); }
  std::span<const uint8_t> key(uint32_t entry) const {
    return std::span(keys).subspan(size_t{entry} * layout->spec.keySize, layout->spec.keySize);
  }
  std::span<const uint8_t> record(uint32_t entry) const {
    return std::span(records).subspan(size_t{entry} * layout->spec.StoredSize(), layout->spec.StoredSize());
  }
};

// The contents that a scenario gives to one region.
struct PlannedRegion {
  const RegionLayout *layout = nullptr;
  std::vector<uint8_t> bytes;  // spec.size
};

// What the lab engine fills its arena with: a YAML file, and those that it includes, that name entries by
// their fields (docs/scenarios.md).
//
// Loading reads and checks the whole file; filling writes the bytes and cannot meet a mistake of the file any
// more.
class Scenario {
 public:
  // A file above this size is refused before it is read.
  static constexpr uint64_t kMaxFileSize = YamlTree::kMaxFileSize;

  // Reads the file at `path`. Throws HostError with one line "FILE:LINE: TABLE.FIELD: what is wrong (how to
  // mend it)". `layout` must outlive the scenario.
  static Scenario Load(const std::string &path, const Layout &layout);

  // The same from a text; `file` is the name that errors carry and that included files are relative to.
  static Scenario FromText(const std::string &file, std::string_view text, const Layout &layout);

  // Reads on behind mistakes, which are noted as the lines that Load would throw, and gives what could be
  // read. When there are none `*warnings` becomes what may be wrong, at most `most` lines of the same form
  // with "warning: " behind the place.
  static Scenario Check(const std::string &path, const Layout &layout, Mistakes *mistakes, size_t most,
                        std::vector<std::string> *warnings);

  // Puts everything into an arena made with layout.Plan() and not yet published. Throws HostError when the
  // file system under the arena is full.
  void Fill(Arena *arena, TableWriter *writer) const;

  const std::vector<PlannedTable> &tables() const { return tables_; }  // in the order of the file
  const std::vector<PlannedRegion> &regions() const { return regions_; }
  const std::vector<NatPolicyRule> &natPolicy() const { return natPolicy_; }
  const std::vector<StatisticPreset> &statistics() const { return statistics_; }
  // Null when the scenario does not name the table.
  const PlannedTable *FindTable(uint32_t id) const;

 private:
  friend class ScenarioReader;

  std::vector<PlannedTable> tables_;
  std::vector<PlannedRegion> regions_;
  std::vector<NatPolicyRule> natPolicy_;
  std::vector<StatisticPreset> statistics_;
};

}  // namespace qdt::host

#endif  // HOST_SCENARIO_SCENARIO_H_
