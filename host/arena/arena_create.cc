#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <tuple>
#include <utility>

#include "host/arena/arena_impl.h"
#include "host/arena/arena_plan.h"
#include "host/base/arguments.h"
#include "host/base/time_text.h"
#include "host/base/trust.h"

// Making, publishing and taking back an arena: the engine's side.
namespace qdt::host {

namespace {

// Places for the mapping, the best one first, away from the program with its heap, from stacks and from
// libraries. The first ones are within 39 bits, the smallest address space of the processors that engines run
// on: a copy of an arena is read at the arena's own address, on whatever machine. The others are for who has
// something there, as AddressSanitizer has. The kernel refuses those beyond its address size.
constexpr uint64_t kBases[] = {
    0x006800000000, 0x003000000000, 0x002800000000,
#if defined(__aarch64__)
    0x018000000000,                                  // 42 bits
    0x300000000000, 0x560000000000, 0xaaae00000000,  // 48 bits
#else
    0x566800000000, 0x567000000000, 0x566c00000000, 0x567400000000, 0x567800000000,
    0x590000000000, 0x200000000000, 0x300000000000, 0x400000000000,  // not with ThreadSanitizer
#endif
};

// How often, and with which pause, something is tried that another engine may be in the middle of.
constexpr int kAttempts = 50;
constexpr timespec kPause = {0, 2000000};

// How the name of a file ends that is to become an arena.
constexpr char kBuildEnding[] = ".new";

// Owner and group work with an arena, whatever the engine's umask says.
constexpr mode_t kArenaMode = 0660;

[[noreturn]] void RefuseToCreate(const std::string &path, int error) {
  const char *mend = error == ENOSPC || error == EDQUOT || error == EFBIG
                         ? "make room, or choose another place with --arena"
                         : "choose another place with --arena";
  throw HostError("cannot create the arena " + path + ": " + SystemText(error) + " (" + mend + ")");
}

// Fills the rest with NULs. What does not fit is left out: half a path is worse than none.
template <size_t kRoom>
void StoreText(const std::string &text, char (&room)[kRoom]) {
  std::memset(room, 0, kRoom);
  if (text.size() < kRoom) std::memcpy(room, text.data(), text.size());
}

std::string AbsolutePath(const std::string &path) {
  char here[PATH_MAX];
  return path.starts_with('/') || getcwd(here, sizeof(here)) == nullptr ? path
                                                                        : std::string(here) + "/" + path;
}

uint64_t RandomWord() {
  uint64_t word = NanosecondsNow() * 0x9e3779b97f4a7c15;
  // Small requests are whole, and fail on kernels alone that do not know the call.
  if (getrandom(&word, sizeof(word), 0) < 0) word ^= uint64_t(getpid()) << 32;
  return word;
}

bool StartsLikeArena(const ArenaFile &file) {
  ArenaHeader header = {};
  return file.ReadHeader(&header) >= sizeof(kArenaMagic) &&
         std::memcmp(header.magic, kArenaMagic, sizeof(kArenaMagic)) == 0;
}

// Whether an engine was killed before it wrote the header: the file is empty, or zeros where the magic goes.
bool StartsUnwritten(const ArenaFile &file) {
  ArenaHeader header = {};
  file.ReadHeader(&header);
  constexpr char kUnwritten[sizeof(kArenaMagic)] = {};
  return std::memcmp(header.magic, kUnwritten, sizeof(kUnwritten)) == 0;
}

// Whether the file under `name` is an arena that an engine of this user left half-built.
bool IsAbandoned(const Directory &directory, const std::string &name, const ArenaFile &file) {
  const struct stat info = file.Stat();
  return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
         (StartsLikeArena(file) || StartsUnwritten(file)) && file.Lock() && file.IsAt(directory, name);
}

// Engines that were killed while they built an arena leave its file behind. What others have put there under
// such a name is neither followed nor touched.
void RemoveAbandonedBuilds(const Directory &directory) {
  directory.EachTemporary(".", kBuildEnding, [&](const std::string &name) {
    const ArenaFile file(directory, name, O_RDWR | O_NOFOLLOW);
    if (file.ok() && IsAbandoned(directory, name, file)) unlinkat(directory.get(), name.c_str(), 0);
  });
}

// A new file with the engine's lock on it, and its name.
std::pair<ArenaFile, std::string> CreateLocked(const Directory &directory, const std::string &path) {
  // Another engine that cleans up may take a file that is not locked yet for an abandoned one and remove it.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string name = directory.TemporaryName(".", kBuildEnding);
    ArenaFile file(directory, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (!file.ok() && errno != EEXIST) RefuseToCreate(path, errno);
    if (!file.ok()) continue;
    if (file.Lock()) {
      if (file.Stat().st_nlink != 0) return {std::move(file), std::move(name)};
    } else if (errno != EAGAIN && errno != EACCES) {
      const int error = errno;
      unlinkat(directory.get(), name.c_str(), 0);
      RefuseToCreate(path, error);
    }
    nanosleep(&kPause, nullptr);
  }
  RefuseToCreate(path, EEXIST);
}

// The file at the path of an arena that is to be published: an arena without an engine, whose lock is ours
// now, or no file at all. Throws when it is anything else.
ArenaFile TakeOver(const std::string &path) {
  ArenaFile file;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    file = ArenaFile(path, O_RDWR);
    if (!file.ok() && errno == ENOENT) return file;
    if (!file.ok()) RefuseToCreate(path, errno);
    // Its lock and its header could say anything, for ever.
    const uid_t owner = file.Stat().st_uid;
    if (!IsTrusted(owner)) {
      throw HostError(path + " belongs to user " + UserName(owner) +
                      " and is left alone (choose another place with --arena)");
    }
    if (!S_ISREG(file.Stat().st_mode) || !StartsLikeArena(file)) {
      throw HostError(path + " is not an arena and is left alone (choose another place with --arena)");
    }
    if (file.Lock() && file.IsAt(path)) return file;
    if (file.IsAt(path) && attempt > 5)
      break;  // an engine that takes the path over has the lock for a moment only
    nanosleep(&kPause, nullptr);
  }
  ArenaHeader header = {};
  file.ReadHeader(&header);
  const std::string pid = std::to_string(header.enginePid);
  throw HostError("an engine runs already on the arena " + path + ": process " + pid +
                  " (stop it with kill " + pid + ", or use another --arena)");
}

}  // namespace

