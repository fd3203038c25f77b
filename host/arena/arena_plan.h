#ifndef HOST_ARENA_ARENA_PLAN_H_
#define HOST_ARENA_ARENA_PLAN_H_

#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"
#include "host/arena/table_layout.h"

namespace qdt::host {

// Where everything of a plan stands in the file. Throws HostError for a plan that no arena can hold.
class PlanLayout {
 public:
  explicit PlanLayout(const ArenaPlan &plan);

  // Sizes and offsets; identity, base, sums and state are the creator's.
  const ArenaHeader &header() const { return header_; }
  // End of the part at the file's start that is in use from the beginning.
  uint64_t FixedEnd() const { return fixedEnd_; }
  // End of the regions that clients may write, which stand at the tail's start.
  uint64_t RegionsEnd() const { return regionsEnd_; }

  // Writes header, directories and descriptors to the mapped file at `base`, whose storage is reserved.
  void Write(char *base) const;

 private:
  void AddTable(const TableSpec &spec);
  void AddRegion(const RegionSpec &spec);
  void PlaceDirectory();
  void PlaceTables();
  void PlaceRegions(bool engineOnly);
  uint64_t Take(uint64_t size, uint64_t alignment);
  void WriteDescriptors(char *base) const;

  ArenaHeader header_ = {};
  uint64_t end_ = 0;  // of what has been placed
  uint64_t fixedEnd_ = 0;
  uint64_t regionsEnd_ = 0;
  std::vector<tbm::TableShape> shapes_;
  std::vector<RegionEntry> regions_;
  std::string names_;
};

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_PLAN_H_
