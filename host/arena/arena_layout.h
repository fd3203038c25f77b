#ifndef HOST_ARENA_ARENA_LAYOUT_H_
#define HOST_ARENA_ARENA_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The bytes of an arena file outside its tables (table_layout.h has those). docs/arena.md draws the
// map. Whoever changes a layout raises kArenaVersion.
namespace qdt::host {

constexpr char kArenaMagic[8] = {'Q', 'D', 'T', 'A', 'R', 'E', 'N', 'A'};
constexpr uint32_t kArenaVersion = 6;
constexpr uint32_t kByteOrderMark = 0x01020304;
constexpr uint32_t kByteOrderSwapped = 0x04030201;

// The life of an arena. Words that differ in every byte, so that a damaged one is no other state.
enum class ArenaState : uint32_t {
  kBuilding = 0x31415926,  // the engine is still filling it; never seen at a published path
  kReady = 0x72656164,     // published
  kEnded = 0x0e0f1a1b,     // the engine has taken it back
};

constexpr uint32_t kMaxRegions = 1024;
// Of the mapping's base and of the parts that are mapped in ways of their own: the largest page size in use.
constexpr uint64_t kMapAlignment = 64 << 10;
constexpr size_t kSocketPathRoom = 256;
constexpr size_t kArenaPathRoom = 256;
constexpr size_t kProgramRoom = 24;
constexpr size_t kRegionNameRoom = 64;

// First bytes of the file. Offsets count from the file's start. Everything is constant from publishing on,
// save `state`; headerSum covers the whole header with `state` and `headerSum` taken as zero.
struct ArenaHeader {
  char magic[8];
  uint32_t version;
  uint32_t byteOrder;
  uint32_t pointerSize;
  uint32_t headerSize;
  uint64_t base;       // address of the mapping in every process
  uint64_t totalSize;  // of the file and of the mapping
  uint32_t tableCount;
  uint32_t regionCount;
  uint64_t directoryOffset;  // tables, regions, names: constant, covered by directorySum
  uint64_t directorySize;
  uint64_t directorySum;
  uint64_t infoOffset;     // tbm::InfoArea: TbmGlobalInfo, the table descriptors and more
  uint64_t stateOffset;    // TableState of each table
  uint64_t recordsOffset;  // from here to the tail: the tables' records, and nothing else
  uint64_t tailOffset;     // from here to the end clients may write
  uint64_t fixedBytes;     // storage reserved when the arena was made
  uint64_t enginePid;
  uint64_t startTime;   // nanoseconds since 1970
  uint64_t identity;    // random; tells two arenas of one path apart
  uint64_t hashKey[2];  // random; nobody can choose keys that share a bucket without it
  char socketPath[kSocketPathRoom];
  char arenaPath[kArenaPathRoom];  // where the engine has published it; empty when that is too long
  // Of a copy, when it was made; 0 in an engine's own file.
  uint64_t savedTime;          // nanoseconds since 1970
  uint64_t savedUptime;        // the same moment in seconds of the monotonic clock
  char program[kProgramRoom];  // of the program that has made the file
  uint64_t savedTimer;         // the same moment in milliseconds of the processor's timer
  uint64_t headerSum;
  uint32_t state;  // ArenaState, read and written atomically
  uint32_t reserved;
};
static_assert(sizeof(ArenaHeader) == 728);
static_assert(offsetof(ArenaHeader, base) == 24 && offsetof(ArenaHeader, directoryOffset) == 48);
static_assert(offsetof(ArenaHeader, enginePid) == 112 && offsetof(ArenaHeader, socketPath) == 152);
static_assert(offsetof(ArenaHeader, arenaPath) == 408 && offsetof(ArenaHeader, savedTime) == 664);
static_assert(offsetof(ArenaHeader, headerSum) == 712 && offsetof(ArenaHeader, state) == 720);

// One region of the region directory.
struct RegionEntry {
  char name[kRegionNameRoom];
  uint64_t offset;
  uint32_t size;
  uint32_t engineOnly;  // 1: stands before the part that clients may write
};
static_assert(sizeof(RegionEntry) == 80);

// Two arenas of one plan have the same bytes here, on every processor.
static_assert(std::has_unique_object_representations_v<ArenaHeader>);
static_assert(std::has_unique_object_representations_v<RegionEntry>);

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_LAYOUT_H_
