#include "host/engine/reassembly.h"

#include <time.h>

#include <algorithm>

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

// The processor's timer in milliseconds, in which the engine stamps packets.
uint64_t Milliseconds() {
#if defined(__aarch64__)
  uint64_t counter, frequency;
  asm volatile("isb\n\tmrs %0, cntvct_el0" : "=r"(counter));
  asm volatile("mrs %0, cntfrq_el0" : "=r"(frequency));
  return counter / frequency * 1000 + counter % frequency * 1000 / frequency;
#else
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
#endif
}

void Append(Link *head, Link *link) {
  *link = {head->previous, head};
  head->previous->next = link;
  head->previous = link;
}

// Links stand at multiples of 8 bytes, the head's before the packets and each packet's in it.
void CheckShape(const RegionLayout &layout, const Field &packets) {
  const bool isGood = packets.count != 0 && packets.ref.offset >= kHeadOffset + sizeof(Link) &&
                      packets.stride >= kLinkOffset + sizeof(Link) && packets.ref.offset % 8 == 0 &&
                      packets.stride % 8 == 0 && packets.fields.Find("waited") != nullptr;
  if (isGood) return;
  throw HostError(
      std::string(layout.place) + ": " + std::string(layout.spec.name) +
      ".packets: the engine cannot link them (write an array at a multiple of 8 bytes from 40 on, of "
      "packets of 32 bytes or a greater multiple of 8, with the field waited)");
}

void StartRing(const RegionLayout &layout, Arena *arena) {
  const Field &packets = *layout.fields.Find("packets");
  CheckShape(layout, packets);
  auto *region = static_cast<char *>(arena->FindRegion(layout.spec.name, nullptr));
  if (!arena->Reserve(region, layout.spec.size)) {
    throw HostError(std::string(layout.spec.name) +
                    ": no space is left under the arena (free some, or place the arena elsewhere)");
  }
  auto *head = reinterpret_cast<Link *>(region + kHeadOffset);
  *head = {head, head};
  const FieldRef waited = packets.fields.Find("waited")->ref;
  const uint64_t now = Milliseconds();
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
  for (const char *name : {"IP_REASS_CTX_PTR", "IP6_REASS_CTX_PTR"}) {
    const RegionLayout *region = layout.FindRegion(name);
    // Tests bring layouts of their own.
    if (region != nullptr && region->fields.Find("packets") != nullptr) StartRing(*region, arena);
  }
}

}  // namespace qdt::host
