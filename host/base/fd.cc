#include "host/base/fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace qdt::host {

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) close(fd_);
}

UniqueFd &UniqueFd::operator=(UniqueFd &&other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.Release();
  }
  return *this;
}

int UniqueFd::Release() { return std::exchange(fd_, -1); }

HostError SystemError(const std::string &what) { return HostError(what + ": " + std::strerror(errno)); }

void KeepStandardFds() {
  // Write-only for standard input and read-only for the outputs: using them fails, as it would have without
  // us.
  pollfd standard[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
  while (poll(standard, std::size(standard), 0) < 0 && errno == EINTR) {
  }
  for (const pollfd &entry : standard) {
    // open() takes the lowest free number, which is this one.
    if (entry.revents == POLLNVAL && open("/dev/null", entry.fd == 0 ? O_WRONLY : O_RDONLY) < 0) return;
  }
}

void CopyData(int from, int to, uint64_t offset, uint64_t size, const std::string &what) {
  const auto limit = static_cast<off_t>(offset + size);
  off_t at = lseek(from, static_cast<off_t>(offset), SEEK_DATA);
  for (; at >= 0 && at < limit; at = lseek(from, at, SEEK_DATA)) {
    const off_t end = std::min(lseek(from, at, SEEK_HOLE), limit);
    if (end < 0 || lseek(to, at, SEEK_SET) < 0) throw SystemError(what);
    while (at < end) {
      const ssize_t sent = sendfile(to, from, &at, static_cast<size_t>(end - at));
      if (sent < 0 && errno != EINTR) throw SystemError(what);
      if (sent == 0) throw HostError(what + ": the source ended early");
    }
  }
  if (at < 0 && errno != ENXIO) throw SystemError(what);  // ENXIO: nothing but a hole up to the end
}

bool CopySparse(int from, int to, const std::string &what, bool (*cancelled)()) {
  constexpr size_t kPiece = 4 << 20;
  struct stat info;
  if (fstat(from, &info) != 0 || ftruncate(to, info.st_size) != 0) throw SystemError(what);
  off_t at = 0;
  while ((at = lseek(from, at, SEEK_DATA)) >= 0) {
    const off_t end = lseek(from, at, SEEK_HOLE);
    if (end < 0 || lseek(to, at, SEEK_SET) < 0) throw SystemError(what);
    while (at < end) {
      if (cancelled()) return false;
      const ssize_t sent = sendfile(to, from, &at, std::min<size_t>(kPiece, end - at));
      if (sent < 0 && errno != EINTR) throw SystemError(what);
      if (sent == 0) throw HostError(what + ": the source ended early");
    }
  }
  if (errno != ENXIO) throw SystemError(what);  // ENXIO: nothing but a hole up to the end
  return true;
}

}  // namespace qdt::host
