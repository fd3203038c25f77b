#include "host/wire/server.h"

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

#include "host/base/c_callback.h"
#include "host/wire/make_room.h"

namespace qdt::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kReadPiece = 64 << 10;
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
constexpr char kMadeRoom[] = "the engine has too many clients and closed this idle connection; connect again";

// Sends what it can of `bytes` from `at` on, with the file `fd` (or -1) beside its first byte.
ssize_t SendPiece(int socket, const std::string &bytes, size_t at, int fd) {
  iovec piece{const_cast<char *>(bytes.data()) + at, bytes.size() - at};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  if (fd >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  }
  return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

uid_t UserOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return peer.uid;
}

}  // namespace

struct Server::Connection {
  UniqueFd socket;
  uid_t user = 0;
  FrameReader in;
  std::string out;  // the one reply that is on its way
  size_t sent = 0;
  UniqueFd handover;      // goes with the reply's first byte
  bool closing = false;   // close when the reply is out
  bool finished = false;  // the peer sends nothing more
  bool dead = false;
  bool waiting = false;  // another request may be complete already
  bool asked = false;    // a whole request has come
  // When the client was last seen to move on: it came, began another request, was given a reply or had taken
  // it.
  Clock::time_point moved = Clock::now();

  bool Sending() const { return sent < out.size(); }
  bool Resting() const { return !Sending() && in.Empty(); }
  bool Runnable() const { return waiting && !Sending(); }
  // Only who has been answered may rest.
  bool Owes() const { return !asked || !Resting(); }
  Occupant AsOccupant() const {
    const Doing doing = Runnable()  ? Doing::kAsking
                        : Sending() ? Doing::kTaking
                        : asked     ? Doing::kResting
                                    : Doing::kSilent;
    return {user, doing, moved};
  }
  short Events() const { return Sending() ? POLLOUT : waiting ? 0 : POLLIN; }
};

Server::Server(int listener, EngineChannel run, ServerLimits limits)
    : listener_(listener), run_(std::move(run)), limits_(limits) {}

Server::~Server() = default;

void Server::AddTick(std::chrono::milliseconds period, std::function<void()> work) {
  AddSteps(period, [work = std::move(work)] {
    work();
    return false;
  });
}

void Server::AddSteps(std::chrono::milliseconds period, std::function<bool()> step) {
  ticks_.push_back({period, std::move(step), Clock::now() + period});
}

void Server::AddWatch(int fd, std::function<void()> work) { watches_.push_back({fd, std::move(work)}); }

void Server::Serve(int stop) {
  for (;;) {
    if (!UnlessShort(false, [&] { return ListEntries(stop); })) {
      std::this_thread::sleep_for(kAcceptPause);
      continue;
    }
    if (poll(entries_.data(), entries_.size(), PollTimeout()) < 0 && errno != EINTR) {
      throw SystemError("cannot wait for clients");
    }
    if (entries_[0].revents != 0) return;
    auto entry = entries_.begin() + 2;
    for (const Watch &watch : watches_) {
      if ((entry++)->revents != 0) watch.work();
    }
    for (Connection &client : clients_) {
      const bool ready = (entry++)->revents != 0;
      const bool whole = UnlessShort(false, [&] {
        if (ready) client.Sending() ? Flush(&client) : Read(&client);
        Advance(&client);
        return true;
      });
      // Whose request finds no memory is cut off; the engine goes on.
      if (!whole) client.dead = true;
    }
    DropStalled();
    if (entries_[1].revents != 0 && !UnlessShort(false, [&] { return Accept(), true; }))
      acceptAgain_ = Clock::now() + kAcceptPause;
    RunTicks();
  }
}

bool Server::ListEntries(int stop) {
  entries_ = {{stop, POLLIN, 0}, {listener_, POLLIN, 0}};
  if (Clock::now() < acceptAgain_) entries_[1].fd = -1;
  for (const Watch &watch : watches_) entries_.push_back({watch.fd, POLLIN, 0});
  for (const Connection &client : clients_) entries_.push_back({client.socket.get(), client.Events(), 0});
  return true;
}

void Server::Accept() {
  UniqueFd socket(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.ok()) {
    // Without a free descriptor the waiting connection would wake the loop at once, again and again.
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
      acceptAgain_ = Clock::now() + kAcceptPause;
    }
    return;
  }
  const uid_t user = UserOf(socket.get());
  const bool refused = clients_.size() >= limits_.clients && !MakeRoom(user);
  Connection &client = clients_.emplace_back();
  client.socket = std::move(socket);
  client.user = user;
  if (refused) {
    client.closing = true;
    Reply(&client,
          {kReplyRefused, "the engine serves " + std::to_string(limits_.clients) + " clients already", {}});
    clients_.pop_back();
  }
}

