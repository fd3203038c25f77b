#include "host/base/near_name.h"

#include <algorithm>
#include <vector>

namespace qdt::host {
namespace {

// Number of single-character edits that turn one into the other, or any number above `limit` when they are
// more.
uint32_t EditDistance(std::string_view a, std::string_view b, uint32_t limit) {
  if (a.size() > b.size() + limit || b.size() > a.size() + limit) return limit + 1;
  std::vector<uint32_t> row(b.size() + 1);
  for (uint32_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (uint32_t i = 1; i <= a.size(); ++i) {
    uint32_t diagonal = row[0];
    row[0] = i;
    for (uint32_t j = 1; j <= b.size(); ++j) {
      const uint32_t replaced = diagonal + (a[i - 1] != b[j - 1]);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

// Two edits are one swapped pair of letters; a name of which nothing is left is not near.
uint32_t FirstLimit(size_t length) {
  if (length == 0) return 0;
  const size_t limit = std::max<size_t>(2, std::min<size_t>(length, 48) / 3);
  return static_cast<uint32_t>(std::min(limit, length - 1));
}

}  // namespace

NearName::NearName(std::string_view wanted) : wanted_(wanted), limit_(FirstLimit(wanted.size())) {}

bool NearName::Offer(std::string_view candidate) {
  if (limit_ == 0) return false;
  const uint32_t distance = EditDistance(wanted_, candidate, limit_);
  if (distance > limit_) return false;
  limit_ = distance == 0 ? 0 : distance - 1;
  return true;
}

std::string DidYouMean(std::string_view nearest, std::string_view otherwise) {
  return nearest.empty() ? " (" + std::string(otherwise) + ")"
                         : " (did you mean " + std::string(nearest) + "?)";
}

}  // namespace qdt::host
