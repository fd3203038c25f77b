#include "host/headers/parse.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "tests/headers/samples.h"

namespace qdt::host {
namespace {

// Reads a copy in a block of just its size, so that sanitizers see each step outside.
ParsedPacket ParseCopy(LinkType type, const Octets &bytes, size_t captured, size_t wire) {
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[captured]);
  if (captured != 0) std::memcpy(copy.get(), bytes.data(), captured);
  return ParsePacket(type, copy.get(), captured, wire);
}

ParsedPacket ParseWhole(LinkType type, const Octets &bytes) {
  return ParseCopy(type, bytes, bytes.size(), bytes.size());
}

const Sample &SampleOf(std::string_view name) {
  for (const Sample &sample : Samples()) {
    if (sample.name == name) return sample;
  }
  throw std::out_of_range(std::string(name));
}

ParsedPacket Parsed(std::string_view name) {
  const Sample &sample = SampleOf(name);
  return ParseWhole(sample.type, sample.bytes);
}

constexpr PacketMac kSender = {0x02, 0x00, 0x5e, 0x00, 0x00, 0x01};
constexpr PacketMac kReceiver = {0x02, 0x00, 0x5e, 0x00, 0x00, 0x02};
constexpr PacketAddress kSource4 = {192, 0, 2, 11};
constexpr PacketAddress kDestination4 = {198, 51, 100, 7};
constexpr PacketAddress kSource6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0b};
constexpr PacketAddress kDestination6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x07};

TEST(Parse, FindsNoFaultInGoodPackets) {
  for (const Sample &sample : Samples())
    EXPECT_EQ(ParseWhole(sample.type, sample.bytes).fault, ParseFault::kNone) << sample.name;
}

TEST(Parse, ReadsTcp) {
  const ParsedPacket packet = Parsed("IPv4 TCP");
  const PacketHeaders &headers = packet.headers;
  EXPECT_EQ(headers.sourceMac, kSender);
  EXPECT_EQ(headers.destinationMac, kReceiver);
  EXPECT_EQ(headers.etherType, 0x0800);
  EXPECT_EQ(headers.vlan, 0);
  EXPECT_EQ(headers.source, kSource4);
  EXPECT_EQ(headers.destination, kDestination4);
  EXPECT_EQ(headers.hopLimit, 64);
  EXPECT_TRUE(headers.IsTcp());
  EXPECT_EQ(headers.sourcePort, 50000);
  EXPECT_EQ(headers.destinationPort, 443);
  EXPECT_EQ(headers.tcpFlags, 0x18);
  EXPECT_FALSE(headers.IsFragment());
  EXPECT_TRUE(headers.HasLayer4());
  EXPECT_FALSE(packet.inner);
  EXPECT_EQ(packet.kind, PacketKind::kPlain);
}

TEST(Parse, ReadsIcmpBehindOptions) {
  const PacketHeaders headers = Parsed("IPv4 with options, ICMP echo").headers;
  EXPECT_TRUE(headers.IsIcmp());
  EXPECT_EQ(headers.icmpType, 8);
  EXPECT_EQ(headers.icmpId, 0x1234);
}

TEST(Parse, TakesTheOutermostTag) {
  EXPECT_EQ(Parsed("VLAN").headers.vlan, 10);
  const PacketHeaders headers = Parsed("QinQ").headers;
  EXPECT_EQ(headers.vlan, 100);
  EXPECT_EQ(headers.etherType, 0x0800);
  EXPECT_EQ(headers.destinationPort, 53);
}

TEST(Parse, ReadsFragments) {
  for (const char *name : {"first fragment", "IPv6 first fragment"}) {
    const PacketHeaders headers = Parsed(name).headers;
    EXPECT_TRUE(headers.moreFragments && headers.fragmentOffset == 0) << name;
    EXPECT_TRUE(headers.IsUdp() && headers.HasLayer4()) << name;
    EXPECT_EQ(headers.destinationPort, 2049) << name;
  }
  for (const char *name : {"last fragment", "IPv6 last fragment"}) {
    const PacketHeaders headers = Parsed(name).headers;
    EXPECT_FALSE(headers.moreFragments) << name;
    EXPECT_EQ(headers.fragmentOffset, 16) << name;
    EXPECT_TRUE(headers.IsUdp()) << name;
    EXPECT_FALSE(headers.HasLayer4()) << name;
    EXPECT_EQ(headers.destinationPort, 0) << name;
  }
}

