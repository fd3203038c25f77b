#include "host/wire/protocol.h"

namespace qdt::host {
namespace {

void PutWord(std::string *to, uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) to->push_back(static_cast<char>(word >> shift));
}

uint32_t GetWord(const char *from) {
  uint32_t word = 0;
  for (int i = 3; i >= 0; --i) word = word << 8 | static_cast<uint8_t>(from[i]);
  return word;
}

}  // namespace

std::string EncodeFrame(uint32_t word, std::string_view text) {
  std::string frame;
  frame.reserve(kFrameHeader + text.size());
  PutWord(&frame, static_cast<uint32_t>(text.size()));
  PutWord(&frame, word);
  frame.append(text);
  return frame;
}

void FrameReader::Append(const char *bytes, size_t count) {
  bytes_.erase(0, used_);
  used_ = 0;
  bytes_.append(bytes, count);
}

bool FrameReader::PeekWord(uint32_t *word) const {
  if (bytes_.size() - used_ < kFrameHeader) return false;
  *word = GetWord(bytes_.data() + used_ + 4);
  return true;
}

FrameReader::State FrameReader::Next(Frame *frame) {
  if (!PeekWord(&frame->word)) return State::kNeedMore;
  const uint32_t length = GetWord(bytes_.data() + used_);
  if (length > kFrameLimit) return State::kTooLong;
  if (bytes_.size() - used_ - kFrameHeader < length) return State::kNeedMore;
  frame->text.assign(bytes_, used_ + kFrameHeader, length);
  used_ += kFrameHeader + length;
  if (Empty()) {
    // A connection may idle for days after one large request: keep no memory for it.
    std::string().swap(bytes_);
    used_ = 0;
  }
  return State::kFrame;
}

}  // namespace qdt::host
