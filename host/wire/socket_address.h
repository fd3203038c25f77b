#ifndef HOST_WIRE_SOCKET_ADDRESS_H_
#define HOST_WIRE_SOCKET_ADDRESS_H_

#include <sys/un.h>

#include <cstring>
#include <string>

#include "host/base/host_error.h"

namespace qdt::host {

// The address of the Unix-domain socket at `path`. Throws HostError for a path that the system cannot hold.
inline sockaddr_un SocketAddress(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty()) throw HostError("the socket's path is empty");
  if (path.size() >= sizeof address.sun_path) {
    throw HostError("the socket's path has " + std::to_string(path.size()) + " characters, " +
                    std::to_string(sizeof address.sun_path - 1) +
                    " are possible; name a shorter one with --socket");
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

}  // namespace qdt::host

#endif  // HOST_WIRE_SOCKET_ADDRESS_H_