TEST(Parse, ReadsArp) {
  const PacketHeaders headers = Parsed("ARP").headers;
  EXPECT_EQ(headers.etherType, 0x0806);
  EXPECT_EQ(headers.arpOperation, 1);
  EXPECT_EQ(headers.source, kSource4);
  EXPECT_EQ(headers.destination, (PacketAddress{192, 0, 2, 1}));
}

TEST(Parse, GoesThroughExtensionHeaders) {
  for (const char *name : {"IPv6 TCP", "IPv6 with extension headers"}) {
    const PacketHeaders headers = Parsed(name).headers;
    EXPECT_EQ(headers.source, kSource6) << name;
    EXPECT_EQ(headers.destination, kDestination6) << name;
    EXPECT_TRUE(headers.HasLayer4()) << name;
  }
  EXPECT_EQ(Parsed("IPv6 with extension headers").headers.protocol, 17);
  EXPECT_EQ(Parsed("IPv6 with extension headers").headers.destinationPort, 53);
  EXPECT_EQ(Parsed("neighbour solicitation").headers.icmpType, 135);
}

TEST(Parse, ReadsPppoe) {
  EXPECT_EQ(Parsed("PPPoE discovery").headers.etherType, 0x8863);
  EXPECT_EQ(Parsed("PPPoE keepalive").kind, PacketKind::kPppoeKeepalive);
  const ParsedPacket session = Parsed("PPPoE session, IPv4");
  EXPECT_EQ(session.headers.etherType, 0x8864);
  EXPECT_EQ(session.kind, PacketKind::kPlain);
  ASSERT_TRUE(session.inner);
  EXPECT_EQ(session.inner->source, kSource4);
  EXPECT_EQ(session.inner->destinationPort, 53);
  EXPECT_EQ(session.inner->sourceMac, kSender);
}

TEST(Parse, ReadsCapwap) {
  EXPECT_EQ(Parsed("CAPWAP control").headers.destinationPort, 5246);
  EXPECT_FALSE(Parsed("CAPWAP control").inner);
  EXPECT_EQ(Parsed("CAPWAP keepalive").kind, PacketKind::kCapwapKeepalive);
  EXPECT_FALSE(Parsed("CAPWAP keepalive").inner);
  EXPECT_EQ(Parsed("CAPWAP fragment").kind, PacketKind::kCapwapFragment);
  EXPECT_FALSE(Parsed("CAPWAP fragment").inner);
  EXPECT_FALSE(Parsed("CAPWAP in DTLS").inner);
  EXPECT_EQ(Parsed("CAPWAP in DTLS").kind, PacketKind::kPlain);
  const ParsedPacket data = Parsed("CAPWAP data");
  EXPECT_EQ(data.headers.source, kSource4);
  ASSERT_TRUE(data.inner);
  EXPECT_EQ(data.inner->sourceMac, (PacketMac{0x02, 0x00, 0x5e, 0x00, 0x00, 0x0a}));
  EXPECT_EQ(data.inner->source, (PacketAddress{10, 0, 0, 1}));
  EXPECT_EQ(data.inner->destinationPort, 53);
}

TEST(Parse, ReadsKeysAndCookedCaptures) {
  EXPECT_EQ(Parsed("EAP key").kind, PacketKind::kEapKey);
  for (const char *name : {"cooked", "cooked, version 2"}) {
    const ParsedPacket packet = Parsed(name);
    EXPECT_EQ(packet.headers.sourceMac, kSender) << name;
    EXPECT_EQ(packet.headers.source, kSource4) << name;
    EXPECT_EQ(packet.headers.destinationPort, 53) << name;
  }
  EXPECT_TRUE(Parsed("cooked").outgoing);
  EXPECT_FALSE(Parsed("cooked, version 2").outgoing);
}

