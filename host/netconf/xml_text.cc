#include "host/netconf/xml_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qdt::host {
namespace {

bool IsXmlCharacter(uint32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  return code <= 0xd7ff || (code >= 0xe000 && code <= 0x10ffff && (code & 0xfffe) != 0xfffe);
}

}  // namespace

size_t XmlCharacterLength(std::string_view text) {
  const auto lead = static_cast<uint8_t>(text[0]);
  const size_t length = lead < 0x80   ? 1
                        : lead < 0xc0 ? 0
                        : lead < 0xe0 ? 2
                        : lead < 0xf0 ? 3
                        : lead < 0xf8 ? 4
                                      : 0;
  if (length == 0 || length > text.size()) return 0;
  uint32_t code = length == 1 ? lead : lead & (0x7fu >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xc0) != 0x80) return 0;
    code = (code << 6) | (next & 0x3f);
  }
  constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // shorter forms are not allowed to be longer
  return code >= kLeast[length] && IsXmlCharacter(code) ? length : 0;
}

std::string XmlText(std::string text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = XmlCharacterLength(std::string_view(text).substr(at));
    if (length == 0) text[at] = '?';
    at += length == 0 ? 1 : length;
  }
  return text;
}

void AppendXmlEscaped(std::string_view text, std::string *xml) {
  for (size_t at = 0; at < text.size();) {
    const size_t special = std::min(text.find_first_of("&<>\"\r", at), text.size());
    xml->append(text, at, special - at);
    if (special == text.size()) return;
    switch (text[special]) {
      case '&':
        *xml += "&amp;";
        break;
      case '<':
        *xml += "&lt;";
        break;
      case '>':
        *xml += "&gt;";
        break;
      case '"':
        *xml += "&quot;";
        break;
      default:  // a reader would take a bare one for a line's end
        *xml += "&#xD;";
    }
    at = special + 1;
  }
}

std::string XmlEscaped(std::string_view text) {
  std::string xml;
  AppendXmlEscaped(text, &xml);
  return xml;
}

std::string XmlLeaf(std::string_view name, std::string_view text) {
  return Joined({"<", name, ">", XmlEscaped(text), "</", name, ">"});
}

std::string Joined(std::initializer_list<std::string_view> texts) {
  std::string joined;
  for (const std::string_view text : texts) joined += text;
  return joined;
}

}  // namespace qdt::host
