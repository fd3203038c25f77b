// The heap of a program that lives for one answer. The C library's own begins with four system calls, a fifth
// of all that a query of one key takes. This one stands in the program's zeroed memory, of which only what is
// used becomes real; what does not fit comes from the system. It replaces the C library's in the static
// program, as the C library's manual describes; that program has one thread, and so this takes no locks.

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr size_t kAlignment = 16;
constexpr size_t kOwnMemory = 512 << 10;
constexpr size_t kChunk = 1 << 20;   // from the system, when that is used up
constexpr uint32_t kFirstClass = 5;  // blocks of 32 bytes, and so on by powers of two
constexpr uint32_t kLastClass = 17;  // up to 128 KiB; larger ones are mappings of their own
constexpr uint32_t kMapped = UINT32_MAX;
constexpr size_t kMost = PTRDIFF_MAX / 2;

// Stands before what a caller gets.
struct alignas(kAlignment) Head {
  uint32_t sizeClass;  // or kMapped
  uint32_t before;     // bytes of the block before this head, where an alignment was asked for
  size_t size;         // of the whole block
};

struct FreeBlock {
  FreeBlock *next;
};

alignas(kAlignment) char g_own[kOwnMemory];
char *g_next = g_own;
char *g_end = g_own + kOwnMemory;
FreeBlock *g_free[kLastClass + 1];

void *Map(size_t size) {
  void *got = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return got == MAP_FAILED ? nullptr : got;
}

// A block of one class: one that has come back, or the next one of fresh memory.
char *TakeBlock(uint32_t sizeClass) {
  if (FreeBlock *block = g_free[sizeClass]; block != nullptr) {
    g_free[sizeClass] = block->next;
    return reinterpret_cast<char *>(block);
  }
  const size_t size = size_t{1} << sizeClass;
  if (static_cast<size_t>(g_end - g_next) < size) {
    auto *chunk = static_cast<char *>(Map(kChunk));
    if (chunk == nullptr) return nullptr;
    g_next = chunk;
    g_end = chunk + kChunk;
  }
  char *block = g_next;
  g_next += size;
  return block;
}

Head *HeadOf(void *pointer) { return static_cast<Head *>(pointer) - 1; }
size_t RoomOf(void *pointer) { return HeadOf(pointer)->size - HeadOf(pointer)->before - sizeof(Head); }

// `alignment` is a power of two.
void *Allocate(size_t size, size_t alignment) {
  if (size > kMost || alignment > kMost) {
    errno = ENOMEM;
    return nullptr;
  }
  const size_t slack = alignment > kAlignment ? alignment : 0;
  size_t whole = size + sizeof(Head) + slack;
  uint32_t sizeClass = std::max<uint32_t>(kFirstClass, std::bit_width(whole - 1));
  if (sizeClass > kLastClass) sizeClass = kMapped;
  if (sizeClass != kMapped) whole = size_t{1} << sizeClass;
  auto *block = sizeClass == kMapped ? static_cast<char *>(Map(whole)) : TakeBlock(sizeClass);
  if (block == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  const auto least = reinterpret_cast<uintptr_t>(block) + sizeof(Head);
  const uintptr_t place = slack == 0 ? least : (least + alignment - 1) & ~(alignment - 1);
  auto *pointer = reinterpret_cast<void *>(place);
  *HeadOf(pointer) = {sizeClass, static_cast<uint32_t>(place - least), whole};
  return pointer;
}

bool IsPowerOfTwo(size_t value) { return std::has_single_bit(value); }

}  // namespace

extern "C" {

void *malloc(size_t size) { return Allocate(size, kAlignment); }

void free(void *pointer) {
  if (pointer == nullptr) return;
  const Head head = *HeadOf(pointer);
  char *block = static_cast<char *>(pointer) - sizeof(Head) - head.before;
  if (head.sizeClass == kMapped) {
    const int kept = errno;
    munmap(block, head.size);
    errno = kept;
    return;
  }
  auto *freed = reinterpret_cast<FreeBlock *>(block);
  freed->next = g_free[head.sizeClass];
  g_free[head.sizeClass] = freed;
}

void *calloc(size_t count, size_t size) {
  size_t bytes;
  if (__builtin_mul_overflow(count, size, &bytes)) {
    errno = ENOMEM;
    return nullptr;
  }
  void *pointer = Allocate(bytes, kAlignment);
  if (pointer != nullptr && HeadOf(pointer)->sizeClass != kMapped) std::memset(pointer, 0, bytes);
  return pointer;
}

void *realloc(void *pointer, size_t size) {
  if (pointer == nullptr) return malloc(size);
  if (size <= RoomOf(pointer)) return pointer;
  void *moved = malloc(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, pointer, RoomOf(pointer));
  free(pointer);
  return moved;
}

void *memalign(size_t alignment, size_t size) {
  return IsPowerOfTwo(alignment) ? Allocate(size, alignment) : (errno = EINVAL, nullptr);
}

void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void **pointer, size_t alignment, size_t size) {
  if (!IsPowerOfTwo(alignment) || alignment % sizeof(void *) != 0) return EINVAL;
  void *got = Allocate(size, alignment);
  if (got == nullptr) return ENOMEM;
  *pointer = got;
  return 0;
}

size_t malloc_usable_size(void *pointer) { return pointer == nullptr ? 0 : RoomOf(pointer); }

}  // extern "C"
