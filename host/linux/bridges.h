#ifndef HOST_LINUX_BRIDGES_H_
#define HOST_LINUX_BRIDGES_H_

#include <array>
#include <map>
#include <vector>

#include "host/linux/links.h"

namespace qdt::host {

// What follows from the links that are bridges and from those that are their ports: the bridges, the states
// of the ports, who is isolated from whom, the VLANs and who gets what is flooded. Made anew as a whole when
// links change.
class Bridges {
 public:
  Bridges(const FillTarget &target, Links *links);

  // The dump of the ports' VLANs.
  void Begin() { coming_.clear(); }
  void Take(const Message &message);
  void End(bool complete);

  // To be called when the links have changed.
  void Derive();
  // To be called when the numbers of their MAC addresses have changed.
  void DeriveCounts();
  uint64_t refused();

 private:
  struct Ports {
    const Link *bridge = nullptr;
    std::vector<const Link *> links;
  };
  using Vlans = std::vector<PortVlan>;

  void DerivePorts(const Ports &ports);
  void DeriveBridge(const Link &bridge);
  void DeriveVlans(const Ports &ports);
  void DeriveIsolation(const Ports &ports);
  const Vlans &VlansOf(uint32_t index) const;
  // All but the bridges' own.
  std::array<DerivedTable *, 6> tables() {
    return {&states_, &isolation_, &flood_, &floodAll_, &members_, &vlanTable_};
  }

  Links &links_;
  std::map<uint32_t, Vlans> vlans_, coming_;  // by link
  DerivedTable bridges_, states_, isolation_, flood_, floodAll_, members_, vlanTable_;
  FieldRef bridgeKey_, bridgeId_, bridgeIf_, bridgeFilter_, bridgeAging_, bridgeCount_;
  FieldRef stateIfKey_, stateIf_, state_;
  FieldRef fromKey_, toKey_, from_, to_, isolate_;
  FieldRef floodBridgeKey_, floodVlanKey_, floodBridge_, floodVlan_, floodIf_;
  FieldRef floodAllIf_;
  FieldRef membersKey_, membersIf_;
  std::vector<FieldRef> member_, untagged_;  // by word
  FieldRef vlanKey_, vlanBridgeKey_, vlanId_, vlanLearning_, vlanSnooping_, vlanIf_;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_BRIDGES_H_
