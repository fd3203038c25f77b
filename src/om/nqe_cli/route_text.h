#ifndef SRC_OM_NQE_CLI_ROUTE_TEXT_H_
#define SRC_OM_NQE_CLI_ROUTE_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/neighbour.h"
#include "src/om/engine/route.h"

// What the IPv4 and IPv6 views of routes and neighbours print alike.
namespace qdt {

// A route, with an error line when the next hop (or group) that it is bound to is not the live one of its
// index.
void PrintRoute(Text &text, const RouteEntry &e, uint32_t nextHopTable, uint32_t groupTable);

// A next-hop group, with an error line behind each member that is not the live one of its index. Members are
// looked up in the IPv4 next-hop table for both families.
void PrintNextHopGroup(Text &text, const NextHopGroupEntry &e);

// The interfaces through which a next hop is reached, read at the addresses that the engine bound.
void PrintOutputInterfaces(Text &text, int8_t count, const uint64_t (&address)[kMaxOutputInterfaces]);

void PrintNeighbour(Text &text, const Neighbour &e);

// A packet that waits for its next hop to be resolved. The addresses are as Address gives them.
template <typename NextHop, typename End>
void PrintMiss(Text &text, NextHop nextHop, uint32_t createTime, uint32_t ttl, End source, End destination) {
  text.Print<
      "  NextHop   :  %s\n"
      "  Create    :  %u\n"
      "  Ttl(sec)  :  %u\n"
      "  SrcIP     :  %s\n"
      "  DstIP     :  %s\n\n">(nextHop, createTime, ttl, source, destination);
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_ROUTE_TEXT_H_
