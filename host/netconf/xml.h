#ifndef HOST_NETCONF_XML_H_
#define HOST_NETCONF_XML_H_

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qdt::host {

// An element of a message. Names are local names with the namespace that their prefix stands for.
struct XmlElement {
  struct Attribute {
    std::string prefix;  // as written
    std::string space;   // empty for one without a prefix
    std::string name;
    std::string value;
  };

  std::string space;
  std::string name;
  std::vector<Attribute> attributes;
  // Prefix ("" for the default) and namespace that this element declares.
  std::vector<std::pair<std::string, std::string>> declared;
  std::string text;  // that of the element itself, its pieces joined
  std::vector<std::unique_ptr<XmlElement>> children;
  XmlElement *parent = nullptr;

  bool Is(std::string_view wantedSpace, std::string_view wantedName) const {
    return name == wantedName && space == wantedSpace;
  }
  // The first child of this name, or null.
  const XmlElement *Find(std::string_view wantedSpace, std::string_view wantedName) const;
  // The value of the attribute that has no namespace, or null.
  const std::string *FindAttribute(std::string_view wantedName) const;
  // The text without the white space around it.
  std::string_view Value() const;
};

// What is wrong with a text that is no document, for whoever sent it.
class XmlError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a document may hold, beside the bytes of its text.
struct XmlLimits {
  size_t depth = 64;
  size_t elements = 65'536;
  size_t attributes = 64;  // of one element, declarations of namespaces with them
};

// Reads a whole document: UTF-8, no document type (RFC 6241, section 3), only the entities that every
// document knows. Throws XmlError.
std::unique_ptr<XmlElement> ReadXml(std::string_view text, const XmlLimits &limits = {});

// The root of a document of which only the beginning may be there, without what stands in it; null when its
// tag cannot be read.
std::unique_ptr<XmlElement> ReadXmlRoot(std::string_view text);

// The element as a document. Its namespaces are declared where they change, without prefixes; those that a
// leaf declares are kept for its value.
void AppendXml(const XmlElement &element, std::string_view outerSpace, std::string *xml);

}  // namespace qdt::host

#endif  // HOST_NETCONF_XML_H_
