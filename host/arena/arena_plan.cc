#include "host/arena/arena_plan.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "host/base/mix.h"
#include "platform/tbm.h"

namespace qdt::host {

namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kMaxSize = uint64_t{1} << 36;
constexpr uint32_t kMaxRecordSize = 1 << 20;
constexpr uint32_t kMaxCapacity = 1 << 24;

// One store changes an aging time, and a record's serial stands in one page with it.
template <typename Refuse>
void CheckAging(const TableSpec &spec, const Refuse &refuse) {
  if (!spec.ClientWritable()) return;
  if (!std::has_single_bit(spec.agingSize) || spec.agingSize > tbm::kWord ||
      spec.agingOffset % spec.agingSize != 0) {
    refuse(
        "an aging time that clients may set must be a word of 1, 2, 4 or 8 bytes at a multiple of its size");
  }
  if (spec.agingOffset + spec.agingSize > std::min<uint64_t>(spec.recordSize, kPage - sizeof(tbm::Slot))) {
    refuse("the aging time that clients may set lies outside its record or beyond its first " +
           std::to_string(kPage - sizeof(tbm::Slot)) + " bytes");
  }
}

// Where clients may write no page ends between a record's serial and its aging time.
uint32_t SlotSize(const TableSpec &spec) {
  const auto size = static_cast<uint32_t>(sizeof(tbm::Slot) + tbm::RoundUpToWord(spec.StoredSize()));
  return spec.ClientWritable() ? std::bit_ceil(size) : size;
}

void CheckTable(const TableSpec &spec, uint32_t id) {
  const auto refuse = [&](const std::string &what) {
    throw HostError("table " + std::to_string(id) + " (" + std::string(spec.name) + "): " + what);
  };
  if (spec.id != id) refuse("stands in the place of table " + std::to_string(id));
  if (spec.name.find('\0') != spec.name.npos) refuse("its name contains a NUL");
  if (spec.dataSize == 0) return;
  if (spec.keySize == 0 || spec.keySize > tbm::kMaxKeySize) {
    refuse("its key must have 1 to " + std::to_string(tbm::kMaxKeySize) + " bytes");
  }
  if (spec.groupKeySize % tbm::kWord != 0 || spec.groupKeySize >= spec.keySize) {
    refuse("the key of its groups must be whole words at its keys' beginning");
  }
  if (spec.recordSize == 0 || spec.recordSize > kMaxRecordSize || spec.searchOffset >= spec.recordSize) {
    refuse("its record must have 1 to " + std::to_string(kMaxRecordSize) +
           " bytes and hold its search offset");
  }
  if (spec.attachedSize > kMaxRecordSize || (spec.attachedSize != 0 && spec.recordSize % tbm::kWord != 0)) {
    refuse("what is attached to a record must stand at a whole word and have at most " +
           std::to_string(kMaxRecordSize) + " bytes");
  }
  if (spec.capacity == 0 || spec.capacity > kMaxCapacity) {
    refuse("its capacity must be 1 to " + std::to_string(kMaxCapacity));
  }
  CheckAging(spec, refuse);
}

}  // namespace

PlanLayout::PlanLayout(const ArenaPlan &plan) {
  if (plan.tables.size() != kTableCount) throw HostError("an arena has exactly 109 tables");
  if (plan.regions.size() > kMaxRegions) throw HostError("an arena has at most 1024 regions");
  if (plan.socketPath.size() >= kSocketPathRoom)
    throw HostError("the socket path is too long: " + plan.socketPath);
  for (const TableSpec &spec : plan.tables) AddTable(spec);
  for (const RegionSpec &spec : plan.regions) AddRegion(spec);
  std::memcpy(header_.magic, kArenaMagic, sizeof(kArenaMagic));
  header_.version = kArenaVersion;
  header_.byteOrder = kByteOrderMark;
  header_.pointerSize = sizeof(void *);
  header_.headerSize = sizeof(ArenaHeader);
  header_.tableCount = kTableCount;
  header_.regionCount = static_cast<uint32_t>(regions_.size());
  std::memcpy(header_.socketPath, plan.socketPath.data(), plan.socketPath.size());
  PlaceDirectory();
  PlaceTables();
}

void PlanLayout::AddTable(const TableSpec &spec) {
  CheckTable(spec, static_cast<uint32_t>(shapes_.size()));
  tbm::TableShape shape = {};
  shape.nameOffset = static_cast<uint32_t>(names_.size());  // made absolute when the names have their place
  names_ += spec.name;
  names_ += '\0';
  if (spec.dataSize != 0) {
    shape.keySize = spec.keySize;
    shape.dataSize = spec.dataSize;
    shape.recordSize = spec.recordSize;
    shape.searchOffset = spec.searchOffset;
    shape.capacity = spec.capacity;
    shape.groupRuleSpec = spec.groupRuleSpec;
    shape.groupKeySize = spec.groupKeySize;
    shape.lookup = static_cast<uint8_t>(spec.lookup);
    shape.enabled = spec.enabled;
    shape.agingSize = spec.agingSize;
    shape.agingOffset = spec.agingOffset;
    shape.headSize = tbm::HeadSize(spec.keySize);
    shape.slotSize = SlotSize(spec);
    shape.logRoom = tbm::LogRoom(spec.capacity);
    shape.attachedSize = spec.attachedSize;
    shape.nodeCount = spec.id == kFlowPartitionTable ? spec.capacity : 0;
    shape.bucketCount = std::bit_ceil(spec.capacity);
    if (kPrefixAddressOffset + tbm::PrefixAddressSize(shape) > shape.keySize &&
        tbm::PrefixAddressSize(shape) != 0) {
      throw HostError("table " + std::to_string(spec.id) + " (" + std::string(spec.name) +
                      "): its key is too short for a route");
    }
  }
  shapes_.push_back(shape);
}

