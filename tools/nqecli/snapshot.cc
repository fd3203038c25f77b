#include "tools/nqecli/snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

#include "host/arena/arena_layout.h"
#include "host/base/fd.h"
#include "host/wire/client.h"

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

host::EngineReply Ask(host::EngineClient *engine, const std::string &line) {
  host::EngineReply reply = engine->Run(line);
  if (reply.status != host::kReplyOk) throw HostError("the engine makes no snapshot: " + reply.text);
  return reply;
}

UniqueFd TakeFile(host::EngineReply *reply) {
  if (!reply->fd.ok())
    throw HostError("the engine's snapshot did not come along; are there too many open files?");
  return std::move(reply->fd);
}

std::vector<uint32_t> ReadPages(const UniqueFd &list) {
  struct stat info;
  if (fstat(list.get(), &info) != 0) throw SystemError("cannot read the engine's list of pages");
  std::vector<uint32_t> pages(info.st_size / sizeof(uint32_t));
  if (pread(list.get(), pages.data(), info.st_size, 0) != info.st_size)
    throw SystemError("cannot read the engine's list of pages");
  return pages;
}

uint64_t IdentityIn(const UniqueFd &file) {
  uint64_t identity = 0;
  if (pread(file.get(), &identity, sizeof(identity), offsetof(host::ArenaHeader, identity)) !=
      static_cast<ssize_t>(sizeof(identity)))
    return 0;
  return identity;
}

// While there is much that has changed since it was copied, it is copied again.
std::string CopyAgain(host::EngineClient *engine, std::string moment, const UniqueFd &arena, int to,
                      const std::string &what) {
  constexpr int kRounds = 6;
  constexpr size_t kFew = 1024;
  size_t before = SIZE_MAX;
  for (int round = 0; round < kRounds; ++round) {
    host::EngineReply changed = Ask(engine, "snapshot changed " + moment);
    const std::vector<uint32_t> pages = ReadPages(TakeFile(&changed));
    moment = changed.text;
    for (const uint32_t page : pages)
      host::CopyData(arena.get(), to, page * host::kSnapshotPage, host::kSnapshotPage, what);
    if (pages.size() <= kFew || pages.size() > before / 2) break;
    before = pages.size();
  }
  return moment;
}

}  // namespace

void SaveSnapshot(const host::Arena &arena, const std::string &file) {
  const DeferredSignals signals;
  NewFile copy(file);
  const std::string what = "cannot write " + file;
  host::EngineClient engine(arena.socketPath());
  const UniqueFd live(open(arena.path().c_str(), O_RDONLY | O_CLOEXEC));
  if (!live.ok()) throw SystemError("cannot read the arena at " + arena.path());
  std::string moment = Ask(&engine, "snapshot begin").text;
  if (!host::CopySparse(live.get(), copy.fd(), what, DeferredSignals::Arrived))
    throw HostError("interrupted, " + file + " is not written");
  moment = CopyAgain(&engine, moment, live, copy.fd(), what);
  host::EngineReply last = Ask(&engine, "snapshot rest " + moment);
  const UniqueFd rest = TakeFile(&last);
  if (IdentityIn(rest) != IdentityIn(live))
    throw HostError("another engine has come to " + arena.path() + " meanwhile; try again");
  struct stat info;
  if (fstat(rest.get(), &info) != 0) throw SystemError(what);
  host::CopyData(rest.get(), copy.fd(), 0, info.st_size, what);
  host::Arena::StampCopy(copy.fd());
  copy.Keep();
}

}  // namespace qdt::nqecli
