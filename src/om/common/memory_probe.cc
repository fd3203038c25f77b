#include "src/om/common/memory_probe.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qdt {
namespace {

// The smallest that Linux has; where pages are larger, each is several of these.
constexpr uint64_t kPage = 4096;

// Pages that the kernel is asked about at a time.
constexpr size_t kMostAhead = 32;

// The scope of this thread's query. The initial-exec model needs nothing but the C library.
constinit thread_local EngineMemoryScope *t_scope __attribute__((tls_model("initial-exec"))) = nullptr;

void *At(uint64_t address) { return reinterpret_cast<void *>(address); }  // NOLINT(performance-no-int-to-ptr)

// The kernel neither takes from user memory nor puts there what is not mapped, through a pipe as elsewhere.
bool CopyThroughPipe(const void *from, void *to, size_t size) {
  Pipe pipe;
  if (!pipe.Open()) return false;
  const auto *const source = static_cast<const char *>(from);
  auto *const target = static_cast<char *>(to);
  for (size_t done = 0; done < size;) {
    const size_t piece = std::min<size_t>(size - done, PIPE_BUF);
    const iovec whole = {const_cast<char *>(source + done), piece};
    if (pipe.Put(&whole, 1) != piece || !pipe.Get(target + done, piece)) return false;
    done += piece;
  }
  return true;
}

// Sandboxes and emulators may not offer the calls that copy between processes.
bool NotOffered() { return errno == ENOSYS || errno == EPERM; }

bool ReadByKernel(uint64_t address, void *out, size_t size) {
  const iovec local = {out, size};
  const iovec remote = {At(address), size};
  const ssize_t got = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
  if (got >= 0) return static_cast<size_t>(got) == size;
  return NotOffered() && CopyThroughPipe(remote.iov_base, out, size);
}

bool WriteByKernel(uint64_t address, const void *from, size_t size) {
  const iovec local = {const_cast<void *>(from), size};
  const iovec remote = {At(address), size};
  const ssize_t put = process_vm_writev(getpid(), &local, 1, &remote, 1, 0);
  if (put >= 0) return static_cast<size_t>(put) == size;
  return NotOffered() && CopyThroughPipe(from, remote.iov_base, size);
}

// Calls `check` for the pages of the bytes, in order, until it says no.
template <typename Check>
inline bool ForEachPage(uint64_t address, size_t size, Check check) {
  if (size == 0) return true;
  const uint64_t last = address + (size - 1);
  if (last < address) return false;
  for (uint64_t page = address / kPage; page <= last / kPage; ++page) {
    if (!check(page)) return false;
  }
  return true;
}

// The direct copies. A wild pointer may lead to memory that a sanitizer has poisoned or watches, and the
// engine writes while its records are read: neither is an error of the copy's, so that it is not instrumented
// and does not go through memcpy, which sanitizers intercept.
#define QDT_NOT_INSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))

struct __attribute__((packed, may_alias)) Word {
  uint64_t value;
};

QDT_NOT_INSTRUMENTED inline void CopyDirectly(const void *from, void *to, size_t size) {
  const auto *source = static_cast<const volatile char *>(from);
  auto *target = static_cast<volatile char *>(to);
  for (; size >= sizeof(Word); size -= sizeof(Word), source += sizeof(Word), target += sizeof(Word)) {
    const uint64_t word = reinterpret_cast<const volatile Word *>(source)->value;
    reinterpret_cast<volatile Word *>(target)->value = word;
  }
  for (; size > 0; --size) *target++ = *source++;
}

// Stores the bytes as one value of the type T, if they are one.
template <typename T>
QDT_NOT_INSTRUMENTED bool StoreAs(const void *from, uint64_t address, size_t size) {
  if (size != sizeof(T) || address % sizeof(T) != 0) return false;
  T value;
  CopyDirectly(from, &value, sizeof(value));
  __atomic_store_n(static_cast<T *>(At(address)), value, __ATOMIC_SEQ_CST);
  return true;
}

void StoreDirectly(const void *from, uint64_t address, size_t size) {
  if (!StoreAs<uint8_t>(from, address, size) && !StoreAs<uint16_t>(from, address, size) &&
      !StoreAs<uint32_t>(from, address, size) && !StoreAs<uint64_t>(from, address, size)) {
    CopyDirectly(from, At(address), size);
  }
}

// Linux maps nothing there, so that null pointers need not be asked about.
constexpr uint64_t kLowestAddress = 4096;

}  // namespace

