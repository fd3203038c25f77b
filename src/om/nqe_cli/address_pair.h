#ifndef SRC_OM_NQE_CLI_ADDRESS_PAIR_H_
#define SRC_OM_NQE_CLI_ADDRESS_PAIR_H_

#include <arpa/inet.h>

#include <cstdint>

#include "qdt/cli.h"

namespace qdt {

// Reads "first:second" as two addresses in host order; false when the text is no such pair. A half that is no
// address counts as 255.255.255.255.
inline bool ParseAddressPair(const char *text, uint32_t &first, uint32_t &second) {
  char firstText[INET_ADDRSTRLEN], secondText[INET_ADDRSTRLEN];
  if (QdtCliGetIpsSeparatedByColon(text, firstText, secondText, sizeof(firstText)) != 0) return false;
  first = ntohl(inet_addr(firstText));
  second = ntohl(inet_addr(secondText));
  return true;
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_ADDRESS_PAIR_H_
