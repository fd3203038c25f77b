#ifndef HOST_NETCONF_XML_TEXT_H_
#define HOST_NETCONF_XML_TEXT_H_

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace qdt::host {

// The text with '?' for each byte that a management document cannot carry: control characters other than tab
// and line ends, and what is not UTF-8 (RFC 3629) or not a character of XML 1.0. Engine records can hold any
// byte.
std::string XmlText(std::string text);

// Bytes of the character at the start of `text`, which is not empty; 0 when there is none that a document can
// carry.
size_t XmlCharacterLength(std::string_view text);

// The text as content of an element, and of an attribute in double quotation marks. It holds nothing but
// characters that a document can carry.
void AppendXmlEscaped(std::string_view text, std::string *xml);
std::string XmlEscaped(std::string_view text);

// <name>text</name>; a number in digits.
std::string XmlLeaf(std::string_view name, std::string_view text);
template <std::integral Number>
std::string XmlLeaf(std::string_view name, Number number) {
  return XmlLeaf(name, std::to_string(number));
}

// The texts one behind the other.
std::string Joined(std::initializer_list<std::string_view> texts);

}  // namespace qdt::host

#endif  // HOST_NETCONF_XML_TEXT_H_
