#include "host/packet/local_addresses.h"

#include <algorithm>

#include "host/packet/flow_index.h"
#include "host/packet/needed_table.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

constexpr int32_t kGoOn = -9;
constexpr std::chrono::milliseconds kPeriod{10};
constexpr uint32_t kSeveral = UINT32_MAX;

PacketMac MacOf(WideValue value) {
  PacketMac mac;
  for (size_t i = mac.size(); i-- > 0; value >>= 8) mac[i] = static_cast<uint8_t>(value);
  return mac;
}

}  // namespace

LocalAddresses::LocalAddresses(const Layout &layout)
    : families_{FamilyOf(layout, "portip_head", "portip", "mask"),
                FamilyOf(layout, "ipv6_portip_head", "ipv6_portip", nullptr)} {
  const TableLayout &interfaces = NeededTable(layout, "fwdif");
  interfaces_ = interfaces.spec.id;
  index_ = interfaces.At("if_index");
  mac_ = interfaces.At("source_mac");
}

LocalAddresses::Family LocalAddresses::FamilyOf(const Layout &layout, const char *head, const char *list,
                                                const char *mask) const {
  const TableLayout &heads = NeededTable(layout, head);
  const TableLayout &lists = NeededTable(layout, list);
  Family family;
  family.head = heads.spec.id;
  family.list = lists.spec.id;
  family.listKeySize = lists.spec.keySize;
  family.listRecordSize = lists.spec.recordSize;
  family.headKeySize = heads.spec.keySize;
  family.headKey = KeyField(heads, "fwd_if_index");
  family.headList = heads.At("list_id");
  family.listKey = KeyField(lists, "list_id");
  family.address = lists.At("address");
  if (mask != nullptr) family.mask = lists.At(mask);
  return family;
}

void LocalAddresses::Refresh(std::chrono::steady_clock::time_point now) {
  if (read_ != std::chrono::steady_clock::time_point{} && now - read_ < kPeriod) return;
  read_ = now;
  macs_.clear();
  own4_.clear();
  own6_.clear();
  networks_.clear();
  indexes_.clear();
  TbmTblTrav(0, interfaces_, TakeInterface, this);
  for (const Family &family : families_) {
    for (const uint32_t index : indexes_) TakeList(family, index);
  }
}

int32_t LocalAddresses::TakeInterface(void *entry, void *context) {
  auto &self = *static_cast<LocalAddresses *>(context);
  const auto index = static_cast<uint32_t>(self.index_.Get(entry));
  self.indexes_.push_back(index);
  const WideValue mac = self.mac_.Read(entry);
  if (mac == 0) return kGoOn;
  const auto [at, isNew] = self.macs_.emplace(MacOf(mac), index);
  if (!isNew) at->second = kSeveral;
  return kGoOn;
}

void LocalAddresses::TakeList(const Family &family, uint32_t interface) {
  std::vector<uint8_t> key(family.headKeySize);
  family.headKey.Set(key.data(), interface);
  void *head = nullptr;
  if (TbmTblSearch(0, family.head, key.data(), &head) != 0) return;
  key.assign(family.listKeySize, 0);
  family.listKey.Set(key.data(), family.headList.Get(head));
  std::vector<uint8_t> records(size_t{family.listRecordSize} * 64);
  TbmTravContext walk;
  TbmTblTravContextInit(&walk);
  for (int32_t status = 1; status == 1;) {
    auto bytes = static_cast<uint32_t>(records.size());
    status = TbmTblTravNextByKey(0, family.list, key.data(), &walk, records.data(), &bytes);
    if (status != 0 && status != 1) break;
    for (uint32_t at = 0; at + family.listRecordSize <= bytes; at += family.listRecordSize)
      TakeAddress(family, interface, records.data() + at);
  }
}

void LocalAddresses::TakeAddress(const Family &family, uint32_t interface, const void *record) {
  const WideValue address = family.address.Read(record);
  if (&family == &families_[1]) {
    own6_.insert(address);
    return;
  }
  const auto number = static_cast<uint32_t>(address);
  const auto mask = static_cast<uint32_t>(family.mask.Get(record));
  own4_.insert(number);
  if (~mask > 1) own4_.insert(number | ~mask);  // networks of two addresses have no broadcasts
  networks_.push_back({number & mask, mask, interface});
}

bool LocalAddresses::IsOwn(bool isIpv6, WideValue address) const {
  if (isIpv6) return address == 1 || own6_.contains(address);
  return address >> 24 == 127 || own4_.contains(address);
}

bool LocalAddresses::IsOwn(const PacketHeaders &headers, const PacketAddress &address) const {
  return IsOwn(headers.IsIpv6(), AddressNumber(headers, address));
}

uint32_t LocalAddresses::InterfaceOf(const PacketMac &mac) const {
  const auto at = macs_.find(mac);
  return at == macs_.end() || at->second == kSeveral ? 0 : at->second;
}

uint32_t LocalAddresses::InterfaceOfNetwork(const PacketAddress &address) const {
  const uint32_t number = uint32_t{address[0]} << 24 | address[1] << 16 | address[2] << 8 | address[3];
  const Network *best = nullptr;
  for (const Network &network : networks_) {
    const bool isIn = (number & network.mask) == network.address && network.mask != 0;
    if (isIn && (best == nullptr || network.mask > best->mask)) best = &network;
  }
  return best != nullptr ? best->interface : 0;
}

}  // namespace qdt::host
