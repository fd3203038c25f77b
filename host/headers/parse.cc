#include "host/headers/parse.h"

#include "host/headers/parse_ip.h"

namespace qdt::host {
namespace {

constexpr size_t kMac = 6;

// Reads one packet. Its steps hand on what is behind the header that they have read.
class Parser {
 public:
  explicit Parser(ParsedPacket *packet) : packet_(*packet) {}

  void Link(LinkType type, const Bytes &bytes);

 private:
  // The packet itself, or one inside: of PPPoE, whose faults are the packet's, or of CAPWAP.
  enum class Level : uint8_t { kPacket, kSession, kTunnel };

  void Ethernet(const Bytes &bytes, PacketHeaders *headers, Level level);
  void Cooked(const Bytes &bytes);
  void Cooked2(const Bytes &bytes);
  void Tags(uint16_t type, Bytes bytes, PacketHeaders *headers, Level level);
  void Network(const Bytes &bytes, PacketHeaders *headers, Level level);
  void Arp(const Bytes &bytes, PacketHeaders *headers, Level level);
  void Eap(const Bytes &bytes);
  void Pppoe(const Bytes &bytes);
  void PppSession(const Bytes &bytes);
  void Capwap(const Bytes &bytes, bool isData);
  PacketHeaders &Inside();

  // Whether there are `size` bytes to be read; a packet that never had them has the fault.
  bool Reaches(const Bytes &bytes, size_t size, ParseFault fault) {
    if (bytes.Lacks(size)) packet_.fault = fault;
    return bytes.Has(size);
  }

