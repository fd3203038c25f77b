#ifndef HOST_BASE_NEAR_NAME_H_
#define HOST_BASE_NEAR_NAME_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace qdt::host {

// Finds the name that a mistyped one was meant to be: offer every candidate, the last one accepted is the
// nearest.
class NearName {
 public:
  explicit NearName(std::string_view wanted);

  // Whether `candidate` is near enough to be meant, and nearer than all before it.
  bool Offer(std::string_view candidate);
  // Whether at most one edit leads to the last one accepted.
  bool IsClose() const { return limit_ == 0; }

 private:
  std::string_view wanted_;
  uint32_t limit_;  // edits
};

// " (did you mean NEAREST?)", or " (OTHERWISE)" when nothing is near.
std::string DidYouMean(std::string_view nearest, std::string_view otherwise);

}  // namespace qdt::host

#endif  // HOST_BASE_NEAR_NAME_H_
