#include "host/netconf/framing.h"

#include <algorithm>
#include <charconv>

namespace qdt::host {
namespace {

constexpr std::string_view kMark = "]]>]]>";
// "\n#4294967295\n", the longest beginning of a chunk.
constexpr size_t kLongestHeader = 13;

}  // namespace

void MessageReader::Append(std::string_view bytes) {
  DropUsed();
  input_.append(bytes);
}

void MessageReader::DropUsed() {
  input_.erase(0, used_);
  used_ = 0;
  // A session may idle for days after one large message.
  if (input_.empty()) std::string().swap(input_);
}

void MessageReader::Keep(size_t count) {
  const size_t room = limit_ - message_.size();
  message_.append(input_, used_, std::min(count, room));
  tooBig_ |= count > room;
  used_ += count;
}

MessageReader::State MessageReader::Broken() {
  broken_ = true;
  std::string().swap(input_);
  used_ = 0;
  return State::kBroken;
}

MessageReader::State MessageReader::Finish(std::string *message) {
  const State state = tooBig_ ? State::kTooBig : State::kMessage;
  message->swap(message_);
  std::string().swap(message_);
  tooBig_ = inMessage_ = atEnd_ = false;
  return state;
}

MessageReader::State MessageReader::Next(std::string *message) {
  if (broken_) return State::kNeedMore;
  const State state = chunked_ ? NextChunked(message) : NextMarked(message);
  DropUsed();
  return state;
}

MessageReader::State MessageReader::NextMarked(std::string *message) {
  const size_t at = input_.find(kMark, used_);
  if (at == input_.npos) {
    // The mark may have begun at the end of what came.
    const size_t whole = input_.size() - used_;
    if (whole >= kMark.size()) Keep(whole - (kMark.size() - 1));
    return State::kNeedMore;
  }
  Keep(at - used_);
  used_ += kMark.size();
  return Finish(message);
}

bool MessageReader::ReadChunkHeader() {
  const std::string_view text = std::string_view(input_).substr(used_);
  const size_t end = text.size() < 2 ? text.npos : text.find('\n', 2);
  const std::string_view begun = text.substr(0, 2);
  if (!std::string_view("\n#").starts_with(begun)) {
    broken_ = true;
    return false;
  }
  if (end == text.npos) {
    broken_ = text.size() >= kLongestHeader;
    return false;
  }
  const std::string_view word = text.substr(2, end - 2);
  if (word == "#") {
    atEnd_ = inMessage_;
    broken_ = !inMessage_;
  } else {
    const char *const last = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), last, chunkLeft_);
    broken_ = error != std::errc() || stop != last || word.empty() || word[0] == '0' || word[0] == '-' ||
              chunkLeft_ > 4294967295u;
    inMessage_ = true;
  }
  used_ += end + 1;
  return !broken_;
}

MessageReader::State MessageReader::NextChunked(std::string *message) {
  while (true) {
    if (chunkLeft_ > 0) {
      const size_t count = std::min<uint64_t>(chunkLeft_, input_.size() - used_);
      Keep(count);
      chunkLeft_ -= count;
      if (chunkLeft_ > 0) return State::kNeedMore;
    }
    if (!ReadChunkHeader()) return broken_ ? Broken() : State::kNeedMore;
    if (atEnd_) return Finish(message);
  }
}

void MessageFramer::Append(std::string_view piece, std::string *out) const {
  if (chunked_) *out += "\n#" + std::to_string(piece.size()) + "\n";
  out->append(piece);
}

void MessageFramer::End(std::string *out) const { *out += chunked_ ? std::string_view("\n##\n") : kMark; }

}  // namespace qdt::host
