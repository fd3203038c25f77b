#include "host/linux/fdb.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <algorithm>

#include "host/linux/links.h"

namespace qdt::host {
namespace {

constexpr uint32_t kTicks = 100;     // a second, of the kernel's times
constexpr uint32_t kMostAge = 0xff;  // seconds that fit

}  // namespace

Fdb::Fdb(const FillTarget &target) : table_(target, "ssw_macinfo") {
  keyBridge_ = table_.Key("bridge_id");
  keyVlan_ = table_.Key("vlan_id");
  keyMac_ = table_.Key("mac");
  bridge_ = table_.Value("bridge_id");
  vlan_ = table_.Value("vlan_id");
  mac_ = table_.Value("mac");
  static_ = table_.Value("static");
  local_ = table_.Value("local");
  aging_ = table_.Value("aging");
  port_ = table_.Value("out_if_index");
}

void Fdb::Take(const Message &message, Told told) {
  const auto *head = message.Head<ndmsg>();
  if (head == nullptr || head->ndm_family != AF_BRIDGE) return;
  const Attributes<NDA_MAX> values(message.Rest<ndmsg>());
  const Bytes mac = Payload(values[NDA_LLADDR]);
  const uint32_t bridge = Number<uint32_t>(values[NDA_MASTER]);
  if (bridge == 0 || mac.size() != sizeof(MacAddress)) return;
  Id id{bridge, Number<uint16_t>(values[NDA_VLAN]), {}};
  std::ranges::copy(mac, id.mac.begin());
  if (message.type == RTM_DELNEIGH) {
    macs_.Drop(id, [this](const Id &gone, Known &known) { Leave(gone, &known); });
    return;
  }
  Known *known = macs_.Take(id, told);
  if (known == nullptr) return;
  const auto port = static_cast<uint32_t>(head->ndm_ifindex);
  if (known->port != port) {
    if (known->port != 0) Count(id, known->port, -1);
    Count(id, port, 1);
    known->port = port;
  }
  nda_cacheinfo times = {};
  const Bytes cache = Payload(values[NDA_CACHEINFO]);
  if (cache.size() >= sizeof times) std::memcpy(&times, cache.data(), sizeof times);
  const bool isLocal = (head->ndm_state & NUD_PERMANENT) != 0, isStatic = (head->ndm_state & NUD_NOARP) != 0;
  table_.New().SetKey(keyBridge_, id.bridge).SetKey(keyVlan_, id.vlan);
  table_.SetKey(keyMac_, FromNetwork(id.mac.data(), id.mac.size()));
  table_.Set(bridge_, id.bridge).Set(vlan_, id.vlan).SetBytes(mac_, id.mac.data(), id.mac.size());
  table_.Set(static_, isLocal || isStatic).Set(local_, isLocal).Set(port_, port);
  table_.Set(aging_, isLocal || isStatic ? 0 : std::min(times.ndm_updated / kTicks, kMostAge));
  table_.Put(&known->entry);
}

void Fdb::End(bool complete) {
  macs_.End(complete, [this](const Id &gone, Known &known) { Leave(gone, &known); });
}

void Fdb::Leave(const Id &id, Known *known) {
  Count(id, known->port, -1);
  table_.Remove(&known->entry);
}

void Fdb::Count(const Id &id, uint32_t port, int change) {
  for (const uint32_t link : {id.bridge, port}) {
    counts_[link] += static_cast<uint32_t>(change);
    counted_.insert(link);
    if (port == id.bridge) break;  // the bridge's own address
  }
}

bool Fdb::TellCounts(Links *links) {
  const bool any = !counted_.empty();
  for (const uint32_t link : counted_) links->SetMacCount(link, counts_[link]);
  counted_.clear();
  return any;
}

}  // namespace qdt::host
