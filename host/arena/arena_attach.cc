#include <fcntl.h>
#include <sys/mman.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/arena/arena_impl.h"
#include "host/arena/table_layout.h"
#include "host/base/mix.h"
#include "host/base/trust.h"
#include "platform/tbm.h"

// Attaching: every byte of the header and of the directories is checked before anything follows an offset in
// it.
namespace qdt::host {

namespace {

constexpr char kLiveHint[] = " (start nqed, or name its arena with --arena)";
constexpr char kOtherHint[] = " (name another file)";
constexpr char kAgainHint[] = " (let nqed write it again)";

using Kind = ArenaError::Kind;

bool IsLive(Arena::Access access) { return access == Arena::Access::kLive; }

// How to come by a file that is whole. No engine writes a copy.
std::string AgainHint(Arena::Access access) { return IsLive(access) ? kAgainHint : kOtherHint; }

// `shared` becomes whether the file may be written, which it is to be where `writing`.
ArenaFile Open(const std::string &path, Arena::Access access, bool writing, bool *shared) {
  ArenaFile file;
  if (writing) file = ArenaFile(path, O_RDWR);
  *shared = file.ok();
  // Tables may be read by who must not write to the regions.
  if (!file.ok()) file = ArenaFile(path, O_RDONLY);
  if (file.ok()) return file;
  if (errno == ENOENT || errno == ENOTDIR) {
    if (IsLive(access))
      throw ArenaError(Kind::kMissing, "no engine runs: there is no arena at " + path + kLiveHint);
    throw ArenaError(Kind::kMissing,
                     "there is no snapshot at " + path + " (write one with nqecli snapshot FILE)");
  }
  if (errno == EACCES || errno == EPERM) {
    throw ArenaError(Kind::kUnreadable,
                     "no permission to read the arena at " + path + " (ask its owner, or run as that user)");
  }
  throw ArenaError(Kind::kUnreadable,
                   "cannot open the arena at " + path + ": " + SystemText(errno) + kOtherHint);
}

bool SizesFit(const ArenaHeader &header) {
  const uint64_t total = header.totalSize;
  const uint64_t directory =
      header.tableCount * sizeof(tbm::TableShape) + header.regionCount * sizeof(RegionEntry);
  const uint64_t info = sizeof(tbm::InfoArea);
  const auto holds = [total](uint64_t offset, uint64_t size) {
    return offset % 8 == 0 && offset <= total && size <= total - offset;
  };
  return header.tableCount == kTableCount && header.regionCount <= kMaxRegions && header.base != 0 &&
         header.base % kMapAlignment == 0 && holds(header.directoryOffset, header.directorySize) &&
         directory < header.directorySize && holds(header.infoOffset, info) && holds(header.tailOffset, 0) &&
         header.recordsOffset <= header.tailOffset && header.recordsOffset % kMapAlignment == 0 &&
         header.tailOffset % kMapAlignment == 0 &&
         holds(header.stateOffset, header.tableCount * sizeof(tbm::TableState)) &&
         header.socketPath[kSocketPathRoom - 1] == 0 && header.arenaPath[kArenaPathRoom - 1] == 0 &&
         header.program[kProgramRoom - 1] == 0;
}

bool StateIsKnown(uint32_t state) {
  return state == static_cast<uint32_t>(ArenaState::kBuilding) ||
         state == static_cast<uint32_t>(ArenaState::kReady) ||
         state == static_cast<uint32_t>(ArenaState::kEnded);
}

// Reads the header from the file, before anything is mapped.
ArenaHeader ReadHeader(const ArenaFile &file, const std::string &path, Arena::Access access) {
  const struct stat info = file.Stat();
  // A copy is named by who wants to see it, and cannot change any more.
  if (IsLive(access)) RequireTrusted(info.st_uid, "the arena at " + path);
  ArenaHeader header = {};
  const size_t got = S_ISREG(info.st_mode) ? file.ReadHeader(&header) : 0;
  if (got < sizeof(kArenaMagic) || std::memcmp(header.magic, kArenaMagic, sizeof(kArenaMagic)) != 0) {
    throw ArenaError(Kind::kDamaged, path + " is not an arena" + kOtherHint);
  }
  if (header.byteOrder == kByteOrderSwapped) {
    throw ArenaError(
        Kind::kVersion,
        "the arena at " + path + " is in the other byte order (read it on a machine like its engine's)");
  }
  if (got >= offsetof(ArenaHeader, byteOrder) && header.version != kArenaVersion) {
    throw ArenaError(Kind::kVersion, "the arena at " + path + " was written by version " +
                                         std::to_string(header.version) + ", this program reads version " +
                                         std::to_string(kArenaVersion) +
                                         " (use tools and engine of one version)");
  }
  if (got < sizeof(header)) {
    throw ArenaError(Kind::kDamaged, "the arena at " + path +
                                         " is truncated: " + std::to_string(info.st_size) +
                                         " bytes are less than its header" + AgainHint(access));
  }
  if (header.byteOrder != kByteOrderMark || header.pointerSize != sizeof(void *) ||
      header.headerSize != sizeof(header) || header.headerSum != HeaderSum(header) || !SizesFit(header) ||
      !StateIsKnown(header.state)) {
    throw ArenaError(Kind::kDamaged, "the arena at " + path + " has a damaged header" + AgainHint(access));
  }
  const auto size = static_cast<uint64_t>(info.st_size);
  if (size != header.totalSize) {
    throw ArenaError(Kind::kDamaged, "the arena at " + path +
                                         (size < header.totalSize ? " is truncated: " : " is too long: ") +
                                         std::to_string(size) + " bytes instead of " +
                                         std::to_string(header.totalSize) + AgainHint(access));
  }
  return header;
}

// Whether everything that the constant directories say about the file is possible.
class DirectoryCheck {
 public:
  // `header` is that of the mapping.
  explicit DirectoryCheck(ArenaHeader *header)
      : header_(*header),
        shift_(reinterpret_cast<char *>(header) - reinterpret_cast<char *>(header->base)),
        base_(reinterpret_cast<char *>(header)),
        shapes_(reinterpret_cast<tbm::TableShape *>(base_ + header->directoryOffset)),
        regions_(reinterpret_cast<const RegionEntry *>(shapes_ + header->tableCount)) {}

