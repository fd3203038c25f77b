#ifndef HOST_WEB_CHANNEL_H_
#define HOST_WEB_CHANNEL_H_

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "host/base/fd.h"

struct ssl_ctx_st;
struct ssl_st;

namespace qdt::host {

using WebClock = std::chrono::steady_clock;

// What a server shows who connects by TLS. Versions from 1.2 on.
class TlsIdentity {
 public:
  // Files in PEM form. Throws HostError when they cannot be read or do not belong together.
  TlsIdentity(const std::string &certificate, const std::string &key);
  ~TlsIdentity();
  TlsIdentity(const TlsIdentity &) = delete;

  ssl_ctx_st *context() const { return context_; }

 private:
  ssl_ctx_st *context_;
};

// A connection with a client, plain or by TLS. Everything ends at a deadline, whatever the client does.
class Channel {
 public:
  // `identity` may be null.
  Channel(UniqueFd socket, const TlsIdentity *identity);
  ~Channel();
  Channel(const Channel &) = delete;

  int fd() const { return socket_.get(); }

  // Of TLS the first words; false when they fail.
  bool Open(WebClock::time_point deadline);
  // Adds what there is, waiting for the first byte; false at the end of the connection, or at the deadline.
  bool Read(std::string *bytes, WebClock::time_point deadline);
  // All of it or false.
  bool Write(std::string_view bytes, WebClock::time_point deadline);
  // Whether the client is still there, as far as one can know without waiting.
  bool IsOpen() const;
  // Tells the client that nothing follows, and waits a moment for it to have read that.
  void Close();

 private:
  bool Wait(short events, WebClock::time_point deadline) const;
  // Waits for what the last call of TLS lacks; false when it failed.
  bool WaitTls(int result, WebClock::time_point deadline) const;

  UniqueFd socket_;
  ssl_st *tls_ = nullptr;
};

}  // namespace qdt::host

#endif  // HOST_WEB_CHANNEL_H_
