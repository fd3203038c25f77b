#ifndef HOST_LAYOUT_LAYOUT_STORE_H_
#define HOST_LAYOUT_LAYOUT_STORE_H_

#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {

// What the views of a Layout that was read at run time lead to.
class LayoutStore {
 public:
  std::string_view Keep(std::string text) { return texts_.emplace_back(std::move(text)); }
  std::span<const std::string_view> Keep(std::vector<std::string_view> words) {
    return Last(&words_, &words);
  }
  std::span<const uint32_t> Keep(std::vector<uint32_t> numbers) { return Last(&numbers_, &numbers); }
  std::span<const uint16_t> Keep(std::vector<uint16_t> places) { return Last(&places_, &places); }
  std::span<const TableLayout> Keep(std::vector<TableLayout> tables) { return Last(&tables_, &tables); }
  std::span<const RegionLayout> Keep(std::vector<RegionLayout> regions) { return Last(&regions_, &regions); }
  std::span<const ViewLayout> Keep(std::vector<ViewLayout> views) { return Last(&views_, &views); }
  // The names are unique.
  FieldSet Keep(std::vector<Field> fields);

 private:
  template <typename T>
  static std::span<const T> Last(std::deque<std::vector<T>> *all, std::vector<T> *last) {
    return all->emplace_back(std::move(*last));
  }

  std::deque<std::string> texts_;
  std::deque<std::vector<std::string_view>> words_;
  std::deque<std::vector<uint32_t>> numbers_;
  std::deque<std::vector<uint16_t>> places_;
  std::deque<std::vector<Field>> fields_;
  std::deque<std::vector<TableLayout>> tables_;
  std::deque<std::vector<RegionLayout>> regions_;
  std::deque<std::vector<ViewLayout>> views_;
};

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_STORE_H_