struct Lie {
  const char *sample;
  size_t offset;
  uint8_t value;
  ParseFault fault;
};

// Bytes of good packets, each replaced by one that lies.
constexpr Lie kLies[] = {
    {"IPv4 TCP", 14, 0x44, ParseFault::kIpv4},     // header of 16 bytes
    {"IPv4 TCP", 14, 0x4f, ParseFault::kIpv4},     // header longer than the packet
    {"IPv4 TCP", 14, 0x65, ParseFault::kIpv4},     // another version
    {"IPv4 TCP", 17, 0x2d, ParseFault::kIpv4},     // one byte more than there is
    {"IPv4 TCP", 17, 0x13, ParseFault::kIpv4},     // less than the header
    {"IPv4 TCP", 46, 0x40, ParseFault::kLayer4},   // TCP header of 16 bytes
    {"IPv4 TCP", 46, 0x70, ParseFault::kLayer4},   // of 28 where there are 24
    {"IPv4 TCP", 17, 0x20, ParseFault::kLayer4},   // 12 bytes of TCP
    {"VLAN", 43, 0x0d, ParseFault::kLayer4},       // UDP longer than the packet
    {"VLAN", 43, 0x07, ParseFault::kLayer4},       // and shorter than its header
    {"ARP", 18, 8, ParseFault::kArp},              // MAC addresses of 8 bytes
    {"IPv6 TCP", 14, 0x40, ParseFault::kVersion},  //
    {"IPv6 TCP", 19, 0x19, ParseFault::kIpv6},     // one byte more than there is
    {"IPv6 TCP", 20, 0x00, ParseFault::kIpv6},     // TCP as an extension header of some 640 bytes
    {"IPv6 with extension headers", 55, 0xff, ParseFault::kIpv6},
    {"PPPoE discovery", 14, 0x21, ParseFault::kPppoe},     // version 2
    {"PPPoE discovery", 19, 0x05, ParseFault::kPppoe},     // one byte more than there is
    {"PPPoE session, IPv4", 22, 0x44, ParseFault::kIpv4},  // header of 16 bytes inside
    {"CAPWAP data", 64, 0x44, ParseFault::kNone},          // the same in a tunnel
    {"CAPWAP data", 62, 0x81, ParseFault::kNone},          // not even a whole tag would follow
    {"CAPWAP data", 43, 0x08, ParseFault::kCapwap},        // header of 4 bytes
    {"CAPWAP data", 43, 0xf8, ParseFault::kCapwap},        // of 124
    {"CAPWAP data", 42, 0x10, ParseFault::kCapwap},        // version 1
};

TEST(Parse, LengthsThatLieAreFaults) {
  for (const Lie &lie : kLies) {
    Octets bytes = SampleOf(lie.sample).bytes;
    bytes.at(lie.offset) = lie.value;
    EXPECT_EQ(ParseWhole(LinkType::kEthernet, bytes).fault, lie.fault) << lie.sample << " at " << lie.offset;
  }
}

TEST(Parse, ExtensionHeadersEndSomewhere) {
  Octets bytes = Join({kMacs, "86 dd", "60 00 00 00 00 c8 3c 40", kAddresses6});
  for (int i = 0; i < 25; ++i) {
    const Octets extension = Hex("3c 00 00*6");
    bytes.insert(bytes.end(), extension.begin(), extension.end());
  }
  EXPECT_EQ(ParseWhole(LinkType::kEthernet, bytes).fault, ParseFault::kIpv6);
}

