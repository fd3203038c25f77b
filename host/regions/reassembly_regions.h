#ifndef HOST_REGIONS_REASSEMBLY_REGIONS_H_
#define HOST_REGIONS_REASSEMBLY_REGIONS_H_

#include <string_view>

namespace qdt::host {

// The regions of packets that wait for their fragments: an array of packets, each with the time at which it
// came, in TimerMilliseconds. What fills an engine has there the milliseconds that the packet has waited.
constexpr std::string_view kReassemblyRegions[] = {"IP_REASS_CTX_PTR", "IP6_REASS_CTX_PTR"};
constexpr std::string_view kReassemblyPackets = "packets";
constexpr std::string_view kReassemblyArrival = "waited";

}  // namespace qdt::host

#endif  // HOST_REGIONS_REASSEMBLY_REGIONS_H_