  bool TablesAreGood() const {
    const char *directory = base_ + header_.directoryOffset;
    if (MixBytes(directory, header_.directorySize) != header_.directorySum) return false;
    if (directory[header_.directorySize - 1] != 0) return false;  // the last name ends
    for (uint32_t i = 0; i < header_.tableCount; ++i) {
      if (!ShapeIsGood(shapes_[i])) return false;
    }
    for (uint32_t i = 0; i < header_.regionCount; ++i) {
      const RegionEntry &region = regions_[i];
      if (region.name[kRegionNameRoom - 1] != 0 || !Holds(region.offset, region.size)) return false;
    }
    return true;
  }

  // The table manager's own description of the tables, which programs read in place.
  bool InfoIsGood() const {
    const auto *area = reinterpret_cast<const tbm::InfoArea *>(base_ + header_.infoOffset);
    const TbmTableDesc *descriptors = area->tables;
    if (area->info.tableCount != header_.tableCount || Here(area->info.tables) != descriptors) return false;
    for (uint32_t i = 0; i < header_.tableCount; ++i) {
      const TbmTableDesc &is = descriptors[i];
      const tbm::TableShape &should = shapes_[i];
      if (Here(is.name) != base_ + should.nameOffset || is.keySize != should.keySize ||
          is.dataSize != should.dataSize || is.spec != should.capacity ||
          is.groupRuleSpec != should.groupRuleSpec) {
        return false;
      }
    }
    return SessionPartsAreGood(*area);
  }

 private:
  // Where the byte at an address of the engine is mapped in this process. A wild address stays one: it is
  // only compared.
  const void *Here(const void *address) const {
    return reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(address) + shift_);
  }

