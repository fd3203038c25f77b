#include "tools/nqecli/snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/arena/arena_layout.h"
#include "host/base/fd.h"
#include "host/wire/client.h"
#include "tools/nqecli/new_file.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::SystemError;
using host::UniqueFd;

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

void CopyEngine(const host::Arena &arena, int to, const std::string &file) {
  const std::string what = "cannot write " + file;
  host::EngineClient engine(arena.socketPath());
  const UniqueFd live(open(arena.path().c_str(), O_RDONLY | O_CLOEXEC));
  if (!live.ok()) throw SystemError("cannot read the arena at " + arena.path());
  std::string moment = Ask(&engine, "snapshot begin").text;
  if (!host::CopySparse(live.get(), to, what, DeferredSignals::Arrived))
    throw HostError("interrupted, " + file + " is not written");
  moment = CopyAgain(&engine, moment, live, to, what);
  host::EngineReply last = Ask(&engine, "snapshot rest " + moment);
  const UniqueFd rest = TakeFile(&last);
  if (IdentityIn(rest) != IdentityIn(live))
    throw HostError("another engine has come to " + arena.path() + " meanwhile; try again");
  struct stat info;
  if (fstat(rest.get(), &info) != 0) throw SystemError(what);
  host::CopyData(rest.get(), to, 0, info.st_size, what);
}

void SaveSnapshot(const host::Arena &arena, const std::string &file) {
  const DeferredSignals signals;
  NewFile copy(file);
  CopyEngine(arena, copy.fd(), file);
  copy.Keep();
}

}  // namespace qdt::nqecli
