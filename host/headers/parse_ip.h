#ifndef HOST_HEADERS_PARSE_IP_H_
#define HOST_HEADERS_PARSE_IP_H_

#include <optional>

#include "host/headers/bytes.h"
#include "host/headers/parse.h"

namespace qdt::host {

// Reads IP and what is behind it, by the Ethernet type in `headers`, which gets what is found, and stores in
// *payload what is behind a whole header of UDP. Returns what is wrong.
ParseFault ParseIp(const Bytes &bytes, PacketHeaders *headers, std::optional<Bytes> *payload);

}  // namespace qdt::host

#endif  // HOST_HEADERS_PARSE_IP_H_
