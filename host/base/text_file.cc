#include "host/base/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

class OpenFile {
 public:
  // Without waiting, so that a pipe without a writer is refused and not waited for.
  explicit OpenFile(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~OpenFile() {
    if (fd_ >= 0) close(fd_);
  }
  OpenFile(const OpenFile &) = delete;
  OpenFile &operator=(const OpenFile &) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

std::string Read(const std::string &path, uint64_t limit, const char *kind, const char *mend) {
  const OpenFile file(path);
  struct stat info {};
  if (file.fd() < 0 || fstat(file.fd(), &info) != 0) {
    throw HostError(path + ": " + std::strerror(errno) + " (name a readable file)");
  }
  if (!S_ISREG(info.st_mode)) throw HostError(path + ": not a regular file (name a " + kind + ")");
  const auto size = static_cast<uint64_t>(info.st_size);
  if (size > limit) {
    throw HostError(path + ": " + std::to_string(size) + " bytes are too many (the limit is " +
                    std::to_string(limit) + mend + ")");
  }
  std::string text(size, '\0');
  size_t filled = 0;
  while (filled < size) {
    const ssize_t got = read(file.fd(), text.data() + filled, size - filled);
    if (got < 0) throw HostError(path + ": " + std::strerror(errno) + " (name a readable file)");
    if (got == 0) break;
    filled += static_cast<size_t>(got);
  }
  text.resize(filled);
  return text;
}

}  // namespace

std::string ReadTextFile(const std::string &path, uint64_t limit) { return Read(path, limit, "file", ""); }

std::string ReadYamlFile(const std::string &path, uint64_t limit) {
  return Read(path, limit, "YAML file", "; use repeat for many entries");
}

}  // namespace qdt::host
