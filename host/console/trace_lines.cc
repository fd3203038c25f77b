#include "host/console/trace_lines.h"

#include <charconv>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/web/lost_pages.h"

namespace qdt::host {
namespace {

// A listener does not wait long for an engine that is busy.
constexpr std::chrono::milliseconds kPatience{1000};

}  // namespace

std::vector<std::string> TraceLines::Read(WebEngine *engine) {
  std::vector<std::string> lines;
  if (engine->saved()) return lines;
  try {
    uint64_t identity = 0;
    std::string socket;
    const bool whole = Survive([&] {
      const WebEngine::Loan source = engine->Borrow();
      identity = source->arena().header()->identity;
      socket = source->arena().socketPath();
    });
    if (!whole) return lines;
    const bool isNew = identity != identity_;
    if (isNew) {
      identity_ = identity;
      told_ = true;
      client_.reset();
    }
    if (!told_) return lines;
    if (client_ == nullptr) client_ = std::make_unique<EngineClient>(socket, kPatience);
    const EngineReply reply = client_->Run("trace-tail " + std::to_string(isNew ? UINT64_MAX : last_));
    told_ = reply.status == kReplyOk;
    std::string_view text = reply.text;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), last_);
    told_ = told_ && error == std::errc();
    if (!told_) return lines;
    text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
    while (!text.empty()) {
      const std::string_view line = text.substr(0, text.find('\n'));
      lines.emplace_back(line);
      text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
  } catch (const WebProblem &) {  // told as the engine's state; it is a new one when it comes back
    identity_ = 0;
    client_.reset();
  } catch (const HostError &) {  // it answers later, or not
    client_.reset();
  }
  return lines;
}

}  // namespace qdt::host
