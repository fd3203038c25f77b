#include "host/wire/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/trust.h"

namespace qdt::host {
namespace {

// Root's engine may be asked by a group, whose members pass the directory; nobody else lists it, or can hold
// it locked.
constexpr mode_t kRootMode = 0711;
constexpr mode_t kUserMode = 0700;

// A directory of this user alone; the variable may be another user's who has become this one.
bool IsOwn(const char *directory) {
  struct stat info;
  return directory != nullptr && directory[0] == '/' && stat(directory, &info) == 0 &&
         S_ISDIR(info.st_mode) && info.st_uid == geteuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string DefaultDirectory() {
  if (geteuid() == 0) return "/run/nqe";
  const char *runtime = std::getenv("XDG_RUNTIME_DIR");
  if (IsOwn(runtime)) return std::string(runtime) + "/nqe";
  return "/tmp/nqe-" + std::to_string(geteuid());
}

}  // namespace

std::string DefaultArena() { return DefaultDirectory() + "/arena"; }

std::string DefaultOmadSocket() { return DefaultDirectory() + "/omad.sock"; }

void MakeDefaultDirectory() {
  const std::string path = DefaultDirectory();
  const std::string mend = " (choose another place with --arena)";
  const mode_t mode = geteuid() == 0 ? kRootMode : kUserMode;
  // A mask that takes the owner's rights as well would leave a directory that cannot be opened.
  const mode_t mask = umask(0);
  const int error = mkdir(path.c_str(), kUserMode) == 0 ? 0 : errno;
  umask(mask);
  const bool made = error == 0;
  errno = error;
  if (!made && errno != EEXIST) throw HostError(SystemError("cannot make " + path).what() + mend);
  // Who was here first in a directory of everybody's may have left a link.
  const UniqueFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info;
  if (!directory.ok() || fstat(directory.get(), &info) != 0)
    throw HostError(path + " is no directory that could be used" + mend);
  if (info.st_uid != geteuid()) throw HostError(path + " belongs to user " + UserName(info.st_uid) + mend);
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw HostError(path + " can be written by others than its owner (chmod go-w " + path + ")");
  if (made && fchmod(directory.get(), mode) != 0) throw SystemError("cannot make " + path);
}

}  // namespace qdt::host
