#include "host/web/channel.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

constexpr size_t kPiece = 16 << 10;
constexpr std::chrono::milliseconds kLinger{500};

std::string TlsText() {
  char text[256];
  ERR_error_string_n(ERR_get_error(), text, sizeof(text));
  ERR_clear_error();
  return text;
}

}  // namespace

TlsIdentity::TlsIdentity(const std::string &certificate, const std::string &key)
    : context_(SSL_CTX_new(TLS_server_method())) {
  if (context_ == nullptr) throw HostError("cannot start TLS: " + TlsText());
  // A key that takes a passphrase is refused: nobody sits there to type it.
  SSL_CTX_set_default_passwd_cb(context_, [](char *, int, int, void *) { return 0; });
  std::string wrong;
  if (SSL_CTX_set_min_proto_version(context_, TLS1_2_VERSION) != 1) {
    wrong = "cannot start TLS: " + TlsText();
  } else if (SSL_CTX_use_certificate_chain_file(context_, certificate.c_str()) != 1) {
    wrong = "cannot use the certificate " + Quoted(certificate) + ": " + TlsText();
  } else if (SSL_CTX_use_PrivateKey_file(context_, key.c_str(), SSL_FILETYPE_PEM) != 1) {
    wrong = "cannot use the key " + Quoted(key) + " with this certificate: " + TlsText();
  }
  if (wrong.empty()) {
    // A client that asks for new keys again and again costs more than one that asks for answers.
    SSL_CTX_set_options(context_, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    return;
  }
  SSL_CTX_free(context_);
  throw HostError(wrong);
}

TlsIdentity::~TlsIdentity() { SSL_CTX_free(context_); }

Channel::Channel(UniqueFd socket, const TlsIdentity *identity) : socket_(std::move(socket)) {
  fcntl(fd(), F_SETFL, fcntl(fd(), F_GETFL) | O_NONBLOCK);
  if (identity == nullptr) return;
  tls_ = SSL_new(identity->context());
  if (tls_ != nullptr) SSL_set_fd(tls_, fd());
}

Channel::~Channel() { SSL_free(tls_); }

bool Channel::Wait(short events, WebClock::time_point deadline) const {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - WebClock::now()).count();
    if (left <= 0) return false;
    pollfd wanted = {fd(), events, 0};
    const int got = poll(&wanted, 1, static_cast<int>(std::min<int64_t>(left, 1000000)));
    if (got > 0) return true;
    if (got < 0 && errno != EINTR) return false;
  }
}

bool Channel::WaitTls(int result, WebClock::time_point deadline) const {
  switch (SSL_get_error(tls_, result)) {
    case SSL_ERROR_WANT_READ:
      return Wait(POLLIN, deadline);
    case SSL_ERROR_WANT_WRITE:
      return Wait(POLLOUT, deadline);
    default:
      ERR_clear_error();
      return false;
  }
}

bool Channel::Open(WebClock::time_point deadline) {
  if (tls_ == nullptr) return true;
  for (;;) {
    const int done = SSL_accept(tls_);
    if (done == 1) return true;
    if (!WaitTls(done, deadline)) return false;
  }
}

bool Channel::Read(std::string *bytes, WebClock::time_point deadline) {
  char piece[kPiece];
  for (;;) {
    ssize_t got;
    if (tls_ != nullptr) {
      got = SSL_read(tls_, piece, sizeof(piece));
      if (got <= 0) {
        if (!WaitTls(static_cast<int>(got), deadline)) return false;
        continue;
      }
    } else {
      if (!Wait(POLLIN, deadline)) return false;
      got = recv(fd(), piece, sizeof(piece), 0);
      if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      if (got <= 0) return false;
    }
    bytes->append(piece, static_cast<size_t>(got));
    return true;
  }
}

bool Channel::Write(std::string_view bytes, WebClock::time_point deadline) {
  while (!bytes.empty()) {
    const size_t size = std::min(bytes.size(), kPiece);
    ssize_t put;
    if (tls_ != nullptr) {
      put = SSL_write(tls_, bytes.data(), static_cast<int>(size));
      if (put <= 0) {
        if (!WaitTls(static_cast<int>(put), deadline)) return false;
        continue;
      }
    } else {
      put = send(fd(), bytes.data(), size, MSG_NOSIGNAL);
      if (put < 0 && errno == EINTR) continue;
      if (put < 0 && errno == EAGAIN) {
        if (!Wait(POLLOUT, deadline)) return false;
        continue;
      }
      if (put < 0) return false;
    }
    bytes.remove_prefix(static_cast<size_t>(put));
    if (WebClock::now() >= deadline && !bytes.empty()) return false;
  }
  return true;
}

bool Channel::IsOpen() const {
  pollfd asked = {fd(), POLLRDHUP, 0};
  return poll(&asked, 1, 0) >= 0 && (asked.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0;
}

void Channel::Close() {
  if (tls_ != nullptr) {
    SSL_shutdown(tls_);
    ERR_clear_error();
  }
  shutdown(fd(), SHUT_WR);
  // Closing over bytes that nobody has read would reset the connection, and take the answer with it.
  const WebClock::time_point deadline = WebClock::now() + kLinger;
  char piece[kPiece];
  while (Wait(POLLIN, deadline) && recv(fd(), piece, sizeof(piece), 0) > 0) {
  }
}

}  // namespace qdt::host
