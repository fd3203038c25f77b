#include "host/netconf/xml.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "host/netconf/xml_text.h"

namespace qdt::host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr char kXmlSpace[] = "http://www.w3.org/XML/1998/namespace";
constexpr char kXmlnsSpace[] = "http://www.w3.org/2000/xmlns/";

bool IsNameStart(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80;
}
bool IsNameByte(unsigned char c) { return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

// "PREFIX:NAME", each of them a view of the document.
struct QName {
  std::string_view prefix;
  std::string_view name;
};

class Reader {
 public:
  Reader(std::string_view text, const XmlLimits &limits) : text_(text), limits_(limits) {}

  std::unique_ptr<XmlElement> Document() {
    auto root = Root();
    if (!closed_) Content(root.get());
    SkipMisc();
    if (at_ != text_.size()) Fail("something stands behind the document's end");
    return root;
  }

  // The prolog and the first element's tag.
  std::unique_ptr<XmlElement> Root() {
    Take("\xef\xbb\xbf");
    SkipMisc();
    if (!Take("<")) Fail("there is no element");
    return Tag(nullptr);
  }

 private:
  [[noreturn]] void Fail(const std::string &what) const {
    throw XmlError(what + ", at byte " + std::to_string(at_ + 1));
  }

  bool Take(std::string_view word) {
    if (!text_.substr(at_).starts_with(word)) return false;
    at_ += word.size();
    return true;
  }
  bool SkipBlanks() {
    const size_t begin = at_;
    at_ = std::min(text_.find_first_not_of(kBlanks, at_), text_.size());
    return at_ != begin;
  }
  // Up to and with `end`.
  std::string_view Until(std::string_view end, const char *what) {
    const size_t found = text_.find(end, at_);
    if (found == text_.npos) Fail(std::string(what) + " has no end");
    const std::string_view inside = text_.substr(at_, found - at_);
    CheckCharacters(inside);
    at_ = found + end.size();
    return inside;
  }
  void CheckCharacters(std::string_view text) const {
    while (!text.empty()) {
      const size_t length = XmlCharacterLength(text);
      if (length == 0) Fail("there is a character that no document can hold");
      text.remove_prefix(length);
    }
  }

  // A comment or an instruction, which say nothing here. What "<" follows is looked at by the caller.
  bool TakeAside() {
    if (Take("<!--")) {
      if (Until("--", "a comment"); !Take(">")) Fail("a comment holds \"--\"");
      return true;
    }
    if (Take("<?")) {
      Until("?>", "an instruction");
      return true;
    }
    return false;
  }
  void SkipMisc() {
    while (SkipBlanks() || TakeAside()) {
    }
    if (text_.substr(at_).starts_with("<!")) Fail("a document type is not taken");
  }

  std::string_view NcName() {
    const size_t begin = at_;
    if (at_ == text_.size() || !IsNameStart(text_[at_])) Fail("there is no name");
    while (at_ < text_.size() && IsNameByte(text_[at_])) ++at_;
    const std::string_view name = text_.substr(begin, at_ - begin);
    CheckCharacters(name);
    return name;
  }
  QName Name() {
    const std::string_view first = NcName();
    if (!Take(":")) return {{}, first};
    return {first, NcName()};
  }

  // What "&" begins.
  void Reference(std::string *to) {
    constexpr std::pair<std::string_view, char> kEntities[] = {
        {"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''}};
    for (const auto &[word, character] : kEntities) {
      if (!Take(word)) continue;
      to->push_back(character);
      return;
    }
    if (!Take("#")) Fail("an entity is not known");
    const int base = Take("x") ? 16 : 10;
    const size_t end = std::min(text_.find(';', at_), text_.size());
    uint32_t code = 0;
    const auto [stop, error] = std::from_chars(text_.data() + at_, text_.data() + end, code, base);
    if (error != std::errc() || stop != text_.data() + end || end == text_.size() ||
        stop == text_.data() + at_)
      Fail("a character's number cannot be read");
    std::string character;
    if (code < 0x80) {
      character = {static_cast<char>(code)};
    } else if (code < 0x800) {
      character = {static_cast<char>(0xc0 | code >> 6), static_cast<char>(0x80 | (code & 0x3f))};
    } else if (code < 0x10000) {
      character = {static_cast<char>(0xe0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3f)),
                   static_cast<char>(0x80 | (code & 0x3f))};
    } else if (code < 0x110000) {
      character = {static_cast<char>(0xf0 | code >> 18), static_cast<char>(0x80 | (code >> 12 & 0x3f)),
                   static_cast<char>(0x80 | (code >> 6 & 0x3f)), static_cast<char>(0x80 | (code & 0x3f))};
    }
    if (character.empty() || XmlCharacterLength(character) == 0) Fail("a character's number is none");
    to->append(character);
    at_ = end + 1;
  }

  // Text as it is written, its line ends made "\n".
  void AppendText(std::string_view text, std::string *to) const {
    CheckCharacters(text);
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\r') {
        to->push_back(text[i]);
      } else if (i + 1 == text.size() || text[i + 1] != '\n') {
        to->push_back('\n');
      }
    }
  }

  std::string AttributeValue() {
    SkipBlanks();
    if (!Take("=")) Fail("an attribute has no value");
    SkipBlanks();
    const char quote = at_ < text_.size() ? text_[at_] : '\0';
    if (quote != '"' && quote != '\'') Fail("an attribute's value is not in quotation marks");
    ++at_;
    const char stops[] = {'&', '<', quote};
    std::string value;
    while (true) {
      const size_t stop = text_.find_first_of(std::string_view(stops, sizeof stops), at_);
      if (stop == text_.npos) Fail("an attribute's value has no end");
      const size_t begin = value.size();
      AppendText(text_.substr(at_, stop - at_), &value);
      std::replace_if(
          value.begin() + begin, value.end(), [](char c) { return c == '\t' || c == '\n'; }, ' ');
      at_ = stop + 1;
      if (text_[stop] == quote) return value;
      if (text_[stop] == '<') Fail("an attribute's value holds \"<\"");
      Reference(&value);
    }
  }

  // The namespace of a prefix; null for one that is not declared.
  static const std::string *SpaceOf(const XmlElement *element, std::string_view prefix) {
    static const std::string kNone, kXml = kXmlSpace;
    if (prefix == "xml") return &kXml;
    for (; element != nullptr; element = element->parent) {
      for (const auto &[name, space] : element->declared) {
        if (name == prefix) return &space;
      }
    }
    return prefix.empty() ? &kNone : nullptr;
  }
  std::string Resolve(const XmlElement *element, std::string_view prefix) const {
    const std::string *space = SpaceOf(element, prefix);
    if (space == nullptr) Fail("the prefix \"" + std::string(prefix) + "\" stands for no namespace");
    return *space;
  }

  void Declare(XmlElement *element, std::string_view prefix, std::string space) const {
    if (prefix == "xmlns" || prefix == "xml" || space == kXmlnsSpace || (space.empty() && !prefix.empty()))
      Fail("a namespace cannot be declared so");
    for (const auto &[name, other] : element->declared) {
      if (name == prefix) Fail("a namespace is declared twice");
    }
    element->declared.emplace_back(prefix, std::move(space));
  }

  void Attributes(XmlElement *element) {
    for (size_t count = 0;; ++count) {
      const bool apart = SkipBlanks();
      if (at_ == text_.size() || text_[at_] == '>' || text_[at_] == '/') return;
      if (!apart) Fail("an element's name and attributes are not apart");
      if (count == limits_.attributes)
        Fail("an element has more than " + std::to_string(limits_.attributes) + " attributes");
      const QName name = Name();
      std::string value = AttributeValue();
      if (name.prefix == "xmlns") {
        Declare(element, name.name, std::move(value));
      } else if (name.prefix.empty() && name.name == "xmlns") {
        Declare(element, "", std::move(value));
      } else {
        element->attributes.push_back(
            {std::string(name.prefix), {}, std::string(name.name), std::move(value)});
      }
    }
  }

  // An element's tag, behind its "<". Sets closed_ for one that holds nothing.
  std::unique_ptr<XmlElement> Tag(XmlElement *parent) {
    if (++elements_ > limits_.elements)
      Fail("there are more than " + std::to_string(limits_.elements) + " elements");
    auto element = std::make_unique<XmlElement>();
    element->parent = parent;
    const size_t begin = at_;
    const QName name = Name();
    opened_.push_back(text_.substr(begin, at_ - begin));
    if (opened_.size() > limits_.depth)
      Fail("elements stand more than " + std::to_string(limits_.depth) + " deep");
    Attributes(element.get());
    closed_ = Take("/>");
    if (!closed_ && !Take(">")) Fail("an element's tag has no end");
    if (closed_) opened_.pop_back();
    element->name = name.name;
    element->space = Resolve(element.get(), name.prefix);
    for (XmlElement::Attribute &one : element->attributes) {
      if (!one.prefix.empty()) one.space = Resolve(element.get(), one.prefix);
    }
    CheckAttributes(*element);
    return element;
  }
  void CheckAttributes(const XmlElement &element) const {
    for (const auto &one : element.attributes) {
      for (const auto &other : element.attributes) {
        if (&one != &other && one.name == other.name && one.space == other.space)
          Fail("an attribute is given twice");
      }
    }
  }

  // What stands in `element`, with its end tag, and in all below it.
  void Content(XmlElement *element) {
    while (true) {
      const size_t stop = std::min(text_.find_first_of("<&", at_), text_.size());
      const std::string_view piece = text_.substr(at_, stop - at_);
      if (piece.find("]]>") != piece.npos) Fail("a text holds \"]]>\"");
      AppendText(piece, &element->text);
      at_ = stop;
      if (at_ == text_.size()) Fail("the document ends within an element");
      if (Take("&")) {
        Reference(&element->text);
      } else if (Take("<![CDATA[")) {
        AppendText(Until("]]>", "a section of text"), &element->text);
      } else if (TakeAside()) {
      } else if (Take("</")) {
        EndTag();
        element = element->parent;
        if (element == nullptr) return;
      } else {
        ++at_;
        element->children.push_back(Tag(element));
        if (!closed_) element = element->children.back().get();
      }
    }
  }
  void EndTag() {
    if (!Take(opened_.back())) Fail("an element ends that is not open");
    SkipBlanks();
    if (!Take(">")) Fail("an element ends that is not open");
    opened_.pop_back();
  }

  const std::string_view text_;
  const XmlLimits limits_;
  size_t at_ = 0;
  size_t elements_ = 0;
  bool closed_ = false;
  std::vector<std::string_view> opened_;  // names as written
};

}  // namespace

