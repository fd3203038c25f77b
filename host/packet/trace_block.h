#ifndef HOST_PACKET_TRACE_BLOCK_H_
#define HOST_PACKET_TRACE_BLOCK_H_

#include <cstddef>
#include <cstdint>

namespace qdt::host {

// The shared region of the packet trace, as the engine reads it.
constexpr char kTraceRegion[] = "PKT_TRACE_CTX_PTR";

// Bits of TraceBlock::mask: which of its conditions are in force.
enum class TraceBit : uint8_t {
  kLength = 1,
  kSourceFwdIf = 2,
  kDestinationFwdIf = 3,
  kFromControlPlane = 4,
  kDiscardType = 5,
  kVlan = 6,
  kSourceMac = 7,
  kDestinationMac = 8,
  kEtherType = 9,
  kEapKey = 10,
  kSourceIpv4 = 11,
  kDestinationIpv4 = 12,
  kProtocol = 13,
  kCapwap = 14,
  kSourcePort = 17,
  kDestinationPort = 18,
  kIpFragment = 19,
  kWirelessFragment = 20,
  kNotFragment = 21,
  kFirstFragment = 22,
  kNotFirstFragment = 23,
  kLastFragment = 24,
  kTcpFlags = 25,
  kSourceIpv6 = 26,
  kDestinationIpv6 = 27,
  kIpType = 28,
  kIcmpType = 29,
  kPppoeKeepalive = 30,
  kCauseId = 31,
};

// Bits of TraceBlock::flags.
enum TraceFlag : uint8_t {
  kTraceNot = 1,
  kTraceInner = 2,
  kTraceFromControlPlane = 4,
  kTraceEapKey = 8,
  kTraceCapwapKeepalive = 16,
  kTracePppoeKeepalive = 32,
  kTraceCapwapFragment = 64,
};

constexpr uint16_t kTraceAnyDiscard = 274;

struct TraceBlock {
  uint64_t mask;
  uint16_t minLength, maxLength;
  uint8_t flags;
  uint8_t tcpFlags;
  uint16_t vlan;
  uint32_t sourceFwdIf, destinationFwdIf;
  uint32_t timeout;
  uint32_t reserved28;
  uint8_t sourceIpv4[4], destinationIpv4[4];
  uint8_t sourceMac[6], destinationMac[6];
  uint8_t protocol, reserved53;
  uint16_t etherType;
  uint8_t sourceIpv6[16], destinationIpv6[16];
  uint16_t sourcePort, destinationPort;
  uint16_t discardType;
  uint16_t causeId;
  uint8_t ipType;  // 0 IPv4, 1 IPv6
  uint8_t icmpType;
  uint8_t reserved98[9];
  uint8_t printConsole, printLog;
  uint8_t reserved109;
  uint16_t printLength;
  uint32_t leftPrints;
  uint32_t fromDriver, toDriver, toSlowPath, fromSlowPath;
  uint8_t reserved132[88];
  uint8_t switches;  // bit 0: the trace is on
  uint8_t reserved221[3];
};
static_assert(sizeof(TraceBlock) == 224);
static_assert(offsetof(TraceBlock, timeout) == 24 && offsetof(TraceBlock, sourceIpv4) == 32);
static_assert(offsetof(TraceBlock, etherType) == 54 && offsetof(TraceBlock, sourcePort) == 88);
static_assert(offsetof(TraceBlock, icmpType) == 97 && offsetof(TraceBlock, printConsole) == 107);
static_assert(offsetof(TraceBlock, leftPrints) == 112 && offsetof(TraceBlock, fromSlowPath) == 128);
static_assert(offsetof(TraceBlock, switches) == 220);

}  // namespace qdt::host

#endif  // HOST_PACKET_TRACE_BLOCK_H_
