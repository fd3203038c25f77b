#ifndef SRC_OM_NQE_CLI_ROUTE_SEARCH_H_
#define SRC_OM_NQE_CLI_ROUTE_SEARCH_H_

#include <cstdint>
#include <cstring>

#include "qdt/tables.h"
#include "src/om/engine/neighbour.h"
#include "src/om/nqe_cli/table_entry.h"
#include "src/om/nqe_cli/table_view.h"

// What the searches of the IPv4 and IPv6 views of routes and neighbours have in common.
namespace qdt {

// Whether the whole table is asked for, and not the entries of one key.
inline bool AsksForAll(const Search &search) { return std::strcmp(search.key1, "all") == 0; }

// Fetches the next batch of the addresses of control interface key2: its forwarding interface's entry in
// `heads` names the key of the list in `addresses`.
template <typename Record>
int32_t NextOfPort(const Search &search, uint32_t heads, uint32_t addresses) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  const FwdIfIndex index = FindFwdIf(search.key2);
  if (index.code != 0) return index.code;
  PortAddressHead head;
  if (const int32_t code = ReadEntry(heads, index.value, head); code != 0) return code;
  return search.NextOfKey<Record>(addresses, head.listKey);
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_ROUTE_SEARCH_H_
