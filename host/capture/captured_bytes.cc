#include "host/capture/captured_bytes.h"

#include <pcap/pcap.h>

#include <utility>

#include "host/base/host_error.h"

namespace qdt::host {

PcapHandle::~PcapHandle() {
  if (handle_ != nullptr) pcap_close(handle_);
}

PcapHandle &PcapHandle::operator=(PcapHandle &&other) noexcept {
  std::swap(handle_, other.handle_);
  return *this;
}

LinkType LinkTypeOf(const PcapHandle &handle, const std::string &what) {
  const int type = pcap_datalink(handle.get());
  switch (type) {
    case DLT_EN10MB:
      return LinkType::kEthernet;
    case DLT_LINUX_SLL:
      return LinkType::kCooked;
    case DLT_LINUX_SLL2:
      return LinkType::kCooked2;
    default:
      break;
  }
  const char *name = pcap_datalink_val_to_name(type);
  throw HostError(what + ": packets of the link type " +
                  (name != nullptr ? std::string(name) : std::to_string(type)) +
                  " are not read; Ethernet and Linux cooked captures are");
}

}  // namespace qdt::host
