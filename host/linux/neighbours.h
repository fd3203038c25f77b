#ifndef HOST_LINUX_NEIGHBOURS_H_
#define HOST_LINUX_NEIGHBOURS_H_

#include <set>
#include <unordered_map>
#include <vector>

#include "host/linux/links.h"
#include "host/netlink/ip_address.h"
#include "host/netlink/kernel_set.h"

namespace qdt::host {

// Who a neighbour is: an address behind a link.
struct NeighbourId {
  uint32_t link;
  Family family;
  uint8_t reserved[3];
  IpBytes address;
};

// Neighbours of IP. The engine knows them by VPN and address, the kernel by link and address: of several
// links' entries for one address the engine has one that is resolved, of the lowest link.
class Neighbours {
 public:
  Neighbours(const FillTarget &target, const Links &links);

  void Begin() { known_.Begin(); }
  void Take(const Message &message, Told told);
  void End(bool complete);
  // These links have changed, and with them perhaps the VPN of what is behind them.
  void LinksChanged(const std::set<uint32_t> &links);

  // The MAC address of a neighbour that is resolved, or null.
  const MacAddress *Resolve(const NeighbourId &id) const;
  // Neighbours that have changed since the last call.
  std::vector<NeighbourId> TakeChanged() { return std::exchange(changed_, {}); }
  bool TakeRoomAgain();
  uint64_t refused() const;

 private:
  struct Known {
    uint16_t state = 0;  // NUD_...
    MacAddress mac{};
    uint32_t vpn = 0;
    uint32_t since = 0;      // seconds of the monotonic clock since when it is not resolved
    void *missed = nullptr;  // its entry among those that are not
  };
  // What the engine knows a neighbour by.
  struct Place {
    uint32_t vpn;
    Family family;
    uint8_t reserved[3];
    IpBytes address;
  };
  struct Shown {
    std::set<uint32_t> links;  // of those that are resolved
    void *entry = nullptr;
  };
  // The two tables of a family.
  struct Tables {
    Tables(const FillTarget &target, Family family);
    MirrorTable resolved, missed;
    FieldRef vpn, nextHop, valid, control, forward, control3, forward3, mac, vlan;
    FieldRef missedVpn, missedKey, missedNextHop, missedSince;
  };

  Place PlaceOf(const NeighbourId &id, const Known &known) const;
  void Join(const NeighbourId &id, Known *known);
  void Leave(const NeighbourId &id, Known *known);
  void Show(const Place &place);

  const Links &links_;
  KernelSet<NeighbourId, Known> known_;
  std::unordered_map<Place, Shown, HashOfBytes<Place>, SameBytes<Place>> shown_;
  std::vector<NeighbourId> changed_;
  Tables tables_[2];
};

// Addresses of the links.
class Addresses {
 public:
  explicit Addresses(const FillTarget &target);

  void Begin() { known_.Begin(); }
  void Take(const Message &message, Told told);
  void End(bool complete);
  // Whether the kernel may have dropped routes without a word: an address has gone.
  bool TakeSilentLoss() { return std::exchange(silentLoss_, false); }
  bool TakeRoomAgain();
  uint64_t refused() const;

 private:
  struct Id {
    uint32_t link;
    Family family;
    uint8_t prefix;
    uint16_t reserved;
    IpBytes address;
    IpBytes peer;
  };
  struct Known {
    void *entry = nullptr;
  };
  // How many addresses a link has, and its entry that leads to them.
  struct Head {
    uint32_t count = 0;
    void *entry = nullptr;
  };
  struct Tables {
    Tables(const FillTarget &target, Family family);
    MirrorTable heads, list;
    FieldRef headKey, headList, listKey, address, mask, type;
  };
  void Leave(const Id &id, Known *known);

  KernelSet<Id, Known> known_;
  std::unordered_map<uint32_t, Head> heads_[2];
  Tables tables_[2];
  bool silentLoss_ = false;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_NEIGHBOURS_H_
