#ifndef HOST_NETLINK_NETLINK_H_
#define HOST_NETLINK_NETLINK_H_

#include <netlink/netlink.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/base/fd.h"
#include "host/netlink/message.h"

namespace qdt::host {

// The network namespace that is mirrored: the process's own, or one by name. Only opening things takes place
// inside; the process stays where it is.
class NetworkNamespace {
 public:
  // The process's own.
  NetworkNamespace() = default;
  // One that `ip netns add` has made, by its name, or any by its path (with a slash). Throws HostError when
  // there is none.
  explicit NetworkNamespace(const std::string &name);

  // Calls `work` inside. Throws HostError without the right to enter.
  void Inside(const std::function<void()> &work) const;

  // Open, for who enters it himself; -1 for the process's own.
  int fd() const { return fd_.get(); }
  // The file that stands for it; empty for the process's own.
  const std::string &path() const { return path_; }
  // Whether a namespace is still there by that name, the same one.
  bool Exists() const;

 private:
  std::string path_;
  UniqueFd fd_;
};

// A netlink socket that does not block.
class NetlinkSocket {
 public:
  // Throws HostError. `buffer` bytes are asked for what waits to be received; without the right to as many,
  // what the system allows.
  NetlinkSocket(const NetworkNamespace &where, int protocol, int buffer);

  int fd() const { return nl_socket_get_fd(socket_.get()); }

  // Subscribes to a group of notifications; false when the kernel does not know it.
  bool Join(int group);

  // Asks for a dump, or for whatever `flags` say; the request is the head and the attributes behind it.
  // Returns the number that its answers carry, 0 when the kernel does not take it.
  uint32_t Ask(uint16_t type, uint16_t flags, Bytes request);

  enum class Received {
    kSome,
    kNothing,  // nothing waits
    kLost,     // messages were lost, as they came faster than they were received
    kFailed,
  };
  // One buffer of messages, a `visit` for each. Waits for it when told to.
  Received Receive(bool wait, const std::function<void(const Message &)> &visit);

 private:
  struct Free {
    void operator()(nl_sock *socket) const { nl_socket_free(socket); }
  };
  std::unique_ptr<nl_sock, Free> socket_;
  std::vector<uint64_t> room_;
};

// Splits a buffer into messages; what is cut at its end is left out.
void ForEachMessage(Bytes buffer, const std::function<void(const Message &)> &visit);

// The error of an NLMSG_ERROR or NLMSG_DONE message, 0 or negative.
int ErrorOf(const Message &message);

}  // namespace qdt::host

#endif  // HOST_NETLINK_NETLINK_H_
