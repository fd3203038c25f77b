#ifndef HOST_BASE_FD_H_
#define HOST_BASE_FD_H_

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "host/base/host_error.h"

namespace qdt::host {

// A file descriptor that closes itself.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd();
  UniqueFd(UniqueFd &&other) noexcept : fd_(other.Release()) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept;

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  int Release();

 private:
  int fd_ = -1;
};

// HostError "WHAT: TEXT OF ERRNO".
HostError SystemError(const std::string &what);

// Opens /dev/null for each of the descriptors 0 to 2 that the caller left closed. Otherwise the first file
// that a tool opens (the arena) would become its standard output.
void KeepStandardFds();

// Copies the regular file `from` to the new, empty regular file `to`; holes stay holes. `cancelled` is asked
// between two pieces. Returns false when it was cancelled; throws HostError naming `what` on failure.
bool CopySparse(int from, int to, const std::string &what, bool (*cancelled)());

// Copies what has storage of `size` bytes at `offset` to the same place of `to`. Throws HostError naming
// `what`.
void CopyData(int from, int to, uint64_t offset, uint64_t size, const std::string &what);

}  // namespace qdt::host

#endif  // HOST_BASE_FD_H_
