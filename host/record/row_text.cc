#include "host/record/row_text.h"

#include <algorithm>

namespace qdt::host {

size_t Characters(std::string_view text) {
  size_t count = 0;
  for (const char c : text) count += (static_cast<uint8_t>(c) & 0xc0) != 0x80 ? 1 : 0;
  return count;
}

std::vector<size_t> WidthsOf(const std::vector<std::string> &names,
                             const std::vector<std::vector<std::string>> &rows) {
  std::vector<size_t> widths;
  for (size_t i = 0; i < names.size(); ++i) {
    widths.push_back(names[i].size());
    for (const auto &row : rows) widths[i] = std::max(widths[i], Characters(row[i]));
  }
  return widths;
}

void AppendRow(const std::vector<std::string> &cells, const std::vector<size_t> &widths,
               const std::vector<bool> &isNumber, size_t shown, TextOut *out) {
  size_t blanks = 0;  // none at a line's end
  for (size_t i = 0; i < shown; ++i) {
    const size_t pad = widths[i] - std::min(widths[i], Characters(cells[i]));
    if (isNumber[i]) blanks += pad;
    if (!cells[i].empty()) {
      static constexpr std::string_view kBlanks = "                                ";
      for (; blanks > kBlanks.size(); blanks -= kBlanks.size()) out->Append(kBlanks);
      out->Append(kBlanks.substr(0, blanks));
      blanks = 0;
      out->Append(cells[i]);
    }
    blanks += 2 + (isNumber[i] ? 0 : pad);
  }
  out->Put('\n');
}

}  // namespace qdt::host
