#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/library/entry_points.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/output/shown_text.h"
#include "tools/nqecli/watch/watch_child.h"
#include "tools/nqecli/watch/watch_rates.h"
#include "tools/nqecli/watch/watch_view.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;

constexpr double kDefaultInterval = 2;

double Uptime() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

ScreenSize TerminalSize() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) return {24, 80};
  return {size.ws_row, size.ws_col};
}

// Whoever reads a pipe may go away while there is nothing to write.
void CheckReader() {
  pollfd out = {STDOUT_FILENO, 0, 0};
  if (poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLNVAL)) != 0) throw OutputClosed();
}

// Whether the answers fill a screen. In the shell, filters take lines.
bool IsForScreen() {
  return isatty(STDOUT_FILENO) != 0 && (CurrentSink() == nullptr || CurrentSink()->IsTerminal());
}

// How many of the words are options that stand before the command.
size_t CountOptions(std::span<char *const> words) {
  constexpr std::array<std::string_view, 4> kWithValue = {"-i", "--times", "--arena", "--snapshot"};
  size_t count = 0;
  while (count < words.size() && words[count][0] == '-')
    count += std::ranges::find(kWithValue, words[count]) != kWithValue.end() ? 2 : 1;
  return std::min(count, words.size());
}

struct WatchRequest {
  WatchRequest(const Place &given, std::span<char *const> all) {
    const size_t options = CountOptions(all);
    const DataWords words(given, all.first(options), kWatchOptions);
    place = words.place;
    interval = words.interval == 0 ? kDefaultInterval : words.interval;
    times = words.times;
    asJson = words.format == host::RecordFormat::kJson;
    for (host::Arguments rest(all.subspan(options)); !rest.empty();) {
      if (rest.Take("--json")) {
        asJson = true;
      } else if (!TakePlace(&rest, &place)) {
        command.emplace_back(rest.front());
        rest.Take(rest.front());
      }
    }
    if (command.empty()) throw HostError("watch what? Name a command, such as list fwdif; try --help");
    if (!CanBeWatched(command.front()))
      throw HostError("watch repeats commands that show something, not " + Quoted(command.front()));
  }

  std::vector<std::string> ChildWords() const {
    std::vector<std::string> words = {"nqecli"};
    if (!place.arena.empty()) words.push_back("--arena=" + place.arena);
    if (place.saved()) words.push_back("--snapshot=" + place.snapshot);
    for (const std::string &user : place.trusted) words.push_back("--trust=" + user);
    if (IsRaw()) words.emplace_back("--raw");
    words.insert(words.end(), command.begin(), command.end());
    if (asJson && HasJson(command.front())) words.emplace_back("--json");
    return words;
  }

  // Whether the answers come from a running engine, as far as its words tell.
  bool IsLive() const {
    if (place.saved()) return false;
    return command.front() != "diff" || std::ranges::find(command, "live") != command.end();
  }

  Place place;
  double interval = 0;
  uint64_t times = 0;  // 0: until interrupted
  bool asJson = false;
  std::vector<std::string> command;
};

class WatchLoop {
 public:
  explicit WatchLoop(const WatchRequest &request) : request_(request), words_(request.ChildWords()) {
    if (request.asJson) {
      view_ = MakeWatchJson(&out_);
    } else if (IsForScreen()) {
      view_ = MakeWatchScreen(&screen_, request.interval, TerminalSize);
    } else {
      view_ = MakeWatchLines(&out_);
    }
  }

  ExitCode Run() {
    double next = Uptime();
    for (uint64_t done = 0;;) {
      if (!Once()) return end_;
      if (++done == request_.times) return kAnswered;
      next = std::max(next + request_.interval, Uptime());
      if (interrupt_.Within(next - Uptime())) return kAnswered;
      CheckReader();
    }
  }

 private:
  // False when that is the end.
  bool Once() {
    if (EngineHasEnded()) throw HostError("the engine has ended");
    ChildAnswer answer;
    if (!RunChild(words_, &interrupt_, &answer)) return false;
    if (answer.code == kUnusable && (first_ || source_ == nullptr || EngineHasEnded())) {
      WriteAside(answer.err);
      // Words that are no command are answered with the usage list.
      if (first_) out_.Append(answer.out->All());
      out_.Spill();
      end_ = kUnusable;
      return false;
    }
    if (first_) OpenCounters();
    Show(answer);
    first_ = false;
    return true;
  }

  void Show(const ChildAnswer &answer) {
    const double now = Uptime();
    WatchFrame frame;
    frame.time = host::NanosecondsNow();
    frame.seconds = first_ ? 0 : now - last_;
    frame.command = &request_.command;
    frame.answer = &answer;
    last_ = now;
    view_->Begin(frame);
    ReadRates(frame.seconds);
    view_->End();
  }

  void ReadRates(double seconds) {
    if (rates_ == nullptr) return;
    try {
      rates_->Read(seconds, [this](const host::Rate &rate) { view_->Take(rate); });
    } catch (const HostError &error) {
      // The answer stands; of what could not be followed the next reading may tell.
      WriteError(error.what());
    }
  }

  // What is read here is read in one mapping, that of the engine that answered first.
  void OpenCounters() {
    if (!request_.IsLive()) return;
    try {
      source_ = OpenSource(request_.place);
    } catch (const HostError &) {
      return;  // the command takes no engine
    }
    rates_ = RatesOf(request_.place, *source_, request_.command);
  }

  bool EngineHasEnded() const { return source_ != nullptr && !source_->arena().EngineAlive(); }

  const WatchRequest &request_;
  const std::vector<std::string> words_;
  Interrupt interrupt_;
  StandardOut out_;
  ScreenOut screen_;
  std::unique_ptr<WatchView> view_;
  std::unique_ptr<host::RecordSource> source_;
  std::unique_ptr<host::CounterRates> rates_;
  ExitCode end_ = kAnswered;
  double last_ = 0;
  bool first_ = true;
};

}  // namespace

bool CanBeWatched(std::string_view command) {
  return command != "watch" && command != "snapshot" && !command.empty();
}

ExitCode Watch(const DataWords &words) {
  std::vector<std::string> own = words.words;
  std::vector<char *> pointers;
  for (std::string &word : own) pointers.push_back(word.data());
  const WatchRequest request(words.place, pointers);
  return WatchLoop(request).Run();
}

}  // namespace qdt::nqecli
