#ifndef HOST_ARENA_ARENA_H_
#define HOST_ARENA_ARENA_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/arena/table_spec.h"
#include "host/base/host_error.h"

namespace qdt::host {

// One named shared-memory region that the engine publishes (VRX_Smmap finds it by name), zeroed at creation.
struct RegionSpec {
  std::string_view name;  // stays its owner's while a plan is laid out
  uint32_t size = 0;
  bool clientWritable = true;  // false: only the engine may write, a client's store faults
};

// What an engine wants its arena to hold. Everything is laid out when the arena is created; nothing moves
// later.
struct ArenaPlan {
  std::vector<TableSpec> tables;    // one for each of the 109 ids, in order of id
  std::vector<RegionSpec> regions;  // in any order, names unique
  std::string socketPath;           // where the engine listens; clients find the engine through it
};

// Why an arena cannot be read, for who tells one from the other; people read the line.
class ArenaError : public HostError {
 public:
  enum class Kind : uint8_t {
    kMissing,     // there is no such file
    kUnreadable,  // no permission, or not its owner's whom this process believes
    kDamaged,     // no arena at all, truncated, changed or not finished
    kVersion,     // of another version or byte order
    kGone,        // its engine has ended
  };
  ArenaError(Kind kind, const std::string &line) : HostError(line), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

struct ArenaHeader;

constexpr uint64_t kSnapshotPage = 4096;

// The one shared file that carries everything an engine publishes, mapped in every process at the base
// address that its header records, so that records can hold real addresses. See docs/arena.md for the file's
// layout.
//
// In a client the records' part of that mapping is the process's own: who reads tables in place there reads
// copies, which the table manager has made whole and which nobody changes under the reader's eyes. What the
// engine has is mapped a second time (LiveShift).
//
// An Arena object owns the mapping and, in the engine, the lock that says "this engine lives". The kernel
// drops the lock with the process, however it ends. Not thread-safe; one engine thread writes.
class Arena {
 public:
  enum class Access {
    kLive,      // the shared file of a running engine: regions writable, records the process's own
    kSnapshot,  // any arena file, also one without an engine, mapped privately: writes stay in this process
  };

  enum class Role { kEngine, kClient, kSnapshot, kReader };

  // Lays out a new arena beside `path` under a temporary name; nobody sees it until Publish. Throws HostError
  // when the place cannot be written, has too little room, or no base address is free.
  static std::unique_ptr<Arena> Create(const std::string &path, const ArenaPlan &plan);

  // Maps the arena at `path`. Throws HostError when it is missing, not readable, not an arena, of another
  // version or byte order, truncated or damaged, when its base is taken in this process, and for kLive also
  // when no engine holds it ("the engine is gone").
  static std::unique_ptr<Arena> Attach(const std::string &path, Access access);

  // Maps the arena at whatever address is free, to be read only: for those who copy records out and follow no
  // pointer in them, and so may look at many arenas at once. Shows what the engine has. Throws as Attach,
  // what is wrong with the arena as ArenaError.
  static std::unique_ptr<Arena> Look(const std::string &path, Access access);

  // Whether a running engine holds the arena at `path`; false when there is none.
  static bool IsHeld(const std::string &path);

  // The destructor unmaps. An arena created but not published leaves no file behind.
  ~Arena();
  Arena(const Arena &) = delete;
  Arena &operator=(const Arena &) = delete;

  // Throws the HostError that Publish would throw now, so that an engine can refuse before it loads anything.
  static void CheckFree(const std::string &path);

  // Moves the finished arena to its path in one step. Takes the place of a dead engine's arena; throws
  // HostError when a live engine holds the path or when the file there is not an arena (it is left alone).
  void Publish();

  // Marks the arena as ended and removes its file, if the path still names this arena.
  void Retire();

  // Whether the engine that published this arena still runs. False for an arena that it has retired.
  bool EngineAlive() const;

  // Writes a copy of the arena to `fd` (a new, empty regular file), holes kept as holes. The caller sees to
  // it that the writer stands still (the engine calls it between two changes). Throws HostError.
  void CopyTo(int fd) const;

  // Writes into the header of a whole copy when it was made, that is now, and by which program. Throws
  // HostError.
  static void StampCopy(int fd);

  // Copying while the engine works: whoever copies remembers a moment, copies the file, copies again what has
  // changed since, until that is little, and has the engine hand over the rest while it stands still.
  //
  // The engine's: a moment, later than all changes noted so far.
  uint32_t MarkMoment() { return ++moment_; }
  // Pages of kSnapshotPage bytes, by number, that have changed since the moment; those that anybody may
  // change without a word (regions, requests, counts) among them.
  std::vector<uint32_t> ChangedSince(uint32_t moment) const;
  // Writes those pages to `fd` (a new, empty regular file), each at its place. Throws HostError.
  void CopyChanged(uint32_t moment, int fd) const;
  // That the engine changes `size` bytes, not 0, of a table.
  void NoteChange(const void *address, size_t size) {
    const uint64_t offset = reinterpret_cast<uint64_t>(address) - reinterpret_cast<uint64_t>(header_);
    for (uint64_t page = offset / kSnapshotPage; page <= (offset + size - 1) / kSnapshotPage; ++page)
      changed_[page] = moment_;
  }

  const std::string &path() const;
  ArenaHeader *header() const { return header_; }
  const std::string socketPath() const;
  uint32_t enginePid() const;

  Role role() const { return role_; }

  // Whether this process may write to regions and ask for sessions to end: the engine, clients with write
  // permission, and readers of a snapshot (whose writes stay in their process). Where a live arena may only
  // be read, writes do not fault either, but reach nobody: ask first. VRX_Smmap refuses there.
  bool Writable() const;
  // To be called before a client stores into the tail, apart from regions that FindRegion found.
  void OpenTail() const;

  // How far behind a record's address the bytes are mapped that the engine has there: 0 but in a client.
  ptrdiff_t LiveShift() const { return liveShift_; }

  // How far behind its address in the engine a byte is mapped here: 0 but for those who look.
  ptrdiff_t Shift() const;

  // That this process has made copies of records at their addresses, or may have written to some.
  void NoteCopies();
  // Gives them up: the mapping at the base shows what the engine has again. To be called between any two
  // commands, so that what one reads is fresh. Pointers to records that one has got mean nothing to the next.
  void DropCopies();

  // Bytes of storage that the arena occupies so far.
  uint64_t StorageBytes() const;

  // Whether `[address, address + size)` lies inside the mapping: what a pointer found in a record is checked
  // with before the host platform follows it.
  bool Contains(const void *address, size_t size) const;

  // The region, or null. `size` may be null.
  void *FindRegion(std::string_view name, uint32_t *size) const;

  // Backs `[address, address + size)` of the mapping with storage; false when the file system is full. Pages
  // of the arena are reserved before they are touched, so a full disk is an error code and never a signal.
  bool Reserve(void *address, size_t size);

  // The arena that this process works on: what the platform's table and shared-memory functions use. Also
  // sets g_tbmGlobalInfo. Null detaches.
  static void SetCurrent(Arena *arena);
  static Arena *Current() { return current_; }

 private:
  struct Impl;
  explicit Arena(std::unique_ptr<Impl> impl);
  static inline Arena *current_ = nullptr;
  std::unique_ptr<Impl> impl_;
  ArenaHeader *header_;
  ptrdiff_t liveShift_ = 0;
  Role role_;
  uint32_t moment_ = 1;
  std::vector<uint32_t> changed_;  // in the engine, the moment of each page's last change
};

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_H_
