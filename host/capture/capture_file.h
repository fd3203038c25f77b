#ifndef HOST_CAPTURE_CAPTURE_FILE_H_
#define HOST_CAPTURE_CAPTURE_FILE_H_

#include <optional>
#include <string>

#include "host/capture/captured_bytes.h"

namespace qdt::host {

// A file of captured packets (pcap with microseconds or nanoseconds, pcapng), read one after the other.
class CaptureFile {
 public:
  // Throws HostError with one line when the file cannot be read, is none, or is damaged before the end of its
  // first packet.
  explicit CaptureFile(const std::string &path);

  LinkType linkType() const { return linkType_; }

  // The packet that is next; null at the end.
  const CapturedBytes *Peek() const { return next_ ? &*next_ : nullptr; }
  // Goes on to the one behind it.
  void Advance();

  // How the reading has ended, when Peek has nothing any more: one line.
  const std::string &ending() const { return ending_; }

 private:
  std::string path_;
  PcapHandle handle_;
  LinkType linkType_ = LinkType::kEthernet;
  std::optional<CapturedBytes> next_;
  uint64_t count_ = 0;  // packets read
  bool isDamaged_ = false;
  std::string ending_;
};

}  // namespace qdt::host

#endif  // HOST_CAPTURE_CAPTURE_FILE_H_
