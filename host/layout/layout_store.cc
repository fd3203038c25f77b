#include "host/layout/layout_store.h"

#include <algorithm>
#include <numeric>

namespace qdt::host {

FieldSet LayoutStore::Keep(std::vector<Field> fields) {
  std::vector<uint16_t> byName(fields.size());
  std::iota(byName.begin(), byName.end(), uint16_t{0});
  std::ranges::sort(byName, {}, [&](uint16_t i) { return fields[i].name; });
  const std::span<const Field> kept = Last(&fields_, &fields);
  return {kept.data(), Keep(std::move(byName)).data(), static_cast<uint32_t>(kept.size())};
}

}  // namespace qdt::host
