#ifndef HOST_NETCONF_SUBTREE_H_
#define HOST_NETCONF_SUBTREE_H_

#include <functional>

#include "host/netconf/xml.h"

namespace qdt::host {

// Whether a leaf is a key of the list whose entry holds it.
using IsKey = std::function<bool(const XmlElement &leaf)>;

// Takes out of `data`, a tree of state data, what a subtree filter (RFC 6241, section 6) does not select;
// false when nothing of it is left. `filter` holds the filter's nodes as children; its attributes are not
// looked at. Keys stay beside what is selected of an entry.
bool SelectSubtree(const XmlElement &filter, const IsKey &isKey, XmlElement *data);

}  // namespace qdt::host

#endif  // HOST_NETCONF_SUBTREE_H_
