#ifndef HOST_CONSOLE_CHILD_H_
#define HOST_CONSOLE_CHILD_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::host {

// Programs that answer in a process of their own: one that maps an engine's arena where the engine has it, as
// exact texts need it, or one that works on a statement of a stranger. Whatever happens to it, this process
// goes on.

// What one of them may take.
struct ChildLimits {
  std::chrono::milliseconds time{5000};
  size_t bytes = 8 << 20;         // of its answer
  uint64_t memory = 1ull << 30;   // that it may take for itself; 0: no limit
  uint64_t files = 256ull << 20;  // bytes of a file that it may write
};

struct ChildAnswer {
  std::string output;
  std::string errors;  // its first lines on standard error
  int code = 0;        // its exit code, or -1 when it was ended or ended by a signal
  bool late = false;   // it took too long
  bool cut = false;    // more output would have followed
};

// Called with the output so far; returns false to have no more.
using WatchOutput = std::function<bool(std::string_view output)>;

// Runs a program and waits for its end. At most kChildren run at a time; WebProblem 503 when none of them
// ends in time, or the program cannot be started.
constexpr uint32_t kChildren = 4;
ChildAnswer RunChild(const std::vector<std::string> &words, std::string_view input, const ChildLimits &limits,
                     const WatchOutput &watch = {});

}  // namespace qdt::host

#endif  // HOST_CONSOLE_CHILD_H_
