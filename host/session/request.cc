#include "host/session/request.h"

#include <algorithm>

#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"
#include "host/session/link.h"
#include "host/session/places.h"

namespace qdt::host {
namespace {

using Layer = RpcError::Layer;

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

// What stands between elements would be lost, and a command do more than was meant: of a reset that is an
// address without its parameter.
void CheckNoText(const XmlElement &element, const std::string &path, const std::string &space) {
  if (element.Value().empty()) return;
  throw RpcError(Layer::kProtocol, "bad-element", "<" + element.name + "> holds elements and no text")
      .At(path, space)
      .With("bad-element", element.name);
}

void ReadFilter(const XmlElement &element, const std::string &path, DataFilter *filter) {
  if (filter->kind != DataFilter::Kind::kNone) {
    throw RpcError(Layer::kProtocol, "bad-element", "a request has one filter")
        .At(path, element.parent->space)
        .With("bad-element", "filter");
  }
  const std::string *type = AttributeOf(element, "type");
  if (type == nullptr || *type == "subtree") {
    filter->kind = DataFilter::Kind::kSubtree;
    filter->subtree = &element;
    return;
  }
  if (*type != "xpath") {
    throw RpcError(Layer::kProtocol, "bad-attribute", "a filter is of the type subtree or xpath")
        .At(path, element.parent->space)
        .With("bad-attribute", "type")
        .With("bad-element", "filter");
  }
  const std::string *select = AttributeOf(element, "select");
  if (select == nullptr) {
    throw RpcError(Layer::kProtocol, "missing-attribute", "an xpath filter needs its attribute select")
        .At(path, element.parent->space)
        .With("bad-attribute", "select")
        .With("bad-element", "filter");
  }
  filter->kind = DataFilter::Kind::kXpath;
  filter->xpath = *select;
  filter->bindings = BindingsOf(&element);
}

// The operations of RFC 6241 and RFC 5277 that select data have it said by a filter.
bool TakesFilter(const XmlElement &operation) {
  return (operation.space == kNetconfSpace && (operation.name == "get" || operation.name == "get-config")) ||
         operation.Is(kNotificationSpace, "create-subscription");
}

// There is one datastore, which has nothing in it.
void CheckSource(const XmlElement &operation, const std::string &path) {
  const XmlElement *source = operation.Find(kNetconfSpace, "source");
  if (source == nullptr) {
    throw RpcError(Layer::kProtocol, "missing-element", "get-config needs the parameter \"source\"")
        .At(path, kNetconfSpace)
        .With("bad-element", "source");
  }
  if (source->Find(kNetconfSpace, "running") == nullptr) {
    throw RpcError(Layer::kProtocol, "invalid-value", "there is no datastore but running")
        .At(path + "/op:source", kNetconfSpace);
  }
}

void AddParameter(const XmlElement &child, const std::string &path, Request *request) {
  const XmlElement &operation = *child.parent;
  // The operation of RFC 7950, section 7.15.2, holds a tree of data; the model has no action.
  if (operation.Is("urn:ietf:params:xml:ns:yang:1", "action")) return;
  if (child.space != operation.space) {
    throw RpcError(Layer::kApplication, "unknown-namespace",
                   "<" + operation.name + "> takes no parameter of another namespace")
        .At(path, operation.space)
        .With("bad-element", child.name)
        .With("bad-namespace", child.space);
  }
  // The operations of the base name datastores and hold parts of configurations, which say nothing here: that
  // there is such a parameter is looked at with the others'.
  const bool isBase = operation.space == kNetconfSpace;
  if (!isBase || child.children.empty()) CheckAttributes(child, path, operation.space);
  if (!isBase && !child.children.empty()) {
    throw RpcError(Layer::kApplication, "unknown-element", "a parameter holds a value and no elements")
        .At(path, operation.space)
        .With("bad-element", child.children[0]->name);
  }
  request->parameters.emplace_back(child.name, child.text);
}

// The operations whose parameters omad is not asked with.
void CheckNoParameters(const Request &request) {
  if (request.parameters.empty()) return;
  throw RpcError(Layer::kProtocol, "unknown-element",
                 request.operation + " has no parameter \"" + request.parameters[0].first + '"')
      .At("/nc:rpc/op:" + request.operation, request.space)
      .With("bad-element", request.parameters[0].first);
}

void AddWanted(Request *request) {
  std::vector<std::string> places;
  if (request->filter.kind == DataFilter::Kind::kXpath) {
    places = PlacesOfXpath(request->filter.xpath, request->filter.bindings);
  } else if (request->filter.kind == DataFilter::Kind::kSubtree) {
    for (const auto &each : request->filter.subtree->children) AddPlacesOfSubtree(*each, &places);
    if (places.empty()) places.emplace_back();  // an empty filter selects nothing
  }
  for (std::string &place : places) request->parameters.emplace_back("want", std::move(place));
}

}  // namespace

Request ReadRequest(std::unique_ptr<XmlElement> rpc) {
  CheckRoot(*rpc);
  CheckNoText(*rpc, "/nc:rpc", std::string(kNetconfSpace));
  const XmlElement &operation = *rpc->children[0];
  Request request{nullptr, operation.space, operation.name, {}, {}};
  const std::string path = "/nc:rpc/op:" + operation.name;
  CheckAttributes(operation, path, operation.space);
  CheckNoText(operation, path, operation.space);
  for (const auto &child : operation.children) {
    const std::string childPath = path + "/op:" + child->name;
    if (TakesFilter(operation) && child->Is(operation.space, "filter")) {
      ReadFilter(*child, childPath, &request.filter);
    } else {
      AddParameter(*child, childPath, &request);
    }
  }
  if (request.Is(kNetconfSpace, "get") || request.Is(kNetconfSpace, "close-session"))
    CheckNoParameters(request);
  if (request.Is(kNetconfSpace, "get")) AddWanted(&request);
  if (request.Is(kNetconfSpace, "get-config")) CheckSource(operation, path);
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

}  // namespace qdt::host
