#ifndef HOST_WIRE_CLIENT_H_
#define HOST_WIRE_CLIENT_H_

#include <chrono>
#include <string>
#include <string_view>

#include "host/wire/protocol.h"

namespace qdt::host {

constexpr std::chrono::milliseconds kEngineTimeout{10'000};

// One connection to a running engine. Every wait is bounded by the timeout. Not thread-safe.
class EngineClient {
 public:
  // Connects. Throws HostError when nobody listens at `socketPath`.
  explicit EngineClient(const std::string &socketPath, std::chrono::milliseconds timeout = kEngineTimeout);

  // Sends one command line and waits for its reply. Throws HostError when the line is too long, the engine
  // goes away or does not answer in time; the connection is of no use afterwards.
  EngineReply Run(std::string_view line);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  void Connect(Deadline deadline);
  void RequireTrustedEngine();
  void Send(std::string_view bytes, Deadline deadline);
  // Waits for `events` on the socket; throws when the deadline passes.
  void Wait(short events, Deadline deadline);
  // Reads once and adds to `reader`; a file that comes along is kept in *fd.
  void Receive(FrameReader *reader, UniqueFd *fd, Deadline deadline);

  std::string path_;
  std::chrono::milliseconds timeout_;
  UniqueFd socket_;
};

// A channel that connects anew for every command line.
EngineChannel SocketChannel(const std::string &socketPath,
                            std::chrono::milliseconds timeout = kEngineTimeout);

}  // namespace qdt::host

#endif  // HOST_WIRE_CLIENT_H_
