#ifndef HOST_SESSION_REQUEST_H_
#define HOST_SESSION_REQUEST_H_

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/netconf/xml.h"

namespace qdt::host {

using Bindings = std::vector<std::pair<std::string, std::string>>;  // prefix and namespace

// What of the data a request is about.
struct DataFilter {
  enum class Kind { kNone, kSubtree, kXpath };

  Kind kind = Kind::kNone;
  const XmlElement *subtree = nullptr;  // the element that holds the filter's nodes
  std::string xpath;
  Bindings bindings;  // what the prefixes of the path stand for
};

// A client's request, as omad is asked and as the answer is made.
struct Request {
  std::unique_ptr<XmlElement> rpc;  // the message
  std::string space;                // of the operation
  std::string operation;
  std::vector<std::pair<std::string, std::string>> parameters;
  DataFilter filter;

  bool Is(std::string_view wantedSpace, std::string_view name) const {
    return space == wantedSpace && operation == name;
  }
};

// Reads a message whose root is `rpc`. Throws RpcError.
Request ReadRequest(std::unique_ptr<XmlElement> rpc);

// The attributes of an answer: those of the request (RFC 6241, section 4.2), with a blank before each.
std::string ReplyAttributes(const XmlElement &rpc);

// The nodes that an XPath can lead to or below, each a top-level one "{NAMESPACE}NAME", or one in that of the
// same namespace, "{NAMESPACE}NAME/NAME"; empty when it may be any.
std::vector<std::string> PlacesOfXpath(std::string_view path, const Bindings &bindings);

}  // namespace qdt::host

#endif  // HOST_SESSION_REQUEST_H_
