#ifndef HOST_WEB_SERVER_H_
#define HOST_WEB_SERVER_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "host/web/channel.h"
#include "host/web/http_reader.h"

namespace qdt::host {

// What a server bears, whatever its clients do. Each has an option of nqeweb where people have reason to
// change it.
struct WebLimits {
  RequestLimits request;
  uint32_t connections = 128;     // at a time, each a thread
  uint32_t streams = 32;          // of them answers that do not end
  uint32_t requests = 1000;       // on one connection
  std::chrono::seconds idle{60};  // between two requests of a connection
  std::chrono::seconds asking{
      10};  // for a request, from its first byte to its last; also for the words of TLS
  std::chrono::seconds taking{30};  // for a client to take an answer, and longer by a second for each 64 KiB
};

struct WebAddress {
  std::string host = "127.0.0.1";  // a number: "127.0.0.1", "::1", "0.0.0.0"
  uint16_t port = 8080;            // 0: any
  bool IsLoopback() const;
  std::string Text() const;  // "127.0.0.1:8080", "[::1]:8080"
};
// "ADDRESS:PORT", "[ADDRESS]:PORT". Throws HostError.
WebAddress ReadWebAddress(std::string_view text);
bool IsWebAddress(std::string_view text);

// Answers requests until it is stopped, a thread a connection. When all connections are in use, one that says
// nothing, or has not finished its request for longest, makes room for a new one; when all of them are being
// answered, the new one is told to come again.
class WebServer {
 public:
  using Handler = std::function<WebAnswer(const WebRequest &request)>;

  // Listens; connections wait until Run. Throws HostError. `identity` may be null and outlives the server.
  WebServer(const WebAddress &address, const WebLimits &limits, const TlsIdentity *identity, Handler handler);
  ~WebServer();

  // With the port that it listens on.
  const WebAddress &address() const { return address_; }
  // Returns when `stop`, a descriptor, becomes readable, and all connections have ended; `stopping` is called
  // in between, for who keeps answers going.
  void Run(int stop, const std::function<void()> &stopping);

 private:
  enum class Doing : uint8_t { kWaiting, kAsking, kAnswering, kTaking };
  struct Connection {
    UniqueFd socket;  // a second descriptor: for who ends the connection
    std::atomic<Doing> doing{Doing::kAsking};
    std::atomic<WebClock::rep> since{0};  // what it is doing
  };
  using ConnectionList = std::list<Connection>;

  void Accept();
  bool MakeRoom(std::unique_lock<std::mutex> *lock);
  void Serve(UniqueFd socket, Connection *connection);
  bool ServeRequest(Channel *channel, std::string *bytes, Connection *connection, bool isLast);
  bool Send(Channel *channel, const WebAnswer &answer, bool isHead, bool keepsAlive);
  void Refuse(Channel *channel, WebAnswer answer);
  void Stream(Channel *channel, const WebAnswer &answer);
  static void Begin(Connection *connection, Doing doing);

  WebAddress address_;
  const WebLimits limits_;
  const TlsIdentity *const identity_;
  const Handler handler_;
  UniqueFd listener_;
  std::mutex mutex_;
  std::condition_variable ended_;  // a connection has
  ConnectionList connections_;
  std::atomic<uint32_t> streams_{0};
  std::atomic<bool> stopping_{false};
};

}  // namespace qdt::host

#endif  // HOST_WEB_SERVER_H_
