#ifndef TOOLS_NQECLI_WATCH_WATCH_VIEW_H_
#define TOOLS_NQECLI_WATCH_WATCH_VIEW_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/inspect/rates.h"
#include "host/record/text_out.h"
#include "tools/nqecli/watch/watch_child.h"

namespace qdt::nqecli {

// One answer of a command that is watched.
struct WatchFrame {
  uint64_t time = 0;   // nanoseconds since 1970
  double seconds = 0;  // since the last reading; 0 for the first
  const std::vector<std::string> *command = nullptr;
  const ChildAnswer *answer = nullptr;
};

// Shows answers one after the other, each with what is counted a second between Begin and End.
class WatchView {
 public:
  virtual ~WatchView() = default;
  virtual void Begin(const WatchFrame &frame) = 0;
  virtual void Take(const host::Rate &rate) = 0;
  virtual void End() = 0;
};

// The first answer whole; of the others what has changed, "TIME - LINE" for what is no longer there and "TIME
// + LINE" for what is new, and "TIME TABLE KEY FIELD N/s".
std::unique_ptr<WatchView> MakeWatchLines(host::TextOut *out);

// {"time": "...", "seconds": 1.0, "command": [...], "answer": ..., "rates": [{"table", "key", "field",
// "per_second"}]}, a line each. An answer that is no JSON is a text.
std::unique_ptr<WatchView> MakeWatchJson(host::TextOut *out);

// In place, as much as the terminal has room for, new lines in reverse video. `interval` stands in the
// heading.
struct ScreenSize {
  uint32_t rows = 0;
  uint32_t columns = 0;
};
std::unique_ptr<WatchView> MakeWatchScreen(host::TextOut *out, double interval, ScreenSize (*size)());

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_WATCH_WATCH_VIEW_H_
