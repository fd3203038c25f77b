#include "host/engine/reassembly.h"

#include <algorithm>
#include <string>

#include "host/base/time_text.h"
#include "host/regions/reassembly_regions.h"

namespace qdt::host {
namespace {

// Links hold addresses of links. The head's stands at the same place in both regions, and so does an entry's
// in its entry.
struct Link {
  Link *previous;
  Link *next;
};
constexpr uint32_t kHeadOffset = 24;
constexpr uint32_t kLinkOffset = 16;

void Append(Link *head, Link *link) {
  *link = {head->previous, head};
  head->previous->next = link;
  head->previous = link;
}

// Links stand at multiples of 8 bytes, the head's before the packets and each packet's in it.
void CheckShape(const RegionLayout &layout, const Field &packets) {
  const bool isGood = packets.count != 0 && packets.ref.offset >= kHeadOffset + sizeof(Link) &&
                      packets.stride >= kLinkOffset + sizeof(Link) && packets.ref.offset % 8 == 0 &&
                      packets.stride % 8 == 0 && packets.fields.Find(kReassemblyArrival) != nullptr;
  if (isGood) return;
  throw HostError(
      std::string(layout.place) + ": " + std::string(layout.spec.name) +
      ".packets: the engine cannot link them (write an array at a multiple of 8 bytes from 40 on, of "
      "packets of 32 bytes or a greater multiple of 8, with the field waited)");
}

void StartRing(const RegionLayout &layout, Arena *arena) {
  const Field &packets = *layout.fields.Find(kReassemblyPackets);
  CheckShape(layout, packets);
  auto *region = static_cast<char *>(arena->FindRegion(layout.spec.name, nullptr));
  if (!arena->Reserve(region, layout.spec.size)) {
    throw HostError(std::string(layout.spec.name) +
                    ": no space is left under the arena (free some, or place the arena elsewhere)");
  }
  auto *head = reinterpret_cast<Link *>(region + kHeadOffset);
  *head = {head, head};
  const FieldRef waited = packets.fields.Find(kReassemblyArrival)->ref;
  const uint64_t now = TimerMilliseconds();
  for (uint32_t i = 0; i < packets.count; ++i) {
    char *const packet = region + packets.ref.offset + i * packets.stride;
    // Places that the scenario has left out.
    if (std::all_of(packet, packet + packets.stride, [](char byte) { return byte == 0; })) continue;
    waited.Set(packet, now - std::min(now, waited.Get(packet)));
    Append(head, reinterpret_cast<Link *>(packet + kLinkOffset));
  }
}

}  // namespace

void StartReassembly(const Layout &layout, Arena *arena) {
  for (const std::string_view name : kReassemblyRegions) {
    const RegionLayout *region = layout.FindRegion(name);
    // Tests bring layouts of their own.
    if (region != nullptr && region->fields.Find(kReassemblyPackets) != nullptr) StartRing(*region, arena);
  }
}

}  // namespace qdt::host
