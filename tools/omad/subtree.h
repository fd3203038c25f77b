#ifndef TOOLS_OMAD_SUBTREE_H_
#define TOOLS_OMAD_SUBTREE_H_

#include <libyang/libyang.h>

#include <vector>

#include "host/omcc/model.h"

namespace qdt::omad {

// The nodes of `data` that a subtree filter (RFC 6241, section 6) selects, each with all below it. Both are
// first siblings of forests, `filter` as libyang parsed it from a request, with opaque nodes where it is no
// valid data. Attributes are not looked at.
std::vector<const lyd_node *> SelectSubtrees(const lyd_node *filter, const lyd_node *data);

// A copy of the nodes with all below them, and of what they stand in: the parents, and the keys of lists.
// Null when there is none.
host::OwnedTree CopyOf(const std::vector<const lyd_node *> &nodes);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_SUBTREE_H_
