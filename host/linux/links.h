#ifndef HOST_LINUX_LINKS_H_
#define HOST_LINUX_LINKS_H_

#include <set>

#include "host/linux/mirror_table.h"
#include "host/netlink/kernel_set.h"
#include "host/netlink/link_message.h"

namespace qdt::host {

// The engine's VPNs have 16 bits, the kernel's tables 32: what is in a table above has no place.
constexpr uint32_t kMostVpn = 0xffff;

// The kernel's links in the engine's interface table, each under its index. What the other tables say of
// interfaces comes from here.
class Links {
 public:
  explicit Links(const FillTarget &target);

  void Begin() { links_.Begin(); }
  void Take(const Message &message, Told told);
  void End(bool complete);
  // RTM_NEWLINK and RTM_DELLINK of the bridges about a port.
  void TakePort(const Message &message);
  // What RTM_GETSTATS has answered.
  void TakeCounters(const Message &message);
  // How many MAC addresses are known at a link, or on a bridge.
  void SetMacCount(uint32_t index, uint32_t count);
  // The VLAN of untagged packets of a bridge's port; 0: none.
  void SetPvid(uint32_t index, uint16_t vlan);

  // Null when there is none.
  const Link *Find(uint32_t index) const;
  // The bridge that a link is a port of, or null.
  const Link *BridgeOf(const Link &link) const;
  // Address of the link's entry in the interface table; null when there is none.
  void *Entry(uint32_t index) const;
  // The routing table of the VRF that the link belongs to, 0 for the main one.
  uint32_t VpnOf(uint32_t index) const;
  uint32_t MacCount(uint32_t index) const;

  template <typename Visit>
  void ForEach(Visit visit) const {
    links_.ForEach([&](const Id &, const Known &known) { visit(known.link); });
  }

  // Writes anew what says something of another link that has changed. To be called when messages are over for
  // now.
  void Settle();
  // Links that have changed, come or gone since the last call, apart from their counters.
  std::set<uint32_t> TakeChanged();
  // Whether the kernel may have dropped routes and next hops without a word: a link has gone, or down.
  bool TakeSilentLoss();
  LinkCounters Total() const;
  bool TakeRoomAgain() {
    const bool links = table_.TakeRoomAgain(), numbers = map_.TakeRoomAgain();
    return links || numbers;
  }
  uint64_t refused() const { return table_.refused() + map_.refused(); }

 private:
  struct Id {
    uint32_t index;
  };
  struct Known {
    Link link;
    void *entry = nullptr;
    void *mapEntry = nullptr;
    uint32_t macCount = 0;
    uint16_t pvid = 0;
  };
  void Write(Known *known);
  void Leave(Known *known);

  KernelSet<Id, Known> links_;
  std::set<uint32_t> changed_;
  bool silentLoss_ = false;
  MirrorTable table_, map_;
  FieldRef key_, mapKey_, mapControl_, mapForward_;
  struct Fields {
    FieldRef index, enable, down, isVirtual, layer3, control, flags, father, linkType, mac, pvid, bridge;
    FieldRef learning, snooping, vlan, macCount, trunkMember, isolate, stp, stpBlock, stpForward;
    FieldRef vpn, mtu, vpn6, mtu6, inBytes, inPackets, inMulticast, outBytes, outPackets;
  } fields_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_LINKS_H_
