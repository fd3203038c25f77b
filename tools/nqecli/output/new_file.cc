#include "tools/nqecli/output/new_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "host/base/host_error.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::SystemError;
using host::UniqueFd;

// Like the arena itself, which shows who talks to whom, such a file is not for everybody.
constexpr mode_t kMode = 0640;
// Between the file's name and the digits that make a temporary one of it.
constexpr char kMiddle[] = ".tmp";
constexpr int kOpenFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

std::string OwnLink(const UniqueFd &file) { return "/proc/self/fd/" + std::to_string(file.get()); }

const sigset_t *EndingSignals() {
  static sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
  return &set;
}

}  // namespace

NewFile::NewFile(const std::string &file, Way way) : file_(file), directory_(file) {
  if (!directory_.ok()) throw SystemError("cannot make " + file_);
  struct stat info;
  if (lstat(file_.c_str(), &info) == 0) Refuse();
  RemoveAbandoned();
  if (way == Way::kNamed || !MakeNameless()) MakeNamed();
}

NewFile::~NewFile() {
  if (!kept_ && !name_.empty()) unlinkat(directory_.get(), name_.c_str(), 0);
}

// Whoever writes such a file holds its lock. What others have put there under such a name is neither followed
// nor touched.
void NewFile::RemoveAbandoned() const {
  directory_.EachTemporary(kMiddle, "", [this](const std::string &name) {
    const UniqueFd left(openat(directory_.get(), name.c_str(), kOpenFlags));
    struct stat info;
    struct stat there;
    if (left.ok() && fstat(left.get(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
        flock(left.get(), LOCK_EX | LOCK_NB) == 0 &&
        fstatat(directory_.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
        there.st_ino == info.st_ino && there.st_dev == info.st_dev)
      unlinkat(directory_.get(), name.c_str(), 0);
  });
}

bool NewFile::MakeNameless() {
  fd_ = UniqueFd(openat(directory_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kMode));
  // It gets its name through that place.
  if (fd_.ok() && access(OwnLink(fd_).c_str(), F_OK) == 0) return true;
  fd_ = UniqueFd();
  return false;
}

void NewFile::MakeNamed() {
  constexpr int kAttempts = 50;
  // Another one for the same file may take it for an abandoned one before it is locked.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    name_ = directory_.TemporaryName(kMiddle, "");
    fd_ = UniqueFd(openat(directory_.get(), name_.c_str(), kOpenFlags | O_CREAT | O_EXCL, kMode));
    struct stat info;
    if (!fd_.ok()) break;
    if (flock(fd_.get(), LOCK_EX | LOCK_NB) == 0 && fstat(fd_.get(), &info) == 0 && info.st_nlink != 0)
      return;
  }
  throw SystemError("cannot make " + file_);
}

bool NewFile::Rename() const {
  const int directory = directory_.get();
  const char *name = directory_.name().c_str();
  if (name_.empty()) return linkat(AT_FDCWD, OwnLink(fd_).c_str(), directory, name, AT_SYMLINK_FOLLOW) == 0;
  if (renameat2(directory, name_.c_str(), directory, name, RENAME_NOREPLACE) == 0) return true;
  // Not every file system can tell; there the look in the constructor has to do.
  return errno == EINVAL && renameat(directory, name_.c_str(), directory, name) == 0;
}

void NewFile::Keep() {
  if (!Rename()) {
    if (errno == EEXIST) Refuse();
    throw SystemError("cannot make " + file_);
  }
  kept_ = true;
}

void NewFile::Refuse() const { throw HostError(file_ + " exists already; remove it or name another file"); }

DeferredSignals::DeferredSignals() { sigprocmask(SIG_BLOCK, EndingSignals(), &before_); }
DeferredSignals::~DeferredSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

bool DeferredSignals::Arrived() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGINT) || sigismember(&pending, SIGTERM) || sigismember(&pending, SIGHUP);
}

UniqueFd NamelessFile(const std::string &directory) {
  UniqueFd file(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file.ok()) return file;
  // Not every file system has such files.
  std::string name = directory + "/nqecli.XXXXXX";
  file = UniqueFd(mkostemp(name.data(), O_CLOEXEC));
  if (!file.ok()) throw SystemError("cannot make a file in " + directory);
  unlink(name.c_str());
  return file;
}

}  // namespace qdt::nqecli
