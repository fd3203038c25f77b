#include "tools/omad/client.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "host/session/fields.h"
#include "host/session/link.h"

namespace qdt::omad {

short Client::Events() const {
  // What it asks beyond its turn stays where it is.
  const bool reads = !closing && (in_.Empty() || (!asking && Idle()));
  return static_cast<short>((reads ? POLLIN : 0) | (Idle() ? 0 : POLLOUT));
}

bool Client::Flush() {
  while (sent_ < out_.size()) {
    const ssize_t count = send(fd(), out_.data() + sent_, out_.size() - sent_, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    sent_ += static_cast<size_t>(count);
  }
  std::string().swap(out_);
  sent_ = 0;
  return true;
}

bool Client::Read() {
  char bytes[65536];
  const ssize_t count = recv(fd(), bytes, sizeof bytes, MSG_DONTWAIT);
  if (count < 0) return errno == EINTR || errno == EAGAIN;
  if (count == 0) return false;
  in_.Append(bytes, static_cast<size_t>(count));
  return true;
}

bool Client::Next(host::Frame *frame) {
  const host::FrameReader::State state = in_.Next(frame);
  broken |= state == host::FrameReader::State::kTooLong ||
            (state == host::FrameReader::State::kFrame && frame->text.size() > 2 * host::kCallLimit);
  return state == host::FrameReader::State::kFrame && !broken;
}

void Client::TellText(uint32_t word, std::string_view text) { out_ += host::EncodeFrame(word, text); }

void Client::Tell(uint32_t word, std::initializer_list<std::string_view> fields) {
  std::string text;
  for (const std::string_view field : fields) host::AppendField(field, &text);
  TellText(word, text);
}

void Client::TellError(const host::RpcError &error) { Tell(host::kTellError, {error.Xml()}); }

void Client::Bye(std::string_view why, SessionEnd how) {
  if (closing) return;
  if (ended.empty()) {
    ended = why;
    end = how;
  }
  Tell(host::kTellBye, {why});
  closing = true;
  moved = Clock::now();
}

}  // namespace qdt::omad
