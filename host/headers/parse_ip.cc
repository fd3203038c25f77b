#include "host/headers/parse_ip.h"

namespace qdt::host {
namespace {

constexpr size_t kIpv4Header = 20;
constexpr size_t kIpv6Header = 40;
constexpr uint32_t kMostExtensions = 16;  // IPv6 headers in front of the protocol's; more are an attack

enum Extension : uint8_t {
  kHopByHop = 0,
  kRouting = 43,
  kFragment = 44,
  kAuthentication = 51,
  kDestinationOptions = 60,
  kMobility = 135,
  kHostIdentity = 139,
  kShim6 = 140,
};

// Whether the header of the protocol is there to be read; a packet that never had it has a fault.
bool Reaches(const Bytes &bytes, size_t size, ParseFault fault, ParseFault *found) {
  if (bytes.Lacks(size)) *found = fault;
  return bytes.Has(size);
}

ParseFault ParseTcp(const Bytes &bytes, PacketHeaders *headers) {
  constexpr size_t kPorts = 4, kHeader = 20;
  ParseFault fault = ParseFault::kNone;
  // The least fragment ends behind the ports and the sequence number.
  if (!Reaches(bytes, kPorts, ParseFault::kLayer4, &fault)) return fault;
  headers->sourcePort = bytes.At16(0);
  headers->destinationPort = bytes.At16(2);
  headers->depth = HeaderDepth::kTransport;
  if (bytes.Has(14)) headers->tcpFlags = bytes.At(13);
  if (headers->moreFragments) return fault;
  if (!Reaches(bytes, kHeader, ParseFault::kLayer4, &fault)) return fault;
  const size_t length = (bytes.At(12) >> 4) * size_t{4};
  return length < kHeader || bytes.Lacks(length) ? ParseFault::kLayer4 : ParseFault::kNone;
}

ParseFault ParseUdp(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload) {
  constexpr size_t kHeader = 8;
  ParseFault fault = ParseFault::kNone;
  if (bytes.Has(4)) {
    headers->sourcePort = bytes.At16(0);
    headers->destinationPort = bytes.At16(2);
    headers->depth = HeaderDepth::kTransport;
  }
  if (!Reaches(bytes, kHeader, ParseFault::kLayer4, &fault)) return fault;
  const size_t length = bytes.At16(4);
  if (length < kHeader || (!headers->moreFragments && bytes.Lacks(length))) return ParseFault::kLayer4;
  *payload = bytes.First(length).From(kHeader);
  return fault;
}

ParseFault ParseIcmp(const Bytes &bytes, PacketHeaders *headers) {
  constexpr size_t kHeader = 4, kEcho = 8;
  ParseFault fault = ParseFault::kNone;
  if (bytes.Has(2)) {
    headers->icmpType = bytes.At(0);
    headers->icmpCode = bytes.At(1);
    headers->depth = HeaderDepth::kTransport;
  }
  if (!Reaches(bytes, kHeader, ParseFault::kLayer4, &fault)) return fault;
  if (bytes.Has(kEcho)) headers->icmpId = bytes.At16(4);
  return fault;
}

// `bytes` are what the IP packet carries.
ParseFault ParseLayer4(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload) {
  if (headers->fragmentOffset != 0) return ParseFault::kNone;
  if (headers->IsTcp()) return ParseTcp(bytes, headers);
  if (headers->IsUdp()) return ParseUdp(bytes, headers, payload);
  if (headers->IsIcmp()) return ParseIcmp(bytes, headers);
  return ParseFault::kNone;
}

ParseFault ParseIpv4(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload) {
  constexpr uint16_t kMoreFragments = 0x2000, kOffset = 0x1fff;
  ParseFault fault = ParseFault::kNone;
  if (!Reaches(bytes, kIpv4Header, ParseFault::kIpv4, &fault)) return fault;
  const uint16_t fragment = bytes.At16(6);
  headers->depth = HeaderDepth::kNetwork;
  headers->fragmentOffset = static_cast<uint16_t>((fragment & kOffset) * 8);
  headers->moreFragments = (fragment & kMoreFragments) != 0;
  headers->hopLimit = bytes.At(8);
  headers->protocol = bytes.At(9);
  bytes.CopyTo(12, 4, &headers->source);
  bytes.CopyTo(16, 4, &headers->destination);
  const size_t header = (bytes.At(0) & 15) * size_t{4};
  const size_t total = bytes.At16(2);
  if (bytes.At(0) >> 4 != 4 || header < kIpv4Header || total < header || bytes.Lacks(total))
    return ParseFault::kIpv4;
  // What is behind the packet fills a frame up.
  return ParseLayer4(bytes.First(total).From(header), headers, payload);
}

bool IsExtension(uint8_t header) {
  for (const uint8_t extension : {kHopByHop, kRouting, kFragment, kAuthentication, kDestinationOptions,
                                  kMobility, kHostIdentity, kShim6}) {
    if (header == extension) return true;
  }
  return false;
}

size_t ExtensionSize(uint8_t header, const Bytes &bytes) {
  if (header == kFragment) return 8;
  if (header == kAuthentication) return (bytes.At(1) + size_t{2}) * 4;
  return (bytes.At(1) + size_t{1}) * 8;
}

// Goes from header to header; *bytes are what the last one leads to.
ParseFault SkipExtensions(Bytes *bytes, PacketHeaders *headers) {
  constexpr size_t kLeast = 8;
  for (uint32_t passed = 0; IsExtension(headers->protocol); ++passed) {
    ParseFault fault = ParseFault::kNone;
    if (passed == kMostExtensions || bytes->Lacks(kLeast)) return ParseFault::kIpv6;
    if (!Reaches(*bytes, kLeast, ParseFault::kIpv6, &fault)) return fault;
    const size_t size = ExtensionSize(headers->protocol, *bytes);
    if (bytes->Lacks(size)) return ParseFault::kIpv6;
    if (headers->protocol == kFragment) {
      headers->fragmentOffset = bytes->At16(2) & 0xfff8;
      headers->moreFragments = (bytes->At(3) & 1) != 0;
    }
    headers->protocol = bytes->At(0);
    *bytes = bytes->From(size);
    // What follows in a later fragment is from the middle of the packet.
    if (headers->fragmentOffset != 0) return ParseFault::kNone;
  }
  return ParseFault::kNone;
}

ParseFault ParseIpv6(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload) {
  ParseFault fault = ParseFault::kNone;
  if (!Reaches(bytes, kIpv6Header, ParseFault::kIpv6, &fault)) return fault;
  headers->depth = HeaderDepth::kNetwork;
  headers->protocol = bytes.At(6);
  headers->hopLimit = bytes.At(7);
  bytes.CopyTo(8, 16, &headers->source);
  bytes.CopyTo(24, 16, &headers->destination);
  if (bytes.At(0) >> 4 != 6) return ParseFault::kVersion;
  // A length of 0 stands before a jumbo payload, which has the rest of the frame.
  const size_t length = bytes.At16(4);
  Bytes rest = bytes.From(kIpv6Header);
  if (rest.Lacks(length)) return ParseFault::kIpv6;
  if (length != 0 || headers->protocol != kHopByHop) rest = rest.First(length);
  fault = SkipExtensions(&rest, headers);
  return fault != ParseFault::kNone || IsExtension(headers->protocol) ? fault
                                                                      : ParseLayer4(rest, headers, payload);
}

}  // namespace

ParseFault ParseIp(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload) {
  return headers->IsIpv4() ? ParseIpv4(bytes, headers, payload) : ParseIpv6(bytes, headers, payload);
}

}  // namespace qdt::host