  bool Holds(uint64_t offset, uint64_t size) const {
    return offset <= header_.totalSize && size <= header_.totalSize - offset;
  }

  // The engine may be giving the flow partition its nodes right now.
  bool SessionPartsAreGood(const tbm::InfoArea &area) const {
    const tbm::TableShape &sessions = shapes_[kFlowPartitionTable];
    const void *nodes = base_ + sessions.indexOffset + tbm::NodesOffset(sessions);
    const TbmFlowPartition &partition = area.flowPartition;
    const auto leadsTo = [&](const void *pointer, const void *place, bool defined) {
      return defined ? Here(pointer) == place : pointer == nullptr;
    };
    return leadsTo(area.info.serverMaps, &area.serverMaps, shapes_[kServerMapTable].dataSize != 0) &&
           leadsTo(area.info.flowPartition, &partition, sessions.dataSize != 0) &&
           partition.nodeCount == sessions.nodeCount &&
           (partition.nodes == nullptr || leadsTo(partition.nodes, nodes, sessions.nodeCount != 0));
  }

  bool ShapeIsGood(const tbm::TableShape &shape) const {
    const uint64_t names = header_.directoryOffset + header_.directorySize;
    if (shape.nameOffset < header_.directoryOffset || shape.nameOffset >= names) return false;
    if (shape.dataSize == 0) return true;
    return shape.keySize <= tbm::kMaxKeySize && shape.groupKeySize <= shape.keySize &&
           shape.recordSize != 0 && shape.searchOffset < shape.recordSize &&
           shape.headSize == tbm::HeadSize(shape.keySize) &&
           sizeof(tbm::Slot) + tbm::StoredSize(shape) <= shape.slotSize &&
           shape.nodeCount <= shape.capacity && shape.slotSize % 8 == 0 &&
           std::has_single_bit(shape.bucketCount) && shape.lookup <= static_cast<uint8_t>(Lookup::kPrefix6) &&
           (tbm::PrefixAddressSize(shape) == 0 ||
            kPrefixAddressOffset + tbm::PrefixAddressSize(shape) <= shape.keySize) &&
           shape.logRoom == tbm::LogRoom(shape.capacity) && AgingIsGood(shape) && PlacesAreGood(shape);
  }

  static bool AgingIsGood(const tbm::TableShape &shape) {
    if (shape.agingSize == 0) return true;
    return std::has_single_bit(shape.agingSize) && shape.agingSize <= tbm::kWord &&
           shape.agingOffset % shape.agingSize == 0 && shape.agingOffset < shape.recordSize &&
           shape.agingSize <= shape.recordSize - shape.agingOffset;
  }

  // What only the engine writes stands before the records, records before the tail, requests in it.
  bool PlacesAreGood(const tbm::TableShape &shape) const {
    const auto holds = [](uint64_t begin, uint64_t end, uint64_t offset, uint64_t size) {
      return offset % 8 == 0 && offset >= begin && offset <= end && size <= end - offset;
    };
    const uint64_t records = header_.recordsOffset;
    const uint64_t tail = header_.tailOffset;
    return holds(0, records, shape.indexOffset, tbm::IndexSize(shape)) &&
           holds(0, records, shape.headsOffset, uint64_t{shape.headSize} * shape.capacity) &&
           holds(0, records, shape.logOffset, uint64_t{shape.logRoom} * 2 * sizeof(tbm::LogEntry)) &&
           (tbm::RoutesSize(shape) == 0 || holds(0, records, shape.routesOffset, tbm::RoutesSize(shape))) &&
           holds(records, tail, shape.slabOffset, uint64_t{shape.slotSize} * shape.capacity) &&
           (shape.agingSize == 0 ||
            holds(tail, header_.totalSize, shape.requestOffset, shape.capacity * sizeof(uint64_t)));
  }

