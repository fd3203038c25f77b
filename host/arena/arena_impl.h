#ifndef HOST_ARENA_ARENA_IMPL_H_
#define HOST_ARENA_ARENA_IMPL_H_

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/arena/arena_file.h"
#include "host/arena/arena_layout.h"
#include "host/arena/table_layout.h"
#include "host/base/directory.h"

namespace qdt::host {

struct Arena::Impl {
  ~Impl();

  // Maps the file at `base`; false with errno when that is not possible. `flags` are MAP_SHARED or
  // MAP_PRIVATE, `protection` is that of the whole mapping.
  bool Map(uint64_t base, uint64_t size, int protection, int flags);
  // The same at whatever address is free, to be read.
  bool MapAnywhere(uint64_t size, int flags);
  // Makes of the engine's bytes, mapped at the base to be read, what a client works on: records of its own
  // there, the engine's elsewhere, and the tail `shared` with all others or its own. False with errno.
  bool SplitForClient(bool shared);
  // Where the first table begins: what stands before is written by all parts of the engine.
  uint64_t FixedEnd() const { return firstTable; }
  // The records' part of the file.
  uint64_t RecordBytes() const { return header->tailOffset - header->recordsOffset; }
  bool Retake(uint64_t offset, uint64_t bytes, int flags);
  // Lets a client that may do so write to the tail. Not done before something is about to be written: most
  // queries look at tables alone.
  void OpenTail();

  ArenaState State() const;
  void SetState(ArenaState state);
  char *Base() const { return reinterpret_cast<char *>(header); }
  // One for each table; the entries of the region directory follow them.
  const tbm::TableShape *Shapes() const {
    return reinterpret_cast<const tbm::TableShape *>(Base() + header->directoryOffset);
  }

  std::string path;       // where clients find the arena
  Directory directory;    // of the path, in the engine
  std::string buildName;  // under which it is built there; empty once it is published or given up
  ArenaFile file;
  ArenaHeader *header = nullptr;
  uint64_t size = 0;
  uint64_t firstTable = 0;
  char *live = nullptr;  // the records as the engine has them, in a client
  Arena::Role role = Arena::Role::kSnapshot;
  pid_t owner = 0;        // the engine's process; 0 in clients
  bool writable = false;  // Arena::Writable
  bool copies = false;    // Arena::NoteCopies
  std::atomic<bool> tailIsClosed = false;
};

// Sum over the header as ArenaHeader::headerSum holds it.
uint64_t HeaderSum(const ArenaHeader &header);

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_IMPL_H_
