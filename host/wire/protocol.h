#ifndef HOST_WIRE_PROTOCOL_H_
#define HOST_WIRE_PROTOCOL_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "host/base/fd.h"

namespace qdt::host {

// The engine's socket speaks frames: a 32-bit number of text bytes, a 32-bit word, the text; numbers
// little-endian. In a request the word is kRequestMark and the text a command line; in a reply the word is
// the status and the text the answer. Requests may follow one another without waiting; replies come in the
// same order.
constexpr size_t kFrameHeader = 8;
constexpr uint32_t kFrameLimit = 1u << 20;     // text bytes of one request or reply
constexpr uint32_t kRequestMark = 0x3145514e;  // "NQE1"

// Reply status: 0, or negative when the command was refused or failed. The text says why, except for a
// command that answers with a code alone.
constexpr int32_t kReplyOk = 0;
constexpr int32_t kReplyRefused = -1;

// What a command line comes to. `fd` is a file handed over with the reply (a copy of the arena), usually
// none.
struct EngineReply {
  int32_t status = kReplyOk;
  std::string text;
  UniqueFd fd;
};

// Runs one engine command line: in the engine itself, or through its socket. Throws HostError when it cannot.
using EngineChannel = std::function<EngineReply(std::string_view line)>;

std::string EncodeFrame(uint32_t word, std::string_view text);

struct Frame {
  uint32_t word = 0;
  std::string text;
};

// Cuts a stream of bytes into frames.
class FrameReader {
 public:
  enum class State { kNeedMore, kFrame, kTooLong };

  void Append(const char *bytes, size_t count);

  // kFrame: moves the oldest complete frame to *frame. kTooLong: the next frame announces more than
  // kFrameLimit text bytes; the stream is of no use from here on.
  State Next(Frame *frame);

  // Word of the frame that comes next; false as long as its header is not complete.
  bool PeekWord(uint32_t *word) const;

  // True between two frames.
  bool Empty() const { return used_ == bytes_.size(); }

 private:
  std::string bytes_;
  size_t used_ = 0;  // bytes already handed out
};

}  // namespace qdt::host

#endif  // HOST_WIRE_PROTOCOL_H_
