#include "host/linux/connections.h"

#include <linux/netfilter/nf_conntrack_common.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_compat.h>
#include <netinet/in.h>
#include <time.h>

#include <algorithm>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

constexpr uint32_t kDumps = BitOf(Dump::kConnections) | BitOf(Dump::kExpectations);
constexpr uint32_t kMostSessions = 1u << 24;
constexpr uint32_t kMostAging = 0xfffe;  // one more means never
constexpr uint32_t kMostParent = 0xff;
constexpr uint64_t kNanoseconds = 1'000'000'000;
constexpr uint32_t kHole = 2;  // type of a server map that lets the data of another session in

uint32_t Seconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

// The engine's number of the service that the port belongs to, 0 for others.
uint32_t ServiceOf(const Tuple &original) {
  struct Service {
    uint8_t protocol;
    uint16_t port;
    uint8_t number;
  };
  constexpr Service kServices[] = {{IPPROTO_TCP, 80, 1},   {IPPROTO_UDP, 53, 2},   {IPPROTO_TCP, 21, 3},
                                   {IPPROTO_UDP, 1719, 4}, {IPPROTO_TCP, 23, 5},   {IPPROTO_TCP, 554, 6},
                                   {IPPROTO_UDP, 5060, 9}, {IPPROTO_TCP, 5060, 9}, {IPPROTO_TCP, 1723, 15},
                                   {IPPROTO_TCP, 443, 47}, {IPPROTO_TCP, 22, 48},  {IPPROTO_TCP, 53, 49}};
  for (const Service &service : kServices) {
    if (service.protocol == original.protocol && service.port == original.destinationPort)
      return service.number;
  }
  return 0;
}

}  // namespace

Connections::Connections(const FillTarget &target, const NetworkNamespace &where, int buffer)
    : Feed(where, NETLINK_NETFILTER, kDumps, buffer),
      numbers_(kMostSessions),
      sessions_(target, "session"),
      maps_(target, "server_map") {
  constexpr int kGroups[] = {NFNLGRP_CONNTRACK_NEW,        NFNLGRP_CONNTRACK_UPDATE,
                             NFNLGRP_CONNTRACK_DESTROY,    NFNLGRP_CONNTRACK_EXP_NEW,
                             NFNLGRP_CONNTRACK_EXP_UPDATE, NFNLGRP_CONNTRACK_EXP_DESTROY};
  if (!Join(kGroups)) throw HostError("tracked connections cannot be seen (it takes CAP_NET_ADMIN)");
  const auto value = [this](const char *path) { return sessions_.Value(path); };
  key_ = sessions_.Key("index");
  index_ = value("index");
  refreshed_ = value("refreshed");
  isIpv6_ = value("is_ipv6");
  valid_ = value("valid");
  state_ = value("state");
  agingTime_ = value("aging_time");
  service_ = value("service");
  parent_ = value("parent");
  created_ = value("created");
  natSource_ = value("nat_source");
  natDestination_ = value("nat_destination");
  natSourcePort_ = value("nat_source_port");
  natDestinationPort_ = value("nat_destination_port");
  newSource_ = value("new_source");
  newDestination_ = value("new_destination");
  newSourcePort_ = value("new_source_port");
  newDestinationPort_ = value("new_destination_port");
  replySource_ = value("reply_new_source");
  replyDestination_ = value("reply_new_destination");
  replySourcePort_ = value("reply_new_source_port");
  replyDestinationPort_ = value("reply_new_destination_port");
  for (const Family family : kFamilies) {
    positive_[family] = KeyOf(family == kIpv4 ? "positive" : "positive6");
    negative_[family] = KeyOf(family == kIpv4 ? "negative" : "negative6");
  }
  const auto mapKey = [this](const char *name) { return maps_.Key(name); };
  mapKey_ = {mapKey("source"), mapKey("destination"), mapKey("source_port"), mapKey("destination_port"),
             mapKey("vrf"),    mapKey("protocol"),    mapKey("type")};
  const auto map = [this](const char *path) { return maps_.Value(path); };
  map_ = {map("source"), map("destination"), map("source_port"), map("destination_port"),
          map("vrf"),    map("protocol"),    map("type")};
  mapAging_ = map("aging_time");
  mapRefreshed_ = map("refreshed");
}

