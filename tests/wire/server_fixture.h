#ifndef TESTS_WIRE_SERVER_FIXTURE_H_
#define TESTS_WIRE_SERVER_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>

#include "host/wire/listener.h"
#include "host/wire/server.h"
#include "host/wire/socket_address.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {

// A server on a thread of its own, with `run` for its commands.
class RunningServer {
 public:
  RunningServer(const std::string &path, EngineChannel run, ServerLimits limits = {})
      : listener_(path), stop_(eventfd(0, EFD_CLOEXEC)), server_(listener_.fd(), std::move(run), limits) {
    listener_.Unlock();
    thread_ = std::thread([this] { server_.Serve(stop_.get()); });
  }
  ~RunningServer() {
    const uint64_t one = 1;
    EXPECT_EQ(write(stop_.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    thread_.join();
  }

 private:
  Listener listener_;
  UniqueFd stop_;
  Server server_;
  std::thread thread_;
};

// A client that speaks bytes, so that a test can misbehave. Reads give up after five seconds.
class RawClient {
 public:
  explicit RawClient(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = SocketAddress(path);
    EXPECT_EQ(connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const timeval patience{5, 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  // False when the server has closed.
  bool Send(const std::string &bytes) {
    return send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // The next `count` bytes, fewer when the server closes before.
  std::string Read(size_t count) {
    std::string bytes(count, '\0');
    size_t got = 0;
    while (got < count) {
      const ssize_t n = recv(fd_.get(), bytes.data() + got, count - got, 0);
      if (n <= 0) {
        closed_ = n == 0 || errno == ECONNRESET;
        break;
      }
      got += n;
    }
    bytes.resize(got);
    return bytes;
  }

  // Whether the server has closed and nothing is left to read.
  bool AtEnd() { return Read(1).empty() && closed_; }

  int fd() const { return fd_.get(); }

  void FinishSending() { shutdown(fd_.get(), SHUT_WR); }

 private:
  UniqueFd fd_;
  bool closed_ = false;
};

}  // namespace qdt::host

#endif  // TESTS_WIRE_SERVER_FIXTURE_H_
