#ifndef HOST_PACKET_LOCAL_ADDRESSES_H_
#define HOST_PACKET_LOCAL_ADDRESSES_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "host/headers/packet_headers.h"
#include "host/layout/layout.h"

namespace qdt::host {

// The device's own addresses, as the engine's tables of interfaces and their addresses have them.
class LocalAddresses {
 public:
  // Throws HostError when `layout` has no such tables or fields.
  explicit LocalAddresses(const Layout &layout);

  // Reads the tables anew, unless that has been done a moment ago: addresses change seldom.
  void Refresh(std::chrono::steady_clock::time_point now);

  // Whether packets to the address end here: its own, broadcasts to its networks, 127.0.0.0/8 and ::1.
  bool IsOwn(const PacketHeaders &headers, const PacketAddress &address) const;
  bool IsOwn(bool isIpv6, WideValue address) const;
  bool HasMac(const PacketMac &mac) const { return macs_.contains(mac); }
  // The interface that has the MAC address; 0: none, or several.
  uint32_t InterfaceOf(const PacketMac &mac) const;
  // The interface whose IPv4 network has the address; 0: none.
  uint32_t InterfaceOfNetwork(const PacketAddress &address) const;

 private:
  struct Network {
    uint32_t address, mask, interface;
  };
  struct Family {
    uint32_t head = 0, list = 0;  // tables
    uint32_t headKeySize = 0, listKeySize = 0, listRecordSize = 0;
    FieldRef headKey, headList, listKey, address, mask;
  };

  static int32_t TakeInterface(void *entry, void *context);
  Family FamilyOf(const Layout &layout, const char *head, const char *list, const char *mask) const;
  void TakeList(const Family &family, uint32_t interface);
  void TakeAddress(const Family &family, uint32_t interface, const void *record);

  uint32_t interfaces_ = 0;  // table
  FieldRef index_, mac_;
  Family families_[2];

  std::vector<uint32_t> indexes_;
  std::map<PacketMac, uint32_t> macs_;
  std::set<WideValue> own4_, own6_;
  std::vector<Network> networks_;
  std::chrono::steady_clock::time_point read_{};
};

}  // namespace qdt::host

#endif  // HOST_PACKET_LOCAL_ADDRESSES_H_
