#include "host/wire/snapshot_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/arena/arena_file.h"
#include "host/arena/arena_layout.h"
#include "host/base/fd.h"
#include "host/wire/client.h"

namespace qdt::host {
namespace {

EngineReply Ask(EngineClient *engine, const std::string &line) {
  EngineReply reply = engine->Run(line);
  if (reply.status != kReplyOk) throw HostError("the engine makes no snapshot: " + reply.text);
  return reply;
}

UniqueFd TakeFile(EngineReply *reply) {
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
  if (pread(file.get(), &identity, sizeof(identity), offsetof(ArenaHeader, identity)) !=
      static_cast<ssize_t>(sizeof(identity)))
    return 0;
  return identity;
}

// While there is much that has changed since it was copied, it is copied again.
std::string CopyAgain(EngineClient *engine, std::string moment, const UniqueFd &arena, int to,
                      const std::string &what) {
  constexpr int kRounds = 6;
  constexpr size_t kFew = 1024;
  size_t before = SIZE_MAX;
  for (int round = 0; round < kRounds; ++round) {
    EngineReply changed = Ask(engine, "snapshot changed " + moment);
    const std::vector<uint32_t> pages = ReadPages(TakeFile(&changed));
    moment = changed.text;
    for (const uint32_t page : pages) CopyData(arena.get(), to, page * kSnapshotPage, kSnapshotPage, what);
    if (pages.size() <= kFew || pages.size() > before / 2) break;
    before = pages.size();
  }
  return moment;
}

}  // namespace

bool CopySnapshot(const Arena &arena, int fd, const std::string &what, bool (*interrupted)()) {
  EngineClient engine(arena.socketPath());
  const UniqueFd live(open(arena.path().c_str(), O_RDONLY | O_CLOEXEC));
  if (!live.ok()) throw SystemError("cannot read the arena at " + arena.path());
  std::string moment = Ask(&engine, "snapshot begin").text;
  if (!CopySparse(live.get(), fd, what, interrupted)) return false;
  moment = CopyAgain(&engine, moment, live, fd, what);
  EngineReply last = Ask(&engine, "snapshot rest " + moment);
  const UniqueFd rest = TakeFile(&last);
  if (IdentityIn(rest) != IdentityIn(live))
    throw HostError("another engine has come to " + arena.path() + " meanwhile; try again");
  struct stat info;
  if (fstat(rest.get(), &info) != 0) throw SystemError(what);
  CopyData(rest.get(), fd, 0, info.st_size, what);
  Arena::StampCopy(fd);
  return true;
}

}  // namespace qdt::host
