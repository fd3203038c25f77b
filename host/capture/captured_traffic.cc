#include "host/capture/captured_traffic.h"

#include <sys/epoll.h>
#include <syslog.h>

#include <utility>

#include "host/engine/engine.h"

namespace qdt::host {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

CapturedTraffic::CapturedTraffic(Engine *engine, Pipeline *pipeline, Say say)
    : pipeline_(*pipeline),
      forwarding_(engine->layout(), engine->options().cores),
      say_(std::move(say)),
      poll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!poll_.ok()) throw SystemError("cannot wait for captured packets");
}

void CapturedTraffic::Capture(const std::string &interface, uint32_t fwdIf, int netns) {
  try {
    LiveCapture capture(interface, netns);
    const CapturePoint point{fwdIf != 0 ? fwdIf : capture.index(), CapturePoint::Direction::kUnknown};
    interfaces_.push_back({std::move(capture), point});
  } catch (const CaptureRightsError &error) {
    return say_(error.what());
  }
  for (const int fd : interfaces_.back().capture.fds()) {
    epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
    if (epoll_ctl(poll_.get(), EPOLL_CTL_ADD, fd, &event) != 0)
      throw SystemError("cannot wait for packets of " + interface);
  }
}

void CapturedTraffic::Replay(const std::string &path, uint32_t fwdIf, bool fast) {
  file_.emplace(File{CaptureFile(path), {fwdIf, CapturePoint::Direction::kUnknown}, fast});
}

void CapturedTraffic::Process(LinkType type, const CapturedBytes &bytes, CapturePoint point,
                              Pipeline::Batch *batch) {
  const ParsedPacket parsed = ParsePacket(type, bytes.data, bytes.captured, bytes.wire);
  if (bytes.direction != CapturePoint::Direction::kUnknown) point.direction = bytes.direction;
  batch->Process(forwarding_.Decide(parsed, point, bytes.wire));
}

void CapturedTraffic::Follow() {
  forwarding_.Refresh(Clock::now());
  for (Live &live : interfaces_) {
    Pipeline::Batch batch(&pipeline_);
    live.capture.Read(kPacketsPerStep, [&](const CapturedBytes &bytes) {
      Process(live.capture.linkType(), bytes, live.point, &batch);
    });
  }
  interfaces_.remove_if([this](const Live &live) {
    if (live.capture.gone()) SayThatGone(live.capture.problem());
    return live.capture.gone();
  });
}

bool CapturedTraffic::IsDue(const CapturedBytes &next) const {
  if (file_->fast) return true;
  const auto passed = std::chrono::nanoseconds(Clock::now() - *file_->begun).count();
  // Times may go back.
  return static_cast<int64_t>(next.time - file_->first) <= passed;
}

bool CapturedTraffic::Step() {
  if (!file_) return false;
  if (!file_->begun) {
    file_->begun = Clock::now();
    if (file_->file.Peek() != nullptr) file_->first = file_->file.Peek()->time;
  }
  const CapturedBytes *next = file_->file.Peek();
  if (next != nullptr && !IsDue(*next)) return false;
  forwarding_.Refresh(Clock::now());
  Pipeline::Batch batch(&pipeline_);
  for (uint32_t taken = 0; taken < kPacketsPerStep && next != nullptr && IsDue(*next); ++taken) {
    Process(file_->file.linkType(), *next, file_->point, &batch);
    file_->file.Advance();
    next = file_->file.Peek();
  }
  if (next != nullptr) return IsDue(*next);
  say_(file_->file.ending());
  file_.reset();
  return false;
}

void CapturedTraffic::Check() {
  Follow();
  for (Live &live : interfaces_) {
    if (live.lossSaid || live.capture.Lost() == 0) continue;
    live.lossSaid = true;
    say_("--capture " + live.capture.interface() +
         ": packets come faster than they are taken; some are lost from now on");
  }
}

void CapturedTraffic::LeaveInterfaces(const std::string &why) {
  for (const Live &live : interfaces_) SayThatGone("--capture " + live.capture.interface() + ": " + why);
  interfaces_.clear();
}

void CapturedTraffic::SayThatGone(const std::string &problem) const {
  say_(problem + "; the engine goes on without its packets");
}

void SayOfCaptures(const std::string &line) {
  TellConsole(line);
  syslog(LOG_INFO, "%s", line.c_str());
}

}  // namespace qdt::host
