#ifndef HOST_RECORD_ROW_TEXT_H_
#define HOST_RECORD_ROW_TEXT_H_

#include <string>
#include <string_view>
#include <vector>

#include "host/record/text_out.h"

namespace qdt::host {

// Tables of text as answers show them.

// Characters of UTF-8.
size_t Characters(std::string_view text);

// How wide the columns are that hold these cells under their names.
std::vector<size_t> WidthsOf(const std::vector<std::string> &names,
                             const std::vector<std::vector<std::string>> &rows);

// The first `shown` cells of a row, two blanks apart and numbers at the right, and a line end.
void AppendRow(const std::vector<std::string> &cells, const std::vector<size_t> &widths,
               const std::vector<bool> &isNumber, size_t shown, TextOut *out);

}  // namespace qdt::host

#endif  // HOST_RECORD_ROW_TEXT_H_