void Arena::StampCopy(int fd) {
  const std::string what = "cannot write the snapshot";
  ArenaHeader header = {};
  if (pread(fd, &header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header)))
    throw HostError(what + ": " + SystemText(EIO));
  timespec uptime = {};
  clock_gettime(CLOCK_MONOTONIC, &uptime);
  header.savedTime = NanosecondsNow();
  header.savedUptime = static_cast<uint64_t>(uptime.tv_sec);
  header.savedTimer = TimerMilliseconds();
  StoreText(ProgramVersion(), header.program);
  header.headerSum = HeaderSum(header);
  if (pwrite(fd, &header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header)))
    throw HostError(what + ": " + SystemText(errno));
}

std::unique_ptr<Arena> Arena::Create(const std::string &path, const ArenaPlan &plan) {
  const PlanLayout layout(plan);
  const ArenaHeader &shape = layout.header();
  if (!FitsFileSizeLimit(shape.totalSize)) RefuseToCreate(path, EFBIG);
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  impl->directory = Directory(path);
  if (!impl->directory.ok()) RefuseToCreate(path, errno);
  RemoveAbandonedBuilds(impl->directory);
  std::tie(impl->file, impl->buildName) = CreateLocked(impl->directory, path);
  impl->owner = getpid();
  impl->firstTable = layout.FixedEnd();
  impl->role = Role::kEngine;
  impl->writable = true;
  const int fd = impl->file.get();
  if (ftruncate(fd, static_cast<off_t>(shape.totalSize)) != 0) RefuseToCreate(path, errno);
  int error = ReserveStorage(fd, 0, static_cast<off_t>(layout.FixedEnd()));
  if (error == 0 && layout.RegionsEnd() > shape.tailOffset) {
    error = ReserveStorage(fd, static_cast<off_t>(shape.tailOffset),
                           static_cast<off_t>(layout.RegionsEnd() - shape.tailOffset));
  }
  if (error != 0) RefuseToCreate(path, error);

  for (const uint64_t base : kBases) {
    if (impl->Map(base, shape.totalSize, PROT_READ | PROT_WRITE, MAP_SHARED)) break;
  }
  if (impl->header == nullptr) {
    throw HostError("cannot map the arena " + path + ": no address is free for its " +
                    std::to_string(shape.totalSize >> 20) +
                    " MiB (raise the address space limit, or start again)");
  }
  layout.Write(impl->Base());
  ArenaHeader *header = impl->header;
  header->base = reinterpret_cast<uint64_t>(header);
  header->enginePid = static_cast<uint64_t>(getpid());
  header->startTime = NanosecondsNow();
  StoreText(AbsolutePath(path), header->arenaPath);
  StoreText(ProgramVersion(), header->program);
  header->identity = RandomWord();
  for (uint64_t &word : header->hashKey) word = RandomWord();
  header->headerSum = HeaderSum(*header);
  impl->SetState(ArenaState::kBuilding);
  return std::unique_ptr<Arena>(new Arena(std::move(impl)));
}

void Arena::CheckFree(const std::string &path) { TakeOver(path); }

void Arena::Publish() {
  impl_->SetState(ArenaState::kReady);
  const int directory = impl_->directory.get();
  const char *from = impl_->buildName.c_str();
  const char *to = impl_->directory.name().c_str();
  if (fchmod(impl_->file.get(), kArenaMode) != 0) RefuseToCreate(impl_->path, errno);
  for (int attempt = 0; renameat2(directory, from, directory, to, RENAME_NOREPLACE) != 0; ++attempt) {
    if (errno != EEXIST || attempt == kAttempts) RefuseToCreate(impl_->path, errno);
    // Whoever holds the lock of the file there may replace it. When that file is gone by now, try again.
    const ArenaFile old = TakeOver(impl_->path);
    if (!old.ok()) continue;
    if (renameat(directory, from, directory, to) != 0) RefuseToCreate(impl_->path, errno);
    break;
  }
  impl_->buildName.clear();
}

void Arena::Retire() {
  impl_->SetState(ArenaState::kEnded);
  // While this process holds its file's lock no other engine replaces it.
  if (impl_->buildName.empty() && impl_->file.IsAt(impl_->path)) unlink(impl_->path.c_str());
}

}  // namespace qdt::host
