#include "tools/omad/daemon.h"

#include <arpa/inet.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <thread>
#include <utility>

#include "host/base/c_callback.h"
#include "host/base/host_error.h"
#include "host/base/program.h"
#include "host/base/trust.h"
#include "host/nacm/rules_file.h"
#include "host/netconf/xml_text.h"
#include "host/session/fields.h"
#include "host/session/link.h"

namespace qdt::omad {
namespace {

using host::HostError;
using Severity = host::Record::Severity;

constexpr auto kHelloPatience = std::chrono::seconds(10);
constexpr auto kByePatience = std::chrono::seconds(5);
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
constexpr size_t kPendingConnections = 64;  // beside the sessions
constexpr size_t kMostEvents = 4096;
constexpr size_t kMostEventBytes = 4u << 20;

std::vector<std::string> CapabilitiesOf(const host::Model &model) {
  std::vector<std::string> list{
      "urn:ietf:params:netconf:base:1.0",
      "urn:ietf:params:netconf:base:1.1",
      "urn:ietf:params:netconf:capability:xpath:1.0",
      "urn:ietf:params:netconf:capability:notification:1.0",
      "urn:ietf:params:netconf:capability:interleave:1.0",
      "urn:ietf:params:netconf:capability:yang-library:1.1?revision=2019-01-04&content-id=" +
          std::to_string(ly_ctx_get_change_count(model.context())),
  };
  return list;
}

// What sshd tells is an address, of a link with its interface ("fe80::1%eth0"); another is told by nobody we
// know.
std::string AddressOf(const std::string &text) {
  unsigned char bytes[16];
  const size_t zone = text.find('%');
  const bool known = inet_pton(AF_INET, text.c_str(), bytes) == 1 ||
                     inet_pton(AF_INET6, text.substr(0, zone).c_str(), bytes) == 1;
  return known && (zone == text.npos || IsUserName(text.substr(zone + 1))) ? text : "";
}

// Of a command, for the record. What only tells how it is asked, or what was wrong, has changed nothing.
std::string ResultOf(const host::WorkerAnswer &answer) {
  if (!answer.failure.empty()) return "failed: " + answer.failure;
  if (answer.handler.refused) return "failed: its answer only says what was wrong";
  return answer.handler.sent || answer.handler.result == 0 ? "ok" : "failed: the system log has the reason";
}

}  // namespace

Daemon::Daemon(const Options &options, const host::Model &model, host::Record *record,
               std::vector<std::string> worker)
    : options_(options),
      model_(model),
      record_(record),
      rules_(host::ReadNacmRules(model.context(), options.rules)),
      capabilities_(CapabilitiesOf(model)),
      alarms_([this](host::Event event) { Publish(std::move(event)); }),
      watch_(options.alarms, &alarms_),
      state_(model, OwnSources()),
      events_(kMostEvents, kMostEventBytes),
      worker_(std::move(worker)) {}

std::vector<host::StateSource> Daemon::OwnSources() {
  const auto sessionsFrom = [this](uint32_t from, size_t most) {
    std::vector<SessionState> found;
    for (const Client &each : clients_) {
      if (each.number == 0 || each.number < from || found.size() == most) continue;
      found.push_back({each.number, each.user, each.address, each.since});
    }
    return found;
  };
  std::vector<host::StateSource> sources = OwnStateSources(model_, capabilities_, &counters_, sessionsFrom);
  std::ranges::move(alarms_.Sources(), std::back_inserter(sources));
  return sources;
}

std::string Daemon::ReadRules() {
  try {
    rules_ = host::ReadNacmRules(model_.context(), options_.rules);
  } catch (const std::exception &error) {
    record_->Write(Severity::kWarning, "RULES", {},
                   std::string("the old rules stay: ") + host::LineOf(error));
    WatchRecord();
    return host::LineOf(error);
  }
  record_->Write(Severity::kNotice, "RULES", {}, "the rules have been read");
  WatchRecord();
  PublishRules();
  return "";
}

void Daemon::Write(Severity severity, const char *event, const Who &who,
                   std::vector<std::pair<const char *, std::string>> values, const std::string &text) {
  std::vector<std::pair<const char *, std::string>> all{{"user", who.user},
                                                        {"address", who.address.empty() ? "-" : who.address}};
  if (who.number != 0) all.emplace_back("session", std::to_string(who.number));
  std::ranges::move(values, std::back_inserter(all));
  record_->Write(severity, event, all, text);
  WatchRecord();
}

void Daemon::WatchRecord() {
  const std::string &failure = record_->failure();
  if (!failure.empty()) SayLost(failure.c_str());
  host::UnlessShort(false, [&] {
    const host::AlarmResource record = host::AlarmResource::Record();
    if (failure.empty()) {
      alarms_.Clear(host::AlarmType::kRecordLost, record, "lines are written again");
    } else {
      alarms_.Raise(host::AlarmType::kRecordLost, record, host::AlarmSeverity::kMajor,
                    "the record loses lines: " + host::XmlText(failure));
    }
    return true;
  });
}

void Daemon::SayLost(const char *why) {
  if (!std::exchange(recordFailureSaid_, true))
    std::fprintf(stderr, "omad: the record loses lines: %s\n", why);
}

// Writes of what has been done, which is done whether it can be written down or not.
template <typename Action>
void Daemon::WriteDone(const Action &write) {
  if (!host::UnlessShort(false, [&] { return write(), true; })) SayLost("there is not enough memory");
}

Client *Daemon::Find(uint32_t session) {
  for (Client &each : clients_) {
    if (each.number == session && !each.closing) return &each;
  }
  return nullptr;
}

void Daemon::Accept(int listener) {
  host::UniqueFd socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.ok()) {
    // Without a free descriptor the waiting connection would wake the loop at once, again and again.
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
      acceptAgain_ = Clock::now() + kAcceptPause;
    return;
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
  // Who only connects and says nothing keeps nobody out.
  if (clients_.size() >= options_.limits.sessions + kPendingConnections) {
    const auto silent = std::ranges::find(clients_, 0u, &Client::number);
    if (silent == clients_.end()) return;
    clients_.erase(silent);
  }
  clients_.emplace_back(std::move(socket), peer.uid);
}

// Empty when this process may not say so.
std::string Daemon::UserOf(const Client &client, const std::string &named) const {
  const std::string own = host::UserName(client.owner);
  if (named.empty() || named == own) return own;
  const bool mayName = client.owner == 0 || client.owner == geteuid() ||
                       std::ranges::count(options_.carriers, client.owner) != 0;
  return mayName ? named : "";
}

std::string Daemon::NoRoomFor(const std::string &user) {
  size_t all = 0, ofUser = 0;
  for (const Client &each : clients_) {
    if (each.number == 0 || each.closing) continue;
    ++all;
    ofUser += each.user == user;
  }
  if (all >= options_.limits.sessions) {
    sessionsUsedUp_ = true;
    alarms_.Raise(host::AlarmType::kSessionsUsedUp, host::AlarmResource::Sessions(),
                  host::AlarmSeverity::kMajor,
                  "somebody was refused: there are as many sessions as are served");
    return "there are " + std::to_string(all) + " sessions already, and no more are served (--max-sessions)";
  }
  if (ofUser >= options_.limits.userSessions)
    return user + " has " + std::to_string(ofUser) +
           " sessions already, and may have no more (--max-user-sessions)";
  return "";
}

void Daemon::Hello(Client *client, const host::Frame &frame) {
  const auto fields = host::ReadFields(frame.text, 3);
  if (frame.word != host::kAskHello || !fields || fields->size() != 3 || fields->at(2) != host::kLinkProtocol)
    return client->Bye("omad speaks another protocol; are both programs of one version?");
  client->address = AddressOf(fields->at(1));
  std::string why;
  client->user = UserOf(*client, fields->at(0));
  if (!fields->at(0).empty() && !IsUserName(fields->at(0))) {
    why = host::Quoted(fields->at(0)) + " is no user's name";
    client->user = "-";
  } else if (client->user.empty()) {
    client->user = host::UserName(client->owner);
    why =
        "processes of " + client->user + " may not speak for " + host::Quoted(fields->at(0)) + " (--carrier)";
  }
  if (why.empty()) why = NoRoomFor(client->user);
  if (!why.empty()) {
    Write(Severity::kWarning, "REFUSED", *client, {{"wanted", fields->at(0)}}, why);
    return client->Bye(why);
  }
  if (++lastNumber_ == 0) ++lastNumber_;
  client->number = lastNumber_;
  client->since = std::chrono::system_clock::now();
  ++counters_.sessions;
  Write(Severity::kNotice, "LOGIN", *client, {}, "a session begins");
  std::string welcome;
  host::AppendField(std::to_string(client->number), &welcome);
  host::AppendField(std::to_string(options_.limits.message), &welcome);
  for (const std::string &each : capabilities_) host::AppendField(each, &welcome);
  client->TellText(host::kTellWelcome, welcome);
  PublishSession(*client, true);
}

void Daemon::Take(Client *client, const host::Frame &frame) {
  if (client->number == 0) return Hello(client, frame);
  switch (frame.word) {
    case host::kAskCall:
      client->moved = Clock::now();
      return TakeCall(client, frame);
    case host::kAskNext:
      client->moved = Clock::now();
      return WalkOn(client);
    case host::kAskEvent:
      client->eventUnderWay = false;
      return TellEvent(client);
    case host::kAskLeave:
      client->ended = "closed by the client";
      client->end = {"closed"};
      return;
    default:
      client->broken = true;
  }
}

// Takes what the session asks, one thing after the other.
void Daemon::Advance(Client *client) {
  host::Frame frame;
  while (!client->closing && client->Flush() && client->Idle() && !client->asking && client->Next(&frame))
    Take(client, frame);
  if (client->broken) client->Bye("the session's process speaks no protocol of omad");
}

void Daemon::LookAtEngine() {
  if (options_.alarmPeriod.count() == 0 || lookWaits_ || Clock::now() < nextLook_) return;
  nextLook_ = Clock::now() + options_.alarmPeriod;
  lookWaits_ = host::UnlessShort(false, [&] {
    waiting_.push_back({{}, host::WorkerJob::Look(), {}, false, true});
    return true;
  });
}

void Daemon::TakeLook(const host::WorkerAnswer &answer) {
  lookWaits_ = false;
  // A worker may be ended by anybody; where each look ends one it is the engine.
  lostLooks_ = answer.isLost ? lostLooks_ + 1 : 0;
  if (lostLooks_ == 1) return;
  const auto look = host::EngineLook::Parse(answer.handler.text);
  if (answer.failure.empty() && look) return watch_.Saw(*look);
  watch_.SawNone(answer.isLost            ? "the process that looks at it ends each time"
                 : answer.failure.empty() ? "it cannot be looked at"
                                          : answer.failure);
}

void Daemon::StartWork() {
  while (!running_ && !waiting_.empty()) {
    Work work = std::move(waiting_.front());
    waiting_.pop_front();
    if (work.command) --waitingCommands_;
    // What a client that is gone has asked for is done for nobody, unless it changes something: that was
    // said.
    if (Find(work.who.number) == nullptr && !work.changes && !work.looks) continue;
    worker_.Begin(std::move(work.job));
    running_ = std::move(work);
    if (worker_.fd() < 0) FinishWork();
  }
}

void Daemon::FinishWork() {
  std::optional<host::WorkerAnswer> answer = worker_.Advance();
  if (!answer || !running_) return;
  const Work work = std::move(*running_);
  running_.reset();
  if (work.looks) {
    host::UnlessShort(false, [&] { return TakeLook(*answer), true; });
    return;
  }
  Client *client = Find(work.who.number);
  if (work.command && work.changes) {
    WriteDone([&] { RecordCommand(work.who, *work.command, ResultOf(*answer)); });
  }
  if (client == nullptr) return;
  client->asking = false;
  OrBreak(client, [&] {
    TellAnswer(client, work, *answer);
    Advance(client);
  });
}

void Daemon::EndIdle() {
  const auto now = Clock::now();
  for (Client &each : clients_) {
    if (each.number == 0 && !each.closing && now - each.moved > kHelloPatience) each.broken = true;
    const auto idle = options_.limits.idle;
    if (each.number != 0 && !each.closing && !each.asking && !each.subscription && idle.count() != 0 &&
        now - each.moved > idle)
      OrBreak(&each, [&] {
        each.Bye("the session asked nothing for " + std::to_string(idle.count()) + " s", {"timeout"});
      });
  }
}

// Removes the sessions that are over.
void Daemon::Sweep() {
  const auto now = Clock::now();
  for (auto client = clients_.begin(); client != clients_.end();) {
    const bool flushed = client->Flush();
    const bool over = !flushed || client->broken ||
                      (client->closing && (client->Idle() || now - client->moved > kByePatience));
    if (!over) {
      ++client;
      continue;
    }
    if (client->number != 0) {
      counters_.lostSessions += client->ended != "closed by the client";
      WriteDone([&] {
        if (client->ended.empty()) client->ended = "the connection was lost";
        Write(Severity::kNotice, "LOGOUT", *client, {{"reason", client->ended}}, "a session ends");
      });
      PublishSession(*client, false);
    }
    client = clients_.erase(client);
  }
  // Well below the limit, so that one who comes and goes is told of once.
  if (!sessionsUsedUp_ || clients_.size() * 10 > options_.limits.sessions * 9) return;
  sessionsUsedUp_ = !host::UnlessShort(false, [&] {
    alarms_.Clear(host::AlarmType::kSessionsUsedUp, host::AlarmResource::Sessions(),
                  "there is room for sessions again");
    return true;
  });
}

int Daemon::Timeout() const {
  auto next = Clock::time_point::max();
  for (const Client &each : clients_) {
    if (each.closing) {
      next = std::min(next, each.moved + kByePatience);
    } else if (each.number == 0) {
      next = std::min(next, each.moved + kHelloPatience);
    } else if (each.subscription) {
      // Who has not taken the last event yet wakes the loop with it.
      if (each.subscription->stop && !each.eventUnderWay)
        next = std::min(next, Clock::now() + (*each.subscription->stop - std::chrono::system_clock::now()));
    } else if (!each.asking && options_.limits.idle.count() != 0) {
      next = std::min(next, each.moved + options_.limits.idle);
    }
  }
  if (running_) next = std::min(next, worker_.deadline());
  if (options_.alarmPeriod.count() != 0 && !lookWaits_) next = std::min(next, nextLook_);
  if (acceptAgain_ > Clock::now()) next = std::min(next, acceptAgain_);
  if (next == Clock::time_point::max()) return -1;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left + 1, 0, 60'000));
}

bool Daemon::ListEntries(int listener, int signals) {
  entries_ = {{signals, POLLIN, 0}, {listener, POLLIN, 0}, {worker_.fd(), POLLIN, 0}};
  if (Clock::now() < acceptAgain_) entries_[1].fd = -1;
  for (const Client &each : clients_) entries_.push_back({each.fd(), each.Events(), 0});
  return true;
}

// What runs when the agent stops may have changed something already.
void Daemon::RecordUnanswered() {
  const auto record = [&](const Work &work, const char *result) {
    if (work.command && work.changes) WriteDone([&] { RecordCommand(work.who, *work.command, result); });
  };
  if (running_) record(*running_, "failed: the agent stopped before it had its result");
  for (const Work &each : waiting_) record(each, "failed: the agent stopped before its turn came");
}

void Daemon::Serve(int listener, int signals, const std::function<void(int)> &onSignal) {
  while (true) {
    if (!host::UnlessShort(false, [&] { return ListEntries(listener, signals); })) {
      std::this_thread::sleep_for(kAcceptPause);
      continue;
    }
    if (poll(entries_.data(), entries_.size(), Timeout()) < 0 && errno != EINTR)
      throw host::SystemError("cannot wait for sessions");
    signalfd_siginfo info;
    if (entries_[0].revents != 0 && read(signals, &info, sizeof info) == sizeof info) {
      if (info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT) break;
      onSignal(static_cast<int>(info.ssi_signo));
    }
    if (entries_[2].revents != 0 || (running_ && Clock::now() > worker_.deadline())) FinishWork();
    auto entry = entries_.begin() + 3;
    for (Client &each : clients_) {
      const short events = entry == entries_.end() ? 0 : (entry++)->revents;
      OrBreak(&each, [&] {
        if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !each.Read()) each.broken = true;
        if (events != 0 && !each.broken) Advance(&each);
      });
    }
    if (entries_[1].revents != 0 && !host::UnlessShort(false, [&] { return Accept(listener), true; }))
      acceptAgain_ = Clock::now() + kAcceptPause;
    EndSubscriptions();
    LookAtEngine();
    StartWork();
    EndIdle();
    Sweep();
  }
  RecordUnanswered();
  for (Client &each : clients_) OrBreak(&each, [&each] { each.Bye("the agent stops"); });
  Sweep();
}

}  // namespace qdt::omad
