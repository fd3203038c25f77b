#ifndef HOST_SESSION_PLACES_H_
#define HOST_SESSION_PLACES_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/netconf/xml.h"

namespace qdt::host {

using Bindings = std::vector<std::pair<std::string, std::string>>;  // prefix and namespace

// Where in the data a filter can select anything, so that the rest need not be walked. A place is a top-level
// node "{NAMESPACE}NAME"; or a container in that, of the same namespace, "{NAMESPACE}NAME/NAME"; or in a list
// of that the entries whose leaf has a number, "{NAMESPACE}NAME/NAME?LEAF=7". The filter is still to be asked
// of what is there.

// Empty when it may be any.
std::vector<std::string> PlacesOfXpath(std::string_view path, const Bindings &bindings);

// Of one of a subtree filter's nodes.
void AddPlacesOfSubtree(const XmlElement &node, std::vector<std::string> *places);

}  // namespace qdt::host

#endif  // HOST_SESSION_PLACES_H_
