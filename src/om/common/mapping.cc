#include "src/om/common/mapping.h"

#include <fcntl.h>
#include <unistd.h>

namespace qdt {
namespace {

// A line of the list: "BEGIN-END PERMISSIONS OFFSET MAJOR:MINOR INODE NAME", numbers but the inode in
// hexadecimal.
struct Mapping {
  uint64_t begin, end, offset, major, minor, inode;

  bool IsFollowedBy(const Mapping &next) const {
    return next.begin == end && next.major == major && next.minor == minor && next.inode == inode &&
           (inode == 0 || next.offset == offset + (end - begin));
  }
};

// The process's mappings, in order of address.
class MappingList {
 public:
  MappingList() : file_(open("/proc/self/maps", O_RDONLY | O_CLOEXEC)) {}
  ~MappingList() {
    if (file_ >= 0) close(file_);
  }
  MappingList(const MappingList &) = delete;
  MappingList &operator=(const MappingList &) = delete;

  // False at the end of the list, and when it cannot be read or understood: broken() tells which.
  bool Next(Mapping &mapping) {
    if (!Fill()) return false;
    const bool read = Number(16, '-', mapping.begin) && Number(16, ' ', mapping.end) && Skip(' ') &&
                      Number(16, ' ', mapping.offset) && Number(16, ':', mapping.major) &&
                      Number(16, ' ', mapping.minor) && Inode(mapping.inode);
    if (!read) broken_ = true;
    return read;
  }

  bool broken() const { return broken_; }

 private:
  // Whether there is another character.
  bool Fill() {
    if (next_ < size_) return true;
    const ssize_t got = file_ < 0 ? -1 : read(file_, text_, sizeof(text_));
    if (got < 0) broken_ = true;
    next_ = 0;
    size_ = got < 0 ? 0 : static_cast<size_t>(got);
    return size_ > 0;
  }

  bool Number(uint64_t base, char end, uint64_t &number) {
    number = 0;
    while (Fill()) {
      const char c = text_[next_++];
      if (c == end) return true;
      const auto digit = static_cast<uint64_t>(c >= 'a' ? c - 'a' + 10 : c - '0');
      if (digit >= base) return false;
      number = number * base + digit;
    }
    return false;
  }

  bool Skip(char end) {
    while (Fill()) {
      if (text_[next_++] == end) return true;
    }
    return false;
  }

  // The last number, and what is left of its line. A mapping without a name may have no blank behind it.
  bool Inode(uint64_t &number) {
    number = 0;
    while (Fill()) {
      const char c = text_[next_++];
      if (c == '\n') return true;
      if (c < '0' || c > '9') return c == ' ' && Skip('\n');
      number = number * 10 + static_cast<uint64_t>(c - '0');
    }
    return false;
  }

  const int file_;
  bool broken_ = false;
  char text_[1024];
  size_t next_ = 0, size_ = 0;
};

}  // namespace

uint64_t EndOfMapping(uint64_t address) {
  MappingList list;
  Mapping found{}, next{};
  bool isFound = false;
  while (list.Next(next)) {
    if (isFound ? !found.IsFollowedBy(next) : next.begin > address) break;
    if (!isFound && next.end <= address) continue;
    found = next;
    isFound = true;
  }
  if (list.broken()) return UINT64_MAX;
  return isFound ? found.end : address;
}

}  // namespace qdt
