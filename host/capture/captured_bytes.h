#ifndef HOST_CAPTURE_CAPTURED_BYTES_H_
#define HOST_CAPTURE_CAPTURED_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/headers/parse.h"
#include "host/packet/forwarding.h"

struct pcap;

namespace qdt::host {

// A packet as a capture delivers it; the bytes are the capture's until its next one.
struct CapturedBytes {
  const uint8_t *data = nullptr;
  size_t captured = 0;
  uint32_t wire = 0;
  uint64_t time = 0;  // from any moment on: nanoseconds in files, else microseconds
  CapturePoint::Direction direction = CapturePoint::Direction::kUnknown;
};

// The pcap library's handle, which closes itself.
class PcapHandle {
 public:
  explicit PcapHandle(pcap *handle = nullptr) : handle_(handle) {}
  ~PcapHandle();
  PcapHandle(PcapHandle &&other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
  PcapHandle &operator=(PcapHandle &&other) noexcept;

  pcap *get() const { return handle_; }

 private:
  pcap *handle_;
};

// How packets of the handle begin. Throws HostError "WHAT: ..." for link types that are not read.
LinkType LinkTypeOf(const PcapHandle &handle, const std::string &what);

}  // namespace qdt::host

#endif  // HOST_CAPTURE_CAPTURED_BYTES_H_
