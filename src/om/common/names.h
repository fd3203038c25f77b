#ifndef SRC_OM_COMMON_NAMES_H_
#define SRC_OM_COMMON_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qdt {

// Names by number, in one block of bytes. An array of pointers would cost a device 32 bytes a name beside its
// characters, and the loader a relocation each.
template <size_t kCount, size_t kBytes>
struct Names {
  uint16_t begin[kCount]{};  // where the name begins; 0 where there is none
  char text[kBytes]{};

  static constexpr size_t size() { return kCount; }

  // Null where there is none.
  constexpr const char *operator[](size_t index) const {
    return begin[index] == 0 ? nullptr : text + begin[index];
  }
};

// The names of an array of C strings, null where there is none:
//
//   constexpr const char *kList[] = {"first", nullptr, "third"};
//   constexpr auto kNames = PackNames<kList>();
template <const auto &kList>
consteval auto PackNames() {
  constexpr size_t kBytes = [] {
    size_t bytes = 1;
    for (const char *name : kList) {
      if (name == nullptr) continue;
      while (*name++ != '\0') ++bytes;
      ++bytes;
    }
    return bytes;
  }();
  static_assert(kBytes <= UINT16_MAX);
  Names<std::size(kList), kBytes> names;
  size_t at = 1, index = 0;
  for (const char *name : kList) {
    if (name != nullptr) {
      names.begin[index] = static_cast<uint16_t>(at);
      while (*name != '\0') names.text[at++] = *name++;
      ++at;
    }
    ++index;
  }
  return names;
}

// A short text that lies in its row: as Names, without an address.
template <size_t kLongest>
struct FixedText {
  char text[kLongest + 1]{};

  template <size_t N>
  requires(N <= kLongest + 1) consteval FixedText(
      const char (&literal)[N]) {  // NOLINT(google-explicit-constructor): literals are the point
    for (size_t i = 0; i < N; ++i) text[i] = literal[i];
  }

  constexpr operator std::string_view() const { return text; }  // NOLINT(google-explicit-constructor)
};

// Packed names as an array of pointers, for callers that want one. It is made when it is first asked for;
// whoever makes it makes the same.
template <const auto &kNames>
const char *const *ArrayOf() {
  static const char *array[kNames.size()];
  static bool made = false;
  if (__atomic_load_n(&made, __ATOMIC_ACQUIRE)) return array;
  for (size_t i = 0; i < kNames.size(); ++i) __atomic_store_n(&array[i], kNames[i], __ATOMIC_RELAXED);
  __atomic_store_n(&made, true, __ATOMIC_RELEASE);
  return array;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_NAMES_H_
