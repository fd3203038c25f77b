#ifndef HOST_ARENA_ARENA_FILE_H_
#define HOST_ARENA_ARENA_FILE_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/arena/arena_layout.h"
#include "host/base/directory.h"
#include "host/base/fd.h"

namespace qdt::host {

// An open file under an arena's path, and the engine's lock on it. The lock belongs to the open file
// description: the kernel drops it with the last descriptor, however the process ends.
class ArenaFile {
 public:
  ArenaFile() = default;
  // Opens `path`; check ok(), errno tells why not. Never waits for the other side of a pipe.
  ArenaFile(const std::string &path, int flags);
  // The same for a name in a directory. A file that this makes is its owner's alone.
  ArenaFile(const Directory &directory, const std::string &name, int flags);

  bool ok() const { return fd_.ok(); }
  int get() const { return fd_.get(); }

  // Takes the engine's lock; false when another process holds it (or locks do not work here: errno).
  bool Lock() const;
  // Whether an engine holds the lock, asked without taking it.
  bool Locked() const;

  struct stat Stat() const;
  // Whether `path` names this very file now.
  bool IsAt(const std::string &path) const;
  bool IsAt(const Directory &directory, const std::string &name) const;

  // Reads the header's bytes and returns how many there are, at most sizeof(ArenaHeader).
  size_t ReadHeader(ArenaHeader *header) const;

 private:
  UniqueFd fd_;
};

// Backs a part of the file with storage: 0 or an errno.
int ReserveStorage(int fd, off_t offset, off_t size);

// Whether this process may make a file of `size` bytes (beyond its limit it would get a signal).
bool FitsFileSizeLimit(uint64_t size);

// The text of an errno.
std::string SystemText(int error);

}  // namespace qdt::host

#endif  // HOST_ARENA_ARENA_FILE_H_
