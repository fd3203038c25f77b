#ifndef HOST_PACKET_TRACE_PRINT_H_
#define HOST_PACKET_TRACE_PRINT_H_

#include <string>

#include "host/packet/traffic_packet.h"

namespace qdt::host {

// A packet in one line, without a newline: where it came from, its headers, its length and what became of it.
std::string DescribePacket(const Packet &packet);

}  // namespace qdt::host

#endif  // HOST_PACKET_TRACE_PRINT_H_
