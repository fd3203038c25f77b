#include "host/packet/flow_index.h"

#include <cstring>
#include <random>
#include <string>

#include "host/base/host_error.h"
#include "host/base/mix.h"
#include "host/tbm/status.h"
#include "host/tbm/visit.h"

namespace qdt::host {
namespace {

constexpr uint32_t kLooksPerBatch = 256;      // entries looked at again
constexpr uint32_t kNewPerBatch = 16 * 1024;  // a table's worth of sessions takes four batches

const TableLayout &SessionTable(const Layout &layout) {
  const TableLayout *table = layout.FindTable("session");
  if (table == nullptr) throw HostError("the layouts have no table session, which captured packets need");
  return *table;
}

uint64_t RandomSeed() {
  std::random_device device;
  return uint64_t{device()} << 32 | device();
}

uint32_t PointerOf(const TableLayout &table, std::string_view name) {
  const Field *field = table.fields.Find(name);
  return field != nullptr ? field->pointer : 0;
}

}  // namespace

WideValue AddressNumber(const PacketHeaders &headers, const PacketAddress &address) {
  WideValue number = 0;
  for (size_t i = 0; i < (headers.IsIpv6() ? 16 : 4); ++i) number = number << 8 | address[i];
  return number;
}

std::optional<FlowKey> FlowOf(const PacketHeaders &headers, uint16_t vpn) {
  if (!headers.IsIp() || !headers.HasLayer3() || !headers.HasLayer4()) return {};
  FlowKey key;
  key.source = AddressNumber(headers, headers.source);
  key.destination = AddressNumber(headers, headers.destination);
  key.sourcePort = headers.IsIcmp() ? headers.icmpId : headers.sourcePort;
  key.destinationPort = headers.IsIcmp() ? static_cast<uint16_t>(headers.icmpType << 8 | headers.icmpCode)
                                         : headers.destinationPort;
  key.vpn = vpn;
  key.protocol = headers.protocol;
  key.isIpv6 = headers.IsIpv6();
  return key;
}

size_t FlowIndex::Hash::operator()(const FlowKey &key) const {
  uint64_t hash = uint64_t{key.sourcePort} << 48 | uint64_t{key.destinationPort} << 32 |
                  uint64_t{key.vpn} << 16 | key.protocol;
  hash ^= seed;
  for (const WideValue value : {key.source, key.destination}) {
    hash = MixWord(hash, static_cast<uint64_t>(value) ^ seed);
    hash = MixWord(hash, static_cast<uint64_t>(value >> 64));
  }
  return hash;
}

FlowIndex::FlowIndex(const Layout &layout)
    : table_(SessionTable(layout).spec.id),
      hits_(0, Hash{RandomSeed()}),
      sweep_(SessionTable(layout).spec.id) {
  const TableLayout &table = SessionTable(layout);
  constexpr const char *kNames[2][2] = {{"positive", "negative"}, {"positive6", "negative6"}};
  for (size_t version = 0; version < 2; ++version) {
    for (const Direction direction : {kPositive, kNegative}) {
      const std::string name = kNames[version][direction];
      keys_[version][direction] = {table.At(name + ".source"),      table.At(name + ".destination"),
                                   table.At(name + ".source_port"), table.At(name + ".destination_port"),
                                   table.At(name + ".protocol"),    table.At(name + ".vpn"),
                                   PointerOf(table, name)};
    }
  }
  index_ = table.At("index");
  isIpv6_ = table.At("is_ipv6");
  valid_ = table.At("valid");
  ingress_ = table.At("ingress");
  egress_ = table.At("egress");
  translated_ = table.At("nat_destination");
  newDestination_ = table.At("new_destination");
  replyNewDestination_ = table.At("reply_new_destination");
}

void FlowIndex::Refresh() {
  tbm::TableView table;
  if (tbm::TableView::OpenCurrent(0, table_, &table) != tbm::kTbmOk) return;
  const uint64_t newest = table.state().lastSerial.load(std::memory_order_relaxed);
  tbm::VisitSome(table, tbm::TableOrder(table), newest, TakeEntry, this, &last_, kNewPerBatch);
  // Entries change in place as well.
  sweep_.Next(TakeEntry, this, kLooksPerBatch);
}

int32_t FlowIndex::TakeEntry(void *entry, void *context) {
  constexpr int32_t kGoOn = -9;
  static_cast<FlowIndex *>(context)->Take(entry);
  return kGoOn;
}

void FlowIndex::Take(void *entry) {
  tbm::TableView table;
  if (tbm::TableView::OpenCurrent(0, table_, &table) != tbm::kTbmOk) return;
  const uint32_t slot = table.RefOfAddress(entry);
  if (slot == 0) return;
  if (known_.size() <= slot) known_.resize(slot + 1);
  for (const Direction direction : {kPositive, kNegative}) {
    FlowKey &known = known_[slot][direction];
    const FlowKey key = KeyOf(entry, direction);
    if (known == key) continue;
    // What another session has taken over by now stays that one's.
    const auto at = hits_.find(known);
    if (at != hits_.end() && at->second.slot == slot) hits_.erase(at);
    known = key;
    if (key != FlowKey{}) hits_.insert_or_assign(key, Hit{slot, direction});
  }
}

FlowKey FlowIndex::KeyOf(const void *entry, Direction direction) const {
  const bool isIpv6 = isIpv6_.Get(entry) != 0;
  const KeyFields &fields = keys_[isIpv6][direction];
  uint64_t pointer = 0;
  std::memcpy(&pointer, static_cast<const char *>(entry) + fields.pointer, sizeof pointer);
  if (fields.pointer != 0 && pointer == 0) return {};
  FlowKey key;
  key.source = fields.source.Read(entry);
  key.destination = fields.destination.Read(entry);
  key.sourcePort = static_cast<uint16_t>(fields.sourcePort.Get(entry));
  key.destinationPort = static_cast<uint16_t>(fields.destinationPort.Get(entry));
  key.vpn = static_cast<uint16_t>(fields.vpn.Get(entry));
  key.protocol = static_cast<uint8_t>(fields.protocol.Get(entry));
  key.isIpv6 = isIpv6;
  return key;
}

std::optional<FoundSession> FlowIndex::Find(const FlowKey &key) const {
  const auto at = hits_.find(key);
  tbm::TableView table;
  if (at == hits_.end() || tbm::TableView::OpenCurrent(0, table_, &table) != tbm::kTbmOk) return {};
  const Hit &hit = at->second;
  const void *entry = table.IsSlot(hit.slot) ? table.Address(hit.slot) : nullptr;
  if (entry == nullptr || table.RefOfAddress(entry) != hit.slot) return {};
  if (valid_.Get(entry) == 0 || KeyOf(entry, hit.direction) != key) return {};
  return Describe(entry, key, hit.direction);
}

FoundSession FlowIndex::Describe(const void *entry, const FlowKey &key, Direction direction) const {
  FoundSession found{static_cast<uint32_t>(index_.Get(entry)), direction == kNegative, key.destination, 0};
  if (!key.isIpv6) {
    // Replies to translated packets are translated back, whichever of the two ends it was.
    const WideValue initiator = KeyOf(entry, kPositive).source;
    const FieldRef &field = found.isReply ? replyNewDestination_ : newDestination_;
    const WideValue translated = field.Read(entry);
    if (found.isReply) {
      found.newDestination = translated != 0 ? translated : initiator;
    } else if (translated_.Get(entry) != 0 && translated != 0) {
      found.newDestination = translated;
    }
  }
  found.egress = static_cast<uint32_t>((found.isReply ? ingress_ : egress_).Get(entry));
  return found;
}

}  // namespace qdt::host
