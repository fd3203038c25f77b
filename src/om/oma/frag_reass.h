#ifndef SRC_OM_OMA_FRAG_REASS_H_
#define SRC_OM_OMA_FRAG_REASS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/engine.h"
#include "platform/shm.h"
#include "qdt/oma.h"
#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/owned.h"
#include "src/om/common/processor_timer.h"
#include "src/om/common/record_copy.h"
#include "src/om/common/text.h"
#include "src/om/engine/reassembly.h"
#include "src/om/oma/packet_listing.h"
#include "src/om/oma/request.h"

// The listings of IPv4 and IPv6 packets that wait for reassembly. What differs is stated by a structure for
// each version, the parameter Version of these templates.
namespace qdt::reassembly {

// What is left of an entry's time; nothing when it is over.
inline int32_t LeftTime(uint64_t timeStamp, uint32_t ttl) {
  const uint64_t now = TicksToMilliseconds(TimerCounter(), TimerFrequency());
  const auto left = static_cast<int64_t>(timeStamp - now + ttl);
  return static_cast<int32_t>(std::clamp<int64_t>(left, 0, INT32_MAX));
}

template <typename Version>
int32_t WriteBlock(char *buffer, uint32_t size, uint32_t offset, const void *entry) {
  const auto e = CopyOf<typename Version::Entry>(entry);
  const auto protocol = static_cast<uint16_t>(e.vrf >> 16);
  const bool hasRoom = offset < size;
  Text text(hasRoom ? buffer + offset : nullptr, hasRoom ? size - offset : 0);
  text.Print<Version::kBlock>(static_cast<int32_t>(e.vrf), protocol, Address(e.sourceAddress), e.firstArrived,
                              Address(e.destinationAddress), e.lastArrived, e.sourcePort, e.destinationPort,
                              e.vlan, e.reassemble, e.packetId, e.fragments, e.ttl,
                              LeftTime(e.timeStamp, e.ttl));
  if (!text.failed()) return text.Result();
  QDT_LOG_ERROR(Version::kPrintFailed, kFailed);
  return kFailed;
}

template <typename Version>
int32_t PrintEntry(char *buffer, uint32_t size, uint32_t offset, const void *entry) {
  if (const int32_t code = Version::CheckBlock(); code != 0) return code;
  return WriteBlock<Version>(buffer, size, offset, entry);
}

// The link behind the one at `link`; false when that cannot be read.
inline bool Follow(uint64_t &link) {
  ReassemblyLink here;
  if (!ReadEngineMemory(link, &here, sizeof(here))) return false;
  link = here.next;
  return true;
}

// Finds out when a walk that the engine's changes have led astray goes round and round past the head: a
// second walk follows it at half its speed, and is met only in a circle.
class CircleCheck {
 public:
  explicit CircleCheck(uint64_t first) : behind_(first) {}

  // Whether the walk, which has moved on to `link`, has gone round.
  bool Closes(uint64_t link) {
    half_ = !half_;
    if (!half_ && !Follow(behind_)) return true;
    return link == behind_;
  }

 private:
  uint64_t behind_;
  bool half_ = false;
};

// Prints the entries that pass the filters. A link that leads nowhere ends the walk, and so does a circle.
template <typename Version>
int32_t PrintRing(const void *region, char *buffer, uint32_t size, const typename Version::Address &source,
                  const typename Version::Address &destination) {
  using Entry = typename Version::Entry;
  const EngineMemoryScope memory;
  const auto base = reinterpret_cast<uint64_t>(region);
  const uint64_t end = base + offsetof(ReassemblyRegion, head);
  ReassemblyRegion begin;
  if (!ReadEngineMemory(base, &begin, sizeof(begin))) return 0;
  CircleCheck circle(begin.head.next);
  uint32_t used = 0;
  Entry e;
  for (uint64_t link = begin.head.next; link != end; link = e.link.next) {
    if (!ReadEngineMemory(link - offsetof(Entry, link), &e, sizeof(e))) break;
    if (Version::Passes(source, e.sourceAddress) && Version::Passes(destination, e.destinationAddress)) {
      if (Version::CheckBlock() != 0) return kFailed;  // its code may be positive, and is no length
      const int32_t written = WriteBlock<Version>(buffer, size, used, &e);
      if (written < 0) return kFailed;
      used += static_cast<uint32_t>(written);
    }
    if (circle.Closes(e.link.next)) break;
  }
  return static_cast<int32_t>(used);
}

// Not every failure is told of by both versions: a null message is none.
inline int32_t FailWith(const char *message) {
  if (message != nullptr) QDT_LOG_ERROR("%s", message);
  return kFailed;
}

template <typename Version>
int32_t ListEntries(AgentRequest request, SourceLine where) {
  const char *const sourceText = FindText(request, "source-ip");
  const char *const destinationText = FindText(request, "destination-ip");
  const auto source = Version::ParseAddress(sourceText);
  const auto destination = Version::ParseAddress(destinationText);
  const void *const region = VRX_Smmap(Version::kRegion, 0, 0);
  if (region == nullptr) {
    QDT_LOG_ERROR(Version::kNoRegion, Version::kRegion);
    return kFailed;
  }
  if (const int32_t code = Version::CheckEngine(); code != 0) return code;
  const OwnedText text = AllocatePacketListing(where);
  if (text == nullptr) return FailWith(Version::kNoMemory);
  if (QdtOmaFragVerifyParam(text.get(), kPacketListingRoom, Version::kNumber, sourceText, destinationText) !=
      0) {
    FailWith(Version::kBadParameter);  // and the agent is told: the text says what is wrong
  } else if (PrintRing<Version>(region, text.get(), kPacketListingRoom, source, destination) < 0) {
    return FailWith(Version::kRingFailed);
  }
  return QdtOmSendMsg(text.get()) == 0 ? kDone : FailWith(Version::kSendFailed);
}

}  // namespace qdt::reassembly

#endif  // SRC_OM_OMA_FRAG_REASS_H_
