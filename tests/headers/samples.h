#ifndef TESTS_HEADERS_SAMPLES_H_
#define TESTS_HEADERS_SAMPLES_H_

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/headers/parse.h"

namespace qdt::host {

using Octets = std::vector<uint8_t>;

// "02 00 5e" to bytes; `count` zeros are written as "00*count".
inline Octets Hex(std::string_view text) {
  Octets bytes;
  for (size_t at = 0; at < text.size();) {
    if (text[at] == ' ') {
      ++at;
      continue;
    }
    const auto value = static_cast<uint8_t>(std::stoul(std::string(text.substr(at, 2)), nullptr, 16));
    at += 2;
    size_t times = 1;
    if (at < text.size() && text[at] == '*') {
      size_t digits = 0;
      times = std::stoul(std::string(text.substr(at + 1, 4)), &digits);
      at += 1 + digits;
    }
    bytes.insert(bytes.end(), times, value);
  }
  return bytes;
}

inline Octets Join(std::initializer_list<std::string_view> parts) {
  Octets bytes;
  for (const std::string_view part : parts) {
    const Octets more = Hex(part);
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  return bytes;
}

// Frames from 02:..:01 to 02:..:02, without an Ethernet type.
constexpr char kMacs[] = "02 00 5e 00 00 02  02 00 5e 00 00 01";
// IPv4 from 192.0.2.11 to 198.51.100.7 begins with version, length and so on, and ends with these.
constexpr char kAddresses4[] = "c0 00 02 0b  c6 33 64 07";
constexpr char kAddresses6[] =
    "20 01 0d b8 00*11 0b"
    "20 01 0d b8 00*11 07";
constexpr char kTcpPayload[] = "c3 50 01 bb 00*8 50 18 ff ff 00*4 61 62 63 64";
constexpr char kUdpDns[] = "cf 15 00 35 00 0c 00 00 61 62 63 64";

struct Sample {
  const char *name;
  LinkType type;
  Octets bytes;
};

// One good packet of each kind that is recognised.
inline const std::vector<Sample> &Samples() {
  constexpr auto kEthernet = LinkType::kEthernet;
  static const std::vector<Sample> samples = {
      {"IPv4 TCP", kEthernet,
       Join({kMacs, "08 00", "45 00 00 2c 00 01 40 00 40 06 00 00", kAddresses4, kTcpPayload})},
      {"IPv4 UDP in a frame filled up", kEthernet,
       Join({kMacs, "08 00", "45 00 00 20 00 01 00 00 05 11 00 00", kAddresses4, kUdpDns, "00*14"})},
      {"IPv4 with options, ICMP echo", kEthernet,
       Join({kMacs, "08 00", "47 00 00 28 00 01 00 00 40 01 00 00", kAddresses4, "07 07 04 00 00 00 00 00",
             "08 00 00 00 12 34 00 01 61 62 63 64"})},
      {"VLAN", kEthernet,
       Join({kMacs, "81 00 60 0a 08 00", "45 00 00 20 00 01 00 00 05 11 00 00", kAddresses4, kUdpDns})},
      {"QinQ", kEthernet,
       Join({kMacs, "88 a8 00 64 81 00 00 0a 08 00", "45 00 00 20 00 01 00 00 05 11 00 00", kAddresses4,
             kUdpDns})},
      {"first fragment", kEthernet,
       Join({kMacs, "08 00", "45 00 00 24 00 01 20 00 40 11 00 00", kAddresses4,
             "c3 50 08 01 0f a0 00 00 61 62 63 64 65 66 67 68"})},
      {"last fragment", kEthernet,
       Join({kMacs, "08 00", "45 00 00 1c 00 01 00 02 40 11 00 00", kAddresses4, "61 62 63 64 65 66 67 68"})},
      {"ARP", kEthernet,
       Join({"ff*6  02 00 5e 00 00 01 08 06", "00 01 08 00 06 04 00 01 02 00 5e 00 00 01 c0 00 02 0b 00*6",
             "c0 00 02 01", "00*18"})},
      {"IPv6 TCP", kEthernet, Join({kMacs, "86 dd", "60 00 00 00 00 18 06 40", kAddresses6, kTcpPayload})},
      {"IPv6 with extension headers", kEthernet,
       Join({kMacs, "86 dd", "60 00 00 00 00 38 00 40", kAddresses6, "2b 00 01 04 00*4", "3c 00 00*6",
             "33 01 01 0c 00*12", "11 01 00*10", kUdpDns})},
      {"IPv6 first fragment", kEthernet,
       Join({kMacs, "86 dd", "60 00 00 00 00 18 2c 40", kAddresses6, "11 00 00 01 00 00 00 07",
             "c3 50 08 01 0f a0 00 00 61 62 63 64 65 66 67 68"})},
      {"IPv6 last fragment", kEthernet,
       Join({kMacs, "86 dd", "60 00 00 00 00 10 2c 40", kAddresses6, "11 00 00 10 00 00 00 07",
             "61 62 63 64 65 66 67 68"})},
      {"neighbour solicitation", kEthernet,
       Join({kMacs, "86 dd", "60 00 00 00 00 20 3a ff", kAddresses6, "87 00 00 00 00*4 20 01 0d b8 00*11 07",
             "01 01 02 00 5e 00 00 01"})},
      {"PPPoE discovery", kEthernet, Join({kMacs, "88 63", "11 09 00 00 00 04", "01 01 00 00"})},
      {"PPPoE session, IPv4", kEthernet,
       Join({kMacs, "88 64", "11 00 00 07 00 22 00 21", "45 00 00 20 00 01 00 00 05 11 00 00", kAddresses4,
             kUdpDns})},
      {"PPPoE keepalive", kEthernet,
       Join({kMacs, "88 64", "11 00 00 07 00 0a c0 21", "09 01 00 08 12 34 56 78"})},
      {"CAPWAP control", kEthernet,
       Join({kMacs, "08 00", "45 00 00 2c 00 01 00 00 40 11 00 00", kAddresses4, "30 39 14 7e 00 18 00 00",
             "00 10 00 00 00 00 00 00", "00 00 00 0d 00 00 00 00"})},
      {"CAPWAP data", kEthernet,
       Join({kMacs, "08 00", "45 00 00 52 00 01 00 00 40 11 00 00", kAddresses4, "30 39 14 7f 00 3e 00 00",
             "00 10 00 00 00 00 00 00", "02 00 5e 00 00 0b 02 00 5e 00 00 0a 08 00",
             "45 00 00 20 00 01 00 00 05 11 00 00", "0a 00 00 01 0a 00 00 02", kUdpDns})},
      {"CAPWAP keepalive", kEthernet,
       Join({kMacs, "08 00", "45 00 00 28 00 01 00 00 40 11 00 00", kAddresses4, "30 39 14 7f 00 14 00 00",
             "00 10 00 08 00 00 00 00", "00 00 00 00"})},
      {"CAPWAP fragment", kEthernet,
       Join({kMacs, "08 00", "45 00 00 28 00 01 00 00 40 11 00 00", kAddresses4, "30 39 14 7f 00 14 00 00",
             "00 10 00 80 00 01 00 08", "61 62 63 64"})},
      {"CAPWAP in DTLS", kEthernet,
       Join({kMacs, "08 00", "45 00 00 28 00 01 00 00 40 11 00 00", kAddresses4, "30 39 14 7f 00 14 00 00",
             "01 00 00 00", "17 fe fd 00 00 00 00 00"})},
      {"EAP key", kEthernet, Join({kMacs, "88 8e", "02 03 00 05 fe 00 00 00 00"})},
      {"spanning tree", kEthernet, Join({"01 80 c2 00 00 00  02 00 5e 00 00 01 00 26", "42 42 03 00*35"})},
      {"cooked", LinkType::kCooked,
       Join({"00 04 00 01 00 06 02 00 5e 00 00 01 00 00 08 00", "45 00 00 20 00 01 00 00 05 11 00 00",
             kAddresses4, kUdpDns})},
      {"cooked, version 2", LinkType::kCooked2,
       Join({"08 00 00 00 00 00 00 02 00 01 00 06 02 00 5e 00 00 01 00 00",
             "45 00 00 20 00 01 00 00 05 11 00 00", kAddresses4, kUdpDns})},
  };
  return samples;
}

}  // namespace qdt::host

#endif  // TESTS_HEADERS_SAMPLES_H_
