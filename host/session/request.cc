#include "host/session/request.h"

#include <algorithm>

#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"
#include "host/session/link.h"

namespace qdt::host {
namespace {

using Layer = RpcError::Layer;

// What an XPath's names are made of.
bool IsNameByte(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '.' || c >= 0x80;
}

const std::string *AttributeOf(const XmlElement &element, std::string_view name) {
  for (const XmlElement::Attribute &one : element.attributes) {
    if (one.name == name && (one.space.empty() || one.space == kNetconfSpace)) return &one.value;
  }
  return nullptr;
}

Bindings BindingsOf(const XmlElement *element) {
  Bindings bindings;
  for (; element != nullptr; element = element->parent) {
    for (const auto &[prefix, space] : element->declared) {
      const auto isSame = [&prefix = prefix](const auto &other) { return other.first == prefix; };
      if (std::ranges::none_of(bindings, isSame)) bindings.emplace_back(prefix, space);
    }
  }
  return bindings;
}

void CheckRoot(const XmlElement &rpc) {
  if (rpc.name != "rpc") {
    throw RpcError(Layer::kRpc, "unknown-element", "a message is an <rpc>, not <" + rpc.name + ">")
        .With("bad-element", rpc.name);
  }
  if (rpc.space != kNetconfSpace) {
    throw RpcError(Layer::kRpc, "unknown-namespace", Joined({"an <rpc> is of the namespace ", kNetconfSpace}))
        .With("bad-element", rpc.name)
        .With("bad-namespace", rpc.space);
  }
  if (rpc.FindAttribute("message-id") == nullptr) {
    throw RpcError(Layer::kRpc, "missing-attribute", "an <rpc> needs the attribute message-id")
        .With("bad-attribute", "message-id")
        .With("bad-element", "rpc");
  }
  if (rpc.children.empty()) {
    throw RpcError(Layer::kRpc, "missing-element", "the <rpc> holds no operation")
        .At("/nc:rpc", kNetconfSpace)
        .With("bad-element", "rpc");
  }
  if (rpc.children.size() > 1) {
    throw RpcError(Layer::kRpc, "unknown-element", "the <rpc> holds more than one operation")
        .At("/nc:rpc", kNetconfSpace)
        .With("bad-element", rpc.children[1]->name);
  }
}

void CheckAttributes(const XmlElement &element, const std::string &path, const std::string &space) {
  if (element.attributes.empty()) return;
  throw RpcError(Layer::kProtocol, "unknown-attribute", "<" + element.name + "> takes no such attribute")
      .At(path, space)
      .With("bad-attribute", element.attributes[0].name)
      .With("bad-element", element.name);
}

void ReadFilter(const XmlElement &element, const std::string &path, DataFilter *filter) {
  const std::string *type = AttributeOf(element, "type");
  if (type == nullptr || *type == "subtree") {
    filter->kind = DataFilter::Kind::kSubtree;
    filter->subtree = &element;
    return;
  }
  if (*type != "xpath") {
    throw RpcError(Layer::kProtocol, "bad-attribute", "a filter is of the type subtree or xpath")
        .At(path, kNetconfSpace)
        .With("bad-attribute", "type")
        .With("bad-element", "filter");
  }
  const std::string *select = AttributeOf(element, "select");
  if (select == nullptr) {
    throw RpcError(Layer::kProtocol, "missing-attribute", "an xpath filter needs its attribute select")
        .At(path, kNetconfSpace)
        .With("bad-attribute", "select")
        .With("bad-element", "filter");
  }
  filter->kind = DataFilter::Kind::kXpath;
  filter->xpath = *select;
  filter->bindings = BindingsOf(&element);
}

// The operation of RFC 6241 and RFC 5277 that select data have it said by a filter.
bool TakesFilter(const XmlElement &operation) {
  return (operation.space == kNetconfSpace && (operation.name == "get" || operation.name == "get-config")) ||
         operation.Is(kNotificationSpace, "create-subscription");
}

void AddParameter(const XmlElement &child, const std::string &path, Request *request) {
  const XmlElement &operation = *child.parent;
  if (child.space != operation.space) {
    throw RpcError(Layer::kApplication, "unknown-namespace",
                   "<" + operation.name + "> takes no parameter of another namespace")
        .At(path, operation.space)
        .With("bad-element", child.name)
        .With("bad-namespace", child.space);
  }
  // The operations of the base hold parts of configurations, which say nothing here.
  const bool isBase = operation.space == kNetconfSpace;
  if (isBase && !child.children.empty()) return;
  CheckAttributes(child, path, operation.space);
  if (!child.children.empty()) {
    throw RpcError(Layer::kApplication, "unknown-element", "a parameter holds a value and no elements")
        .At(path, operation.space)
        .With("bad-element", child.children[0]->name);
  }
  request->parameters.emplace_back(child.name, child.text);
}

void AddWanted(Request *request) {
  std::vector<std::string> tops;
  if (request->filter.kind == DataFilter::Kind::kXpath) {
    tops = TopsOfXpath(request->filter.xpath, request->filter.bindings);
  } else if (request->filter.kind == DataFilter::Kind::kSubtree) {
    for (const auto &each : request->filter.subtree->children)
      tops.push_back("{" + each->space + "}" + each->name);
    if (tops.empty()) tops.emplace_back();  // an empty filter selects nothing
  }
  for (std::string &top : tops) request->parameters.emplace_back("want", std::move(top));
}

}  // namespace

Request ReadRequest(std::unique_ptr<XmlElement> rpc) {
  CheckRoot(*rpc);
  const XmlElement &operation = *rpc->children[0];
  Request request{nullptr, operation.space, operation.name, {}, {}};
  const std::string path = "/nc:rpc/op:" + operation.name;
  CheckAttributes(operation, path, operation.space);
  for (const auto &child : operation.children) {
    const std::string childPath = path + "/op:" + child->name;
    if (TakesFilter(operation) && child->Is(operation.space, "filter")) {
      ReadFilter(*child, childPath, &request.filter);
    } else {
      AddParameter(*child, childPath, &request);
    }
  }
  if (request.Is(kNetconfSpace, "get")) AddWanted(&request);
  size_t bytes = request.space.size() + request.operation.size();
  for (const auto &[name, value] : request.parameters) bytes += name.size() + value.size() + 8;
  if (bytes > kCallLimit || 2 * request.parameters.size() + 2 > kCallFields) {
    throw RpcError(Layer::kProtocol, "too-big",
                   "the parameters of one operation have at most " + std::to_string(kCallLimit) +
                       " bytes and number " + std::to_string(kCallFields / 2 - 1))
        .At(path, operation.space);
  }
  request.rpc = std::move(rpc);
  return request;
}

std::string ReplyAttributes(const XmlElement &rpc) {
  std::string text;
  for (const auto &[prefix, space] : rpc.declared) {
    if (!prefix.empty()) text += " xmlns:" + prefix + "=\"" + XmlEscaped(space) + '"';
  }
  for (const XmlElement::Attribute &one : rpc.attributes) {
    text += ' ' + (one.prefix.empty() ? std::string() : one.prefix + ':') + one.name + "=\"" +
            XmlEscaped(one.value) + '"';
  }
  return text;
}

std::vector<std::string> TopsOfXpath(std::string_view path, const Bindings &bindings) {
  // Only paths alone are looked at: what is within predicates or functions may lead anywhere.
  if (path.find_first_of("[]()'\"$") != path.npos) return {};
  std::vector<std::string> tops;
  while (true) {
    const size_t bar = std::min(path.find('|'), path.size());
    std::string_view branch = path.substr(0, bar);
    while (!branch.empty() && branch.front() == ' ') branch.remove_prefix(1);
    if (!branch.starts_with('/') || branch.find("..") != branch.npos) return {};
    branch.remove_prefix(1);
    size_t end = 0;
    while (end < branch.size() && IsNameByte(branch[end])) ++end;
    if (end == 0 || end == branch.size() || branch[end] != ':') return {};
    const std::string_view prefix = branch.substr(0, end);
    branch.remove_prefix(end + 1);
    end = 0;
    while (end < branch.size() && IsNameByte(branch[end])) ++end;
    const auto isOurs = [&](const auto &each) { return each.first == prefix; };
    const auto found = std::ranges::find_if(bindings, isOurs);
    if (end == 0 || found == bindings.end()) return {};
    tops.push_back("{" + found->second + "}" + std::string(branch.substr(0, end)));
    if (bar == path.size()) return tops;
    path.remove_prefix(bar + 1);
  }
}

}  // namespace qdt::host
