#ifndef HOST_PACKET_TRAFFIC_PACKET_H_
#define HOST_PACKET_TRAFFIC_PACKET_H_

#include <cstdint>
#include <optional>

#include "host/headers/packet_headers.h"

namespace qdt::host {

// The steps of the packet path, in their order.
enum class PathStage : uint8_t { kReceive, kClassify, kLimit, kAcl, kLookup, kForward, kTransmit };

// What becomes of a packet, and so which statistics it moves besides those of its protocol.
struct PacketFate {
  enum class End : uint8_t { kForwarded, kToControlPlane, kDiscarded };

  End end = End::kForwarded;
  PathStage stage = PathStage::kTransmit;  // where a discarded packet ends
  uint16_t discardReason = 0;              // of a discarded packet, 1 to 273
  uint16_t errorStatistic = 0;             // number of the error that it met at that stage, or 0
  uint8_t limitedProtocol = 0;             // whose rate limit discarded it, or 0
};

struct Packet;

// Looks up what becomes of packets.
class PacketLookup {
 public:
  virtual ~PacketLookup() = default;
  virtual void LookUp(Packet *packet) const = 0;
};

// A packet on the path, made up or read from a capture: headers, length and fate are all that statistics and
// traces look at.
struct Packet {
  PacketHeaders headers;
  std::optional<PacketHeaders> inner;  // inside a tunnel
  PacketKind kind = PacketKind::kPlain;
  uint32_t length = 0;
  uint16_t causeId = 0;  // why it is of interest to the control plane, or 0
  bool fromControlPlane = false;
  uint32_t sourceFwdIf = 0;         // 0 for packets of the control plane
  uint32_t destinationFwdIf = 0;    // 0 when it was not found, or is the control plane
  uint32_t core = 0;                // the run context that handles it
  std::optional<uint32_t> session;  // that the tables have for it
  bool captured = false;            // read from a capture, not made up
  bool seenBefore = false;          // has been counted where it came in, and is only seen again as it leaves
  PacketFate fate;
  const PacketLookup *lookup = nullptr;  // that finds the fate at the stage lookup; null: it is known

  bool Discarded() const { return fate.end == PacketFate::End::kDiscarded; }
};

}  // namespace qdt::host

#endif  // HOST_PACKET_TRAFFIC_PACKET_H_
