#include "host/packet/trace_print.h"

#include <arpa/inet.h>

#include <cstdio>

#include "qdt/stats.h"

namespace qdt::host {
namespace {

std::string Hex(const char *format, unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string MacText(const PacketMac &mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  return text;
}

std::string AddressText(const PacketHeaders &headers, const PacketAddress &address) {
  char text[INET6_ADDRSTRLEN];
  inet_ntop(headers.IsIpv6() ? AF_INET6 : AF_INET, address.data(), text, sizeof text);
  return text;
}

std::string ArpText(const PacketHeaders &headers) {
  if (headers.arpOperation == 0) return "";
  constexpr uint16_t kRequest = 1, kReply = 2;
  const std::string operation = headers.arpOperation == kRequest ? "request"
                                : headers.arpOperation == kReply
                                    ? "reply"
                                    : "operation " + std::to_string(headers.arpOperation);
  return ", " + AddressText(headers, headers.source) + " > " + AddressText(headers, headers.destination) +
         " ARP " + operation;
}

std::string ProtocolText(const PacketHeaders &headers) {
  if (headers.IsTcp()) return "TCP";
  if (headers.IsUdp()) return "UDP";
  if (headers.IsIcmp()) return headers.IsIpv6() ? "ICMPv6" : "ICMP";
  return "protocol " + std::to_string(headers.protocol);
}

std::string Layer4Text(const PacketHeaders &headers) {
  if (!headers.HasLayer4()) return "";
  if (headers.IsIcmp()) return " type " + std::to_string(headers.icmpType);
  if (!headers.IsTcp() && !headers.IsUdp()) return "";
  std::string text =
      " port " + std::to_string(headers.sourcePort) + " > " + std::to_string(headers.destinationPort);
  if (headers.IsTcp()) text += " flags " + Hex("0x%02x", headers.tcpFlags);
  return text;
}

std::string HeadersText(const PacketHeaders &headers) {
  std::string text = "vlan " + std::to_string(headers.vlan) + ", " + MacText(headers.sourceMac) + " > " +
                     MacText(headers.destinationMac) + ", type " + Hex("0x%04x", headers.etherType);
  if (headers.etherType == kEtherArp) return text + ArpText(headers);
  if (!headers.IsIp() || !headers.HasLayer3()) return text;
  text += ", " + AddressText(headers, headers.source) + " > " + AddressText(headers, headers.destination) +
          " " + ProtocolText(headers) + Layer4Text(headers);
  if (headers.IsFragment()) {
    text += ", fragment at " + std::to_string(headers.fragmentOffset) +
            (headers.moreFragments ? "" : " (the last)");
  }
  return text;
}

const char *KindText(PacketKind kind) {
  switch (kind) {
    case PacketKind::kPlain:
      return "";
    case PacketKind::kEapKey:
      return ", EAP key";
    case PacketKind::kCapwapKeepalive:
      return ", CAPWAP keepalive";
    case PacketKind::kCapwapFragment:
      return ", CAPWAP fragment";
    case PacketKind::kPppoeKeepalive:
      return ", PPPoE keepalive";
  }
  return "";
}

std::string FateText(const Packet &packet) {
  switch (packet.fate.end) {
    case PacketFate::End::kForwarded:
      return "sent";
    case PacketFate::End::kToControlPlane:
      return "to the control plane";
    case PacketFate::End::kDiscarded:
      break;
  }
  const char *reason = QdtOmaSysStatDescGet()[QDT_STAT_DISCARD + packet.fate.discardReason];
  return "discarded: " +
         (reason != nullptr ? std::string(reason) : std::to_string(packet.fate.discardReason));
}

}  // namespace

std::string DescribePacket(const Packet &packet) {
  std::string text = "core " + std::to_string(packet.core) + ", from ";
  text += packet.fromControlPlane ? "the control plane" : "if " + std::to_string(packet.sourceFwdIf);
  if (packet.destinationFwdIf != 0) text += " to if " + std::to_string(packet.destinationFwdIf);
  text += ", " + HeadersText(packet.headers) + KindText(packet.kind);
  if (packet.causeId != 0) text += ", cause " + std::to_string(packet.causeId);
  if (packet.session) text += ", session " + std::to_string(*packet.session);
  text += ", " + std::to_string(packet.length) + " bytes";
  if (packet.inner) text += ", inside: " + HeadersText(*packet.inner);
  return text + ", " + FateText(packet);
}

}  // namespace qdt::host
