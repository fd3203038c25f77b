#ifndef HOST_LINUX_ROUTES_H_
#define HOST_LINUX_ROUTES_H_

#include <memory>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/linux/nexthops.h"
#include "host/netlink/kernel_set.h"
#include "host/netlink/route_message.h"

namespace qdt::host {

// The routes of one family, of all tables. The engine has one route for a prefix of a VPN. Of several that
// the kernel has, which differ in their metric or their type of service, that one is shown which packets of
// no special type take; the others are remembered and take its place when it goes.
template <Family kFamily>
class Routes {
 public:
  Routes(const FillTarget &target, NextHops *nextHops);

  void Begin();
  void Take(const RouteMessage &route, Told told);
  // The dump is over; what it did not show leaves when it was complete. That takes a while with many routes:
  // to be called again for as long as it returns true.
  bool End(bool complete);

  // Whether something was told that only a dump can settle.
  bool TakeUnsettled() { return std::exchange(unsettled_, false); }
  bool TakeRoomAgain() { return table_.TakeRoomAgain(); }
  uint64_t refused() const { return table_.refused() + tooHigh_; }
  size_t prefixes() const { return prefixes_.size(); }

 private:
  struct Key {
    uint16_t prefix, vpn;
    uint8_t address[BytesOf(kFamily)];
    auto operator<=>(const Key &) const = default;
  };
  struct Route {
    uint32_t metric;
    Destination destination;  // the route is one of its users
    uint32_t told;            // in which dump, or since when
    uint8_t tos;
    uint8_t type;
    bool joins;  // is one with others of its metric: several routes through gateways are one with several
                 // ways (IPv6)
    bool Alike(const Route &other) const { return metric == other.metric && tos == other.tos; }
    bool Same(const Route &other) const { return Alike(other) && destination == other.destination; }
  };
  struct Prefix {
    void *entry = nullptr;
    Route best{};                                // of type 0: there is none yet
    std::unique_ptr<std::vector<Route>> others;  // mostly none
  };
  // A route that a notification has taken away while a dump runs, with the ways that it had: their numbers
  // are others when they are used again.
  struct Dropped {
    Key key;
    uint32_t metric, tos;
    std::vector<Leg> legs;
    auto operator<=>(const Dropped &) const = default;
  };
  using Prefixes = std::unordered_map<Key, Prefix, HashOfBytes<Key>>;
  using List = std::vector<Route>;

  static bool Before(const Route &a, const Route &b);
  Destination Use(const RouteMessage &route);
  void Add(const Key &key, List *list, const RouteMessage &message, Route route, Told told);
  typename List::iterator Replaced(List *list, const RouteMessage &message, const Route &route);
  typename List::iterator PlaceFor(List *list, const RouteMessage &message, const Route &route, bool byDump);
  void Delete(const Key &key, List *list, const RouteMessage &message, const Route &route);
  bool Shrink(const Key &key, List *list, const RouteMessage &message, const Route &route);
  void Erase(const Key &key, List *list, typename List::iterator at);
  List Load(const Prefix &prefix) const;
  void Store(typename Prefixes::iterator at, List list);
  void Write(const Key &key, Prefix *prefix);
  void NoteDropped(const Key &key, const Route &route);
  bool IsDropped(const Key &key, const Route &route) const;
  Dropped AsDropped(const Key &key, const Route &route) const {
    return {key, route.metric, route.tos, nextHops_.LegsOf(route.destination)};
  }

  NextHops &nextHops_;
  Telling telling_;
  Prefixes prefixes_;
  std::set<Dropped> dropped_;
  bool unsettled_ = false;
  uint64_t tooHigh_ = 0;  // routes of tables that no VPN can be
  size_t sweep_ = 0, swept_ = 0;
  MirrorTable table_;
  FieldRef keyPrefix_, keyVpn_, keyAddress_;
  FieldRef type_, isGroup_, default_, direct_, prefix_, number_, metric_, entry_;
};

extern template class Routes<kIpv4>;
extern template class Routes<kIpv6>;

}  // namespace qdt::host

#endif  // HOST_LINUX_ROUTES_H_
