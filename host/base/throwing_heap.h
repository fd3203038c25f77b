#ifndef HOST_BASE_THROWING_HEAP_H_
#define HOST_BASE_THROWING_HEAP_H_

#include <cstddef>
#include <cstdlib>
#include <new>

namespace qdt::host {

// The heap for RapidJSON's templates, which write to what their allocator gives them without a look at it.
class ThrowingHeap {
 public:
  static constexpr bool kNeedFree = true;
  void *Malloc(size_t size) { return size == 0 ? nullptr : Checked(std::malloc(size)); }
  void *Realloc(void *pointer, size_t /*before*/, size_t size) {
    if (size != 0) return Checked(std::realloc(pointer, size));
    std::free(pointer);
    return nullptr;
  }
  static void Free(void *pointer) { std::free(pointer); }

 private:
  static void *Checked(void *pointer) {
    if (pointer == nullptr) throw std::bad_alloc();
    return pointer;
  }
};

}  // namespace qdt::host

#endif  // HOST_BASE_THROWING_HEAP_H_
