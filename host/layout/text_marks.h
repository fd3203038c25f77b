#ifndef HOST_LAYOUT_TEXT_MARKS_H_
#define HOST_LAYOUT_TEXT_MARKS_H_

#include <string>

namespace qdt::host {

// For as long as it lives, newlines inside the text fields of the records that the library reads are marked
// in what it is given to read: in an answer of many lines they could not be told from a line's end. The mark
// is a byte that no character has; in an answer with marks such a byte of a field counts as a newline as
// well. One at a time.
class TextMarks {
 public:
  static constexpr char kMark = '\xff';

  // `wanted`: whether anything is marked.
  explicit TextMarks(bool wanted = true);
  ~TextMarks();
  TextMarks(const TextMarks &) = delete;
  TextMarks &operator=(const TextMarks &) = delete;

  // Whether a newline was marked since the last one began to live.
  static bool Met();
};

// The answer with its marks, if there are any, as "\n".
std::string WithoutMarks(std::string answer);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_TEXT_MARKS_H_
