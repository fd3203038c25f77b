#include "platform/memory.h"

#include <syslog.h>

#include <cstdlib>
#include <mutex>

// Each allocation is one block of the C library's heap, so that a sanitizer sees every access outside it.
// Foreign pointers are told by a set of the live blocks; nothing is read through a pointer that is not in it.

namespace {

// Open addressing with linear probing; null slots are free. Never shrinks: it holds the blocks that live at
// once.
class PointerSet {
 public:
  // False when there is no memory for a larger set.
  bool Add(void *pointer) {
    if ((count_ + 1) * 2 > room_ && !Grow()) return false;
    Put(pointer);
    ++count_;
    return true;
  }

  // False when the pointer is not in the set.
  bool Remove(void *pointer) {
    if (room_ == 0) return false;
    size_t hole = Home(pointer);
    while (slots_[hole] != pointer) {
      if (slots_[hole] == nullptr) return false;
      hole = After(hole);
    }
    // Whatever probed past the hole moves into it.
    for (size_t at = After(hole); slots_[at] != nullptr; at = After(at)) {
      const size_t home = Home(slots_[at]);
      if (((at - home) & (room_ - 1)) < ((at - hole) & (room_ - 1))) continue;
      slots_[hole] = slots_[at];
      hole = at;
    }
    slots_[hole] = nullptr;
    --count_;
    return true;
  }

 private:
  size_t Home(const void *pointer) const {
    const uint64_t mixed = reinterpret_cast<uintptr_t>(pointer) * 0x9e3779b97f4a7c15;
    return static_cast<size_t>(mixed >> 32) & (room_ - 1);
  }
  size_t After(size_t slot) const { return (slot + 1) & (room_ - 1); }

  void Put(void *pointer) {
    size_t slot = Home(pointer);
    while (slots_[slot] != nullptr) slot = After(slot);
    slots_[slot] = pointer;
  }

  bool Grow() {
    constexpr size_t kFirstRoom = 64;
    const size_t oldRoom = room_;
    void **const old = slots_;
    const size_t newRoom = oldRoom == 0 ? kFirstRoom : oldRoom * 2;
    auto **fresh = static_cast<void **>(std::calloc(newRoom, sizeof(void *)));
    if (fresh == nullptr) return false;
    slots_ = fresh;
    room_ = newRoom;
    for (size_t i = 0; i < oldRoom; ++i) {
      if (old[i] != nullptr) Put(old[i]);
    }
    std::free(old);
    return true;
  }

  void **slots_ = nullptr;
  size_t room_ = 0;
  size_t count_ = 0;
};

constinit std::mutex g_mutex;
constinit PointerSet g_blocks;

void *Keep(void *block) {
  if (block == nullptr) return nullptr;
  const std::lock_guard lock(g_mutex);
  if (g_blocks.Add(block)) return block;
  std::free(block);
  return nullptr;
}

}  // namespace

void *g_mallocHandle = &g_blocks;

void *malloc_ex(void * /*handle*/, const char * /*path*/, uint32_t /*line*/, size_t size) {
  return Keep(std::malloc(size == 0 ? 1 : size));
}

void *calloc_ex(void * /*handle*/, const char * /*path*/, uint32_t /*line*/, size_t count, size_t size) {
  size_t bytes;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  return Keep(std::calloc(1, bytes == 0 ? 1 : bytes));
}

void free_ex(void * /*handle*/, void *pointer) {
  if (pointer == nullptr) return;
  bool ours;
  {
    const std::lock_guard lock(g_mutex);
    ours = g_blocks.Remove(pointer);
  }
  if (ours) {
    std::free(pointer);
  } else {
    syslog(LOG_ERR, "free_ex: %p was not allocated here and is left alone\n", pointer);
  }
}
