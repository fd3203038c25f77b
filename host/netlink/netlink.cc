#include "host/netlink/netlink.h"

#include <fcntl.h>
#include <netlink/msg.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/base/host_error.h"
#include "host/base/words.h"

namespace qdt::host {
namespace {

// The kernel fills at most 32 KiB of a dump at a time.
constexpr size_t kRoom = 64 << 10;

constexpr char kNamespaces[] = "/run/netns/";

}  // namespace

NetworkNamespace::NetworkNamespace(const std::string &name)
    : path_(name.find('/') != std::string::npos ? name : kNamespaces + name) {
  if (!name.empty()) fd_ = UniqueFd(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd_.ok())
    throw HostError("--netns " + Quoted(name) +
                    ": there is no such network namespace (\"ip netns\" lists them)");
}

void NetworkNamespace::Inside(const std::function<void()> &work) const {
  if (!fd_.ok()) return work();
  const UniqueFd home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!home.ok() || setns(fd_.get(), CLONE_NEWNET) != 0)
    throw SystemError(path_ + ": cannot enter the network namespace");
  struct Return {
    int fd;
    ~Return() { setns(fd, CLONE_NEWNET); }
  } const back{home.get()};
  work();
}

bool NetworkNamespace::Exists() const {
  if (!fd_.ok()) return true;
  struct stat mine = {}, named = {};
  return fstat(fd_.get(), &mine) == 0 && stat(path_.c_str(), &named) == 0 && mine.st_ino == named.st_ino &&
         mine.st_dev == named.st_dev;
}

NetlinkSocket::NetlinkSocket(const NetworkNamespace &where, int protocol, int buffer)
    : socket_(nl_socket_alloc()), room_(kRoom / sizeof(uint64_t)) {
  if (socket_ == nullptr) throw HostError("not enough memory for a netlink socket");
  int code = 0;
  where.Inside([&] { code = nl_connect(socket_.get(), protocol); });
  if (code < 0) throw HostError(std::string("cannot open a netlink socket: ") + nl_geterror(code));
  nl_socket_set_nonblocking(socket_.get());
  if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0)
    setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
}

bool NetlinkSocket::Join(int group) { return nl_socket_add_membership(socket_.get(), group) == 0; }

uint32_t NetlinkSocket::Ask(uint16_t type, uint16_t flags, Bytes request) {
  std::vector<uint8_t> bytes(NLMSG_SPACE(request.size()));
  const nlmsghdr header{static_cast<uint32_t>(NLMSG_LENGTH(request.size())), type,
                        static_cast<uint16_t>(NLM_F_REQUEST | flags), nl_socket_use_seq(socket_.get()), 0};
  std::memcpy(bytes.data(), &header, sizeof header);
  std::memcpy(bytes.data() + NLMSG_HDRLEN, request.data(), request.size());
  return nl_sendto(socket_.get(), bytes.data(), bytes.size()) >= 0 ? header.nlmsg_seq : 0;
}

NetlinkSocket::Received NetlinkSocket::Receive(bool wait, const std::function<void(const Message &)> &visit) {
  sockaddr_nl from = {};
  iovec piece{room_.data(), kRoom};
  msghdr received = {};
  received.msg_name = &from;
  received.msg_namelen = sizeof from;
  received.msg_iov = &piece;
  received.msg_iovlen = 1;
  ssize_t count = recvmsg(fd(), &received, MSG_DONTWAIT);
  while (count < 0 && wait && (errno == EAGAIN || errno == EINTR)) {
    pollfd one{fd(), POLLIN, 0};
    poll(&one, 1, -1);
    count = recvmsg(fd(), &received, MSG_DONTWAIT);
  }
  if (count < 0 && errno == ENOBUFS) return Received::kLost;
  if (count < 0) return errno == EAGAIN || errno == EINTR ? Received::kNothing : Received::kFailed;
  if (from.nl_pid != 0) return Received::kSome;  // not the kernel
  ForEachMessage({reinterpret_cast<const uint8_t *>(room_.data()), static_cast<size_t>(count)}, visit);
  return (received.msg_flags & MSG_TRUNC) != 0 ? Received::kLost : Received::kSome;
}

void ForEachMessage(Bytes buffer, const std::function<void(const Message &)> &visit) {
  const auto *header = reinterpret_cast<const nlmsghdr *>(buffer.data());
  auto left = static_cast<int>(buffer.size());
  for (; nlmsg_ok(header, left); header = nlmsg_next(const_cast<nlmsghdr *>(header), &left)) {
    const auto *payload = reinterpret_cast<const uint8_t *>(header) + NLMSG_HDRLEN;
    visit({header->nlmsg_type, header->nlmsg_flags, header, {payload, header->nlmsg_len - NLMSG_HDRLEN}});
  }
}

int ErrorOf(const Message &message) { return message.Head<int>() != nullptr ? *message.Head<int>() : 0; }

}  // namespace qdt::host
