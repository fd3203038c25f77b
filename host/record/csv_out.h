#ifndef HOST_RECORD_CSV_OUT_H_
#define HOST_RECORD_CSV_OUT_H_

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/record/text_out.h"

namespace qdt::host {

// Lines of cells as RFC 4180 has them. A line of one cell without anything in it is written with quotes: many
// readers pass over lines that are empty.
class CsvOut {
 public:
  explicit CsvOut(TextOut *out) : out_(*out) {}

  void Cell(std::string_view text) {
    isEmpty_ = atStart_ && text.empty();
    if (!std::exchange(atStart_, false)) out_.Put(',');
    const auto isSpecial = [](char c) { return c == '"' || c == ',' || c == '\r' || c == '\n'; };
    if (std::ranges::none_of(text, isSpecial)) return out_.Append(text);
    out_.Put('"');
    for (const char c : text) {
      if (c == '"') out_.Put(c);
      out_.Put(c);
    }
    out_.Put('"');
  }
  void EndLine() {
    if (std::exchange(isEmpty_, false)) out_.Append("\"\"");
    out_.Append("\r\n");
    atStart_ = true;
  }

 private:
  TextOut &out_;
  bool atStart_ = true;
  bool isEmpty_ = false;  // so far
};

}  // namespace qdt::host

#endif  // HOST_RECORD_CSV_OUT_H_
