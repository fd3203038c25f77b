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

namespace qdt::host {

struct Arena::Impl {
  ~Impl();

  // Maps the file at `base`; false with errno when that is not possible. `flags` are MAP_SHARED or
  // MAP_PRIVATE, `protection` is that of the whole mapping.
  bool Map(uint64_t base, uint64_t size, int protection, int flags);

  ArenaState State() const;
  void SetState(ArenaState state);
  char *Base() const { return reinterpret_cast<char *>(header); }
  // One for each table; the entries of the region directory follow them.
  const tbm::TableShape *Shapes() const {
    return reinterpret_cast<const tbm::TableShape *>(Base() + header->directoryOffset);
  }

  std::string path;       // where clients find the arena
  std::string buildPath;  // where it is being built; empty once it is published or given up
  ArenaFile file;
  ArenaHeader *header = nullptr;
  uint64_t size = 0;
  pid_t owner = 0;        // the engine's process; 0 in clients
  bool writable = false;  // Arena::Writable
};

// Sum over the header as ArenaHeader::headerSum holds it.
uint64_t HeaderSum(const ArenaHeader &header);

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_IMPL_H_
