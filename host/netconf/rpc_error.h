#ifndef HOST_NETCONF_RPC_ERROR_H_
#define HOST_NETCONF_RPC_ERROR_H_

#include <cstdint>
#include <string>
#include <utility>

#include "host/base/host_error.h"

namespace qdt::host {

constexpr char kNetconfSpace[] = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr char kNotificationSpace[] = "urn:ietf:params:xml:ns:netconf:notification:1.0";

// An error as a reply tells it (RFC 6241, appendix A). what() is the message.
class RpcError : public HostError {
 public:
  enum class Layer : uint8_t { kRpc, kProtocol, kApplication };

  RpcError(Layer layer, std::string tag, const std::string &message)
      : HostError(message), layer_(layer), tag_(std::move(tag)) {}

  // Where it is: an XPath whose prefixes are "nc", for NETCONF's own namespace, and "op", for `space`.
  RpcError &At(std::string path, std::string space) {
    path_ = std::move(path);
    space_ = std::move(space);
    return *this;
  }
  // Of error-info: "bad-element", "bad-attribute", "bad-namespace" or "session-id".
  RpcError &With(const std::string &name, const std::string &value);

  Layer layer() const { return layer_; }
  const std::string &tag() const { return tag_; }
  const std::string &path() const { return path_; }

  // The element rpc-error, for a place whose default namespace is kNetconfSpace.
  std::string Xml() const;

 private:
  Layer layer_;
  std::string tag_;
  std::string path_;
  std::string space_;
  std::string info_;  // XML
};

}  // namespace qdt::host

#endif  // HOST_NETCONF_RPC_ERROR_H_