Connections::KeyFields Connections::KeyOf(const std::string &name) {
  const auto value = [&](const char *field) { return sessions_.Value(name + "." + field); };
  KeyFields key{{},
                value("source"),
                value("destination"),
                value("source_port"),
                value("destination_port"),
                value("protocol"),
                value("vpn"),
                0};
  const MirrorTable::Structure structure = sessions_.Attached(name);
  key.pointer = structure.pointer;
  key.at = structure.at;
  return key;
}

void Connections::TakeNotification(const Message &message) {
  if (NFNL_SUBSYS_ID(message.type) == NFNL_SUBSYS_CTNETLINK) TakeConnection(message, Told::kByNotification);
  if (NFNL_SUBSYS_ID(message.type) == NFNL_SUBSYS_CTNETLINK_EXP)
    TakeExpectation(message, Told::kByNotification);
}

void Connections::Begin(Dump dump) { dump == Dump::kConnections ? known_.Begin() : expected_.Begin(); }

void Connections::TakeDump(Dump dump, const Message &message) {
  dump == Dump::kConnections ? TakeConnection(message, Told::kByDump)
                             : TakeExpectation(message, Told::kByDump);
}

bool Connections::End(Dump dump, bool complete) {
  if (dump == Dump::kConnections) {
    shown_ |= complete;
    known_.End(complete, [this](const Tuple &, Known &known) { Leave(&known); });
  } else {
    expected_.End(complete, [this](const ExpectationId &, Expected &known) { maps_.Remove(&known.entry); });
  }
  return false;
}

void Connections::Settle() {
  if (sessions_.TakeRoomAgain()) Want(BitOf(Dump::kConnections));
  if (maps_.TakeRoomAgain()) Want(BitOf(Dump::kExpectations));
}

void Connections::TakeConnection(const Message &message, Told told) {
  ConnectionMessage connection;
  if (!ReadConnection(message, &connection)) return;
  if (connection.gone)
    return known_.Drop(connection.original, [this](const Tuple &, Known &known) { Leave(&known); });
  Known *known = known_.Take(connection.original, told);
  if (known == nullptr) return;
  if (known->number != 0 && known->id != connection.id) Leave(known);  // another one in its place
  if (known->number == 0) {
    known->number = numbers_.Take();
    known->created = connection.start != 0 ? static_cast<uint32_t>(connection.start / kNanoseconds)
                                           : Seconds(CLOCK_REALTIME);
  }
  known->id = connection.id;
  // What a message does not tell of stays.
  if (connection.timeout) {
    known->agingTime = static_cast<uint16_t>(std::clamp<uint32_t>(*connection.timeout, 1, kMostAging));
    known->refreshed = Seconds(CLOCK_MONOTONIC);
  }
  // State 1 stands for sessions that are not listed: the kernel's states begin with 1 for what is half open.
  if (connection.tcpState) known->state = static_cast<uint8_t>(*connection.tcpState + 1);
  Write(connection, known);
}

void Connections::Write(const ConnectionMessage &connection, Known *known) {
  const Tuple &original = connection.original;
  const Known *parent = connection.master ? known_.Find(*connection.master) : nullptr;
  const bool isNew = known->entry == nullptr;
  sessions_.New().SetKey(key_, known->number).Set(index_, known->number).Set(refreshed_, known->refreshed);
  sessions_.Set(isIpv6_, original.family == kIpv6)
      .Set(state_, known->state)
      .Set(agingTime_, known->agingTime);
  sessions_.Set(service_, ServiceOf(original)).Set(created_, known->created);
  if (parent != nullptr && parent->number <= kMostParent) sessions_.Set(parent_, parent->number);
  WriteTranslation(connection);
  WriteKeys(connection, *known);
  sessions_.Set(valid_, !isNew);
  sessions_.Put(&known->entry);
  if (!isNew || known->entry == nullptr) return;
  // Its keys are found by their addresses, which are known now.
  byEntry_[known->entry] = original;
  WriteKeys(connection, *known);
  sessions_.Set(valid_, 1).Put(&known->entry);
}