// What the capture has cut is no fault of the packet, and all that is left of it is read.
TEST(Parse, ACutCaptureIsNoFault) {
  for (const Sample &sample : Samples()) {
    HeaderDepth deepest = HeaderDepth::kLink;
    for (size_t size = 0; size <= sample.bytes.size(); ++size) {
      const ParsedPacket packet = ParseCopy(sample.type, sample.bytes, size, sample.bytes.size());
      EXPECT_EQ(packet.fault, ParseFault::kNone) << sample.name << " of " << size;
      EXPECT_GE(packet.headers.depth, deepest) << sample.name << " of " << size;
      deepest = packet.headers.depth;
    }
  }
  const Sample &tcp = SampleOf("IPv4 TCP");
  const PacketHeaders headers = ParseCopy(tcp.type, tcp.bytes, 34, tcp.bytes.size()).headers;
  EXPECT_EQ(headers.source, kSource4);
  EXPECT_TRUE(headers.IsTcp());
  EXPECT_FALSE(headers.HasLayer4());
}

// A packet that was no longer on the wire contradicts its own lengths, unless what is missing filled it up.
TEST(Parse, AShortPacketIsAFault) {
  for (const char *name : {"IPv4 TCP", "IPv4 with options, ICMP echo", "VLAN", "QinQ", "IPv6 TCP",
                           "IPv6 with extension headers", "PPPoE discovery", "CAPWAP control", "cooked"}) {
    const Sample &sample = SampleOf(name);
    for (size_t size = 0; size < sample.bytes.size(); ++size)
      EXPECT_NE(ParseCopy(sample.type, sample.bytes, size, size).fault, ParseFault::kNone)
          << name << " of " << size;
  }
}

// What must hold whatever the bytes are.
void ExpectSound(const ParsedPacket &packet) {
  for (const PacketHeaders *headers : {&packet.headers, packet.inner ? &*packet.inner : nullptr}) {
    if (headers == nullptr) continue;
    EXPECT_LE(headers->vlan, 4095);
    EXPECT_TRUE(!headers->HasLayer4() || headers->IsTcp() || headers->IsUdp() || headers->IsIcmp());
    EXPECT_TRUE(headers->HasLayer3() || headers->source == PacketAddress{});
    EXPECT_EQ(headers->fragmentOffset % 8, 0);
  }
  const bool isCapwap =
      packet.kind == PacketKind::kCapwapKeepalive || packet.kind == PacketKind::kCapwapFragment;
  EXPECT_TRUE(!isCapwap || packet.headers.IsUdp());
}

TEST(Parse, BearsEveryPrefixAndFlippedByte) {
  for (const Sample &sample : Samples()) {
    for (size_t size = 0; size <= sample.bytes.size(); ++size)
      ExpectSound(ParseCopy(sample.type, sample.bytes, size, size));
    Octets bytes = sample.bytes;
    for (uint8_t &byte : bytes) {
      const uint8_t good = byte;
      for (uint32_t value = 0; value < 256; ++value) {
        byte = static_cast<uint8_t>(value);
        ExpectSound(ParseWhole(sample.type, bytes));
      }
      byte = good;
    }
  }
}

// Good packets with several bytes replaced, cut anywhere, under any link type; and any bytes at all.
TEST(Parse, BearsRandomBytes) {
  std::mt19937 random(20240607);
  const auto below = [&](size_t bound) {
    return std::uniform_int_distribution<size_t>(0, bound - 1)(random);
  };
  constexpr LinkType kTypes[] = {LinkType::kEthernet, LinkType::kCooked, LinkType::kCooked2};
  for (int round = 0; round < 100'000; ++round) {
    Octets bytes = Samples()[below(Samples().size())].bytes;
    for (size_t changes = below(8); changes > 0; --changes)
      bytes[below(bytes.size())] = static_cast<uint8_t>(below(256));
    const size_t captured = below(bytes.size() + 1);
    ExpectSound(ParseCopy(kTypes[below(3)], bytes, captured, captured + below(3) * below(2000)));
  }
  for (int round = 0; round < 100'000; ++round) {
    Octets bytes(below(160));
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(below(256));
    ExpectSound(ParseWhole(kTypes[below(3)], bytes));
  }
}

}  // namespace
}  // namespace qdt::host
