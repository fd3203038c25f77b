#include "host/packet/interface_counters.h"

#include <string>

#include "host/base/host_error.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

struct Walk {
  FieldRef index, enable, vlan;
  std::vector<TrafficInterface> *interfaces;
};

int32_t TakeInterface(void *entry, void *context) {
  constexpr int32_t kGoOn = -9;
  const auto &walk = *static_cast<Walk *>(context);
  const auto index = static_cast<uint32_t>(walk.index.Get(entry));
  if (walk.enable.Get(entry) == 0 || index == 0) return kGoOn;
  walk.interfaces->push_back({index, static_cast<uint16_t>(walk.vlan.Get(entry))});
  return kGoOn;
}

void Add(const FieldRef &counter, void *record, uint64_t amount) {
  Arena::Current()->NoteChange(static_cast<char *>(record) + counter.offset, counter.size);
  counter.WriteShared(record, counter.Get(record) + amount);
}

bool IsBroadcast(const PacketMac &mac) { return mac == PacketMac{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}; }

}  // namespace

InterfaceCounters::InterfaceCounters(const Layout &layout) {
  const TableLayout *table = layout.FindTable("fwdif");
  if (table == nullptr) throw HostError("the layouts have no table fwdif, which traffic needs");
  table_ = table->spec.id;
  for (uint32_t group = 0; group < kGroups; ++group) {
    const std::string counters = "counters[" + std::to_string(group) + "].";
    for (const Direction direction : {Direction::kIn, Direction::kOut}) {
      const std::string prefix = counters + (direction == Direction::kIn ? "in_" : "out_");
      blocks_[group][static_cast<size_t>(direction)] = {
          table->At(prefix + "bytes"), table->At(prefix + "packets"), table->At(prefix + "unicast"),
          table->At(prefix + "multicast"), table->At(prefix + "broadcast")};
    }
  }
  Walk walk{table->At("if_index"), table->At("enable"), table->At("pvid"), &interfaces_};
  TbmTblTrav(0, table->spec.id, TakeInterface, &walk);
}

void InterfaceCounters::Count(uint32_t index, Direction direction, const Packet &packet) {
  void *record = nullptr;
  if (index == 0 || TbmTblSearch(0, table_, &index, &record) != 0) return;
  const Block &block = blocks_[packet.core % kGroups][static_cast<size_t>(direction)];
  const PacketMac &to = packet.headers.destinationMac;
  Add(block.bytes, record, packet.length);
  Add(block.packets, record, 1);
  Add(IsBroadcast(to) ? block.broadcast : (to[0] & 1) != 0 ? block.multicast : block.unicast, record, 1);
}

}  // namespace qdt::host