  const ArenaHeader &header_;
  const ptrdiff_t shift_;
  char *const base_;
  const tbm::TableShape *const shapes_;
  const RegionEntry *const regions_;
};

// The file and its header, which is good as far as the file alone tells.
struct OpenedArena {
  ArenaFile file;
  ArenaHeader header;
  bool shared;
};

OpenedArena OpenArena(const std::string &path, Arena::Access access, bool writing) {
  OpenedArena opened;
  opened.file = Open(path, access, writing, &opened.shared);
  opened.header = ReadHeader(opened.file, path, access);
  if (opened.header.state == static_cast<uint32_t>(ArenaState::kBuilding)) {
    throw ArenaError(Kind::kDamaged,
                     "the arena at " + path + " is not finished (wait until nqed has published it)");
  }
  if (IsLive(access) && !opened.file.Locked()) {
    throw ArenaError(
        Kind::kGone,
        "the engine is gone: the arena at " + path +
            " was left by a process that has ended (start nqed; to look into what it left use --snapshot " +
            path + ")");
  }
  return opened;
}

void CheckMapped(ArenaHeader *mapped, const ArenaHeader &header, const std::string &path,
                 Arena::Access access) {
  const DirectoryCheck check(mapped);
  if (std::memcmp(mapped, &header, offsetof(ArenaHeader, state)) != 0 || !check.TablesAreGood()) {
    throw ArenaError(Kind::kDamaged,
                     "the arena at " + path + " has a damaged table directory" + AgainHint(access));
  }
  if (!check.InfoIsGood()) {
    throw ArenaError(Kind::kDamaged,
                     "the arena at " + path + " has damaged table descriptors" + AgainHint(access));
  }
}

}  // namespace

std::unique_ptr<Arena> Arena::Attach(const std::string &path, Access access) {
  auto impl = std::make_unique<Impl>();
  OpenedArena opened = OpenArena(path, access, IsLive(access));
  const ArenaHeader &header = opened.header;
  impl->path = path;
  impl->file = std::move(opened.file);
  impl->writable = opened.shared || !IsLive(access);
  impl->role = IsLive(access) ? Role::kClient : Role::kSnapshot;
  if (!impl->Map(header.base, header.totalSize, PROT_READ, IsLive(access) ? MAP_SHARED : MAP_PRIVATE)) {
    char address[32];
    std::snprintf(address, sizeof(address), "0x%llx", static_cast<unsigned long long>(header.base));
    throw HostError("cannot map the arena at " + path + " at its address " + address + ": " +
                    (errno == EEXIST ? "in use in this process (start the tool again)" : SystemText(errno)));
  }
  CheckMapped(impl->header, header, path, access);
  // What is private takes writes as well, so that nothing faults; they stay in this process.
  const bool ready = IsLive(access)
                         ? impl->SplitForClient(opened.shared)
                         : mprotect(impl->Base() + header.recordsOffset,
                                    header.totalSize - header.recordsOffset, PROT_READ | PROT_WRITE) == 0;
  if (!ready) {
    throw HostError("cannot map the arena at " + path + ": " + SystemText(errno));
  }
  return std::unique_ptr<Arena>(new Arena(std::move(impl)));
}

bool Arena::IsHeld(const std::string &path) {
  const ArenaFile file(path, O_RDONLY);
  return file.ok() && file.Locked();
}

std::unique_ptr<Arena> Arena::Look(const std::string &path, Access access) {
  auto impl = std::make_unique<Impl>();
  OpenedArena opened = OpenArena(path, access, false);
  impl->path = path;
  impl->file = std::move(opened.file);
  impl->role = Role::kReader;
  if (!impl->MapAnywhere(opened.header.totalSize, IsLive(access) ? MAP_SHARED : MAP_PRIVATE)) {
    throw HostError("cannot map the arena at " + path + ": " + SystemText(errno));
  }
  CheckMapped(impl->header, opened.header, path, access);
  return std::unique_ptr<Arena>(new Arena(std::move(impl)));
}

}  // namespace qdt::host
