#ifndef HOST_AGENT_XML_TEXT_H_
#define HOST_AGENT_XML_TEXT_H_

#include <string>

namespace qdt::host {

// The text with '?' for each byte that a management document cannot carry: control characters other than tab
// and line ends, and what is not UTF-8 (RFC 3629) or not a character of XML 1.0. Engine records can hold any
// byte.
std::string XmlText(std::string text);

}  // namespace qdt::host

#endif  // HOST_AGENT_XML_TEXT_H_
