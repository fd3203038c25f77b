#ifndef SRC_OM_COMMON_OWNED_H_
#define SRC_OM_COMMON_OWNED_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "platform/memory.h"

namespace qdt {

// Where an allocation is made, as the allocator's accounting wants it: the source path from "src/" on,
// without the ending, and the line. QDT_HERE names the place where it stands.
struct SourceLine {
  const char *path;
  uint32_t line;
};

// Where in a file's name the path begins, and how long it is.
struct SourcePath {
  size_t begin, length;

  consteval explicit SourcePath(std::string_view file)
      : begin(file.rfind("src/om/")), length(file.rfind('.') - begin) {}
};

// The path as text of its own, one for all places of a file.
template <size_t kLength>
struct SourceText {
  char text[kLength + 1]{};

  consteval SourceText(const char *file, size_t begin) {
    for (size_t i = 0; i < kLength; ++i) text[i] = file[begin + i];
  }
};

template <SourceText kText>
inline constexpr auto kSourceText = kText;

#define QDT_HERE                                                                                        \
  ([]() -> ::qdt::SourceLine {                                                                          \
    constexpr ::qdt::SourcePath kPath(__FILE__);                                                        \
    return {::qdt::kSourceText<::qdt::SourceText<kPath.length>(__FILE__, kPath.begin)>.text, __LINE__}; \
  }())

struct FreeEx {
  void operator()(void *pointer) const { free_ex(g_mallocHandle, pointer); }
};

// Memory of the platform's allocator, or what else Free releases, which goes when its owner goes. What
// std::unique_ptr is, whose header alone takes longer to compile than most sources do without it.
template <typename T, typename Free = FreeEx>
class Owned {
 public:
  explicit Owned(T *pointer) : pointer_(pointer) {}
  Owned(Owned &&other) noexcept : pointer_(other.release()) {}
  Owned &operator=(Owned &&) = delete;
  ~Owned() {
    if (pointer_ != nullptr) Free()(pointer_);
  }

  T *get() const { return pointer_; }
  T *operator->() const { return pointer_; }
  std::add_lvalue_reference_t<T> operator*() const { return *pointer_; }
  bool operator==(std::nullptr_t) const { return pointer_ == nullptr; }

  // Leaves it to the caller.
  T *release() {
    T *const pointer = pointer_;
    pointer_ = nullptr;
    return pointer;
  }

 private:
  T *pointer_;
};
using OwnedText = Owned<char>;

// `size` bytes for text, not initialised; null on failure.
inline OwnedText AllocateText(SourceLine where, size_t size) {
  return OwnedText(static_cast<char *>(malloc_ex(g_mallocHandle, where.path, where.line, size)));
}

// `size` zeroed bytes, for a plain structure or for text; null on failure.
template <typename T>
Owned<T> AllocateZeroed(SourceLine where, size_t size = sizeof(T)) {
  static_assert(std::is_trivial_v<T>);
  void *const memory = malloc_ex(g_mallocHandle, where.path, where.line, size);
  if (memory != nullptr) std::memset(memory, 0, size);
  return Owned<T>(static_cast<T *>(memory));
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_OWNED_H_
