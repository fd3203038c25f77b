#ifndef TOOLS_NQECLI_SHELL_LINE_EDITOR_H_
#define TOOLS_NQECLI_SHELL_LINE_EDITOR_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/nqecli/completion.h"

struct editline;
struct history;

namespace qdt::nqecli {

// What may follow a part of a line, and how much of its end they replace.
struct Following {
  std::vector<Candidate> candidates;
  size_t typed = 0;
};

// Reads lines from the terminal with editing and a history. One lives at a time.
class LineEditor {
 public:
  using Follow = std::function<Following(std::string_view upToCursor)>;

  // Throws HostError when the terminal cannot be used.
  LineEditor(const char *prompt, Follow follow);
  ~LineEditor();
  LineEditor(const LineEditor &) = delete;
  LineEditor &operator=(const LineEditor &) = delete;

  // Nothing at the terminal's end; an empty line after Ctrl-C. A line that nobody types by hand is thrown as
  // HostError.
  std::optional<std::string> Read();
  void Remember(const std::string &line);

  // For the terminal library.
  const char *prompt() const { return prompt_; }
  int ReadCharacter(wchar_t *character);
  unsigned char Complete();
  unsigned char ShowFollowing();

 private:
  int ReadByte(unsigned char *byte);
  void List(const std::vector<Candidate> &candidates);

  const char *prompt_;
  Follow follow_;
  editline *editor_ = nullptr;
  struct history *history_ = nullptr;
  size_t read_ = 0;  // characters of this line
  bool isTooLong_ = false;
  int waiting_ = -1;  // a byte that ended a character before its time
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_SHELL_LINE_EDITOR_H_