Pipe::~Pipe() {
  if (ends_[0] < 0) return;
  close(ends_[0]);
  close(ends_[1]);
}

bool Pipe::Open() {
  if (ends_[0] < 0 && pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) ends_[0] = -1;
  return ends_[0] >= 0;
}

// Sanitizers look into what the C library's writev is given, which may be anything: they do not see this
// call.
size_t Pipe::Put(const iovec *pieces, size_t count) {
  const long put = syscall(SYS_writev, ends_[1], pieces, count);
  return put < 0 ? 0 : static_cast<size_t>(put);
}

bool Pipe::Get(char *to, size_t size) {
  return syscall(SYS_read, ends_[0], to, size) == static_cast<long>(size);
}

EngineMemoryScope::EngineMemoryScope() {
  if (t_scope == nullptr) t_scope = this;
}

EngineMemoryScope::~EngineMemoryScope() {
  if (t_scope == this) t_scope = nullptr;
}

// Whether these pages can all be read. A byte of each tells, and a pipe takes them at a tenth of the time
// that the calls which copy between processes need.
bool EngineMemoryScope::AskAhead(uint64_t page, size_t count) {
  char bytes[kMostAhead];
  iovec pages[kMostAhead];
  for (size_t i = 0; i < count; ++i) pages[i] = {At((page + i) * kPage), 1};
  const size_t readable = pipe_.Put(pages, count);
  return readable > 0 && pipe_.Get(bytes, readable) && readable == count;
}

// Where unknown pages follow each other, more are asked about each time. What is asked about for nothing
// costs time, and in a file with holes storage.
bool EngineMemoryScope::LearnFrom(uint64_t page) {
  const bool first = asked_ == 0;
  size_t count = page == next_ ? std::min(2 * asked_, kMostAhead) : 1;
  bool known;
  if (first || !pipe_.Open()) {  // one call is less than a pipe and its end
    char byte;
    count = 1;
    known = ReadByKernel(page * kPage, &byte, 1);
  } else {
    known = AskAhead(page, count);
    if (!known && count > 1) known = AskAhead(page, count = 1);
  }
  for (size_t i = 0; known && i < count; ++i) readable_.Add(page + i);
  next_ = page + count;
  asked_ = count;
  return known;
}

void EngineMemoryScope::NoteDelivered(const void *record, size_t size) {
  if (t_scope != nullptr) t_scope->delivered_ = (reinterpret_cast<uint64_t>(record) + size - 1) / kPage;
}

bool EngineMemoryScope::MayRead(uint64_t address, size_t size) {
  // Most pointers lead to something small in a page that is known.
  const uint64_t first = address / kPage;
  const bool isKnown = first == delivered_ || readable_.Holds(first);
  if (isKnown && (address + size) / kPage == first) return true;
  return ForEachPage(address, size,
                     [this](uint64_t page) { return readable_.Holds(page) || LearnFrom(page); });
}

bool EngineMemoryScope::MayWrite(uint64_t address, size_t size) const {
  return ForEachPage(address, size, [this](uint64_t page) { return writable_.Holds(page); });
}

void EngineMemoryScope::NoteWritten(uint64_t address, size_t size) {
  ForEachPage(address, size, [this](uint64_t page) {
    writable_.Add(page);
    return true;
  });
}

bool IsEngineMemory(uint64_t address, size_t size) {
  if (t_scope != nullptr) return t_scope->MayRead(address, size);
  EngineMemoryScope scope;
  return scope.MayRead(address, size);
}

bool ReadEngineMemory(uint64_t address, void *out, size_t size) {
  if (address < kLowestAddress && size != 0) return false;
  EngineMemoryScope *const scope = t_scope;
  if (scope == nullptr) return ReadByKernel(address, out, size);
  if (!scope->MayRead(address, size)) return false;
  CopyDirectly(At(address), out, size);
  return true;
}

bool WriteEngineMemory(uint64_t address, const void *from, size_t size) {
  if (t_scope != nullptr && t_scope->MayWrite(address, size)) {
    StoreDirectly(from, address, size);
    return true;
  }
  if (!WriteByKernel(address, from, size)) return false;
  if (t_scope != nullptr) t_scope->NoteWritten(address, size);
  return true;
}

bool ClearEngineMemory(uint64_t address, size_t size) {
  constexpr size_t kPiece = 512;
  const char zeros[kPiece] = {};
  for (size_t done = 0; done < size; done += kPiece) {
    if (!WriteEngineMemory(address + done, zeros, std::min(kPiece, size - done))) return false;
  }
  return true;
}

}  // namespace qdt
