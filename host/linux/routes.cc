#include "host/linux/routes.h"

#include <linux/rtnetlink.h>
#include <syslog.h>

#include <algorithm>

namespace qdt::host {
namespace {

constexpr uint32_t kMostCode = 7;        // of the engine's operation codes
constexpr size_t kSweepBuckets = 16384;  // about a millisecond

}  // namespace

template <Family kFamily>
Routes<kFamily>::Routes(const FillTarget &target, NextHops *nextHops)
    : nextHops_(*nextHops), table_(target, kFamily == kIpv4 ? "fib" : "ipv6_fib") {
  keyPrefix_ = table_.Key("prefix");
  keyVpn_ = table_.Key("vpn");
  keyAddress_ = table_.Key("destination");
  type_ = table_.Value("op_code");
  isGroup_ = table_.Value("multi_next_hop");
  default_ = table_.Value("default");
  direct_ = table_.Value("direct");
  prefix_ = table_.Value("prefix");
  number_ = table_.Value("nhp_index");
  metric_ = table_.Value("re_index");
  entry_ = table_.Value("next_hop");
}

template <Family kFamily>
void Routes<kFamily>::Begin() {
  telling_.Begin();
  dropped_.clear();
}

template <Family kFamily>
bool Routes<kFamily>::Before(const Route &a, const Route &b) {
  if ((a.tos != 0) != (b.tos != 0)) return a.tos == 0;
  return a.metric < b.metric;
}

template <Family kFamily>
Destination Routes<kFamily>::Use(const RouteMessage &route) {
  return route.object != 0 ? nextHops_.UseObject(route.object) : nextHops_.Use(route.legs);
}

template <Family kFamily>
void Routes<kFamily>::Take(const RouteMessage &message, Told told) {
  if (message.table > kMostVpn) {
    if (message.isNew && tooHigh_++ == 0)
      syslog(LOG_WARNING, "routes of table %u and others above %u are not shown: VPNs have 16 bits",
             message.table, kMostVpn);
    return;
  }
  Key key{message.prefix, static_cast<uint16_t>(message.table == RT_TABLE_MAIN ? 0 : message.table), {}};
  std::copy_n(message.destination.begin(), sizeof key.address, key.address);
  auto at = prefixes_.find(key);
  if (at == prefixes_.end()) {
    if (!message.isNew && !telling_.running()) return;
    at = prefixes_.try_emplace(key).first;
  }
  bool joins =
      kFamily == kIpv6 && message.object == 0 && message.protocol != RTPROT_RA && !message.legs.empty();
  for (const Leg &leg : message.legs) joins &= leg.hasGateway;
  const Route route{message.metric, Use(message), telling_.now(), message.tos, message.type, joins};
  List list = Load(at->second);
  if (message.isNew) {
    Add(key, &list, message, route, told);
  } else {
    Delete(key, &list, message, route);
  }
  Store(at, std::move(list));
}

// The route comes with one user more of its destination: itself when it is entered, else that user goes.
template <Family kFamily>
void Routes<kFamily>::Add(const Key &key, List *list, const RouteMessage &message, Route route, Told told) {
  const auto same = std::ranges::find_if(*list, [&](const Route &r) { return r.Same(route); });
  const bool byDump = told == Told::kByDump, known = same != list->end();
  if (byDump && known && telling_.running() && same->told == telling_.now()) {
    // Which of several comes first, the dump may tell otherwise than what has come since it began.
    unsettled_ |= list->size() > 1;
    return nextHops_.Release(route.destination);
  }
  if (byDump && IsDropped(key, route)) return nextHops_.Release(route.destination);
  if (!byDump && !dropped_.empty()) dropped_.erase(AsDropped(key, route));
  if (known) nextHops_.Release(route.destination);
  if (known && !byDump && message.replaces) {
    *same = route;
    return;
  }
  // Without a word that it went, the kernel has it anew: behind the others.
  if (known) list->erase(same);
  const auto place = known || byDump ? list->end() : Replaced(list, message, route);
  if (place != list->end()) {
    NoteDropped(key, *place);
    nextHops_.Release(place->destination);
    *place = route;
  } else {
    list->insert(PlaceFor(list, message, route, byDump), route);
  }
}

// The one in whose place the kernel has put the route, or the end.
template <Family kFamily>
typename Routes<kFamily>::List::iterator Routes<kFamily>::Replaced(List *list, const RouteMessage &message,
                                                                   const Route &route) {
  if (!message.replaces && !route.joins) return list->end();
  const auto place =
      std::ranges::find_if(*list, [&](const Route &r) { return r.Alike(route) && r.joins == route.joins; });
  if (place != list->end() || !message.replaces) return place;
  return std::ranges::find_if(*list, [&](const Route &r) { return r.Alike(route); });
}

// Where among others of its kind a route comes. A dump shows them in their order: before those that it has
// not shown yet.
template <Family kFamily>
typename Routes<kFamily>::List::iterator Routes<kFamily>::PlaceFor(List *list, const RouteMessage &message,
                                                                   const Route &route, bool byDump) {
  const auto first = std::ranges::lower_bound(*list, route, Before),
             last = std::ranges::upper_bound(*list, route, Before);
  if (byDump) return std::find_if(first, last, [this](const Route &r) { return r.told != telling_.now(); });
  return message.appends || kFamily == kIpv6 ? last : first;
}

template <Family kFamily>
void Routes<kFamily>::Delete(const Key &key, List *list, const RouteMessage &message, const Route &route) {
  NoteDropped(key, route);
  const auto same = std::ranges::find_if(*list, [&](const Route &r) { return r.Same(route); });
  if (same != list->end()) {
    Erase(key, list, same);
  } else if (!Shrink(key, list, message, route)) {
    // The message says less than what is known, or the object behind the route has changed since.
    const auto alike = [&](const Route &r) { return r.Alike(route); };
    const auto count = std::ranges::count_if(*list, alike);
    unsettled_ |= count > 1;
    if (count == 1) Erase(key, list, std::ranges::find_if(*list, alike));
  }
  nextHops_.Release(route.destination);
}

// Takes ways away from a route that has several.
template <Family kFamily>
bool Routes<kFamily>::Shrink(const Key &key, List *list, const RouteMessage &message, const Route &route) {
  if (!route.joins) return false;
  for (Route &from : *list) {
    if (!from.joins || !from.Alike(route)) continue;
    std::vector<Leg> legs = nextHops_.LegsOf(from.destination);
    const size_t before = legs.size();
    for (const Leg &gone : message.legs)
      std::erase_if(legs,
                    [&](const Leg &leg) { return leg.link == gone.link && leg.gateway == gone.gateway; });
    if (legs.empty() || legs.size() == before) continue;
    NoteDropped(key, from);
    const Destination rest = nextHops_.Use(legs);
    nextHops_.Release(from.destination);
    from.destination = rest;
    from.told = telling_.now();
    return true;
  }
  return false;
}

template <Family kFamily>
void Routes<kFamily>::Erase(const Key &key, List *list, typename List::iterator at) {
  NoteDropped(key, *at);
  nextHops_.Release(at->destination);
  list->erase(at);
}

template <Family kFamily>
void Routes<kFamily>::NoteDropped(const Key &key, const Route &route) {
  if (telling_.running()) dropped_.insert(AsDropped(key, route));
}

template <Family kFamily>
bool Routes<kFamily>::IsDropped(const Key &key, const Route &route) const {
  return !dropped_.empty() && dropped_.contains(AsDropped(key, route));
}

template <Family kFamily>
typename Routes<kFamily>::List Routes<kFamily>::Load(const Prefix &prefix) const {
  List list;
  if (prefix.best.type != 0) list.push_back(prefix.best);
  if (prefix.others != nullptr) list.insert(list.end(), prefix.others->begin(), prefix.others->end());
  return list;
}

template <Family kFamily>
void Routes<kFamily>::Store(typename Prefixes::iterator at, List list) {
  Prefix &prefix = at->second;
  if (list.empty()) {
    table_.Remove(&prefix.entry);
    prefixes_.erase(at);
    return;
  }
  prefix.best = list.front();
  list.erase(list.begin());
  prefix.others = list.empty() ? nullptr : std::make_unique<List>(std::move(list));
  Write(at->first, &prefix);
}

template <Family kFamily>
void Routes<kFamily>::Write(const Key &key, Prefix *prefix) {
  const Route &route = prefix->best;
  const NextHops::Bound bound = nextHops_.At(route.destination);
  table_.New().SetKey(keyPrefix_, key.prefix).SetKey(keyVpn_, key.vpn);
  table_.SetKey(keyAddress_, FromNetwork(key.address, sizeof key.address));
  table_.Set(type_, std::min<uint32_t>(route.type, kMostCode)).Set(isGroup_, bound.isGroup);
  table_.Set(default_, key.prefix == 0).Set(direct_, bound.direct).Set(prefix_, key.prefix);
  table_.Set(number_, bound.number).Set(metric_, route.metric);
  table_.Set(entry_, reinterpret_cast<uintptr_t>(bound.entry));
  table_.Put(&prefix->entry);
}

template <Family kFamily>
bool Routes<kFamily>::End(bool complete) {
  if (telling_.running()) {
    telling_.End();
    dropped_.clear();
    sweep_ = 0;
    swept_ = prefixes_.bucket_count();
  }
  if (!complete) return false;
  // Another table of buckets has the prefixes elsewhere.
  if (swept_ != prefixes_.bucket_count()) {
    sweep_ = 0;
    swept_ = prefixes_.bucket_count();
  }
  std::vector<Key> look;
  for (size_t i = 0; i < kSweepBuckets && sweep_ < swept_; ++i, ++sweep_) {
    for (auto at = prefixes_.begin(sweep_); at != prefixes_.end(sweep_); ++at) {
      const Prefix &prefix = at->second;
      if (prefix.best.told != telling_.now() || prefix.others != nullptr) look.push_back(at->first);
    }
  }
  for (const Key &key : look) {
    const auto at = prefixes_.find(key);
    List list = Load(at->second);
    std::erase_if(list, [&](const Route &route) {
      const bool gone = route.told != telling_.now();
      if (gone) nextHops_.Release(route.destination);
      return gone;
    });
    Store(at, std::move(list));
  }
  return sweep_ < swept_;
}

template class Routes<kIpv4>;
template class Routes<kIpv6>;

}  // namespace qdt::host
