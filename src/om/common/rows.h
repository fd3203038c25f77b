#ifndef SRC_OM_COMMON_ROWS_H_
#define SRC_OM_COMMON_ROWS_H_

#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "src/om/common/names.h"

// Tables whose rows name texts and functions. A row in memory would cost a device, beside an address for
// each, the loader's note of it, which is three times as long. So such rows exist while compiling only, and
// what is left of them holds no address:
//
//   struct Row {
//     const char *name;
//     bool (*run)(OutputBuffer *out);
//   };
//   constexpr Row kRows[] = {{"show", Show}, {"clear", Clear}};
//   constexpr auto kNames = Column<kRows, &Row::name>();
//
//   const size_t row = IndexOf(kNames, word);
//   if (row < std::size(kRows)) CallOf<kRows, &Row::run>(row, out);
namespace qdt {

// One member of all rows: the names of a member that is a C string, else an array.
template <const auto &kRows, auto kMember>
struct ColumnOf {
  using Value = std::remove_cvref_t<decltype(kRows[0].*kMember)>;

  static constexpr auto kValues = [] {
    std::array<Value, std::size(kRows)> values{};
    for (size_t i = 0; i < values.size(); ++i) values[i] = kRows[i].*kMember;
    return values;
  }();
};

template <const auto &kRows, auto kMember>
consteval auto Column() {
  using Of = ColumnOf<kRows, kMember>;
  if constexpr (std::is_same_v<typename Of::Value, const char *>) {
    return PackNames<Of::kValues>();
  } else {
    return Of::kValues;
  }
}

// The row of that name; the number of rows when there is none. Rows without a name are passed over.
template <size_t kCount, size_t kBytes>
size_t IndexOf(const Names<kCount, kBytes> &names, const char *name) {
  for (size_t index = 0; index < kCount; ++index) {
    const char *const known = names[index];
    if (known != nullptr && std::strcmp(name, known) == 0) return index;
  }
  return kCount;
}

// Calls the function that row `index` names; there is such a row.
template <const auto &kRows, auto kMember, typename... Args>
[[gnu::always_inline]] inline auto CallOf(size_t index, Args &&...args) {
  constexpr size_t kMost = 48;
  static_assert(std::size(kRows) <= kMost);
  switch (index) {
#define QDT_ROW(row)                                             \
  case row:                                                      \
    if constexpr ((row) < std::size(kRows)) {                    \
      return (kRows[row].*kMember)(std::forward<Args>(args)...); \
    } else {                                                     \
      [[fallthrough]];                                           \
    }
#define QDT_ROWS(row) QDT_ROW(row) QDT_ROW((row) + 1) QDT_ROW((row) + 2) QDT_ROW((row) + 3)
    QDT_ROWS(0)
    QDT_ROWS(4)
    QDT_ROWS(8)
    QDT_ROWS(12)
    QDT_ROWS(16)
    QDT_ROWS(20)
    QDT_ROWS(24)
    QDT_ROWS(28)
    QDT_ROWS(32)
    QDT_ROWS(36)
    QDT_ROWS(40)
    QDT_ROWS(44)
#undef QDT_ROWS
#undef QDT_ROW
    default:
      __builtin_unreachable();
  }
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_ROWS_H_
