#ifndef HOST_NETCONF_FRAMING_H_
#define HOST_NETCONF_FRAMING_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qdt::host {

// Cuts what a NETCONF peer sends into messages (RFC 6242): framed by an end-of-message mark until both sides
// know base:1.1, in chunks from then on. What it keeps is bounded whatever comes.
class MessageReader {
 public:
  enum class State : uint8_t {
    kNeedMore,
    kMessage,
    kTooBig,  // the message is over and was longer than the limit; its beginning is handed out
    kBroken,  // no chunk begins where one must: nothing that follows can be read
  };

  explicit MessageReader(size_t limit) : limit_(limit) {}

  // From the next message on: RFC 6242, section 4.2.
  void ExpectChunks() { chunked_ = true; }

  void Append(std::string_view bytes);

  // The oldest message that is complete. kTooBig and kBroken come once a message; after kBroken there is no
  // more.
  State Next(std::string *message);

  // Whether the peer is between two messages.
  bool Empty() const { return input_.size() == used_ && message_.empty() && !tooBig_; }

 private:
  State NextMarked(std::string *message);
  State NextChunked(std::string *message);
  State Broken();
  State Finish(std::string *message);
  // Takes `count` bytes of input as part of the message.
  void Keep(size_t count);
  // Reads "\n#NUMBER\n" or "\n##\n". False when more input is needed or the stream is broken.
  bool ReadChunkHeader();
  void DropUsed();

  const size_t limit_;
  std::string input_;
  size_t used_ = 0;  // bytes of the input that are done with
  std::string message_;
  uint64_t chunkLeft_ = 0;
  bool chunked_ = false;
  bool inMessage_ = false;  // a chunk has come
  bool tooBig_ = false;
  bool atEnd_ = false;  // the chunks of this message are over
  bool broken_ = false;
};

// How a message is framed for the peer, piece by piece.
class MessageFramer {
 public:
  void SendChunks() { chunked_ = true; }
  // `piece` is not empty.
  void Append(std::string_view piece, std::string *out) const;
  void End(std::string *out) const;

 private:
  bool chunked_ = false;
};

}  // namespace qdt::host

#endif  // HOST_NETCONF_FRAMING_H_
