#include "host/arena/arena.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "host/arena/arena_impl.h"
#include "host/arena/table_layout.h"
#include "host/base/mix.h"
#include "platform/tbm.h"

// Where the table manager's description of its tables stands in the arena that this process works on.
TbmGlobalInfo *g_tbmGlobalInfo = nullptr;

namespace qdt::host {

uint64_t HeaderSum(const ArenaHeader &header) {
  ArenaHeader copy = header;
  copy.headerSum = 0;
  copy.state = 0;
  return MixBytes(&copy, sizeof(copy));
}

Arena::Impl::~Impl() {
  if (live != nullptr) munmap(live, RecordBytes());
  if (header != nullptr) munmap(header, size);
  // A forked child has a copy of this object, but the file is the engine's.
  if (!buildName.empty() && owner == getpid()) unlinkat(directory.get(), buildName.c_str(), 0);
}

bool Arena::Impl::Map(uint64_t base, uint64_t bytes, int protection, int flags) {
  void *wanted = reinterpret_cast<void *>(base);
  void *got = mmap(wanted, bytes, protection, flags | MAP_FIXED_NOREPLACE | MAP_NORESERVE, file.get(), 0);
  if (got == MAP_FAILED) return false;
  if (got != wanted) {  // a kernel that does not know MAP_FIXED_NOREPLACE takes the address as a wish
    munmap(got, bytes);
    errno = EEXIST;
    return false;
  }
  header = static_cast<ArenaHeader *>(got);
  size = bytes;
  return true;
}

bool Arena::Impl::MapAnywhere(uint64_t bytes, int flags) {
  void *got = mmap(nullptr, bytes, PROT_READ, flags | MAP_NORESERVE, file.get(), 0);
  if (got == MAP_FAILED) return false;
  header = static_cast<ArenaHeader *>(got);
  size = bytes;
  return true;
}

// Maps a part of the file anew, for reading and writing.
bool Arena::Impl::Retake(uint64_t offset, uint64_t bytes, int flags) {
  return bytes == 0 || mmap(Base() + offset, bytes, PROT_READ | PROT_WRITE, flags | MAP_FIXED | MAP_NORESERVE,
                            file.get(), static_cast<off_t>(offset)) != MAP_FAILED;
}

bool Arena::Impl::SplitForClient(bool shared) {
  const uint64_t records = header->recordsOffset;
  const uint64_t tail = header->tailOffset;
  if (RecordBytes() != 0) {
    void *got = mmap(nullptr, RecordBytes(), PROT_READ, MAP_SHARED | MAP_NORESERVE, file.get(),
                     static_cast<off_t>(records));
    if (got == MAP_FAILED) return false;
    live = static_cast<char *>(got);
  }
  tailIsClosed = shared;
  return Retake(records, RecordBytes(), MAP_PRIVATE) && (shared || Retake(tail, size - tail, MAP_PRIVATE));
}

void Arena::Impl::OpenTail() {
  if (!tailIsClosed.load(std::memory_order_acquire)) return;
  const uint64_t tail = header->tailOffset;
  if (mprotect(Base() + tail, size - tail, PROT_READ | PROT_WRITE) != 0) {
    throw SystemError("cannot write to the arena at " + path);
  }
  tailIsClosed.store(false, std::memory_order_release);
}

void Arena::OpenTail() const { impl_->OpenTail(); }

ArenaState Arena::Impl::State() const {
  return static_cast<ArenaState>(std::atomic_ref<uint32_t>(header->state).load(std::memory_order_acquire));
}

void Arena::Impl::SetState(ArenaState state) {
  std::atomic_ref<uint32_t>(header->state).store(static_cast<uint32_t>(state), std::memory_order_release);
}

Arena::Arena(std::unique_ptr<Impl> impl)
    : impl_(std::move(impl)), header_(impl_->header), role_(impl_->role) {
  if (role_ == Role::kEngine) changed_.resize(impl_->size / kSnapshotPage);
  if (impl_->live != nullptr) liveShift_ = impl_->live - (impl_->Base() + header_->recordsOffset);
}

Arena::~Arena() {
  if (current_ == this) SetCurrent(nullptr);
}

bool Arena::EngineAlive() const {
  if (impl_->State() == ArenaState::kEnded) return false;
  return impl_->owner == getpid() || impl_->file.Locked();
}

void Arena::CopyTo(int fd) const {
  const std::string what = "cannot write the snapshot";
  if (!FitsFileSizeLimit(impl_->size)) {
    throw HostError(what + ": " + SystemText(EFBIG) + " (raise the limit on file sizes)");
  }
  CopySparse(impl_->file.get(), fd, what, [] { return false; });
}

std::vector<uint32_t> Arena::ChangedSince(uint32_t moment) const {
  // Only the parts of tables between these two are changed by table changes alone.
  const uint64_t first = (impl_->FixedEnd() + kSnapshotPage - 1) / kSnapshotPage;
  const uint64_t tail = header_->tailOffset / kSnapshotPage;
  std::vector<uint32_t> pages;
  for (uint32_t page = 0; page < changed_.size(); ++page) {
    if (page < first || page >= tail || changed_[page] >= moment) pages.push_back(page);
  }
  return pages;
}

void Arena::CopyChanged(uint32_t moment, int fd) const {
  const std::string what = "cannot write the snapshot";
  if (ftruncate(fd, static_cast<off_t>(impl_->size)) != 0) throw HostError(what + ": " + SystemText(errno));
  // Neighbours together; what has no storage is not touched.
  const std::vector<uint32_t> pages = ChangedSince(moment);
  for (size_t at = 0; at < pages.size();) {
    size_t end = at + 1;
    while (end < pages.size() && pages[end] == pages[end - 1] + 1) ++end;
    CopyData(impl_->file.get(), fd, pages[at] * kSnapshotPage, (end - at) * kSnapshotPage, what);
    at = end;
  }
}

const std::string &Arena::path() const { return impl_->path; }
const std::string Arena::socketPath() const { return impl_->header->socketPath; }
uint32_t Arena::enginePid() const { return static_cast<uint32_t>(impl_->header->enginePid); }
bool Arena::Writable() const { return impl_->writable; }

ptrdiff_t Arena::Shift() const { return impl_->Base() - reinterpret_cast<char *>(impl_->header->base); }

void Arena::NoteCopies() { impl_->copies = true; }

void Arena::DropCopies() {
  if (impl_->copies && impl_->live != nullptr)
    madvise(impl_->Base() + impl_->header->recordsOffset, impl_->RecordBytes(), MADV_DONTNEED);
  impl_->copies = false;
}

bool Arena::Contains(const void *address, size_t size) const {
  const uint64_t offset = reinterpret_cast<uint64_t>(address) - impl_->header->base;
  return offset <= impl_->size && size <= impl_->size - offset;
}

void *Arena::FindRegion(std::string_view name, uint32_t *size) const {
  const ArenaHeader &header = *impl_->header;
  const auto *region = reinterpret_cast<const RegionEntry *>(impl_->Shapes() + header.tableCount);
  for (uint32_t i = 0; i < header.regionCount; ++i, ++region) {
    if (name != region->name) continue;
    if (size != nullptr) *size = region->size;
    if (region->offset >= header.tailOffset) OpenTail();
    return impl_->Base() + region->offset;
  }
  return nullptr;
}

uint64_t Arena::StorageBytes() const {
  const ArenaHeader &header = *impl_->header;
  const auto *state = reinterpret_cast<const tbm::TableState *>(impl_->Base() + header.stateOffset);
  uint64_t bytes = header.fixedBytes;
  for (uint32_t id = 0; id < header.tableCount; ++id, ++state)
    bytes += state->bytes.load(std::memory_order_relaxed);
  return bytes;
}

bool Arena::Reserve(void *address, size_t size) {
  if (impl_->owner == 0 || !Contains(address, size)) return false;
  const off_t offset = static_cast<char *>(address) - impl_->Base();
  return ReserveStorage(impl_->file.get(), offset, static_cast<off_t>(size)) == 0;
}

void Arena::SetCurrent(Arena *arena) {
  current_ = arena;
  g_tbmGlobalInfo =
      arena == nullptr
          ? nullptr
          : reinterpret_cast<TbmGlobalInfo *>(arena->impl_->Base() + arena->header()->infoOffset);
}

}  // namespace qdt::host
