#ifndef HOST_CAPTURE_LIVE_CAPTURE_H_
#define HOST_CAPTURE_LIVE_CAPTURE_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/capture/captured_bytes.h"

namespace qdt::host {

// The process may not capture packets.
class CaptureRightsError : public HostError {
 public:
  using HostError::HostError;
};

// Packets of one network interface, those that it receives and those that it sends, as the kernel shows them
// to packet sockets. Nothing in it blocks.
class LiveCapture {
 public:
  // `netns` is an open network namespace that has the interface; -1: the process's own. Throws HostError,
  // CaptureRightsError when it lacks the right.
  LiveCapture(const std::string &interface, int netns);

  const std::string &interface() const { return interface_; }
  uint32_t index() const { return index_; }  // the kernel's
  LinkType linkType() const { return linkType_; }
  // What is readable when there are packets.
  std::vector<int> fds() const;

  // Calls `sink` for the packets that have come, about `most` of them, in the order of their times.
  void Read(uint32_t most, const std::function<void(const CapturedBytes &)> &sink);

  // Whether the interface is lost, and why; nothing comes from it any more.
  bool gone() const { return !problem_.empty(); }
  const std::string &problem() const { return problem_; }
  // Packets that the kernel had to leave out so far.
  uint64_t Lost() const;

 private:
  // One socket for each direction: packets themselves do not tell it.
  struct Side {
    PcapHandle handle;
    CapturePoint::Direction direction;
    std::optional<CapturedBytes> next;
  };

  void Open(CapturePoint::Direction direction);
  void Fetch(Side *side);
  Side *Earliest();

  std::string interface_;
  uint32_t index_ = 0;
  LinkType linkType_ = LinkType::kEthernet;
  std::vector<Side> sides_;
  std::string problem_;
};

}  // namespace qdt::host

#endif  // HOST_CAPTURE_LIVE_CAPTURE_H_