// With which addresses packets leave shows in those of the other direction.
void Connections::WriteTranslation(const ConnectionMessage &connection) {
  const Tuple &original = connection.original, &reply = connection.reply;
  if ((connection.status & IPS_NAT_MASK) == 0) return;
  sessions_.Set(natSource_, reply.destination != original.source);
  sessions_.Set(natDestination_, reply.source != original.destination);
  const bool hasPorts = original.protocol != IPPROTO_ICMP && original.protocol != IPPROTO_ICMPV6;
  sessions_.Set(natSourcePort_, hasPorts ? reply.destinationPort != original.sourcePort
                                         : reply.sourcePort != original.sourcePort);
  sessions_.Set(natDestinationPort_, hasPorts && reply.sourcePort != original.destinationPort);
  if (original.family == kIpv4) {
    sessions_.Set(newSource_, NumberOf(reply.destination, kIpv4))
        .Set(newDestination_, NumberOf(reply.source, kIpv4));
    sessions_.Set(replySource_, NumberOf(original.destination, kIpv4));
    sessions_.Set(replyDestination_, NumberOf(original.source, kIpv4));
  }
  // ICMP has one id for both directions.
  sessions_.Set(newSourcePort_, hasPorts ? reply.destinationPort : reply.sourcePort);
  sessions_.Set(newDestinationPort_, hasPorts ? reply.sourcePort : original.destinationPort);
  sessions_.Set(replySourcePort_, hasPorts ? original.destinationPort : original.sourcePort);
  sessions_.Set(replyDestinationPort_, hasPorts ? original.sourcePort : reply.destinationPort);
}

void Connections::WriteKeys(const ConnectionMessage &connection, const Known &known) {
  const auto write = [&](const KeyFields &fields, const Tuple &tuple) {
    sessions_.Set(fields.source, NumberOf(tuple.source, tuple.family));
    sessions_.Set(fields.destination, NumberOf(tuple.destination, tuple.family));
    sessions_.Set(fields.sourcePort, tuple.sourcePort).Set(fields.destinationPort, tuple.destinationPort);
    sessions_.Set(fields.protocol, tuple.protocol).Set(fields.vpn, tuple.zone);
    if (known.entry != nullptr)
      sessions_.Set(fields.pointer, reinterpret_cast<uintptr_t>(known.entry) + fields.at);
  };
  write(positive_[connection.original.family], connection.original);
  write(negative_[connection.reply.family], connection.reply);
}

void Connections::Leave(Known *known) {
  byEntry_.erase(known->entry);
  sessions_.Remove(&known->entry);
  if (known->number != 0) numbers_.Return(known->number);
  *known = {};
}

void Connections::TakeExpectation(const Message &message, Told told) {
  Expectation expectation;
  if (!ReadExpectation(message, &expectation) || expectation.tuple.family != kIpv4) return;
  const ExpectationId id{expectation.id};
  if (expectation.gone)
    return expected_.Drop(id, [this](const ExpectationId &, Expected &known) { maps_.Remove(&known.entry); });
  Expected *known = expected_.Take(id, told);
  if (known == nullptr) return;
  const Tuple &tuple = expectation.tuple, &mask = expectation.mask;
  const auto masked = [](const IpBytes &address, const IpBytes &by) {
    return NumberOf(address, kIpv4) & NumberOf(by, kIpv4);
  };
  maps_.New();
  const auto set = [&](const FieldRef MapFields::*field, WideValue value) {
    maps_.SetKey(mapKey_.*field, value).Set(map_.*field, value);
  };
  set(&MapFields::source, masked(tuple.source, mask.source));
  set(&MapFields::destination, NumberOf(tuple.destination, kIpv4));
  set(&MapFields::sourcePort, tuple.sourcePort & mask.sourcePort);
  set(&MapFields::destinationPort, tuple.destinationPort);
  set(&MapFields::vrf, tuple.zone);
  set(&MapFields::protocol, tuple.protocol);
  set(&MapFields::type, kHole);
  maps_.Set(mapAging_, std::max<uint32_t>(expectation.timeout, 1))
      .Set(mapRefreshed_, Seconds(CLOCK_MONOTONIC));
  maps_.Put(&known->entry);
}

void Connections::Leaves(uint32_t table, const void *entry) {
  if (table == maps_.id()) {
    expected_.ForEach([&](const ExpectationId &, Expected &known) {
      if (known.entry == entry) known.entry = nullptr;
    });
    return maps_.Forget();
  }
  const auto at = byEntry_.find(entry);
  if (table != sessions_.id() || at == byEntry_.end()) return;
  Known *known = known_.Find(at->second);
  const std::vector<uint8_t> request = DeletionOf(at->second, known->id);
  dumpSocket().Ask(kDeleteConnection, 0, request);
  byEntry_.erase(at);
  known->entry = nullptr;
  sessions_.Forget();
}

}  // namespace qdt::host