bool Server::MakeRoom(uid_t user) {
  if (!std::exchange(clientsSaid_, true)) {
    syslog(LOG_ERR, "the limit clients is reached: %zu connections; from now on idle ones make room\n",
           limits_.clients);
  }
  std::vector<Occupant> occupants;
  for (const Connection &client : clients_) occupants.push_back(client.AsOccupant());
  const std::optional<size_t> leaves = WhoMakesRoom(occupants, user);
  if (!leaves) return false;
  const auto client = std::next(clients_.begin(), static_cast<std::ptrdiff_t>(*leaves));
  if (!client->Sending()) Reply(&*client, {kReplyRefused, kMadeRoom, {}});
  clients_.erase(client);
  return true;
}

void Server::Read(Connection *client) {
  static char piece[kReadPiece];
  const ssize_t count = recv(client->socket.get(), piece, sizeof piece, MSG_DONTWAIT);
  if (count > 0) {
    if (client->asked && client->in.Empty()) client->moved = Clock::now();
    client->in.Append(piece, count);
    client->waiting = true;
  } else if (count == 0) {
    client->finished = true;
  } else if (errno != EAGAIN && errno != EINTR) {
    client->dead = true;
  }
}

void Server::Advance(Connection *client) {
  if (client->dead || client->Sending()) return;
  if (client->closing) {
    client->dead = true;
    return;
  }
  uint32_t word;
  Frame request;
  if (client->in.PeekWord(&word) && word != kRequestMark) {
    client->closing = true;
    Reply(client, {kReplyRefused, "this is not a request of the engine's protocol", {}});
    return;
  }
  switch (client->in.Next(&request)) {
    case FrameReader::State::kFrame:
      client->asked = true;
      Reply(client, RunOne(request));
      break;
    case FrameReader::State::kTooLong:
      client->closing = true;
      Reply(client, {kReplyRefused, "a request has at most " + std::to_string(kFrameLimit) + " bytes", {}});
      break;
    case FrameReader::State::kNeedMore:
      client->waiting = false;
      client->dead = client->finished;
      break;
  }
}

EngineReply Server::RunOne(const Frame &request) {
  try {
    EngineReply reply = run_(request.text);
    if (reply.text.size() > kFrameLimit) return {kReplyRefused, "the answer is too long for one reply", {}};
    return reply;
  } catch (const HostError &error) {
    return {kReplyRefused, error.what(), {}};
  } catch (const std::bad_alloc &) {
    return {kReplyRefused, "the engine has not enough memory for this", {}};
  }
}

void Server::Reply(Connection *client, EngineReply reply) {
  client->out = EncodeFrame(static_cast<uint32_t>(reply.status), reply.text);
  client->sent = 0;
  client->handover = std::move(reply.fd);
  client->moved = Clock::now();
  Flush(client);
}

void Server::Flush(Connection *client) {
  const ssize_t count = SendPiece(client->socket.get(), client->out, client->sent, client->handover.get());
  if (count < 0) {
    client->dead = errno != EAGAIN && errno != EINTR;
    return;
  }
  client->sent += count;
  client->handover = UniqueFd();
  if (!client->Sending()) {
    client->moved = Clock::now();
    std::string().swap(client->out);
    client->sent = 0;
  }
}

int Server::PollTimeout() const {
  auto wake = Clock::time_point::max();
  const auto now = Clock::now();
  if (now < acceptAgain_) wake = acceptAgain_;
  for (const Tick &tick : ticks_) {
    if (tick.more) return 0;
    wake = std::min(wake, tick.due);
  }
  for (const Connection &client : clients_) {
    if (client.Runnable()) return 0;
    if (client.Owes()) wake = std::min(wake, client.moved + limits_.patience);
  }
  if (wake == Clock::time_point::max()) return -1;
  return static_cast<int>(
      std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(wake - now).count()));
}

void Server::RunTicks() {
  for (Tick &tick : ticks_) {
    const auto now = Clock::now();
    if (now < tick.due && !tick.more) continue;
    if (now >= tick.due) tick.due += tick.period;
    if (tick.due <= now) tick.due = now + tick.period;
    tick.more = tick.step();
  }
}

void Server::DropStalled() {
  const auto limit = Clock::now() - limits_.patience;
  clients_.remove_if([&](const Connection &client) {
    if (client.dead) return true;
    if (!client.Owes() || client.moved > limit) return false;
    if (!std::exchange(patienceSaid_, true)) {
      syslog(LOG_ERR, "the limit patience is reached: user %u has not %s for %lld ms and is cut off\n",
             client.user, client.Sending() ? "taken a reply" : "sent a whole request",
             static_cast<long long>(limits_.patience.count()));
    }
    return true;
  });
}

}  // namespace qdt::host
