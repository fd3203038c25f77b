#include "host/arena/arena_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qdt::host {

namespace {

struct flock WholeFile(short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

ArenaFile::ArenaFile(const std::string &path, int flags)
    : fd_(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600)) {}

ArenaFile::ArenaFile(const Directory &directory, const std::string &name, int flags)
    : fd_(openat(directory.get(), name.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600)) {}

bool ArenaFile::Lock() const {
  struct flock lock = WholeFile(F_WRLCK);
  return fcntl(get(), F_OFD_SETLK, &lock) == 0;
}

bool ArenaFile::Locked() const {
  // A read lock conflicts with the engine's write lock and with nothing that another client may hold.
  struct flock lock = WholeFile(F_RDLCK);
  return fcntl(get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

struct stat ArenaFile::Stat() const {
  struct stat info = {};
  fstat(get(), &info);
  return info;
}

bool ArenaFile::IsAt(const std::string &path) const {
  struct stat there = {};
  const struct stat here = Stat();
  return stat(path.c_str(), &there) == 0 && there.st_ino == here.st_ino && there.st_dev == here.st_dev;
}

bool ArenaFile::IsAt(const Directory &directory, const std::string &name) const {
  struct stat there = {};
  const struct stat here = Stat();
  return fstatat(directory.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
         there.st_ino == here.st_ino && there.st_dev == here.st_dev;
}

size_t ArenaFile::ReadHeader(ArenaHeader *header) const {
  ssize_t got;
  do {
    got = pread(get(), header, sizeof(*header), 0);
  } while (got < 0 && errno == EINTR);
  return got < 0 ? 0 : static_cast<size_t>(got);
}

int ReserveStorage(int fd, off_t offset, off_t size) {
  int error;
  do {
    error = posix_fallocate(fd, offset, size);
  } while (error == EINTR);
  return error;
}

bool FitsFileSizeLimit(uint64_t size) {
  rlimit limit = {};
  return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || size <= limit.rlim_cur;
}

std::string SystemText(int error) { return std::strerror(error); }

}  // namespace qdt::host
