#ifndef HOST_SCENARIO_MISTAKES_H_
#define HOST_SCENARIO_MISTAKES_H_

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "host/base/host_error.h"

namespace qdt::host {

// The mistakes of a scenario that is read to its end to find them all. Whoever reads on behind a mistake says
// nothing of what may follow from it.
class Mistakes {
 public:
  // Ends the reading: there are as many as people want to be told of at once.
  struct Enough {};

  explicit Mistakes(size_t most) : most_(most) {}

  // Throws Enough with the last one that there is room for. One that is met on several ways, as by aliases,
  // is told once.
  void Note(std::string line) {
    ++count_;
    if (std::ranges::find(lines_, line) != lines_.end()) return;
    lines_.push_back(std::move(line));
    if (lines_.size() >= most_) throw Enough();
  }

  // How often one was met.
  size_t count() const { return count_; }
  const std::vector<std::string> &lines() const { return lines_; }

 private:
  size_t most_;
  size_t count_ = 0;
  std::vector<std::string> lines_;
};

// Does a part of the reading; whether that went well. The mistake is noted, or without `mistakes` ends
// everything.
template <typename Work>
bool Attempt(Mistakes *mistakes, const Work &work) {
  if (mistakes == nullptr) {
    work();
    return true;
  }
  try {
    work();
    return true;
  } catch (const HostError &error) {
    mistakes->Note(error.what());
    return false;
  }
}

// How many there are so far.
inline size_t CountOf(const Mistakes *mistakes) { return mistakes == nullptr ? 0 : mistakes->count(); }

}  // namespace qdt::host

#endif  // HOST_SCENARIO_MISTAKES_H_