void PlanLayout::AddRegion(const RegionSpec &spec) {
  if (spec.name.empty() || spec.name.size() >= kRegionNameRoom || spec.size == 0) {
    throw HostError("region \"" + std::string(spec.name) +
                    "\" needs a name of 1 to 63 characters and a size");
  }
  const auto same = [&](const RegionEntry &other) { return spec.name == other.name; };
  if (std::any_of(regions_.begin(), regions_.end(), same))
    throw HostError("two regions are named " + std::string(spec.name));
  RegionEntry region = {};
  std::memcpy(region.name, spec.name.data(), spec.name.size());
  region.size = spec.size;
  region.engineOnly = spec.clientWritable ? 0 : 1;
  regions_.push_back(region);
}

uint64_t PlanLayout::Take(uint64_t size, uint64_t alignment) {
  const uint64_t place = (end_ + alignment - 1) / alignment * alignment;
  end_ = place + size;
  return place;
}

void PlanLayout::PlaceDirectory() {
  const uint64_t tables = shapes_.size() * sizeof(tbm::TableShape);
  const uint64_t regions = regions_.size() * sizeof(RegionEntry);
  end_ = sizeof(ArenaHeader);
  header_.directorySize = tables + regions + names_.size();
  header_.directoryOffset = Take(header_.directorySize, 8);
  for (tbm::TableShape &shape : shapes_) {
    shape.nameOffset += static_cast<uint32_t>(header_.directoryOffset + tables + regions);
  }
  header_.infoOffset = Take(sizeof(tbm::InfoArea), kPage);
  header_.stateOffset = Take(shapes_.size() * sizeof(tbm::TableState), alignof(tbm::TableState));
  PlaceRegions(true);
  fixedEnd_ = end_;
}

void PlanLayout::PlaceRegions(bool engineOnly) {
  for (RegionEntry &region : regions_) {
    if ((region.engineOnly != 0) == engineOnly) region.offset = Take(region.size, 64);
  }
}

// First what readers follow, then the records, of which clients make copies, and at the end what clients may
// write: the regions, then the requests of the tables that take any.
void PlanLayout::PlaceTables() {
  for (tbm::TableShape &shape : shapes_) {
    if (shape.dataSize == 0) continue;
    shape.indexOffset = Take(tbm::IndexSize(shape), kPage);
    shape.headsOffset = Take(uint64_t{shape.headSize} * shape.capacity, 64);
    shape.logOffset = Take(uint64_t{shape.logRoom} * 2 * sizeof(tbm::LogEntry), 64);
    if (tbm::RoutesSize(shape) != 0) shape.routesOffset = Take(tbm::RoutesSize(shape), kPage);
  }
  header_.recordsOffset = Take(0, kMapAlignment);
  for (tbm::TableShape &shape : shapes_) {
    if (shape.dataSize != 0) shape.slabOffset = Take(uint64_t{shape.slotSize} * shape.capacity, kPage);
  }
  header_.tailOffset = Take(0, kMapAlignment);
  PlaceRegions(false);
  regionsEnd_ = end_;
  for (tbm::TableShape &shape : shapes_) {
    if (shape.agingSize != 0) shape.requestOffset = Take(shape.capacity * sizeof(uint64_t), kPage);
  }
  header_.totalSize = Take(0, kMapAlignment);
  if (header_.totalSize > kMaxSize) throw HostError("the tables together are too large for an arena");
  header_.fixedBytes = FixedEnd() + regionsEnd_ - header_.tailOffset;
}

void PlanLayout::Write(char *base) const {
  char *at = base + header_.directoryOffset;
  const auto put = [&at](const void *bytes, size_t size) {
    if (size != 0) std::memcpy(at, bytes, size);
    at += size;
  };
  put(shapes_.data(), shapes_.size() * sizeof(tbm::TableShape));
  put(regions_.data(), regions_.size() * sizeof(RegionEntry));
  put(names_.data(), names_.size());
  WriteDescriptors(base);
  auto *header = reinterpret_cast<ArenaHeader *>(base);
  *header = header_;
  header->directorySum = MixBytes(base + header_.directoryOffset, header_.directorySize);
}

void PlanLayout::WriteDescriptors(char *base) const {
  auto *area = reinterpret_cast<tbm::InfoArea *>(base + header_.infoOffset);
  TbmTableDesc *descriptor = area->tables;
  area->info.tableCount = kTableCount;
  area->info.tables = descriptor;
  area->serverMaps.table = kServerMapTable;
  area->flowPartition.nodeCount = shapes_[kFlowPartitionTable].nodeCount;
  if (shapes_[kServerMapTable].dataSize != 0) area->info.serverMaps = &area->serverMaps;
  if (shapes_[kFlowPartitionTable].dataSize != 0) area->info.flowPartition = &area->flowPartition;
  for (const tbm::TableShape &shape : shapes_) {
    descriptor->keySize = shape.keySize;
    descriptor->dataSize = shape.dataSize;
    descriptor->name = base + shape.nameOffset;
    descriptor->spec = shape.capacity;
    descriptor->groupRuleSpec = shape.groupRuleSpec;
    descriptor->enable = shape.enabled;
    ++descriptor;
  }
}

}  // namespace qdt::host
