#ifndef HOST_PACKET_INTERFACE_COUNTERS_H_
#define HOST_PACKET_INTERFACE_COUNTERS_H_

#include <array>
#include <cstdint>
#include <vector>

#include "host/layout/layout.h"
#include "host/packet/traffic_generator.h"
#include "host/packet/traffic_packet.h"

namespace qdt::host {

// The counters in the records of the forwarding interfaces that are in use. The engine adds to them in place,
// each in one store, while others read.
class InterfaceCounters {
 public:
  enum class Direction : uint8_t { kIn, kOut };

  // Finds the interfaces that are in use in the current arena; later ones are counted as well. Throws
  // HostError when `layout` has no such fields.
  explicit InterfaceCounters(const Layout &layout);

  const std::vector<TrafficInterface> &interfaces() const { return interfaces_; }

  // Counts the packet at an interface; index 0 is none.
  void Count(uint32_t index, Direction direction, const Packet &packet);

 private:
  static constexpr uint32_t kGroups = 4;  // blocks of counters in a record, each for a part of the cores

  struct Block {
    FieldRef bytes, packets, unicast, multicast, broadcast;
  };

  std::array<std::array<Block, 2>, kGroups> blocks_;  // by group and direction
  std::vector<TrafficInterface> interfaces_;
  uint32_t table_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_PACKET_INTERFACE_COUNTERS_H_
