#ifndef HOST_HEADERS_BYTES_H_
#define HOST_HEADERS_BYTES_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qdt::host {

// A part of a packet. What the capture has kept of it can be read; how long it was on the wire tells a packet
// that was cut by the capture from one whose own lengths lie.
class Bytes {
 public:
  Bytes(const uint8_t *data, size_t captured, size_t wire)
      : data_(data), captured_(std::min(captured, wire)), wire_(wire) {}

  size_t wire() const { return wire_; }
  // Whether the first `count` bytes can be read.
  bool Has(size_t count) const { return count <= captured_; }
  // Whether the packet never had so many.
  bool Lacks(size_t count) const { return count > wire_; }

  // To be asked only for bytes that it has.
  uint8_t At(size_t offset) const { return data_[offset]; }
  uint16_t At16(size_t offset) const { return static_cast<uint16_t>(data_[offset] << 8 | data_[offset + 1]); }
  template <size_t kSize>
  void CopyTo(size_t offset, size_t count, std::array<uint8_t, kSize> *to) const {
    std::memcpy(to->data(), data_ + offset, count);
  }

  // What is behind the first `count` bytes, and they alone; nothing where there are less.
  Bytes From(size_t count) const {
    const size_t skipped = std::min(count, captured_);
    return {data_ + skipped, captured_ - skipped, wire_ - std::min(count, wire_)};
  }
  Bytes First(size_t count) const { return {data_, captured_, std::min(count, wire_)}; }

 private:
  const uint8_t *data_;
  size_t captured_;  // at most wire_
  size_t wire_;
};

}  // namespace qdt::host

#endif  // HOST_HEADERS_BYTES_H_
