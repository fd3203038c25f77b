#ifndef HOST_SESSION_REQUEST_H_
#define HOST_SESSION_REQUEST_H_

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/netconf/xml.h"
#include "host/session/places.h"

namespace qdt::host {

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

}  // namespace qdt::host

#endif  // HOST_SESSION_REQUEST_H_
