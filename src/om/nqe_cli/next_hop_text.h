#ifndef SRC_OM_NQE_CLI_NEXT_HOP_TEXT_H_
#define SRC_OM_NQE_CLI_NEXT_HOP_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/route.h"

namespace qdt {

// What is done to packets on their way to an IPv4 next hop: encapsulation, layer-2 key, egress services and
// output interfaces. Counts beyond what the record holds make the text a failure.
void PrintNextHopExtension(Text &text, const NextHopExtension &e);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_NEXT_HOP_TEXT_H_
