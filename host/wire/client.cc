#include "host/wire/client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "host/base/trust.h"
#include "host/wire/socket_address.h"

namespace qdt::host {

using Clock = std::chrono::steady_clock;

EngineClient::EngineClient(const std::string &socketPath, std::chrono::milliseconds timeout)
    : path_(socketPath),
      timeout_(timeout),
      socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (!socket_.ok()) throw SystemError("cannot make a socket");
  Connect(Clock::now() + timeout_);
  RequireTrustedEngine();
}

// By who listens, which no file can be made to say.
void EngineClient::RequireTrustedEngine() {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    throw SystemError("cannot tell who listens on " + path_);
  RequireTrusted(peer.uid, "the socket " + path_);
}

void EngineClient::Connect(Deadline deadline) {
  const sockaddr_un address = SocketAddress(path_);
  while (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    // EAGAIN: the engine's queue of waiting connections is full, which cannot be polled for.
    if (errno == EACCES || errno == EPERM) {
      throw HostError("no permission to talk to the engine on " + path_ +
                      " (ask its owner, or run as that user)");
    }
    if (errno != EAGAIN && errno != EINTR) throw SystemError("no engine listens on " + path_);
    if (Clock::now() > deadline) throw HostError("the engine does not accept a connection on " + path_);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void EngineClient::Wait(short events, Deadline deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd entry{socket_.get(), events, 0};
    const int ready = left > 0 ? poll(&entry, 1, static_cast<int>(left)) : 0;
    if (ready > 0) return;
    if (ready < 0 && errno != EINTR) throw SystemError("cannot wait for the engine");
    if (ready == 0)
      throw HostError("the engine does not answer on " + path_ + "; is it stopped or overloaded?");
  }
}

void EngineClient::Send(std::string_view bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes.remove_prefix(sent);
    } else if (errno == EAGAIN) {
      Wait(POLLOUT, deadline);
    } else if (errno == EPIPE || errno == ECONNRESET) {
      return;  // the engine may have said why before it closed: read that
    } else if (errno != EINTR) {
      throw SystemError("cannot send to the engine");
    }
  }
}

void EngineClient::Receive(FrameReader *reader, UniqueFd *fd, Deadline deadline) {
  Wait(POLLIN, deadline);
  char bytes[16384];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  iovec piece{bytes, sizeof bytes};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t count = recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) throw HostError("the engine is gone: it closed the connection on " + path_);
  const cmsghdr *header = CMSG_FIRSTHDR(&message);
  if (header != nullptr && header->cmsg_type == SCM_RIGHTS && header->cmsg_len == CMSG_LEN(sizeof(int))) {
    int received;
    std::memcpy(&received, CMSG_DATA(header), sizeof received);
    *fd = UniqueFd(received);
  }
  reader->Append(bytes, count);
}

EngineReply EngineClient::Run(std::string_view line) {
  if (line.size() > kFrameLimit) {
    throw HostError("the command line is longer than " + std::to_string(kFrameLimit) + " bytes");
  }
  const Deadline deadline = Clock::now() + timeout_;
  Send(EncodeFrame(kRequestMark, line), deadline);
  FrameReader reader;
  EngineReply reply;
  Frame frame;
  FrameReader::State state;
  while ((state = reader.Next(&frame)) == FrameReader::State::kNeedMore)
    Receive(&reader, &reply.fd, deadline);
  if (state == FrameReader::State::kTooLong)
    throw HostError("what listens on " + path_ + " is not an engine");
  reply.status = static_cast<int32_t>(frame.word);
  reply.text = std::move(frame.text);
  return reply;
}

EngineChannel SocketChannel(const std::string &socketPath, std::chrono::milliseconds timeout) {
  return [=](std::string_view line) { return EngineClient(socketPath, timeout).Run(line); };
}

}  // namespace qdt::host
