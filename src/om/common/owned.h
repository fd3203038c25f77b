#ifndef SRC_OM_COMMON_OWNED_H_
#define SRC_OM_COMMON_OWNED_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
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

// Memory of the platform's allocator, released when its owner goes.
template <typename T>
using Owned = std::unique_ptr<T, FreeEx>;
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
