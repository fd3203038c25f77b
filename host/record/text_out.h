#ifndef HOST_RECORD_TEXT_OUT_H_
#define HOST_RECORD_TEXT_OUT_H_

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace qdt::host {

// Where answers are written, piece by piece. Also an output stream as RapidJSON's writers take them.
class TextOut {
 public:
  using Ch = char;

  TextOut() : buffer_(new char[kRoom]), at_(buffer_.get()) {}
  virtual ~TextOut() = default;
  TextOut(const TextOut &) = delete;
  TextOut &operator=(const TextOut &) = delete;

  void Put(char c) {
    if (at_ == buffer_.get() + kRoom) Spill();
    *at_++ = c;
  }
  void Append(std::string_view text) {
    if (text.size() <= static_cast<size_t>(buffer_.get() + kRoom - at_)) {
      std::memcpy(at_, text.data(), text.size());
      at_ += text.size();
      return;
    }
    while (!text.empty()) {
      if (at_ == buffer_.get() + kRoom) Spill();
      const size_t size = std::min<size_t>(text.size(), static_cast<size_t>(buffer_.get() + kRoom - at_));
      std::memcpy(at_, text.data(), size);
      at_ += size;
      text.remove_prefix(size);
    }
  }
  // Room for `size` characters, at most kMostRoom, which are written there and then taken with Advance.
  char *Room(size_t size) {
    if (at_ + size > buffer_.get() + kRoom) Spill();
    return at_;
  }
  void Advance(size_t size) { at_ += size; }
  static constexpr size_t kMostRoom = 4096;
  // RapidJSON's word for the end of a document: here nothing, more may follow.
  void Flush() {}
  // Hands over what stands in the buffer. To be called at the end; what Write throws comes out of it.
  void Spill() {
    const std::string_view text(buffer_.get(), static_cast<size_t>(at_ - buffer_.get()));
    at_ = buffer_.get();
    if (!text.empty()) Write(text);
  }

 protected:
  virtual void Write(std::string_view text) = 0;

 private:
  static constexpr size_t kRoom = 32 << 10;
  std::unique_ptr<char[]> buffer_;
  char *at_;
};

// Keeps what is written.
class StringOut : public TextOut {
 public:
  // What was written since the last call.
  std::string Take() {
    Spill();
    return std::exchange(text_, {});
  }

 private:
  void Write(std::string_view text) override { text_ += text; }

  std::string text_;
};

}  // namespace qdt::host

#endif  // HOST_RECORD_TEXT_OUT_H_
