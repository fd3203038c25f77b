#ifndef HOST_OMCC_OMCC_H_
#define HOST_OMCC_OMCC_H_

#include <libyang/libyang.h>

#include "platform/omcc.h"

namespace qdt::host {

// An rpc's input as what handlers receive. It is the tree itself: nothing to release.
inline omcc_request *AsRequest(lyd_node *rpc) { return reinterpret_cast<omcc_request *>(rpc); }

}  // namespace qdt::host

#endif  // HOST_OMCC_OMCC_H_
