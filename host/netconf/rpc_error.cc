#include "host/netconf/rpc_error.h"

#include "host/netconf/xml_text.h"

namespace qdt::host {
namespace {

constexpr const char *kLayers[] = {"rpc", "protocol", "application"};

void AppendElement(const char *name, const std::string &text, std::string *xml) {
  *xml += std::string("<") + name + '>' + XmlEscaped(XmlText(text)) + "</" + name + '>';
}

}  // namespace

RpcError &RpcError::With(const std::string &name, const std::string &value) {
  AppendElement(name.c_str(), value, &info_);
  return *this;
}

std::string RpcError::Xml() const {
  std::string xml = "<rpc-error>";
  AppendElement("error-type", kLayers[static_cast<size_t>(layer_)], &xml);
  AppendElement("error-tag", tag_, &xml);
  AppendElement("error-severity", "error", &xml);
  if (!path_.empty()) {
    xml += Joined({"<error-path xmlns:nc=\"", kNetconfSpace, "\" xmlns:op=\"", XmlEscaped(space_), "\">",
                   XmlEscaped(path_), "</error-path>"});
  }
  xml += "<error-message xml:lang=\"en\">" + XmlEscaped(XmlText(what())) + "</error-message>";
  if (!info_.empty()) xml += "<error-info>" + info_ + "</error-info>";
  return xml + "</rpc-error>";
}

}  // namespace qdt::host
