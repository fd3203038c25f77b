#include "host/capture/live_capture.h"

#include <fcntl.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/base/fd.h"

namespace qdt::host {
namespace {

using Direction = CapturePoint::Direction;

constexpr int kKept = 512;      // bytes of a packet: headers are what is looked at
constexpr int kRoom = 8 << 20;  // bytes for packets that wait in the kernel
constexpr char kOption[] = "--capture ";

// The calling thread is in another network namespace for as long as this lives: sockets stay in the one in
// which they were made.
class NamespaceVisit {
 public:
  explicit NamespaceVisit(int netns) {
    if (netns < 0) return;
    home_ = UniqueFd(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    if (!home_.ok() || setns(netns, CLONE_NEWNET) != 0)
      throw SystemError("cannot enter the network namespace");
  }
  ~NamespaceVisit() {
    if (home_.ok() && setns(home_.get(), CLONE_NEWNET) != 0) {
      std::perror("nqed: cannot leave the network namespace");
      std::abort();
    }
  }
  NamespaceVisit(const NamespaceVisit &) = delete;
  NamespaceVisit &operator=(const NamespaceVisit &) = delete;

 private:
  UniqueFd home_;
};

bool IsLoopback(const std::string &interface) {
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
  return socket.ok() && ioctl(socket.get(), SIOCGIFFLAGS, &request) == 0 &&
         (request.ifr_flags & IFF_LOOPBACK) != 0;
}

}  // namespace

LiveCapture::LiveCapture(const std::string &interface, int netns) : interface_(interface) {
  const NamespaceVisit visit(netns);
  index_ = interface.size() < IFNAMSIZ ? if_nametoindex(interface.c_str()) : 0;
  if (index_ == 0)
    throw HostError(kOption + Quoted(interface) + ": there is no such network interface (see ip link)");
  Open(Direction::kIn);
  // The loopback receives what it sends.
  if (!IsLoopback(interface)) Open(Direction::kOut);
  linkType_ = LinkTypeOf(sides_.front().handle, kOption + interface_);
}

void LiveCapture::Open(Direction direction) {
  char problem[PCAP_ERRBUF_SIZE] = "";
  PcapHandle handle(pcap_create(interface_.c_str(), problem));
  if (handle.get() == nullptr) throw HostError(kOption + interface_ + ": " + problem);
  pcap_set_snaplen(handle.get(), kKept);
  pcap_set_buffer_size(handle.get(), kRoom);
  pcap_set_immediate_mode(handle.get(), 1);
  const int status = pcap_activate(handle.get());
  if (status == PCAP_ERROR_PERM_DENIED) {
    throw CaptureRightsError(kOption + interface_ +
                             ": no right to capture packets; run as root or with the capability CAP_NET_RAW");
  }
  // Warnings are positive.
  if (status < 0 || pcap_setnonblock(handle.get(), 1, problem) != 0 ||
      pcap_setdirection(handle.get(), direction == Direction::kIn ? PCAP_D_IN : PCAP_D_OUT) != 0) {
    const char *text = pcap_geterr(handle.get());
    throw HostError(kOption + interface_ + ": " + (*text != '\0' ? text : pcap_statustostr(status)));
  }
  sides_.push_back({std::move(handle), direction, {}});
}

std::vector<int> LiveCapture::fds() const {
  std::vector<int> fds;
  for (const Side &side : sides_) fds.push_back(pcap_get_selectable_fd(side.handle.get()));
  return fds;
}

void LiveCapture::Fetch(Side *side) {
  if (side->next || gone()) return;
  pcap_pkthdr *header = nullptr;
  const u_char *data = nullptr;
  const int status = pcap_next_ex(side->handle.get(), &header, &data);
  if (status == 1) {
    const auto time =
        static_cast<uint64_t>(header->ts.tv_sec) * 1'000'000 + static_cast<uint64_t>(header->ts.tv_usec);
    side->next = CapturedBytes{data, header->caplen, header->len, time, side->direction};
  } else if (status < 0) {
    problem_ = kOption + interface_ + ": " + pcap_geterr(side->handle.get());
  }
}

LiveCapture::Side *LiveCapture::Earliest() {
  Side *earliest = nullptr;
  for (Side &side : sides_) {
    if (side.next && (earliest == nullptr || side.next->time < earliest->next->time)) earliest = &side;
  }
  return earliest;
}

void LiveCapture::Read(uint32_t most, const std::function<void(const CapturedBytes &)> &sink) {
  for (uint32_t read = 0;; ++read) {
    // Nothing that was fetched stays behind: the kernel would not tell of it again.
    if (read < most) {
      for (Side &side : sides_) Fetch(&side);
    }
    Side *const side = Earliest();
    if (side == nullptr) return;
    sink(*side->next);
    side->next.reset();
  }
}

uint64_t LiveCapture::Lost() const {
  uint64_t lost = 0;
  for (const Side &side : sides_) {
    pcap_stat statistics{};
    if (pcap_stats(side.handle.get(), &statistics) == 0) lost += statistics.ps_drop;
  }
  return lost;
}

}  // namespace qdt::host
