#include "host/base/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace qdt::host {

Directory::Directory(const std::string &path) {
  const size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  name_ = path.substr(slash == std::string::npos ? 0 : slash + 1);
  fd_ = UniqueFd(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string Directory::TemporaryName(std::string_view middle, std::string_view end) const {
  uint64_t word = 0;
  // Small requests are whole; the system that has no such call has no such kernel either.
  if (getrandom(&word, sizeof(word), 0) != static_cast<ssize_t>(sizeof(word)))
    throw SystemError("cannot get random numbers");
  char digits[17];
  std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(word));
  return name_ + std::string(middle) + digits + std::string(end);
}

void Directory::EachTemporary(std::string_view middle, std::string_view end,
                              const std::function<void(const std::string &)> &visit) const {
  UniqueFd list(openat(get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!list.ok()) return;
  const std::unique_ptr<DIR, int (*)(DIR *)> entries(fdopendir(list.get()), closedir);
  if (entries == nullptr) return;
  list.Release();
  const std::string begin = name_ + std::string(middle);
  while (const dirent *entry = readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name.size() <= begin.size() + end.size() || !name.starts_with(begin) || !name.ends_with(end))
      continue;
    const std::string digits = name.substr(begin.size(), name.size() - begin.size() - end.size());
    if (digits.find_first_not_of("0123456789abcdef") == std::string::npos) visit(name);
  }
}

}  // namespace qdt::host
