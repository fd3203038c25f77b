#include <string_view>

#include "platform/engine.h"

// The protocols that the engine hands to the control plane, each with a rate limit of its own. The ids stand
// in the keys of the CPCAR tables; names are what people type.
namespace qdt::host {
namespace {

constexpr uint32_t kUnknownProtocol = 254;

struct ProtocolName {
  uint32_t id;
  const char *name;
};

constexpr ProtocolName kProtocolNames[] = {
    {0, "arp-request"},
    {1, "arp-reply"},
    {2, "arp-miss"},
    {3, "nd-ns"},
    {4, "nd-na"},
    {5, "nd-rs"},
    {6, "nd-ra"},
    {7, "nd-miss"},
    {8, "dhcp-client"},
    {9, "dhcp-server"},
    {10, "dhcpv6-request"},
    {11, "dhcpv6-reply"},
    {12, "dns"},
    {13, "icmp"},
    {14, "icmpv6"},
    {15, "icmp-unreachable"},
    {16, "ttl-expired"},
    {17, "ip-option"},
    {18, "fragment"},
    {19, "tcp"},
    {20, "udp"},
    {21, "telnet"},
    {22, "ssh"},
    {23, "ftp"},
    {24, "http"},
    {25, "https"},
    {26, "portal"},
    {27, "radius"},
    {28, "tacacs"},
    {29, "snmp"},
    {30, "ntp"},
    {31, "syslog"},
    {32, "8021x"},
    {33, "8021x-wireless"},
    {34, "eapol-key"},
    {35, "capwap-control"},
    {36, "capwap-discover"},
    {37, "capwap-keepalive"},
    {38, "dtls"},
    {39, "netconf"},
    {40, "lldp"},
    {41, "stp"},
    {42, "lacp"},
    {43, "igmp"},
    {44, "mld"},
    {45, "ospf"},
    {46, "bgp"},
    {47, "vrrp"},
    {48, "bfd"},
    {49, "mdns"},
    {50, "ssdp"},
    {51, "location"},
    {52, "station-roam"},
    {53, "wids"},
    {54, "mesh"},
    {55, "iot"},
};

}  // namespace
}  // namespace qdt::host

using qdt::host::kProtocolNames;
using qdt::host::ProtocolName;

const char *QdtGetNameByProId(uint32_t id) {
  for (const ProtocolName &protocol : kProtocolNames) {
    if (protocol.id == id) return protocol.name;
  }
  return nullptr;
}

uint32_t QdtGetProIdByName(const char *name) {
  if (name == nullptr) return qdt::host::kUnknownProtocol;
  for (const ProtocolName &protocol : kProtocolNames) {
    if (std::string_view(protocol.name) == name) return protocol.id;
  }
  return qdt::host::kUnknownProtocol;
}
