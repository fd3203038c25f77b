#include "host/netlink/feed.h"

#include <syslog.h>

namespace qdt::host {
namespace {

constexpr int kDumpBuffer = 4 << 20;
constexpr int kMostDumps = 60;  // while the engine starts
// Clients wait meanwhile.
constexpr auto kShort = std::chrono::milliseconds(1);
constexpr int kMostBuffers = 64;
// Dumps wait for the end of a burst of changes, but not for longer.
constexpr auto kLongBurst = std::chrono::milliseconds(100);

using Clock = std::chrono::steady_clock;

}  // namespace

Feed::Feed(const NetworkNamespace &where, int protocol, uint32_t dumps, int buffer)
    : kinds_(dumps),
      notifications_(where, protocol, buffer),
      dumpSocket_(where, protocol, kDumpBuffer),
      dumper_(&dumpSocket_, dumps,
              {[this](Dump dump) { Begin(dump); },
               [this](Dump dump, const Message &message) { TakeDump(dump, message); },
               [this](Dump dump, bool complete) { return End(dump, complete); }}) {}

bool Feed::Join(std::span<const int> groups) {
  bool all = true;
  for (const int group : groups) all &= notifications_.Join(group);
  return all;
}

void Feed::Load() {
  dumper_.Want(kinds_);
  // A dump that is interrupted again and again may go on when clients are served.
  for (int i = 0; i < kMostDumps && !dumper_.idle(); ++i) {
    dumper_.Start();
    while (dumper_.running()) dumper_.Step(true);
    Settle();
  }
}

bool Feed::FollowNotifications() {
  const auto until = Clock::now() + kShort;
  for (int i = 0; i < kMostBuffers && Clock::now() < until; ++i) {
    switch (notifications_.Receive(false, [this](const Message &message) { TakeNotification(message); })) {
      case NetlinkSocket::Received::kSome:
        break;
      case NetlinkSocket::Received::kLost:
        if (!lostSaid_) syslog(LOG_WARNING, "the kernel has lost notifications; comparing with its dumps");
        lostSaid_ = true;
        dumper_.Want(kinds_);
        break;
      case NetlinkSocket::Received::kNothing:
      case NetlinkSocket::Received::kFailed:
        return false;
    }
  }
  return true;
}

bool Feed::Follow() {
  const bool more = FollowNotifications();
  Settle();
  const bool running = dumper_.running();
  dumper_.Step(false);
  if (running) {
    Settle();
    return more || dumper_.ending() || dumper_.waiting();
  }
  if (dumper_.idle()) return more;
  if (!bursting_) burst_ = Clock::now();
  bursting_ = more;
  if (!more || Clock::now() - burst_ > kLongBurst) {
    bursting_ = false;
    dumper_.Start();
  }
  return true;
}

void Feed::Clear() {
  const auto forEach = [this](auto work) {
    for (uint32_t left = kinds_; left != 0; left &= left - 1) work(static_cast<Dump>(__builtin_ctz(left)));
  };
  forEach([this](Dump dump) { Begin(dump); });
  forEach([this](Dump dump) {
    while (End(dump, true)) {
    }
  });
  Settle();
}

}  // namespace qdt::host
