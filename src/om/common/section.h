#ifndef SRC_OM_COMMON_SECTION_H_
#define SRC_OM_COMMON_SECTION_H_

#include "src/om/common/address.h"
#include "src/om/common/text.h"

namespace qdt {

// "  LABEL   :  CONVERSION\n" with the label padded to kWidth characters.
template <size_t kWidth, format::Format Label, format::Format Conversion>
consteval auto LabelledLine() {
  constexpr size_t kLabel = Label.kLength > kWidth ? Label.kLength : kWidth;
  char line[2 + kLabel + 3 + Conversion.kLength + 2]{};
  size_t at = 0;
  const auto append = [&](std::string_view text) {
    for (const char c : text) line[at++] = c;
  };
  append("  ");
  append({Label.text, Label.kLength});
  while (at < 2 + kLabel) line[at++] = ' ';
  append(":  ");
  append({Conversion.text, Conversion.kLength});
  append("\n");
  return format::Format(line);
}

// The labelled lines of one section of a large record, whose labels are padded to a common column:
//
//   Section<18> common(text);
//   common.Line<"IfIndex">(e.ifIndex);
//   common.Line<"Flag", "%08x">(e.flags);
template <size_t kWidth>
class Section {
 public:
  explicit Section(Text &text) : text_(text) {}

  template <format::Format Label, format::Format Conversion = "%u", typename... Args>
  void Line(Args... args) {
    text_.Print<LabelledLine<kWidth, Label, Conversion>()>(args...);
  }

  template <format::Format Label>
  void MacLine(const uint8_t (&mac)[6]) {
    Line<Label, "%02x:%02x:%02x:%02x:%02x:%02x">(Mac(mac));
  }

 private:
  Text &text_;
};

}  // namespace qdt

#endif  // SRC_OM_COMMON_SECTION_H_
