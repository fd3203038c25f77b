#include "tools/nqecli/new_file.h"

#include <fcntl.h>
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

const sigset_t *EndingSignals() {
  static sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
  return &set;
}

}  // namespace

NewFile::NewFile(const std::string &file) : file_(file), name_(file + ".tmp" + std::to_string(getpid())) {
  struct stat info;
  if (lstat(file_.c_str(), &info) == 0) Refuse();
  // Like the arena itself, which shows who talks to whom, it is not for everybody.
  fd_ = UniqueFd(open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
  if (!fd_.ok()) throw SystemError("cannot make " + name_);
}

NewFile::~NewFile() {
  if (!kept_) unlink(name_.c_str());
}

void NewFile::Keep() {
  if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, file_.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) Refuse();
    // Not every file system can tell; there the look in the constructor has to do.
    if (errno != EINVAL || rename(name_.c_str(), file_.c_str()) != 0)
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
