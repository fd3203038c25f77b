#include "tools/nqecli/snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "host/base/fd.h"
#include "host/wire/snapshot_copy.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::SystemError;
using host::UniqueFd;

// The copy on its way to `file`, under a temporary name beside it. Goes away unless it is kept.
class NewFile {
 public:
  explicit NewFile(const std::string &file) : file_(file), name_(file + ".tmp" + std::to_string(getpid())) {
    struct stat info;
    if (lstat(file_.c_str(), &info) == 0) Refuse();
    // Like the arena itself, which shows who talks to whom, it is not for everybody.
    fd_ = UniqueFd(open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    if (!fd_.ok()) throw SystemError("cannot make " + name_);
  }
  ~NewFile() {
    if (!kept_) unlink(name_.c_str());
  }

  int fd() const { return fd_.get(); }

  void Keep() {
    if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, file_.c_str(), RENAME_NOREPLACE) != 0) {
      if (errno == EEXIST) Refuse();
      // Not every file system can tell; there the look in the constructor has to do.
      if (errno != EINVAL || rename(name_.c_str(), file_.c_str()) != 0)
        throw SystemError("cannot make " + file_);
    }
    kept_ = true;
  }

 private:
  [[noreturn]] void Refuse() const {
    throw HostError(file_ + " exists already; remove it or name another file");
  }

  std::string file_;
  std::string name_;
  UniqueFd fd_;
  bool kept_ = false;
};

// Signals that end the tool wait until the temporary file is gone again; the copying looks for them.
class DeferredSignals {
 public:
  DeferredSignals() { sigprocmask(SIG_BLOCK, Set(), &before_); }
  ~DeferredSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  static bool Arrived() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGINT) || sigismember(&pending, SIGTERM) || sigismember(&pending, SIGHUP);
  }

 private:
  static const sigset_t *Set() {
    static sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    return &set;
  }

  sigset_t before_;
};

}  // namespace

void SaveSnapshot(const host::Arena &arena, const std::string &file) {
  const DeferredSignals signals;
  NewFile copy(file);
  if (!host::CopySnapshot(arena, copy.fd(), "cannot write " + file, DeferredSignals::Arrived))
    throw HostError("interrupted, " + file + " is not written");
  copy.Keep();
}

}  // namespace qdt::nqecli