  ParsedPacket &packet_;
};

void Parser::Link(LinkType type, const Bytes &bytes) {
  packet_.headers.depth = HeaderDepth::kLink;
  switch (type) {
    case LinkType::kEthernet:
      return Ethernet(bytes, &packet_.headers, Level::kPacket);
    case LinkType::kCooked:
      return Cooked(bytes);
    case LinkType::kCooked2:
      return Cooked2(bytes);
  }
}

void Parser::Ethernet(const Bytes &bytes, PacketHeaders *headers, Level level) {
  constexpr size_t kHeader = 14;
  if (!Reaches(bytes, kHeader, ParseFault::kLink)) return;
  bytes.CopyTo(0, kMac, &headers->destinationMac);
  bytes.CopyTo(kMac, kMac, &headers->sourceMac);
  Tags(bytes.At16(12), bytes.From(kHeader), headers, level);
}

// As the kernel marks what it sends.
constexpr uint16_t kSentByMachine = 4;

void Parser::Cooked(const Bytes &bytes) {
  constexpr size_t kHeader = 16;
  if (!Reaches(bytes, kHeader, ParseFault::kLink)) return;
  packet_.outgoing = bytes.At16(0) == kSentByMachine;
  if (bytes.At16(4) == kMac) bytes.CopyTo(6, kMac, &packet_.headers.sourceMac);
  Tags(bytes.At16(14), bytes.From(kHeader), &packet_.headers, Level::kPacket);
}

void Parser::Cooked2(const Bytes &bytes) {
  constexpr size_t kHeader = 20;
  if (!Reaches(bytes, kHeader, ParseFault::kLink)) return;
  packet_.outgoing = bytes.At(10) == kSentByMachine;
  if (bytes.At(11) == kMac) bytes.CopyTo(12, kMac, &packet_.headers.sourceMac);
  Tags(bytes.At16(0), bytes.From(kHeader), &packet_.headers, Level::kPacket);
}

// VLAN tags, any number of which may stand one inside the other.
void Parser::Tags(uint16_t type, Bytes bytes, PacketHeaders *headers, Level level) {
  constexpr uint16_t kTag = 0x8100, kServiceTag = 0x88a8, kOldServiceTag = 0x9100;
  constexpr size_t kTagSize = 4;
  constexpr uint16_t kVlan = 0x0fff;
  headers->etherType = type;
  for (bool outermost = true; type == kTag || type == kServiceTag || type == kOldServiceTag;
       outermost = false) {
    if (!Reaches(bytes, kTagSize, ParseFault::kLink)) return;
    if (outermost) headers->vlan = bytes.At16(0) & kVlan;
    headers->etherType = type = bytes.At16(2);
    bytes = bytes.From(kTagSize);
  }
  Network(bytes, headers, level);
}

void Parser::Network(const Bytes &bytes, PacketHeaders *headers, Level level) {
  if (headers->etherType == kEtherArp) return Arp(bytes, headers, level);
  if (headers->IsIp()) {
    std::optional<Bytes> payload;
    const ParseFault fault = ParseIp(bytes, headers, &payload);
    if (level == Level::kTunnel) return;
    packet_.fault = fault;
    if (level == Level::kSession) return;
    if (fault != ParseFault::kNone || !payload) return;
    for (const uint16_t port : {headers->destinationPort, headers->sourcePort}) {
      if (port == kCapwapControlPort || port == kCapwapDataPort)
        return Capwap(*payload, port == kCapwapDataPort);
    }
  }
  if (level != Level::kPacket) return;
  if (headers->etherType == kEtherEap) return Eap(bytes);
  if (headers->etherType == kEtherPppoeDiscovery || headers->etherType == kEtherPppoeSession) Pppoe(bytes);
}

void Parser::Arp(const Bytes &bytes, PacketHeaders *headers, Level level) {
  constexpr size_t kSize = 28;
  constexpr uint16_t kEthernet = 1;
  const bool isOther = bytes.Has(6) && (bytes.At16(0) != kEthernet || bytes.At16(2) != kEtherIpv4 ||
                                        bytes.At(4) != kMac || bytes.At(5) != 4);
  if ((bytes.Lacks(kSize) || isOther) && level == Level::kPacket) packet_.fault = ParseFault::kArp;
  if (!bytes.Has(kSize) || isOther) return;
  headers->arpOperation = bytes.At16(6);
  bytes.CopyTo(14, 4, &headers->source);
  bytes.CopyTo(24, 4, &headers->destination);
  headers->depth = HeaderDepth::kNetwork;
}

void Parser::Eap(const Bytes &bytes) {
  constexpr uint8_t kKey = 3;
  if (bytes.Has(2) && bytes.At(1) == kKey) packet_.kind = PacketKind::kEapKey;
}

// The packet inside a tunnel, which nothing is known of yet.
PacketHeaders &Parser::Inside() {
  packet_.inner = PacketHeaders{.depth = HeaderDepth::kLink};
  return *packet_.inner;
}

void Parser::Pppoe(const Bytes &bytes) {
  constexpr size_t kHeader = 6;
  constexpr uint8_t kVersionAndType = 0x11;
  if (!Reaches(bytes, kHeader, ParseFault::kPppoe)) return;
  const size_t length = bytes.At16(4);
  const Bytes rest = bytes.From(kHeader);
  if (bytes.At(0) != kVersionAndType || rest.Lacks(length)) {
    packet_.fault = ParseFault::kPppoe;
    return;
  }
  constexpr uint8_t kSessionData = 0;
  if (packet_.headers.etherType == kEtherPppoeSession && bytes.At(1) == kSessionData)
    PppSession(rest.First(length));
}

void Parser::PppSession(const Bytes &bytes) {
  constexpr size_t kProtocol = 2;
  constexpr uint16_t kPppIpv4 = 0x0021, kPppIpv6 = 0x0057, kLinkControl = 0xc021;
  constexpr uint8_t kEchoRequest = 9, kEchoReply = 10;
  if (!Reaches(bytes, kProtocol, ParseFault::kPppoe)) return;
  const Bytes rest = bytes.From(kProtocol);
  const uint16_t protocol = bytes.At16(0);
  if (protocol == kLinkControl && rest.Has(1) && (rest.At(0) == kEchoRequest || rest.At(0) == kEchoReply)) {
    packet_.kind = PacketKind::kPppoeKeepalive;
  } else if (protocol == kPppIpv4 || protocol == kPppIpv6) {
    PacketHeaders &inside = Inside();
    // PPP has no addresses of its own: the frame's are meant.
    inside.sourceMac = packet_.headers.sourceMac;
    inside.destinationMac = packet_.headers.destinationMac;
    inside.vlan = packet_.headers.vlan;
    inside.etherType = protocol == kPppIpv4 ? kEtherIpv4 : kEtherIpv6;
    Network(rest, &inside, Level::kSession);
  }
}

void Parser::Capwap(const Bytes &bytes, bool isData) {
  constexpr size_t kHeader = 8;
  constexpr uint8_t kEncrypted = 1;
  constexpr uint8_t kNativeFrame = 0x01;  // byte 2 has the rest of the binding's number before it
  constexpr uint8_t kFragment = 0x80, kKeepalive = 0x08;  // byte 3
  if (!Reaches(bytes, 4, ParseFault::kCapwap)) return;
  if (bytes.At(0) >> 4 != 0) {
    packet_.fault = ParseFault::kCapwap;
    return;
  }
  // Behind DTLS there is nothing to see.
  if ((bytes.At(0) & 15) == kEncrypted) return;
  const size_t length = (bytes.At(1) >> 3) * size_t{4};
  if (length < kHeader || bytes.Lacks(length)) packet_.fault = ParseFault::kCapwap;
  if (!bytes.Has(kHeader) || packet_.fault != ParseFault::kNone) return;
  const uint8_t flags = bytes.At(3);
  const bool isFragment = (flags & kFragment) != 0;
  const bool isFirst = (bytes.At16(6) & 0xfff8) == 0;
  if (isFragment) packet_.kind = PacketKind::kCapwapFragment;
  if (isData && (flags & kKeepalive) != 0) packet_.kind = PacketKind::kCapwapKeepalive;
  const bool hasFrame = isData && (flags & kKeepalive) == 0 && (!isFragment || isFirst);
  if (!hasFrame || (bytes.At(2) & kNativeFrame) != 0 || !bytes.From(length).Has(1)) return;
  Ethernet(bytes.From(length), &Inside(), Level::kTunnel);
  // What is wrong inside a tunnel is not the tunnel's fault.
  packet_.fault = ParseFault::kNone;
}

}  // namespace

ParsedPacket ParsePacket(LinkType type, const uint8_t *data, size_t captured, size_t wire) {
  ParsedPacket packet;
  Parser(&packet).Link(type, Bytes(data, captured, wire));
  return packet;
}

}  // namespace qdt::host
