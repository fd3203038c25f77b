#include "host/web/server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <thread>

#include "host/base/c_callback.h"
#include "host/base/host_error.h"
#include "host/web/guard.h"

namespace qdt::host {
namespace {

constexpr int kBacklog = 512;
// For a connection that makes room to be gone.
constexpr std::chrono::milliseconds kMakingRoom{200};
// A client that sends its request at once is not the one that makes room.
constexpr std::chrono::milliseconds kPatience{500};
// Who takes an answer at a usual pace has it by then.
constexpr std::chrono::milliseconds kSlowness{3000};
constexpr std::chrono::milliseconds kShort{100};
constexpr size_t kTakenASecond = 64 << 10;

union SocketAddress {
  sockaddr any;
  sockaddr_in ipv4;
  sockaddr_in6 ipv6;
};

socklen_t MakeAddress(const WebAddress &address, SocketAddress *made) {
  std::memset(made, 0, sizeof(*made));
  if (inet_pton(AF_INET, address.host.c_str(), &made->ipv4.sin_addr) == 1) {
    made->ipv4.sin_family = AF_INET;
    made->ipv4.sin_port = htons(address.port);
    return sizeof(made->ipv4);
  }
  if (inet_pton(AF_INET6, address.host.c_str(), &made->ipv6.sin6_addr) != 1) return 0;
  made->ipv6.sin6_family = AF_INET6;
  made->ipv6.sin6_port = htons(address.port);
  return sizeof(made->ipv6);
}

UniqueFd Listen(WebAddress *address) {
  const std::string what = "cannot listen on " + address->Text();
  SocketAddress wanted;
  const socklen_t size = MakeAddress(*address, &wanted);
  UniqueFd fd(socket(wanted.any.sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) throw SystemError(what);
  const int on = 1;
  setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (bind(fd.get(), &wanted.any, size) != 0 || listen(fd.get(), kBacklog) != 0) throw SystemError(what);
  SocketAddress got;
  socklen_t gotSize = sizeof(got);
  if (getsockname(fd.get(), &got.any, &gotSize) != 0) throw SystemError(what);
  address->port = ntohs(got.any.sa_family == AF_INET ? got.ipv4.sin_port : got.ipv6.sin6_port);
  return fd;
}

// The answer to who comes when there is no room. It must not take time, and so comes without TLS's words.
void TurnAway(int fd) {
  WebAnswer answer = ProblemAnswer(503, "all connections are in use; come again");
  answer.headers.emplace_back("Retry-After", "1");
  AddSafeHeaders(&answer);
  const std::string text = AnswerHead(answer, static_cast<int64_t>(answer.body.size()), false) + answer.body;
  send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  shutdown(fd, SHUT_WR);
}

}  // namespace

bool WebAddress::IsLoopback() const {
  SocketAddress made;
  if (MakeAddress(*this, &made) == 0) return false;
  if (made.any.sa_family == AF_INET) return ntohl(made.ipv4.sin_addr.s_addr) >> 24 == 127;
  return IN6_IS_ADDR_LOOPBACK(&made.ipv6.sin6_addr);
}

std::string WebAddress::Text() const {
  const bool isIpv6 = host.find(':') != host.npos;
  return (isIpv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

namespace {

bool ParseAddress(std::string_view text, WebAddress *address) {
  const size_t colon = text.rfind(':');
  const std::string_view port = colon == text.npos ? std::string_view() : text.substr(colon + 1);
  std::string_view host = text.substr(0, colon);
  const bool bracketed = host.starts_with('[') && host.ends_with(']');
  if (bracketed) host = host.substr(1, host.size() - 2);
  address->host = host;
  const auto [stop, error] = std::from_chars(port.data(), port.data() + port.size(), address->port);
  SocketAddress made;
  return !port.empty() && error == std::errc() && stop == port.data() + port.size() &&
         bracketed == (host.find(':') != host.npos) && MakeAddress(*address, &made) != 0;
}

}  // namespace

WebAddress ReadWebAddress(std::string_view text) {
  WebAddress address;
  if (ParseAddress(text, &address)) return address;
  throw HostError(Quoted(text) + " is no address to listen on (write 127.0.0.1:8080 or [::1]:8080)");
}

bool IsWebAddress(std::string_view text) {
  WebAddress address;
  return ParseAddress(text, &address);
}

WebServer::WebServer(const WebAddress &address, const WebLimits &limits, const TlsIdentity *identity,
                     Handler handler)
    : address_(address),
      limits_(limits),
      identity_(identity),
      handler_(std::move(handler)),
      listener_(Listen(&address_)) {}

WebServer::~WebServer() = default;

void WebServer::Begin(Connection *connection, Doing doing) {
  connection->since = WebClock::now().time_since_epoch().count();
  connection->doing = doing;
}

void WebServer::Run(int stop, const std::function<void()> &stopping) {
  for (;;) {
    pollfd wanted[] = {{stop, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    if (poll(wanted, 2, -1) < 0 && errno != EINTR) break;
    if (wanted[0].revents != 0) break;
    if (wanted[1].revents != 0 && !UnlessShort(false, [&] { return Accept(), true; }))
      std::this_thread::sleep_for(kShort);
  }
  stopping_ = true;
  stopping();
  listener_ = UniqueFd();
  std::unique_lock lock(mutex_);
  for (const Connection &connection : connections_) shutdown(connection.socket.get(), SHUT_RDWR);
  ended_.wait(lock, [this] { return connections_.empty(); });
}

// Ends one connection that can be missed. False when none can.
bool WebServer::MakeRoom(std::unique_lock<std::mutex> *lock) {
  if (connections_.size() < limits_.connections) return true;
  const WebClock::time_point now = WebClock::now();
  const auto before = [now](std::chrono::milliseconds time) {
    return (now - time).time_since_epoch().count();
  };
  Connection *missed = nullptr;
  for (Connection &connection : connections_) {
    const Doing doing = connection.doing;
    const bool isMissed = doing == Doing::kWaiting ||
                          (doing == Doing::kAsking && connection.since < before(kPatience)) ||
                          (doing == Doing::kTaking && connection.since < before(kSlowness));
    if (!isMissed) continue;
    if (missed == nullptr || connection.since < missed->since) missed = &connection;
  }
  if (missed == nullptr) return false;
  shutdown(missed->socket.get(), SHUT_RDWR);
  return ended_.wait_for(*lock, kMakingRoom, [this] { return connections_.size() < limits_.connections; });
}

void WebServer::Accept() {
  UniqueFd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.ok()) {
    // Out of descriptors: the connections that there are end some time.
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
      std::this_thread::sleep_for(kShort);
    return;
  }
  const int on = 1;
  setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  UniqueFd second(fcntl(socket.get(), F_DUPFD_CLOEXEC, 0));
  std::unique_lock lock(mutex_);
  if (!second.ok() || !MakeRoom(&lock)) {
    if (identity_ == nullptr) TurnAway(socket.get());
    return;
  }
  const auto connection = connections_.emplace(connections_.end());
  connection->socket = std::move(second);
  Begin(&*connection, Doing::kAsking);
  try {
    std::thread(
        [this, connection](UniqueFd given) {
          // A connection for which there is no memory is over; the others go on.
          UnlessShort(false, [&] { return Serve(std::move(given), &*connection), true; });
          const std::lock_guard ending(mutex_);
          connections_.erase(connection);
          ended_.notify_all();
        },
        std::move(socket))
        .detach();
  } catch (const std::exception &) {  // there is no room for another thread
    connections_.erase(connection);
  }
}

void WebServer::Serve(UniqueFd socket, Connection *connection) {
  Channel channel(std::move(socket), identity_);
  if (!channel.Open(WebClock::now() + limits_.asking)) return;
  std::string bytes;
  for (uint32_t count = 1; !stopping_; ++count) {
    if (!ServeRequest(&channel, &bytes, connection, count == limits_.requests)) break;
    Begin(connection, Doing::kWaiting);
    if (bytes.empty() && !channel.Read(&bytes, WebClock::now() + limits_.idle)) break;
    Begin(connection, Doing::kAsking);
  }
}

// False when the connection is over.
bool WebServer::ServeRequest(Channel *channel, std::string *bytes, Connection *connection, bool isLast) {
  const WebClock::time_point deadline = WebClock::now() + limits_.asking;
  HttpReader reader(limits_.request);
  HttpReader::Result result;
  while ((result = reader.Read(bytes)) == HttpReader::Result::kMore) {
    if (channel->Read(bytes, deadline)) continue;
    if (WebClock::now() >= deadline)
      Refuse(channel, ProblemAnswer(408, "the request did not come to its end in time"));
    return false;
  }
  Begin(connection, Doing::kAnswering);
  if (result == HttpReader::Result::kRefused) {
    Refuse(channel, reader.refusal());
    channel->Close();
    return false;
  }
  const WebRequest &request = reader.request();
  const WebAnswer answer = handler_(request);
  if (answer.stream && request.method != "HEAD") {
    Stream(channel, answer);
    return false;
  }
  const bool keepsAlive = reader.keepsAlive() && !isLast && !stopping_;
  Begin(connection, Doing::kTaking);
  if (!Send(channel, answer, request.method == "HEAD", keepsAlive)) return false;
  if (!keepsAlive) channel->Close();
  return keepsAlive;
}

bool WebServer::Send(Channel *channel, const WebAnswer &answer, bool isHead, bool keepsAlive) {
  const std::string_view body = answer.Body();
  const WebClock::time_point deadline =
      WebClock::now() + limits_.taking + std::chrono::seconds(body.size() / kTakenASecond);
  std::string text = AnswerHead(answer, static_cast<int64_t>(body.size()), keepsAlive);
  if (isHead || answer.status == 304) return channel->Write(text, deadline);
  // Small answers go in one piece.
  if (body.size() <= kTakenASecond) {
    text += body;
    return channel->Write(text, deadline);
  }
  return channel->Write(text, deadline) && channel->Write(body, deadline);
}

// What nobody else has answered.
void WebServer::Refuse(Channel *channel, WebAnswer answer) {
  AddSafeHeaders(&answer);
  Send(channel, answer, false, false);
}

void WebServer::Stream(Channel *channel, const WebAnswer &answer) {
  struct Place {
    explicit Place(std::atomic<uint32_t> *taken) : streams(*taken), before(streams.fetch_add(1)) {}
    ~Place() { --streams; }
    std::atomic<uint32_t> &streams;
    const uint32_t before;
  } place(&streams_);
  if (place.before >= limits_.streams)
    return Refuse(channel, ProblemAnswer(503, "too many listeners already; close one"));
  if (channel->Write(AnswerHead(answer, -1, false), WebClock::now() + limits_.taking)) {
    answer.stream([&](std::string_view part) {
      return !stopping_ && channel->IsOpen() && channel->Write(part, WebClock::now() + limits_.taking);
    });
  }
}

}  // namespace qdt::host