const XmlElement *XmlElement::Find(std::string_view wantedSpace, std::string_view wantedName) const {
  for (const auto &child : children) {
    if (child->Is(wantedSpace, wantedName)) return child.get();
  }
  return nullptr;
}

const std::string *XmlElement::FindAttribute(std::string_view wantedName) const {
  for (const Attribute &attribute : attributes) {
    if (attribute.space.empty() && attribute.name == wantedName) return &attribute.value;
  }
  return nullptr;
}

std::string_view XmlElement::Value() const {
  const size_t first = std::string_view(text).find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return std::string_view(text).substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::unique_ptr<XmlElement> ReadXml(std::string_view text, const XmlLimits &limits) {
  return Reader(text, limits).Document();
}

std::unique_ptr<XmlElement> ReadXmlRoot(std::string_view text) {
  try {
    return Reader(text, {}).Root();
  } catch (const XmlError &) {
    return nullptr;
  }
}

void AppendXml(const XmlElement &element, std::string_view outerSpace, std::string *xml) {
  *xml += '<' + element.name;
  if (element.space != outerSpace) *xml += " xmlns=\"" + XmlEscaped(element.space) + '"';
  // Prefixes may stand in values.
  for (const auto &[prefix, space] : element.declared) {
    if (element.children.empty() && !prefix.empty() && !element.text.empty())
      *xml += " xmlns:" + prefix + "=\"" + XmlEscaped(space) + '"';
  }
  if (element.children.empty() && element.text.empty()) {
    *xml += "/>";
    return;
  }
  *xml += '>';
  if (element.children.empty()) AppendXmlEscaped(element.text, xml);
  for (const auto &child : element.children) AppendXml(*child, element.space, xml);
  *xml += "</" + element.name + '>';
}

}  // namespace qdt::host
